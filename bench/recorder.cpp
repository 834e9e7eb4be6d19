// recorder.cpp - see recorder.h: the episodes, and how one is told.
#include "bench/recorder.h"

#include <algorithm>

#include "bench/modem.h"
#include "bench/scenario.h"

namespace bench
{
namespace
{

const char *const kToldOptions[] = {"ro", "nosuid", "nodev"};
const char kModemName[] = "modem";

std::string ToldOptions(const std::string &options)
{
    std::string told;
    for (const std::string option : kToldOptions) {
        if (("," + options + ",").find("," + option + ",") != std::string::npos)
            told += (told.empty() ? "" : ",") + option;
    }
    return told;
}

// ---- The modem: its port and its disk are one statement ----

std::string ModemPortText(const char *verb)
{
    return std::string(verb) + " port " + QuotedText(kModemPort);
}

bool HasModem(const Recorder &recorder)
{
    return std::ranges::any_of(recorder.disks,
                               [](const auto &entry) { return entry.second.name == kModemName; });
}

void RenameDisk(Episode *episode, const std::string &from, const std::string &to)
{
    for (Change &change : episode->outside) {
        if (change.text.ends_with(" " + from))
            change.text.replace(change.text.size() - from.size(), from.size(), to);
    }
}

// Whether a disk of this label can be the modem's: the configuration speaks of it.
bool IsModemLabel(const Sighting &now, const std::string &label)
{
    return label == kDefaultLabel || (now.config && now.config->find(label) != std::string::npos);
}

void JoinModemCome(Recorder *recorder, const Sighting &now)
{
    std::vector<Change> &outside = recorder->episode.outside;
    const auto port = std::ranges::find(outside, ModemPortText("plug"), &Change::text);
    const auto disk = std::ranges::find_if(outside, [&](const Change &change) {
        const auto known = recorder->disks.find(change.device);
        return change.text.starts_with("plug disk ") && known != recorder->disks.end() &&
               IsModemLabel(now, known->second.label);
    });
    if (port == outside.end() || disk == outside.end() || HasModem(*recorder))
        return;
    KnownDisk &known = recorder->disks[disk->device];
    const std::string label = MaskText(&recorder->privacy, known.label);
    disk->text = label == kDefaultLabel ? "plug modem" : "plug modem label " + QuotedText(label);
    RenameDisk(&recorder->episode, known.name, kModemName);
    known.name = kModemName;
    outside.erase(port);
}

void JoinModemGone(Episode *episode)
{
    std::vector<Change> &outside = episode->outside;
    const auto port = std::ranges::find(outside, ModemPortText("unplug"), &Change::text);
    const auto disk = std::ranges::find(outside, std::string("unplug modem"), &Change::text);
    if (port != outside.end() && disk != outside.end())
        outside.erase(port);
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
        episode.arrivals > 0 && episode.callbacks >= episode.arrivals && episode.mounted.empty();
    if (refused && !recorder->mountRefuses) {
        *text += "mount refuses\n";
        recorder->mountRefuses = true;
    } else if (!episode.mounted.empty() && recorder->mountRefuses) {
        *text += "mount works\n";
        recorder->mountRefuses = false;
    }
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

void TellEpisode(Recorder *recorder)
{
    Episode &episode = recorder->episode;
    std::string text;
    ArrangeSetup(recorder, &text);
    ArrangeMount(recorder, &text);
    ArrangeOpen(recorder, &text);
    std::ranges::stable_sort(episode.outside, {}, &Change::rank);
    for (const Change &change : episode.outside)
        text += change.text + (change.text.ends_with('\n') ? "" : "\n");
    for (const std::string &expected : episode.log)
        text += expected + "\n";
    if (episode.active && recorder->last.daemon != 0 && IsAtRest(recorder->progress))
        text += "wait until idle\n";
    for (const auto &[place, options] : episode.mounted) {
        const std::string told = ToldOptions(options);
        text += "expect mounted " + QuotedText(MaskText(&recorder->privacy, place)) +
                (told.empty() ? "" : " with " + QuotedText(told)) + "\n";
    }
    for (const std::string &place : episode.unmounted)
        text += "expect not mounted " + QuotedText(MaskText(&recorder->privacy, place)) + "\n";
    recorder->text += text.empty() ? "" : "\n" + text;
    episode = Episode();
}

// A disk or port that came and went before the daemon said anything is not told.
void AddChange(Episode *episode, const Change &change)
{
    const bool unplug = change.text.starts_with("unplug ");
    const std::string plugged =
        change.text.starts_with("unplug port ") ? change.text.substr(2) : "";
    const auto came = std::ranges::find_if(episode->outside, [&](const Change &earlier) {
        const bool sameDisk = !change.device.empty() && earlier.device == change.device &&
                              earlier.text.starts_with("plug ");
        return unplug && (sameDisk || earlier.text == plugged);
    });
    if (came == episode->outside.end())
        episode->outside.push_back(change);
    else
        episode->outside.erase(came);
}

void RecordMounts(Recorder *recorder, const Sighting &now)
{
    const auto stands = [](const Sighting &sighting, const std::string &place) {
        return std::ranges::find(sighting.mounts, place, &Mounted::place) != sighting.mounts.end();
    };
    Episode &episode = recorder->episode;
    for (const Mounted &mounted : now.mounts) {
        if (!stands(recorder->last, mounted.place) &&
            mounted.options.find("nosuid") != std::string::npos) {
            episode.mounted[mounted.place] = mounted.options;
            episode.active = true;
        }
    }
    for (const Mounted &mounted : recorder->last.mounts) {
        if (!stands(now, mounted.place)) {
            episode.unmounted.push_back(mounted.place);
            episode.active = true;
        }
    }
}

}  // namespace

void Record(Recorder *recorder, const Sighting &sighting, const LogBook &log)
{
    const bool first = recorder->text.empty();
    if (first) {
        recorder->text = "title \"A recording\"\n";
        recorder->linesTaken = recorder->midway ? log.lines.size() : 0;
        recorder->last.finder = true;  // as every scenario begins
    }
    const std::vector<Change> changes = ChangesOutside(recorder, sighting);
    if (!changes.empty() && recorder->episode.active)
        TellEpisode(recorder);
    for (const Change &change : changes)
        AddChange(&recorder->episode, change);
    JoinModemCome(recorder, sighting);
    JoinModemGone(&recorder->episode);
    RecordMounts(recorder, sighting);
    recorder->last = sighting;
    if (first && recorder->midway && sighting.daemon != 0) {
        recorder->episode.active = true;
        TellEpisode(recorder);
    }
    for (; recorder->linesTaken < log.lines.size(); ++recorder->linesTaken)
        RecordLine(recorder, log.lines[recorder->linesTaken].text);
}

void FinishRecording(Recorder *recorder)
{
    TellEpisode(recorder);
}

}  // namespace bench
