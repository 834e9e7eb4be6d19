// record_outside.cpp - how the outside differs between two sightings, and how that is told.
#include <algorithm>
#include <tuple>

#include "modem/hardware.h"
#include "modem/recorder.h"
#include "modem/scenario.h"
#include "observe/daemon.h"

namespace modem
{
namespace
{

const char kModemName[] = "modem";
const long kNearCap = 9000000;  // bytes of a log that may be cut before the recording is over

void CompareDaemon(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    if (before.daemon == now.daemon)
        return;
    if (before.daemon != 0)
        changes->push_back({Happened::Kill, "", ""});
    if (now.daemon != 0)
        changes->push_back({Happened::Start, "", ""});
}

void CompareFile(const std::optional<std::string> &before, const std::optional<std::string> &now,
                 Happened made, Happened gone, std::vector<Change> *changes)
{
    if (before != now)
        changes->push_back({now ? made : gone, now.value_or(""), ""});
}

void CompareFiles(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    if (before.logFolder != now.logFolder) {
        changes->push_back({now.logFolder ? Happened::MakeLogFolder : Happened::RemoveLogFolder,
                            observe::kLogFolder, ""});
    }
    if (now.logDisk != 0 && before.logDisk != now.logDisk)
        changes->push_back({Happened::LogDisk, std::to_string(now.logDisk), ""});
    if (now.logFull != before.logFull)
        changes->push_back({now.logFull ? Happened::LogFull : Happened::LogRoom, "", ""});
    if (now.logReadOnly != before.logReadOnly) {
        changes->push_back(
            {now.logReadOnly ? Happened::LogReadOnly : Happened::LogWritable, "", ""});
    }
    CompareFile(before.config, now.config, Happened::Config, Happened::NoConfig, changes);
    CompareFile(before.sysConfig, now.sysConfig, Happened::SysConfig, Happened::NoSysConfig,
                changes);
    if (now.logSize >= kNearCap && now.logSize != before.logSize)
        changes->push_back({Happened::FillLog, std::to_string(now.logSize), ""});
    for (const std::string &folder : now.folders) {
        if (!before.folders.contains(folder))
            changes->push_back({Happened::MakeFolder, folder, ""});
    }
}

void ComparePeople(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    if (now.daemonUser != before.daemonUser)
        changes->push_back({Happened::DaemonUser, now.daemonUser, ""});
    if (now.consoleUser != before.consoleUser)
        changes->push_back({Happened::Console, now.consoleUser, ""});
    if (now.finder != before.finder)
        changes->push_back({now.finder ? Happened::FinderStarts : Happened::FinderQuits, "", ""});
}

void ComparePorts(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    for (const std::string &port : before.ports) {
        if (!now.ports.contains(port))
            changes->push_back({Happened::UnplugPort, port, ""});
    }
    for (const std::string &port : now.ports) {
        if (!before.ports.contains(port))
            changes->push_back({Happened::PlugPort, port, ""});
    }
}

void CompareDisks(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    const auto isSameDrive = [](const std::map<std::string, SeenDisk> &disks, const auto &entry) {
        const auto found = disks.find(entry.first);
        return found != disks.end() && found->second.label == entry.second.label;
    };
    for (const auto &entry : before.disks) {
        if (!isSameDrive(now.disks, entry))
            changes->push_back({Happened::Unplug, entry.second.label, entry.first});
    }
    for (const auto &entry : now.disks) {
        const auto &[device, disk] = entry;
        if (!isSameDrive(before.disks, entry)) {
            changes->push_back(
                {disk.image ? Happened::PlugImage : Happened::Plug, disk.label, device});
            continue;
        }
        const SeenDisk &other = before.disks.at(device);
        if (other.identity != disk.identity)
            changes->push_back({Happened::Change, disk.label, device});
        else if (!other.link.empty() && !disk.link.empty() && other.link != disk.link)
            changes->push_back({Happened::Touch, disk.label, device});
    }
}

void CompareSystemMounts(const Sighting &before, const Sighting &now, std::vector<Change> *changes)
{
    const auto isSystems = [](const Sighting &sighting, const std::string &place) {
        const auto found = sighting.mounts.find(place);
        return found != sighting.mounts.end() &&
               OwnerOf(found->second.options, false) == Owner::System;
    };
    for (const auto &[device, disk] : now.disks) {
        const std::string place = observe::kVolumesDir + disk.label;
        if (isSystems(now, place) && !isSystems(before, place))
            changes->push_back({Happened::SystemMounts, place, device});
    }
}

// ---- The modem: its port and its disk are one statement ----

bool IsModemPort(const Change &change)
{
    return change.text == kModemPort;
}

bool IsPlug(const Change &change)
{
    return change.what == Happened::Plug || change.what == Happened::PlugImage;
}

// Whether a disk of this label can be the modem's: the configuration speaks of it.
bool IsModemLabel(const Sighting &now, const std::string &label)
{
    return label == observe::kDefaultVolumeName ||
           (now.config && now.config->find(label) != std::string::npos);
}

// The modem's device; empty when none of the disks told is its.
std::string ModemsDevice(const Recorder &recorder)
{
    for (const auto &[device, name] : recorder.names) {
        if (name == kModemName)
            return device;
    }
    return "";
}

// What of the modem came and went since `recorder.told`.
struct Halves {
    bool portCame = false;
    bool diskCame = false;
    bool portGone = false;
    bool diskGone = false;
};

Halves HalvesOf(const Recorder &recorder, const std::vector<Change> &changes, const Sighting &now)
{
    Halves halves;
    const std::string modem = ModemsDevice(recorder);
    for (const Change &change : changes) {
        if (change.what == Happened::UnplugPort && IsModemPort(change))
            halves.portGone = true;
        if (change.what == Happened::Unplug && change.device == modem)
            halves.diskGone = true;
        if (change.what == Happened::PlugPort && IsModemPort(change))
            halves.portCame = true;
    }
    if (modem.empty() || halves.diskGone) {
        halves.diskCame = std::ranges::any_of(changes, [&](const Change &change) {
            return IsPlug(change) && IsModemLabel(now, change.text);
        });
    }
    return halves;
}

void JoinModem(const Recorder &recorder, std::vector<Change> *changes)
{
    const Halves halves = HalvesOf(recorder, *changes, recorder.now);
    if (halves.portGone && halves.diskGone) {
        std::erase_if(*changes, [](const Change &change) {
            return change.what == Happened::UnplugPort && IsModemPort(change);
        });
    }
    if (!halves.portCame || !halves.diskCame)
        return;
    std::erase_if(*changes, [](const Change &change) {
        return change.what == Happened::PlugPort && IsModemPort(change);
    });
    const auto disk = std::ranges::find_if(*changes, [&](const Change &change) {
        return IsPlug(change) && IsModemLabel(recorder.now, change.text);
    });
    disk->what = Happened::PlugModem;
}

// ---- Statements ----

// Puts what stands for a change's text in a scenario in its place: persons masked, in quotes where
// the statement says so.
void MaskChange(Recorder *recorder, Change *change)
{
    Privacy *privacy = &recorder->privacy;
    switch (change->what) {
    case Happened::UnplugPort:
    case Happened::PlugPort: change->text = QuotedText(MaskPort(privacy, change->text)); return;
    case Happened::DaemonUser: change->text = QuotedText(MaskUser(privacy, change->text)); return;
    case Happened::Console: change->text = MaskUser(privacy, change->text); return;
    case Happened::LogDisk:
    case Happened::FillLog: return;
    case Happened::Config:
    case Happened::SysConfig:
        change->text = "\n" + BlockText(MaskText(privacy, change->text));
        return;
    default: change->text = QuotedText(MaskText(privacy, change->text)); return;
    }
}

// The name of a disk that is plugged in from now on.
std::string NewName(Recorder *recorder, const Change &change)
{
    std::string name = change.what == Happened::PlugModem
                           ? kModemName
                           : "disk" + std::to_string(++recorder->disksNamed);
    recorder->names[change.device] = name;
    return name;
}

// The name of a disk that goes.
std::string LastName(Recorder *recorder, const Change &change)
{
    std::string name = recorder->names[change.device];
    recorder->names.erase(change.device);
    if (name == kModemName)  // the statement pulls the port too
        recorder->told.ports.erase(kModemPort);
    return name;
}

std::string Statement(Recorder *recorder, const Change &change)
{
    const std::string &text = change.text;
    switch (change.what) {
    case Happened::Kill: return "kill daemon";
    case Happened::RemoveLogFolder: return "remove folder " + text;
    case Happened::MakeLogFolder:
    case Happened::MakeFolder: return "make folder " + text;
    case Happened::LogDisk: return "log folder " + text + " bytes";
    case Happened::LogRoom: return "log folder has room";
    case Happened::LogWritable: return "log folder writable";
    case Happened::LogFull: return "log folder full";
    case Happened::LogReadOnly: return "log folder read-only";
    case Happened::Config: return "config" + text;
    case Happened::NoConfig: return "no config";
    case Happened::FillLog: return "fill log " + text + " bytes";
    case Happened::SysConfig: return "sysconfig" + text;
    case Happened::NoSysConfig: return "no sysconfig";
    case Happened::ReadOnly: return "sysconfig read-only";
    case Happened::DaemonUser: return "daemon user " + text;
    case Happened::Console: return text == "root" ? "logout" : "login " + QuotedText(text);
    case Happened::FinderStarts: return "finder starts";
    case Happened::FinderQuits: return "finder quits";
    case Happened::UnplugPort: return "unplug port " + text;
    case Happened::Unplug: return "unplug " + LastName(recorder, change);
    case Happened::MountWorks: return "mount works";
    case Happened::Change: return "change " + recorder->names[change.device];
    case Happened::Touch: return "touch " + recorder->names[change.device];
    case Happened::PlugPort: return "plug port " + text;
    case Happened::PlugModem:
        (void)NewName(recorder, change);
        return text == QuotedText(observe::kDefaultVolumeName) ? "plug modem"
                                                               : "plug modem label " + text;
    case Happened::Plug: return "plug disk " + text + " as " + NewName(recorder, change);
    case Happened::PlugImage: return "plug disk image " + text + " as " + NewName(recorder, change);
    case Happened::SystemMounts: return "system mounts " + recorder->names[change.device];
    case Happened::Start: return "start daemon";
    }
    return "";
}

}  // namespace

// The daemon's own mounts forbid programs to change users and devices to be opened.
Owner OwnerOf(const std::string &options, bool underWay)
{
    const auto has = [&](const char *option) {
        return ("," + options + ",").find(option) != std::string::npos;
    };
    if (has(",nosuid,") && has(",nodev,"))
        return Owner::Daemon;
    return underWay || options.empty() ? Owner::Unknown : Owner::System;
}

std::vector<Change> ChangesBetween(const Sighting &before, const Sighting &now)
{
    std::vector<Change> changes;
    CompareFiles(before, now, &changes);
    ComparePeople(before, now, &changes);
    ComparePorts(before, now, &changes);
    CompareDisks(before, now, &changes);
    CompareSystemMounts(before, now, &changes);
    CompareDaemon(before, now, &changes);
    return changes;
}

std::string TellChanges(Recorder *recorder, std::vector<Change> changes)
{
    JoinModem(*recorder, &changes);
    for (Change &change : changes)
        MaskChange(recorder, &change);
    std::ranges::sort(changes, {}, [](const Change &change) {
        return std::tie(change.what, change.text, change.device);
    });
    std::string text;
    for (const Change &change : changes) {
        text += Statement(recorder, change);
        text += text.ends_with('\n') ? "" : "\n";
    }
    return text;
}

bool IsOtherHalf(const Recorder &recorder, const Sighting &now)
{
    const Sighting &told = recorder.told;
    const Halves one = HalvesOf(recorder, ChangesBetween(told, recorder.now), recorder.now);
    const Halves both = HalvesOf(recorder, ChangesBetween(told, now), now);
    return (one.portCame != one.diskCame && both.portCame && both.diskCame) ||
           (one.portGone != one.diskGone && both.portGone && both.diskGone);
}

}  // namespace modem
