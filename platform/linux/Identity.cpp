// Identity.cpp - what tells one disk from another.
//
// A drive keeps its device number when its medium is changed; the kernel's diskseq is what changes.
// It is read from sysfs: the number that udev has for a link may lag behind the medium.

#include "Identity.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <linux/major.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static constexpr char kBlockDevices[] = "/sys/dev/block";

// "/sys/dev/block/MAJOR:MINOR/../diskseq"
static constexpr size_t kSysfsPathSize = sizeof kBlockDevices + 2 * sizeof "4294967295" + 16;

bool SameIdentity(const Identity &left, const Identity &right)
{
    return left.kind == right.kind && left.device == right.device && left.number == right.number;
}

bool SameUnit(const Identity &left, const Identity &right)
{
    if (left.kind == DiskKind::Block && right.kind == DiskKind::Block && left.number != 0)
        return left.number == right.number;
    return SameIdentity(left, right);
}

static void SysfsPath(dev_t device, const char *file, char *path, size_t size)
{
    snprintf(path, size, "%s/%u:%u%s", kBlockDevices, major(device), minor(device), file);
}

static bool ReadNumber(const char *path, uint64_t *number)
{
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return false;
    unsigned long long value = 0;
    const bool read =
        fscanf(file, "%20llu", &value) == 1;  // NOLINT(cert-err34-c): the kernel's text
    fclose(file);
    *number = value;
    return read;
}

bool IsDeviceThere(dev_t device)
{
    char path[kSysfsPathSize];
    SysfsPath(device, "", path, sizeof path);
    return access(path, F_OK) == 0 || access(kBlockDevices, F_OK) != 0;
}

// A partition has the diskseq of its whole disk, the folder above. A kernel without the file has
// the number 0; a device without a folder is gone.
static bool ReadDiskSequence(dev_t device, uint64_t *number)
{
    char path[kSysfsPathSize];
    SysfsPath(device, "/diskseq", path, sizeof path);
    if (ReadNumber(path, number))
        return true;
    SysfsPath(device, "/../diskseq", path, sizeof path);
    if (ReadNumber(path, number))
        return true;
    *number = 0;
    return IsDeviceThere(device);
}

bool IsLoopDevice(dev_t device)
{
    return major(device) == LOOP_MAJOR;
}

bool ReadLoopFile(const char *path, Identity *file)
{
    struct stat status = {};
    if (stat(path, &status) != 0 || !S_ISBLK(status.st_mode) || !IsLoopDevice(status.st_rdev))
        return false;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    loop_info64 info = {};
    const bool attached = ioctl(fd, LOOP_GET_STATUS64, &info) == 0;
    close(fd);
    *file = {DiskKind::Image, static_cast<dev_t>(info.lo_device), info.lo_inode};
    return attached;
}

static bool ReadBlockIdentity(const char *path, dev_t device, Identity *identity)
{
    identity->kind = DiskKind::Block;
    identity->device = device;
    if (!ReadDiskSequence(device, &identity->number))
        return false;
    if (!IsLoopDevice(device))
        return true;
    // Without permission to look, a loop device counts as one with a file.
    Identity file;
    return ReadLoopFile(path, &file) || errno != ENXIO;
}

bool ReadIdentity(const char *path, Identity *identity)
{
    struct stat status = {};
    if (stat(path, &status) != 0)
        return false;
    if (S_ISBLK(status.st_mode))
        return ReadBlockIdentity(path, status.st_rdev, identity);
    if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode))
        return false;
    identity->kind = S_ISDIR(status.st_mode) ? DiskKind::Folder : DiskKind::Image;
    identity->device = status.st_dev;
    identity->number = status.st_ino;
    return true;
}
