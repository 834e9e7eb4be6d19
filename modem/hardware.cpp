// hardware.cpp - the hardware of the bench. udev makes every link under a temporary name
// (".#<name>" and 16 hex digits) and renames it; folders go with their last link and come back as
// new ones; when a device is pulled it is gone before its link is.
#include "modem/hardware.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "modem/children.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/names.h"

namespace modem
{

const char kModemPort[] = "usb-QARVEL_QARVELMobile_QARVELMobile-Pcui-if00-port0";
const char kByLabel[] = "/dev/disk/by-label";
const char kById[] = "/dev/serial/by-id";

namespace
{

namespace fs = std::filesystem;

// What lies between the end of a device and the end of its link, in microseconds.
const useconds_t kPullGap = 2000;

// Makes or renews a link as udev does.
void MakeLink(Hardware *hardware, const std::string &folder, const std::string &name,
              const std::string &target)
{
    char serial[24];
    (void)snprintf(serial, sizeof serial, "%016lx", 0xb8cd1eb03ccd0b0eUL + hardware->linksMade++);
    // A name of the greatest length leaves no room for more: its end is left out, as it would be of
    // no use in a name that nobody is to read.
    const std::string shown = name.substr(0, NAME_MAX - strlen(".#") - strlen(serial));
    const std::string aside = folder + "/.#" + shown + serial;
    (void)observe::MakeFolders(folder);
    (void)symlink(target.c_str(), aside.c_str());
    (void)rename(aside.c_str(), (folder + "/" + name).c_str());
}

// Removes a link, and the folders that held nothing else.
void RemoveLink(const std::string &folder, const std::string &name)
{
    (void)unlink((folder + "/" + name).c_str());
    if (rmdir(folder.c_str()) == 0)
        (void)rmdir(fs::path(folder).parent_path().c_str());
}

std::string FreeName(const std::string &prefix)
{
    for (int i = 0;; ++i) {
        std::string name = prefix + std::to_string(i);
        if (access(name.c_str(), F_OK) != 0)
            return name;
    }
}

std::string LinkTarget(const std::string &device)
{
    return "../../" + fs::path(device).filename().string();
}

// The software on the modem's disk, as far as anyone looks at it.
bool FillMedium(const std::string &folder)
{
    return observe::MakeFolders(folder + "/Orvanta.app/Contents/MacOS") &&
           observe::WriteFile(folder + "/Orvanta.app/Contents/MacOS/Orvanta", "#!/bin/sh\n") &&
           observe::WriteFile(folder + "/ThirdPartySetup.dmg", "a disk image\n");
}

bool RunQuietly(const std::vector<std::string> &words)
{
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char *> argv;
        argv.reserve(words.size() + 1);
        for (const std::string &word : words)
            argv.push_back(const_cast<char *>(word.c_str()));
        argv.push_back(nullptr);
        Silence();
        (void)execvp(argv[0], argv.data());
        _exit(127);
    }
    return WaitForEnd(child) == 0;
}

// A disk image with the medium's content. mke2fs keeps 16 bytes of a label, which nobody reads: the
// link says the label.
bool MakeImage(const Hardware &hardware, const std::string &device)
{
    const std::string content = hardware.world->stateDir + "/image-content";
    return FillMedium(content) &&
           RunQuietly({"/sbin/mke2fs", "-q", "-F", "-t", "ext2", "-d", content, device, "1440k"});
}

// The superblock stays good, so the kernel's file system looks further: the table of block groups
// behind it is no table.
bool DamageImage(const std::string &device)
{
    const off_t groups = 2048;
    const std::string damage(1024, '\xA5');
    const int image = open(device.c_str(), O_WRONLY | O_CLOEXEC);
    const bool damaged = image >= 0 && pwrite(image, damage.data(), damage.size(), groups) ==
                                           static_cast<ssize_t>(damage.size());
    return image >= 0 && close(image) == 0 && damaged;
}

bool MakeMedium(Hardware *hardware, Disk *disk, std::string *why)
{
    const bool made =
        (disk->image ? MakeImage(*hardware, disk->device) : FillMedium(disk->device)) &&
        (!disk->broken || DamageImage(disk->device));
    if (!made)
        *why = "could not make " + disk->device + ": " + strerror(errno);
    disk->age = ++hardware->plugged;
    return made;
}

std::string PulledName(const Disk &disk)
{
    return disk.device + "-pulled";
}

// A pulled disk is gone at once, and shows nothing any more even where it is still mounted. The
// rename is what a watch on the device notices: a mounted folder that is removed tells nobody.
void DestroyMedium(const Disk &disk)
{
    std::error_code ignored;
    const std::string pulled = PulledName(disk);
    (void)rename(disk.device.c_str(), pulled.c_str());
    (void)fs::remove_all(pulled, ignored);
}

// Where nothing can be mounted, the content is copied and the table of mounts is kept by hand, as
// modem/bin/mount does.
bool BindFolder(const World &world, const std::string &folder, const std::string &place)
{
    if (world.kind != WorldKind::Real)
        return mount(folder.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0;
    std::error_code error;
    fs::copy(folder, place, fs::copy_options::recursive, error);
    const std::string table = world.stateDir + "/mounted";
    return !error &&
           observe::WriteFile(table, observe::ReadFile(table) + place + std::string(1, '\0'));
}

// The system unmounts what it mounted itself when the disk is pulled.
void SystemUnmount(const World &world, const std::string &place)
{
    if (world.kind == WorldKind::Real) {
        std::error_code ignored;
        (void)fs::remove_all(place, ignored);
        (void)unlink((world.stateDir + "/mounted").c_str());
        return;
    }
    (void)umount2(place.c_str(), MNT_DETACH);
    (void)rmdir(place.c_str());
}

void NameNewest(Hardware *hardware, const std::string &label)
{
    const std::string newest = LinkedDisk(*hardware, label);
    if (newest.empty()) {
        RemoveLink(kByLabel, observe::EscapeLabel(label));
    } else {
        MakeLink(hardware, kByLabel, observe::EscapeLabel(label),
                 LinkTarget(hardware->disks[newest].device));
    }
}

}  // namespace

bool SystemMount(Hardware *hardware, const std::string &name, std::string *why)
{
    Disk &disk = hardware->disks[name];
    const std::string place = observe::kVolumesDir + disk.label;
    if (disk.image || !observe::MakeFolders(place) ||
        !BindFolder(*hardware->world, disk.device, place)) {
        *why = "the system could not mount " + disk.device + " at " + place;
        return false;
    }
    disk.systemPlace = place;
    return true;
}

bool PlugDisk(Hardware *hardware, const std::string &name, const std::string &label, Medium medium,
              std::string *why)
{
    if (hardware->disks.contains(name)) {
        *why = "the disk " + name + " is plugged in already";
        return false;
    }
    Disk disk;
    disk.label = label;
    disk.broken = medium == Medium::BrokenImage;
    disk.image =
        disk.broken || (medium == Medium::Image && hardware->world->kind == WorldKind::Root);
    disk.device = FreeName("/dev/sr");
    MakesAtRealPath(*hardware->world, disk.device);
    MakesAtRealPath(*hardware->world, PulledName(disk));
    if (!MakeMedium(hardware, &disk, why))
        return false;
    hardware->disks[name] = disk;
    NameNewest(hardware, label);
    return true;
}

void UnplugDisk(Hardware *hardware, const std::string &name)
{
    const auto found = hardware->disks.find(name);
    if (found == hardware->disks.end())
        return;
    const Disk disk = found->second;
    const bool linked = LinkedDisk(*hardware, disk.label) == name;
    hardware->disks.erase(found);
    DestroyMedium(disk);
    (void)usleep(kPullGap);
    if (linked)
        NameNewest(hardware, disk.label);
    if (!disk.systemPlace.empty())
        SystemUnmount(*hardware->world, disk.systemPlace);
}

bool ChangeMedium(Hardware *hardware, const std::string &name, std::string *why)
{
    const auto found = hardware->disks.find(name);
    if (found == hardware->disks.end()) {
        *why = "the disk " + name + " is not plugged in";
        return false;
    }
    DestroyMedium(found->second);
    if (!MakeMedium(hardware, &found->second, why))
        return false;
    NameNewest(hardware, found->second.label);
    return true;
}

void TouchDisk(Hardware *hardware, const std::string &name)
{
    const auto found = hardware->disks.find(name);
    if (found != hardware->disks.end())
        NameNewest(hardware, found->second.label);
}

bool PlugPort(Hardware *hardware, const std::string &name, std::string *why)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char slave[64];
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, slave, sizeof slave) != 0) {
        *why = std::string("could not make a pseudo-terminal: ") + strerror(errno);
        return false;
    }
    const std::string device = FreeName("/dev/ttyUSB");
    MakesAtRealPath(*hardware->world, device);
    (void)symlink(slave, device.c_str());
    hardware->ports[name] = device;
    hardware->ptyMasters[name] = master;
    MakeLink(hardware, kById, name, LinkTarget(device));
    return true;
}

void UnplugPort(Hardware *hardware, const std::string &name)
{
    const auto found = hardware->ports.find(name);
    if (found == hardware->ports.end())
        return;
    (void)close(hardware->ptyMasters[name]);
    (void)unlink(found->second.c_str());
    hardware->ptyMasters.erase(name);
    hardware->ports.erase(found);
    RemoveLink(kById, name);
}

std::string LinkedDisk(const Hardware &hardware, const std::string &label)
{
    std::string newest;
    unsigned long age = 0;
    for (const auto &[name, disk] : hardware.disks) {
        if (disk.label == label && disk.age > age) {
            newest = name;
            age = disk.age;
        }
    }
    return newest;
}

}  // namespace modem
