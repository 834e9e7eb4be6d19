// sighting.cpp - see sighting.h.
#include "modem/sighting.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "modem/hardware.h"
#include "modem/logbook.h"
#include "observe/commands.h"
#include "observe/daemon.h"
#include "observe/disks.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"
#include "observe/process.h"

namespace modem
{
namespace
{

namespace fs = std::filesystem;

std::string Numbers(const struct stat &status)
{
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
           std::to_string(status.st_rdev);
}

// What identifies the disk at a device, or what is mounted at a place; empty when nothing stands
// there. A drive stays when its medium goes: the kernel counts its media.
std::string IdentityOf(const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return "";
    if (!S_ISBLK(status.st_mode))
        return Numbers(status);
    const std::string folder = "/sys/dev/block/" + std::to_string(major(status.st_rdev)) + ":" +
                               std::to_string(minor(status.st_rdev));
    return Numbers(status) + ":" + observe::ReadFile(folder + "/diskseq");
}

std::map<std::string, SeenMount> MountsNow(const World &world)
{
    std::map<std::string, SeenMount> mounts;
    for (const observe::Mounted &mounted : MountsUnder(world, observe::kVolumesDir))
        mounts[mounted.place] = {mounted.options, IdentityOf(mounted.place)};
    return mounts;
}

std::set<std::string> FoldersWithout(const std::map<std::string, SeenMount> &mounts)
{
    std::set<std::string> folders;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(observe::kVolumesDir, ignored))
        folders.insert(entry.path());
    for (const auto &[place, mounted] : mounts)
        folders.erase(place);
    return folders;
}

// The folder of the log, and the disk that it lies on.
void LookAtLogFolder(Sighting *sighting)
{
    const fs::path folder = fs::path(observe::kLogFile).parent_path();
    struct stat own;
    struct stat above;
    struct statvfs disk;
    sighting->logFolder = stat(folder.c_str(), &own) == 0;
    const bool known = sighting->logFolder && statvfs(folder.c_str(), &disk) == 0 &&
                       stat(folder.parent_path().c_str(), &above) == 0;
    const bool isDisk = known && own.st_dev != above.st_dev;
    sighting->logReadOnly = known && (disk.f_flag & ST_RDONLY) != 0;
    sighting->logDisk = isDisk ? static_cast<long>(disk.f_blocks * disk.f_frsize) : 0;
    sighting->logFull = isDisk && disk.f_bavail == 0;
}

std::optional<std::string> ContentOf(const char *path)
{
    return access(path, R_OK) == 0 ? std::optional(observe::ReadFile(path)) : std::nullopt;
}

std::map<std::string, SeenDisk> LinkedDisks()
{
    std::map<std::string, SeenDisk> disks;
    for (const std::string &name : observe::LinksIn(kByLabel)) {
        const fs::path link = fs::path(kByLabel) / name;
        std::error_code error;
        struct stat status;
        const std::string device = fs::canonical(link, error);
        const std::string identity = error ? "" : IdentityOf(device);
        if (!identity.empty() && lstat(link.c_str(), &status) == 0) {
            disks[device] = {observe::UnescapeLabel(name), identity, Numbers(status),
                             fs::is_regular_file(device, error)};
        }
    }
    return disks;
}

// Whether a disk that was seen before is missing in `disks` though it stands where it stood.
bool MissesOne(const std::map<std::string, SeenDisk> &before,
               const std::map<std::string, SeenDisk> &disks)
{
    return std::ranges::any_of(before, [&](const auto &entry) {
        return !disks.contains(entry.first) && IdentityOf(entry.first) == entry.second.identity;
    });
}

bool HasLabel(const std::map<std::string, SeenDisk> &disks, const std::string &label)
{
    return std::ranges::any_of(disks,
                               [&](const auto &entry) { return entry.second.label == label; });
}

// The disks that are there now. One without a link is there as long as its device is and its link
// names another disk: a drive whose medium went has no link any more.
std::map<std::string, SeenDisk> DisksNow(const std::map<std::string, SeenDisk> &before)
{
    std::map<std::string, SeenDisk> disks = LinkedDisks();
    if (MissesOne(before, disks))  // a list may lack a link that is renamed over itself just then
        disks = LinkedDisks();
    const std::map<std::string, SeenDisk> linked = disks;
    for (auto [device, disk] : before) {
        disk.link.clear();
        if (!linked.contains(device) && HasLabel(linked, disk.label) &&
            IdentityOf(device) == disk.identity) {
            disks[device] = disk;
        }
    }
    return disks;
}

}  // namespace

void LookAtHardware(const World &world, Sighting *sighting)
{
    sighting->mounts = MountsNow(world);
    sighting->folders = FoldersWithout(sighting->mounts);
    struct stat log;
    sighting->logSize = stat(observe::kLogFile, &log) == 0 ? static_cast<long>(log.st_size) : 0;
    LookAtLogFolder(sighting);
    sighting->config = ContentOf(observe::kConfigFile);
    sighting->sysConfig = ContentOf(observe::kSysConfigFile);
    sighting->disks = DisksNow(sighting->disks);
    sighting->ports.clear();
    for (const std::string &name : observe::LinksIn(kById))
        sighting->ports.insert(name);
}

void LookAtDaemon(const Process &daemon, Sighting *sighting)
{
    sighting->daemon = daemon.ended ? 0 : daemon.pid;
    sighting->idle = observe::IsIdle(daemon.pid);
    sighting->waits = observe::SleepOf(daemon.pid) == observe::Sleep::Timed;
}

void LookAtPeople(const World &world, Sighting *sighting)
{
    sighting->consoleUser = observe::FirstLine(observe::ReadFile(world.stateDir + "/console-user"));
    sighting->daemonUser = observe::FirstLine(observe::ReadFile(world.stateDir + "/daemon-user"));
    sighting->finder = access((world.stateDir + "/finder").c_str(), F_OK) == 0;
}

void AskForPeople(long daemon, Sighting *sighting)
{
    sighting->consoleUser = observe::OwnerOfConsole();
    sighting->finder = observe::FinderRuns();
    if (daemon > 0)
        sighting->daemonUser = observe::OwnerOfProcess(daemon);
}

}  // namespace modem
