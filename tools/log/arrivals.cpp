// arrivals.cpp - see arrivals.h. One handler for each stretch of the daemon's work; a text that
// comes out of its order (lines were lost) changes what it can and nothing else.
#include "tools/log/arrivals.h"

#include <algorithm>
#include <cstdlib>

#include "observe/daemon.h"
#include "tools/log/sentences.h"

namespace klog
{

// ---- Steps ----

static Arrival &Current(Teller &teller)
{
    return teller.run.arrivals[teller.current];
}

static void BeginStep(Arrival &arrival, const char *name, size_t index, bool inner = false)
{
    arrival.steps.push_back({name, "", index, index, false, inner});
}

// Ends the newest step of that name that is still open; nothing when there is none.
static void EndStep(Arrival &arrival, const std::string &name, size_t index,
                    const std::string &detail)
{
    for (size_t i = arrival.steps.size(); i-- > 0;) {
        Step &step = arrival.steps[i];
        if (step.name != name || step.ended)
            continue;
        step.last = index;
        step.detail = detail;
        step.ended = true;
        return;
    }
}

static void Decide(Arrival &arrival, Outcome outcome, const std::string &sentence)
{
    arrival.outcome = outcome;
    arrival.sentence = sentence;
    arrival.decided = true;
}

static std::string Text(std::string_view text)
{
    return std::string(text);
}

// ---- The start ----

static void BeginStart(Teller &teller, size_t index)
{
    Arrival arrival;
    arrival.atStart = true;
    BeginStep(arrival, "port", teller.portsFirst);
    EndStep(arrival, "port", index, "found at look " + std::to_string(teller.journey.portLooks));
    teller.run.arrivals.push_back(arrival);
    teller.current = teller.run.arrivals.size() - 1;
}

static void TellStart(Teller &teller, size_t index, Event event)
{
    if (event == Event::PortsRead && teller.journey.portLooks == 1)
        teller.portsFirst = index;
    if (event == Event::PortFound)
        BeginStart(teller, index);
    if (event == Event::PortWait && teller.journey.portLooks == observe::kPortTries &&
        !IsBusy(teller.journey.stage)) {
        teller.run.notes.push_back("no modem in ten looks at the start (" +
                                   Lines(teller.log, teller.portsFirst, index) + ")");
    }
    if (event == Event::OptionNobrowse || event == Event::OptionRdonly) {
        const std::string option = event == Event::OptionNobrowse ? "nobrowse" : "rdonly";
        teller.run.notes.push_back("mounts with " + option + " (" +
                                   Lines(teller.log, index, index) + ")");
    }
}

// ---- Disk and mount ----

static void TellPeek(Teller &teller, size_t index, Event event)
{
    if (event == Event::PeekEnter) {
        teller.run.arrivals.emplace_back();
        BeginStep(teller.run.arrivals.back(), "peek", index);
        teller.awaiting.push_back(teller.run.arrivals.size() - 1);
        return;
    }
    if (teller.awaiting.empty())
        return;
    Arrival &arrival = teller.run.arrivals[teller.awaiting.back()];
    if (event == Event::PeekRefused) {
        arrival.notes.push_back("the system's own mount could not be switched off (" +
                                Lines(teller.log, index, index) +
                                "): who mounted the volume, and with which options, is open");
    } else {
        EndStep(arrival, "peek", index, "the mount is asked for");
        BeginStep(arrival, "mount", index);
    }
}

static long NumberOf(const Teller &teller, size_t arrival)
{
    return teller.log.records[teller.run.arrivals[arrival].steps.front().first].number;
}

// A mount that was asked for before lines were lost has most likely ended in them, when another one
// was asked for since.
static void SkipLost(Teller &teller)
{
    while (teller.awaiting.size() > 1) {
        const Gap *gap = GapBehind(teller.run, NumberOf(teller, teller.awaiting[0]));
        if (!gap || gap->to > NumberOf(teller, teller.awaiting[1]))
            return;
        teller.awaiting.pop_front();
    }
}

// The mount-time actions begin: at the start of the daemon, or because the oldest mount that was
// asked for has ended.
static void TellMountEnter(Teller &teller, size_t index, bool atStart)
{
    if (!atStart && !teller.awaiting.empty()) {
        SkipLost(teller);
        teller.current = teller.awaiting.front();
        if (teller.awaiting.size() > 1) {
            Current(teller).notes.push_back(std::to_string(teller.awaiting.size()) +
                                            " mounts were under way: which of them ended (" +
                                            Lines(teller.log, index, index) +
                                            ") is taken from their order");
        }
        teller.awaiting.pop_front();
    } else if (!atStart) {
        teller.run.arrivals.emplace_back();
        teller.run.arrivals.back().notes.emplace_back("how it began is not in the log");
        teller.current = teller.run.arrivals.size() - 1;
    }
    teller.finder = {};
    EndStep(Current(teller), "mount", index, "it ended; the log never says whether it succeeded");
    BeginStep(Current(teller), "console", index);
}

static void TellConsole(Teller &teller, size_t index, Event event)
{
    Arrival &arrival = Current(teller);
    if (event == Event::SameUser) {
        const bool unread = teller.journey.noOwnUser && teller.journey.noConsoleUser;
        EndStep(arrival, "console", index,
                unread ? "neither user could be read, which counts as the same"
                       : "the daemon's user owns it");
        BeginStep(arrival, "finder", index);
    }
    if (event == Event::OtherUser || event == Event::NoPipe) {
        const bool other = event == Event::OtherUser;
        EndStep(arrival, "console", index, other ? "not the daemon's user" : "not known");
        Decide(arrival, other ? Outcome::OtherUser : Outcome::NoPipe,
               other ? OtherUserSentence(teller, index) : NoPipeSentence(teller, index));
    }
}

// ---- The Finder ----

// A search that finds nothing ends with the exit code 1.
static const long kNothingFound = 256;

static void TellFinder(Teller &teller, size_t index, Event event)
{
    FinderLooks &finder = teller.finder;
    if (finder.firstLook == 0 && event != Event::None)
        finder.firstLook = finder.lastLook = index;
    if (event == Event::CaptureEnter)
        finder.lastLook = index;
    if (event == Event::ShellStatus && teller.journey.shell.status != kNothingFound) {
        finder.oddStatus = teller.journey.shell.status;
        finder.oddRecord = index;
    }
    if (event == Event::CaptureNoFile || event == Event::CaptureEmpty) {
        finder.unread++;
        finder.oddRecord = index;
    }
    if (event == Event::FinderFailed || event == Event::FinderEmpty)
        finder.count++;
    if (event == Event::FinderThere) {
        EndStep(Current(teller), "finder", index,
                "it runs, seen at look " + std::to_string(finder.count + 1));
        BeginStep(Current(teller), "application", index);
    }
}

// ---- Commands ----

static void TellOpening(Teller &teller, size_t index, Event event)
{
    Arrival &arrival = Current(teller);
    if (event == Event::NoConfig)
        arrival.notes.push_back("the configuration file could not be opened (" +
                                Lines(teller.log, index, index) +
                                "), so the built-in path is used");
    if (event == Event::ShellTrue)
        Decide(arrival, Outcome::Opened, OpenedSentence(teller, arrival, index));
    if (event == Event::ShellFalse)
        Decide(arrival, Outcome::CommandFailed, CommandFailedSentence(teller, arrival, index));
    const bool told = arrival.decided;  // else the command's own lines are missing
    if (event == Event::AppOpened) {
        EndStep(arrival, "application", index,
                told ? "opened at try " + std::to_string(teller.journey.shell.failed + 1)
                     : "opened");
        if (!told)
            Decide(arrival, Outcome::Opened, ResultSentence(teller, index, true));
    }
    if (event == Event::AppFailed) {
        EndStep(arrival, "application", index, "all tries failed");
        if (!told)
            Decide(arrival, Outcome::CommandFailed, ResultSentence(teller, index, false));
    }
}

// ---- The setup package ----

static void EndSetup(Teller &teller, size_t index, Event event)
{
    Arrival &arrival = Current(teller);
    const std::string line = Lines(teller.log, teller.setupRecord, teller.setupRecord);
    if (event == Event::SetupOk) {
        EndStep(arrival, "setup", index, "run");
    } else if (teller.setupReason == Event::SetupNoSection ||
               teller.setupReason == Event::SetupNotAsked) {
        EndStep(arrival, "setup", index, "not asked for (" + line + ")");
    } else if (teller.setupReason == Event::SetupNoFile) {
        // Whether one is asked for stands in that file: it is missing, or may not be written.
        EndStep(arrival, "setup", index, "not run: SysConfig.dat did not open (" + line + ")");
    } else if (teller.setupReason == Event::None || teller.setupReason == Event::SetupEnter) {
        EndStep(arrival, "setup", index, "not run, for a reason that is not in the log");
    } else {
        EndStep(arrival, "setup", index, "failed (" + line + ")");
        arrival.notes.push_back("the setup package was asked for and failed, " + line + ": " +
                                Text(teller.log.records[teller.setupRecord].message));
        arrival.setupFailed = true;
    }
}

static void TellSetup(Teller &teller, size_t index, const Found &found, Event event)
{
    Arrival &arrival = Current(teller);
    if (IsSetupLine(event)) {
        teller.setupReason = event;
        teller.setupRecord = index;
    }
    switch (event) {
    case Event::ApprovalEnter:
        BeginStep(arrival, "setup", index);
        teller.setupReason = Event::None;
        teller.setupRecord = index;
        break;
    case Event::VolumeEnter: BeginStep(arrival, "setup volume", index, true); break;
    case Event::VolumeThere:
        EndStep(arrival, "setup volume", index,
                "there after " + Text(found.filled.empty() ? "?" : found.filled[0]) + " s");
        break;
    case Event::VolumeGone: EndStep(arrival, "setup volume", index, "it did not come"); break;
    case Event::ShellEnter: BeginStep(arrival, "setup command", index, true); break;
    case Event::ShellTrue:
        EndStep(arrival, "setup command", index,
                "run at try " + std::to_string(teller.journey.shell.failed + 1));
        break;
    case Event::ShellFalse: EndStep(arrival, "setup command", index, "all tries failed"); break;
    case Event::SetupOk:
    case Event::SetupFailed: EndSetup(teller, index, event); break;
    default: break;
    }
}

// ---- All of it ----

static void TellStartVolume(Teller &teller, size_t index, const Found &found, Event event)
{
    Arrival &arrival = Current(teller);
    if (event == Event::VolumeEnter)
        BeginStep(arrival, "volume", index);
    if (event == Event::VolumeTry)
        arrival.steps.back().last = index;
    if (event == Event::VolumeThere) {
        EndStep(arrival, "volume", index,
                "there after " + Text(found.filled.empty() ? "?" : found.filled[0]) + " s");
    }
    if (event == Event::VolumeGone) {
        const size_t first = arrival.steps.back().first;
        EndStep(arrival, "volume", index, "it did not come");
        Decide(arrival, Outcome::NoVolume, NoVolumeSentence(teller, first, index));
    }
}

// ---- Missing lines ----

// Where the lines that end a stage, or begin the whole, are missing, a later
// one says that it is over: the daemon was at `before`, and is at `stage` with
// the record.
static void CatchUp(Teller &teller, size_t index, Stage before, Stage stage, Event event)
{
    static const char *const kSteps[] = {"console", "finder", "application", "setup"};
    const auto stepOf = [](Stage of) {
        return std::min<size_t>(static_cast<size_t>(of) - static_cast<size_t>(Stage::Owner), 3);
    };
    if (stage < Stage::Owner)
        return;
    const bool begins = event == Event::MountEnter || before < Stage::Owner;
    if (begins)
        TellMountEnter(teller, index, before == Stage::Volume);
    for (size_t step = begins ? 0 : stepOf(before); step < stepOf(stage); step++) {
        EndStep(Current(teller), kSteps[step], index, "over; the line that ends it is missing");
        if (event != Event::ApprovalEnter || step != 2)
            BeginStep(Current(teller), kSteps[step + 1], index);
    }
}

void TellRecord(Teller &teller, size_t index, const Found &found)
{
    const Event event = EventOf(found);
    const Stage before = teller.journey.stage;
    const Stage stage = Follow(teller.journey, index, found);
    TellStart(teller, index, event);
    CatchUp(teller, index, before, stage, event);
    if (event == Event::PeekEnter || event == Event::PeekRefused || event == Event::PeekExit)
        TellPeek(teller, index, event);
    if (event == Event::ConfigUnreadable && stage < Stage::Owner)
        teller.run.notes.push_back("the configuration file cannot be opened (" +
                                   Lines(teller.log, index, index) + "): the defaults hold");
    if (stage == Stage::Volume)
        TellStartVolume(teller, index, found, event);
    else if (stage == Stage::Owner)
        TellConsole(teller, index, event);
    else if (stage == Stage::Finder)
        TellFinder(teller, index, event);
    else if (stage == Stage::Application)
        TellOpening(teller, index, event);
    if (stage >= Stage::Setup || teller.journey.stage >= Stage::Setup)
        TellSetup(teller, index, found, event);
}

void EndTelling(Teller &teller)
{
    const Stage stage = teller.journey.stage;
    if (IsBusy(stage) && !Current(teller).decided) {
        Arrival &arrival = Current(teller);
        if (stage == Stage::Finder &&
            (teller.finder.count > 0 || teller.journey.shell.failed > 0)) {
            arrival.outcome = Outcome::NoFinder;
            arrival.sentence = NoFinderSentence(teller);
        } else if (stage < Stage::Setup) {
            arrival.sentence = UnfinishedSentence(teller, arrival);
        }
    }
    for (const size_t waiting : teller.awaiting) {
        Arrival &arrival = teller.run.arrivals[waiting];
        if (GapBehind(teller.run, NumberOf(teller, waiting)))
            continue;  // the completion may have been among the missing lines
        arrival.outcome = Outcome::NoCompletion;
        arrival.sentence = NoCompletionSentence(teller, arrival);
    }
    for (size_t i = 0; i < teller.run.arrivals.size(); i++) {
        Arrival &arrival = teller.run.arrivals[i];
        if (arrival.sentence.empty())
            arrival.sentence = UnknownSentence(teller, arrival);
        // Where lines are missing a step may have no end although the daemon is past it.
        const bool goesOn = (IsBusy(stage) && i == teller.current) ||
                            std::ranges::binary_search(teller.awaiting, i);
        for (Step &step : arrival.steps) {
            if (!step.ended && goesOn)
                step.last = teller.run.last;
        }
    }
}

}  // namespace klog
