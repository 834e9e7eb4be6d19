// record_log.cpp - which lines of the log a recording keeps, and how far they say that the daemon
// is.
#include <algorithm>

#include "modem/recorder.h"
#include "modem/scenario.h"
#include "observe/log_line.h"

namespace modem
{
namespace
{

using observe::Event;

// What shows how far the daemon came, whenever it is said. How often it tried,
// and when, differs from one time to the next.
const Event kMilestones[] = {
    Event::Version,      Event::StartDone,        Event::StartNoVolume, Event::OptionNobrowse,
    Event::OptionRdonly, Event::PortFound,        Event::PeekEnter,     Event::MountEnter,
    Event::NoPipe,       Event::NoOwnUser,        Event::NoConsoleUser, Event::OtherUser,
    Event::SameUser,     Event::FinderThere,      Event::NoConfig,      Event::AppOpened,
    Event::AppFailed,    Event::MountExit,        Event::SetupOk,       Event::SetupFailed,
    Event::VolumeGone,   Event::SetupSwitchedOff,
};

// What a version begins with, whatever release it is of.
const char kVersion[] = "TOOL-";

void Expect(Recorder *recorder, const std::string &text)
{
    recorder->episode.active = true;
    recorder->episode.log.push_back("expect log " + QuotedText(MaskText(&recorder->privacy, text)));
}

// What stands between the quotes of an open command; empty when nothing does.
std::string OpenedPath(const std::string &body)
{
    const size_t first = body.find('"');
    const size_t last = body.rfind('"');
    return first == std::string::npos || last == first ? ""
                                                       : body.substr(first + 1, last - first - 1);
}

// What the episode needs to know to arrange the same again.
void CountEvents(Episode *episode, const observe::Said &said)
{
    const Event event = EventOf(said.found);
    const std::string command(CommandOf(said.found));
    const bool application = observe::OpensApplication(command);
    const bool ran = event == Event::ShellTrue && command.starts_with("open ");
    episode->arrivals += event == Event::PeekEnter;
    episode->callbacks += event == Event::MountEnter;
    episode->startPass = episode->startPass || said.source == "Kestrun:main";
    episode->readOnly = episode->readOnly || event == Event::SetupNoFile;
    episode->openGaveUp = episode->openGaveUp || (application && event == Event::ShellFalse);
    episode->opened = episode->opened || (application && ran);
    if (application && event != Event::ShellTrue && event != Event::ShellFalse)
        ++episode->openFailures;
    if (ran && !application)
        episode->setupOpened.push_back(OpenedPath(command));
}

// Whether a recording keeps the line.
bool IsKept(const observe::Said &said, bool finderMissed)
{
    const Event event = EventOf(said.found);
    if (event == Event::FinderFailed)
        return !finderMissed;
    if (event == Event::ShellTrue)
        return CommandOf(said.found).starts_with("open ");
    const bool setupEnds = said.source == "ActiveVolumeProgram:RunSDProgram" &&
                           said.message.find("RunSDProgram exit") != std::string_view::npos;
    return setupEnds || std::ranges::find(kMilestones, event) != std::end(kMilestones);
}

}  // namespace

bool IsArrival(const std::string &line)
{
    const std::string body = observe::LineBody(line);
    return EventOf(observe::TakeBody(body).found) == Event::PeekEnter;
}

bool IsUnheard(const Sighting &sighting)
{
    return sighting.daemon != 0 &&
           (!sighting.logFolder || sighting.logReadOnly || sighting.logFull);
}

void FollowSleep(Progress *progress, const Sighting &sighting)
{
    progress->waits = sighting.waits || (progress->waits && !sighting.idle);
    if (!IsUnheard(sighting))
        return;
    progress->finderMissed = true;  // it may have been said
    if (sighting.idle)
        progress->journey = observe::Journey();
}

bool IsAtRest(const Progress &progress, bool unheard)
{
    if (unheard)
        return !progress.waits;
    const observe::Journey &journey = progress.journey;
    return !journey.starting && !IsBusy(journey.stage) && journey.pending == 0;
}

static void FollowFound(Progress *progress, const observe::Found &found)
{
    const Event event = EventOf(found);
    if (event == Event::Version) {
        const bool abandoned = progress->abandoned || progress->journey.pending > 0;
        *progress = Progress();
        progress->abandoned = abandoned;
    }
    if (event == Event::MountEnter)
        progress->finderMissed = false;
    (void)Follow(progress->journey, 0, found);
}

void FollowProgress(Progress *progress, const std::string &line)
{
    const std::string body = observe::LineBody(line);
    FollowFound(progress, observe::TakeBody(body).found);
}

void RecordLine(Recorder *recorder, const std::string &line)
{
    const std::string body = observe::LineBody(line);
    const observe::Said said = observe::TakeBody(body);
    const Event event = EventOf(said.found);
    FollowFound(&recorder->progress, said.found);
    CountEvents(&recorder->episode, said);
    if (!IsKept(said, recorder->progress.finderMissed))
        return;
    recorder->progress.finderMissed =
        recorder->progress.finderMissed || event == Event::FinderFailed;
    Expect(recorder,
           event == Event::Version ? body.substr(0, body.find(kVersion)) + kVersion : body);
}

}  // namespace modem
