// record_outside.cpp - what changed outside the daemon between two looks, as statements.
#include <algorithm>

#include "bench/modem.h"
#include "bench/recorder.h"
#include "bench/scenario.h"

namespace bench
{
namespace
{

// The order in which the changes of one episode are told: what goes before what comes, and the daemon
// starts when all is in its place.
enum Rank {
    kKill,
    kFiles,
    kPeople,
    kUnplugPort,
    kUnplug,
    kChange,
    kPlugPort,
    kPlug,
    kSystemMounts,
    kStart,
};

std::string PortText(Recorder *recorder, const std::string &port)
{
    return QuotedText(MaskPort(&recorder->privacy, port));
}

void CompareFile(Recorder *recorder, const char *word, const std::optional<std::string> &before,
                 const std::optional<std::string> &now, std::vector<Change> *changes)
{
    if (before == now)
        return;
    const std::string text =
        now ? word + std::string("\n") + BlockText(MaskText(&recorder->privacy, *now))
            : std::string("no ") + word;
    changes->push_back({kFiles, text, ""});
}

void CompareFiles(Recorder *recorder, const Sighting &now, std::vector<Change> *changes)
{
    CompareFile(recorder, "config", recorder->last.config, now.config, changes);
    // The setup runner writes this file itself.
    if (!recorder->progress.inside)
        CompareFile(recorder, "sysconfig", recorder->last.sysConfig, now.sysConfig, changes);
}

// Folders that stand where volumes are to be mounted. Those that come while the daemon runs are its own.
void CompareFolders(const Recorder &recorder, const Sighting &now, std::vector<Change> *changes)
{
    if (recorder.last.daemon != 0)
        return;
    for (const std::string &folder : now.folders) {
        if (!recorder.last.folders.contains(folder))
            changes->push_back({kFiles, "make folder " + QuotedText(folder), ""});
    }
}

void ComparePeople(Recorder *recorder, const Sighting &now, std::vector<Change> *changes)
{
    const Sighting &last = recorder->last;
    if (now.daemonUser != last.daemonUser && !now.daemonUser.empty()) {
        const std::string user = MaskUser(&recorder->privacy, now.daemonUser);
        changes->push_back({kPeople, "daemon user " + QuotedText(user), ""});
    }
    if (now.consoleUser != last.consoleUser && !now.consoleUser.empty()) {
        const std::string user = MaskUser(&recorder->privacy, now.consoleUser);
        const std::string text = user == "root" ? "logout" : "login " + QuotedText(user);
        changes->push_back({kPeople, text, ""});
    }
    if (now.finder != last.finder)
        changes->push_back({kPeople, now.finder ? "finder starts" : "finder quits", ""});
}

void ComparePorts(Recorder *recorder, const Sighting &now, std::vector<Change> *changes)
{
    for (const std::string &port : recorder->last.ports) {
        if (!now.ports.contains(port))
            changes->push_back({kUnplugPort, "unplug port " + PortText(recorder, port), ""});
    }
    for (const std::string &port : now.ports) {
        if (!recorder->last.ports.contains(port))
            changes->push_back({kPlugPort, "plug port " + PortText(recorder, port), ""});
    }
}

// Disks that went, and other disks in the same drive. The labels concerned go to `labels`.
void CompareKnownDisks(Recorder *recorder, std::vector<Change> *changes,
                       std::set<std::string> *labels)
{
    for (auto at = recorder->disks.begin(); at != recorder->disks.end();) {
        KnownDisk &disk = at->second;
        const std::string identity = IdentityOf(at->first);
        if (identity == disk.identity) {
            ++at;
            continue;
        }
        labels->insert(disk.label);
        if (identity.empty()) {
            changes->push_back({kUnplug, "unplug " + disk.name, at->first});
            at = recorder->disks.erase(at);
            continue;
        }
        changes->push_back({kChange, "change " + disk.name, ""});
        disk.identity = identity;
        ++at;
    }
}

void CompareDisks(Recorder *recorder, const Sighting &now, std::vector<Change> *changes)
{
    std::set<std::string> labels;
    CompareKnownDisks(recorder, changes, &labels);
    for (const auto &[label, disk] : now.disks) {
        const auto before = recorder->last.disks.find(label);
        if (!recorder->disks.contains(disk.device)) {
            const std::string name = "disk" + std::to_string(++recorder->disksNamed);
            const std::string text = MaskText(&recorder->privacy, label);
            recorder->disks[disk.device] = {name, label, disk.identity};
            changes->push_back(
                {kPlug, "plug disk " + QuotedText(text) + " as " + name, disk.device});
        } else if (before != recorder->last.disks.end() && before->second.link != disk.link &&
                   before->second.device == disk.device && !labels.contains(label)) {
            changes->push_back({kChange, "touch " + recorder->disks[disk.device].name, ""});
        }
    }
}

void CompareDaemon(const Recorder &recorder, const Sighting &now, std::vector<Change> *changes)
{
    if (recorder.last.daemon == now.daemon)
        return;
    if (recorder.last.daemon != 0)
        changes->push_back({kKill, "kill daemon", ""});
    if (now.daemon != 0)
        changes->push_back({kStart, "start daemon", ""});
}

// The daemon's own mounts forbid programs to change users and devices to be opened.
bool IsDaemonsMount(const Mounted &mounted)
{
    return mounted.options.find("nosuid") != std::string::npos &&
           mounted.options.find("nodev") != std::string::npos;
}

bool Contains(const std::vector<Mounted> &mounts, const std::string &place)
{
    return std::ranges::any_of(mounts,
                               [&](const Mounted &mounted) { return mounted.place == place; });
}

void CompareSystemMounts(const Recorder &recorder, const Sighting &now,
                         std::vector<Change> *changes)
{
    for (const Mounted &mounted : now.mounts) {
        if (IsDaemonsMount(mounted) || Contains(recorder.last.mounts, mounted.place))
            continue;
        for (const auto &[device, disk] : recorder.disks) {
            if (mounted.place == "/Volumes/" + disk.label)
                changes->push_back({kSystemMounts, "system mounts " + disk.name, ""});
        }
    }
}

}  // namespace

std::vector<Change> ChangesOutside(Recorder *recorder, const Sighting &now)
{
    std::vector<Change> changes;
    CompareFiles(recorder, now, &changes);
    CompareFolders(*recorder, now, &changes);
    ComparePeople(recorder, now, &changes);
    ComparePorts(recorder, now, &changes);
    CompareDisks(recorder, now, &changes);
    CompareSystemMounts(*recorder, now, &changes);
    CompareDaemon(*recorder, now, &changes);
    return changes;
}

}  // namespace bench
