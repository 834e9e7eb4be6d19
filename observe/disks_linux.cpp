// disks_linux.cpp - the disks of Linux: the links that udev makes for labels, and what sysfs tells
// of the devices that they lead to.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>

#include "observe/disks.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"

namespace fs = std::filesystem;

namespace observe
{

static const uint64_t kSectorSize = 512;  // of sysfs, whatever the device's own is

// Whether udev is just making this link: it does so as ".#<name>" and 16 hexadecimal digits.
static bool IsUnfinished(const std::string &name)
{
    static const size_t kDigits = 16;
    return name.starts_with(".#") && name.size() > 2 + kDigits &&
           name.find_first_not_of("0123456789abcdef", name.size() - kDigits) == std::string::npos;
}

std::vector<std::string> LinksIn(const std::string &folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename();
        if (!IsUnfinished(name))
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

// Where the device is mounted. A folder that stands for a device is bound there, so that the two
// are the same folder.
static std::string PlaceOf(const std::string &node)
{
    struct stat device = {};
    const bool isFolder = stat(node.c_str(), &device) == 0 && S_ISDIR(device.st_mode);
    std::string place;
    for (const Mounted &mounted : Mounts()) {
        struct stat there = {};
        const bool isBound = isFolder && mounted.place != node &&
                             stat(mounted.place.c_str(), &there) == 0 &&
                             there.st_dev == device.st_dev && there.st_ino == device.st_ino;
        if (mounted.source == node || isBound)
            place = mounted.place;
    }
    return place;
}

std::optional<std::vector<Disk>> ListDisks(const std::string &root)
{
    const std::string folder = root + "/dev/disk/by-label/";
    const std::string blocks = root + "/sys/class/block/";
    std::vector<Disk> disks;
    for (const std::string &name : LinksIn(folder)) {
        std::error_code error;
        const fs::path target = fs::read_symlink(folder + name, error);
        if (error)  // it went meanwhile
            continue;
        const std::string device = target.filename();
        const std::string block = blocks + device;
        Disk disk;
        disk.label = UnescapeLabel(name);
        disk.node = (fs::path("/dev/disk/by-label") / target).lexically_normal();
        const std::string sectors = ReadFile(block + "/size");
        if (!sectors.empty())
            disk.size = strtoull(sectors.c_str(), nullptr, 10) * kSectorSize;
        disk.optical = device.starts_with("sr");
        disk.usb = fs::canonical(block, error).string().find("/usb") != std::string::npos;
        if (root.empty())
            disk.place = PlaceOf(disk.node);
        disks.push_back(disk);
    }
    std::ranges::stable_sort(disks, {}, &Disk::label);
    return disks;
}

std::vector<std::string> ListPorts(const std::string &root)
{
    std::vector<std::string> ports;
    for (const std::string &name : LinksIn(root + "/dev/serial/by-id"))
        ports.push_back("/dev/serial/by-id/" + name);
    return ports;
}

}  // namespace observe
