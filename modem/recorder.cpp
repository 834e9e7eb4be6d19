// recorder.cpp - see recorder.h: the episodes, and how one is told.
#include "modem/recorder.h"

#include <algorithm>

#include "modem/scenario.h"
#include "observe/log_line.h"

namespace modem
{
namespace
{

const char *const kToldOptions[] = {"ro", "nosuid", "nodev"};

// Seconds of the daemon. Changes that lie no further apart belong together, while the daemon does
// not answer the first ones; of those that lie further apart the first are told by themselves, with
// a wait behind them that keeps them apart on slow machines too.
const double kSettling = 3;
const char kKeepApart[] = "wait 10 s\n";

std::string ToldOptions(const std::string &options)
{
    std::string told;
    for (const std::string option : kToldOptions) {
        if (("," + options + ",").find("," + option + ",") != std::string::npos)
            told += (told.empty() ? "" : ",") + option;
    }
    return told;
}

// ---- What must be arranged for the daemon to meet the same again ----

void ArrangeOpen(Recorder *recorder, std::string *text)
{
    const Episode &episode = recorder->episode;
    if (episode.openGaveUp && !episode.opened && !recorder->openFails) {
        *text += "open fails always\n";
        recorder->openFails = true;
    } else if (episode.opened && episode.openFailures > 0) {
        *text += "open fails " + std::to_string(episode.openFailures) + " times\n";
        recorder->openFails = false;
    } else if (episode.opened && recorder->openFails) {
        *text += "open works\n";
        recorder->openFails = false;
    }
}

void ArrangeMount(Recorder *recorder, std::string *text)
{
    const Episode &episode = recorder->episode;
    const bool refused =
        episode.arrivals > 0 && episode.callbacks >= episode.arrivals && !episode.mountSeen;
    if (refused && !recorder->mountRefuses) {
        *text += "mount refuses\n";
        recorder->mountRefuses = true;
    } else if (episode.mountSeen && recorder->mountRefuses) {
        *text += "mount works\n";
        recorder->mountRefuses = false;
    }
    if (episode.mountHeld)
        *text += "mount holds\n";
}

// The setup file's opening brings forth what is opened after it.
void ArrangeSetup(Recorder *recorder, std::string *text)
{
    const std::vector<std::string> &opened = recorder->episode.setupOpened;
    for (size_t i = 0; i + 1 < opened.size(); i += 2) {
        const std::string rule =
            "when opened " + QuotedText(MaskText(&recorder->privacy, opened[i])) + " make folder " +
            QuotedText(MaskText(&recorder->privacy, opened[i + 1])) + "\n";
        if (recorder->setups.insert(rule).second)
            *text += rule;
    }
}

// ---- Episodes ----

// What cannot be seen, but follows from what the daemon did.
void AddUnseen(Recorder *recorder, std::vector<Change> *changes)
{
    const Episode &episode = recorder->episode;
    for (Change &change : *changes) {
        if (change.what == Happened::SysConfig)
            change.text = recorder->sysConfigMade;
    }
    if (episode.readOnly && recorder->now.sysConfig && !recorder->readOnly) {
        changes->push_back({Happened::ReadOnly, "", ""});
        recorder->readOnly = true;
    }
    if (episode.mountFreed)
        changes->push_back({Happened::MountWorks, "", ""});
}

std::string TellMounts(Recorder *recorder, const Sighting &before, const Sighting &now)
{
    std::string text;
    for (const auto &[place, mounted] : now.mounts) {
        const auto stood = before.mounts.find(place);
        if (OwnerOf(mounted.options, false) != Owner::Daemon ||
            (stood != before.mounts.end() && stood->second == mounted))
            continue;
        const std::string told = ToldOptions(mounted.options);
        text += "expect mounted " + QuotedText(MaskText(&recorder->privacy, place)) +
                (told.empty() ? "" : " with " + QuotedText(told)) + "\n";
    }
    for (const auto &[place, mounted] : before.mounts) {
        if (!now.mounts.contains(place)) {
            text += "expect not mounted " + QuotedText(MaskText(&recorder->privacy, place)) + "\n";
        }
    }
    return text;
}

void TellEpisode(Recorder *recorder)
{
    const Episode &episode = recorder->episode;
    const Sighting before = recorder->told;
    std::vector<Change> changes = ChangesBetween(before, recorder->now);
    AddUnseen(recorder, &changes);
    std::string text;
    ArrangeSetup(recorder, &text);
    ArrangeMount(recorder, &text);
    ArrangeOpen(recorder, &text);
    recorder->told = recorder->now;
    text += TellChanges(recorder, changes);
    for (const std::string &expected : episode.log)
        text += expected + "\n";
    if (episode.active && recorder->now.daemon != 0 &&
        IsAtRest(recorder->progress, IsUnheard(recorder->now)))
        text += "wait until idle\n";
    text += TellMounts(recorder, before, recorder->now);
    recorder->text += text.empty() ? "" : "\n" + text;
    recorder->episode = Episode();
}

// An episode that the daemon did not answer.
void TellQuietEpisode(Recorder *recorder)
{
    const bool idle = recorder->now.idle;
    const size_t length = recorder->text.size();
    TellEpisode(recorder);
    if (recorder->text.size() > length)
        recorder->text += (idle ? "wait until idle\n" : "") + std::string(kKeepApart);
}

// A disk that goes while it is being mounted: its mount is held in the scenario until it is gone,
// or it might be over too early when this is played.
bool GoesDuringMount(const Recorder &recorder, const Sighting &next)
{
    const Episode &episode = recorder.episode;
    const bool underWay =
        recorder.progress.journey.pending > 0 && episode.arrivals > 0 && !episode.mountSeen;
    return underWay && !recorder.mountRefuses && next.daemon == recorder.now.daemon &&
           std::ranges::any_of(recorder.now.disks, [&](const auto &entry) {
               return !next.disks.contains(entry.first);
           });
}

// Ends the episode before what `next` shows of the outside, if that is not a part of it.
void EndEpisodeBefore(Recorder *recorder, const Sighting &next)
{
    Episode &episode = recorder->episode;
    const bool late = next.at - episode.changedAt > kSettling;
    const bool joins = !episode.active || (!episode.startPass && !late);
    if (joins && IsOtherHalf(*recorder, next))
        return;
    if (episode.active) {
        const bool held = GoesDuringMount(*recorder, next);
        episode.mountHeld = held;
        TellEpisode(recorder);
        recorder->episode.mountFreed = held;
        if (late && IsUnheard(recorder->now) && recorder->progress.waits)
            recorder->text += kKeepApart;  // how far it came meanwhile no line says
    } else if (late) {
        TellQuietEpisode(recorder);
    }
}

// What came and went of mounts is something that the daemon did.
void FollowMounts(Recorder *recorder, const Sighting &next)
{
    Episode &episode = recorder->episode;
    for (const auto &[place, mounted] : next.mounts) {
        const auto stood = recorder->now.mounts.find(place);
        const bool stands = stood != recorder->now.mounts.end() && stood->second == mounted;
        if (!stands && OwnerOf(mounted.options, false) == Owner::Daemon) {
            episode.mountSeen = true;
            episode.active = true;
        }
    }
    for (const auto &[place, mounted] : recorder->now.mounts)
        episode.active = episode.active || !next.mounts.contains(place);
}

void TakeSighting(Recorder *recorder, const Sighting &next)
{
    if (!ChangesBetween(recorder->now, next).empty()) {
        EndEpisodeBefore(recorder, next);
        recorder->episode.changedAt = next.at;
        if (next.sysConfig != recorder->now.sysConfig)
            recorder->sysConfigMade = next.sysConfig.value_or("");
    }
    FollowMounts(recorder, next);
    recorder->now = next;
}

// ---- What a look means is known when the log was read once more ----

// Leaves out mounts of which it is not known whose they are. One that was known stays so.
void LeaveOutStrangers(const Recorder &recorder, bool underWay, Sighting *sighting)
{
    std::erase_if(sighting->mounts, [&](const auto &entry) {
        const auto known = recorder.now.mounts.find(entry.first);
        const bool stands = known != recorder.now.mounts.end() && known->second == entry.second;
        return !stands && OwnerOf(entry.second.options, underWay) == Owner::Unknown;
    });
}

// Whether the setup runner has made `now` of `before`: it writes "No" and a zero byte over three
// bytes.
bool IsSwitchedOff(const std::string &before, const std::string &now)
{
    const std::string written("No\0", 3);
    if (before.size() != now.size())
        return false;
    const size_t at = static_cast<size_t>(std::ranges::mismatch(before, now).in1 -
                                          before.begin());  // the "N" may have stood there
    for (size_t start = at < written.size() ? 0 : at - written.size() + 1; start <= at; ++start) {
        if (start + written.size() <= now.size() &&
            std::string(before).replace(start, written.size(), written) == now)
            return before != now;
    }
    return false;
}

// A change of SysConfig.dat that the daemon made is none of the outside.
void TakeSysConfig(Recorder *recorder, const std::optional<std::string> &content)
{
    std::optional<std::string> *now = &recorder->now.sysConfig;
    if (!*now || !content || !IsSwitchedOff(**now, *content))
        return;
    if (recorder->told.sysConfig == *now)
        recorder->told.sysConfig = content;
    *now = content;
}

// Takes out of the sighting what is the daemon's own doing, though it looks like the outside's, and
// what could not be seen.
void TakeOutDaemonsDoing(Recorder *recorder, Sighting *sighting)
{
    const Sighting &now = recorder->now;
    TakeSysConfig(recorder, sighting->sysConfig);
    // The folders for its mounts.
    if (now.daemon != 0 && sighting->daemon != 0)
        sighting->folders = now.folders;
    // The log, once it is at work.
    if (recorder->begun)
        sighting->logSize = now.logSize;
    if (sighting->daemonUser.empty())
        sighting->daemonUser = now.daemonUser;
    if (sighting->consoleUser.empty())
        sighting->consoleUser = now.consoleUser;
}

// `after` is what the log said after the look; null when nobody looked.
void TakeHeldLook(Recorder *recorder, const std::vector<std::string> *after)
{
    Look look = *recorder->held;
    recorder->held.reset();
    Progress ahead = recorder->progress;
    for (const std::string &line : look.lines)
        FollowProgress(&ahead, line);
    const bool underWay = after == nullptr || IsUnheard(look.sighting) || ahead.abandoned ||
                          ahead.journey.pending > 0 || std::ranges::any_of(*after, IsArrival);
    LeaveOutStrangers(*recorder, underWay, &look.sighting);
    TakeOutDaemonsDoing(recorder, &look.sighting);
    KeepVolumeName(&recorder->privacy, look.sighting.config.value_or(""));
    (void)MaskUser(&recorder->privacy, look.sighting.daemonUser);
    (void)MaskUser(&recorder->privacy, look.sighting.consoleUser);
    TakeSighting(recorder, look.sighting);
    if (!recorder->begun && recorder->midway && recorder->now.daemon != 0) {
        recorder->episode.active = true;
        TellEpisode(recorder);
    }
    recorder->begun = true;
    for (const std::string &line : look.lines) {
        if (look.sighting.logFull)
            FollowProgress(&recorder->progress, line);
        else
            RecordLine(recorder, line);
    }
    FollowSleep(&recorder->progress, look.sighting);
}

}  // namespace

void Record(Recorder *recorder, const Sighting &sighting, const LogBook &log)
{
    if (recorder->text.empty()) {
        recorder->text = "title \"A recording\"\n";
        recorder->linesTaken = recorder->midway ? log.lines.size() : 0;
        recorder->passedOver = recorder->midway ? log.lastNumber + 1 : 0;
        recorder->firstDaemon = sighting.daemon;
        recorder->told.finder = true;  // as every scenario begins
        recorder->now = recorder->told;
    }
    // A line that was read from the memory of a daemon that was killed is not in the log any more.
    recorder->linesTaken = std::min(recorder->linesTaken, log.lines.size());
    std::vector<std::string> lines;
    for (; recorder->linesTaken < log.lines.size(); ++recorder->linesTaken) {
        const std::string &line = log.lines[recorder->linesTaken].text;
        // The line that the daemon kept in memory when the recording began is written with the next
        // one.
        const long number = observe::RecordNumber(line);
        const bool old = number > 0 && number <= recorder->passedOver;
        if (!old || sighting.daemon != recorder->firstDaemon)
            lines.push_back(line);
    }
    if (recorder->held)
        TakeHeldLook(recorder, &lines);
    recorder->held = Look{lines, sighting};
}

void FinishRecording(Recorder *recorder)
{
    if (recorder->held)
        TakeHeldLook(recorder, nullptr);
    TellEpisode(recorder);
}

}  // namespace modem
