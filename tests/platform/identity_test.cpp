// What tells one disk from another.
#include "World.h"

#include "platform/linux/Identity.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <filesystem>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr char kDevices[] = "/sys/dev/block";

// The kernel's folder of block devices becomes an empty one for the life of this object. Its parent
// stands for the whole disks' folders as well, so a partition's path leads there.
struct EmptySysfs {
    EmptySysfs()
    {
        REQUIRE(mount("none", "/sys/dev", "tmpfs", 0, nullptr) == 0);
    }
    ~EmptySysfs()
    {
        umount2("/sys/dev", MNT_DETACH);
    }
    EmptySysfs(const EmptySysfs &) = delete;
    EmptySysfs &operator=(const EmptySysfs &) = delete;
};

TEST_CASE("a folder and a file are known by their inodes, and nothing else is a disk")
{
    if (!EnterWorld())
        return;
    const std::string folder = NewFolder();
    struct stat status = {};
    REQUIRE(stat(folder.c_str(), &status) == 0);
    Identity identity = {};
    REQUIRE(ReadIdentity(folder.c_str(), &identity));
    CHECK(SameIdentity(identity, {DiskKind::Folder, status.st_dev, status.st_ino}));
    const std::string file = folder + "/app";
    REQUIRE(stat(file.c_str(), &status) == 0);
    REQUIRE(ReadIdentity(file.c_str(), &identity));
    CHECK(SameIdentity(identity, {DiskKind::Image, status.st_dev, status.st_ino}));
    CHECK(!ReadIdentity("/dev/null", &identity));
    CHECK(!ReadIdentity("/disks/nothing", &identity));
}

TEST_CASE("identities differ by kind, by device and by number")
{
    const Identity one = {DiskKind::Image, 7, 8};
    CHECK(SameIdentity(one, {DiskKind::Image, 7, 8}));
    CHECK(!SameIdentity(one, {DiskKind::Folder, 7, 8}));
    CHECK(!SameIdentity(one, {DiskKind::Image, 8, 8}));
    CHECK(!SameIdentity(one, {DiskKind::Image, 7, 7}));
}

TEST_CASE(
    "a whole disk and its partitions are one unit, and nothing without the kernel's number is")
{
    const Identity whole = {DiskKind::Block, makedev(8, 0), 42};
    CHECK(SameUnit(whole, whole));
    CHECK(SameUnit(whole, {DiskKind::Block, makedev(8, 1), 42}));
    CHECK(!SameUnit(whole, {DiskKind::Block, makedev(8, 0), 43}));
    CHECK(!SameUnit(whole, {DiskKind::Image, makedev(8, 0), 42}));
    CHECK(!SameUnit({DiskKind::Folder, makedev(8, 0), 42}, whole));
    CHECK(!SameUnit({DiskKind::Block, makedev(8, 0), 0}, {DiskKind::Block, makedev(8, 1), 0}));
    CHECK(SameUnit({DiskKind::Image, 7, 8}, {DiskKind::Image, 7, 8}));
}

TEST_CASE("a device is there as long as the kernel has a folder for it, or no folders at all")
{
    if (!EnterWorld())
        return;
    const EmptySysfs sysfs;
    CHECK(IsDeviceThere(makedev(4095, 1048575)));
    fs::create_directories(std::string(kDevices) + "/4095:1048575");
    CHECK(IsDeviceThere(makedev(4095, 1048575)));
    CHECK(!IsDeviceThere(makedev(4095, 1)));
}

TEST_CASE("a loop device is one of its number alone")
{
    CHECK(IsLoopDevice(makedev(7, 3)));
    CHECK(!IsLoopDevice(makedev(8, 3)));
    Identity file = {};
    CHECK(!ReadLoopFile("/nothing", &file));
    CHECK(!ReadLoopFile("/dev/null", &file));
    CHECK(!ReadLoopFile("/", &file));
    // Any other block device is one by its number in the kernel alone. Only root can make one.
    if (!EnterWorld() || mknod("/disks/ram", S_IFBLK | 0600, makedev(1, 0)) != 0)
        return;
    const EmptySysfs sysfs;
    fs::create_directories(std::string(kDevices) + "/1:0");
    Identity ram = {};
    CHECK(ReadIdentity("/disks/ram", &ram));
    CHECK(SameIdentity(ram, {DiskKind::Block, makedev(1, 0), 0}));
}

TEST_CASE("a block device has the kernel's number, a partition that of its whole disk")
{
    if (!EnterWorld())
        return;
    const std::string image = NewImage("Orvanta");
    int status = -1;
    const std::string device =
        image.empty() ? "" : Output("losetup -f --show " + image + " 2>&1", &status);
    if (status != 0) {
        MESSAGE("skipped: no loop devices or no mkfs.ext4 for us here");
        return;
    }
    struct stat node = {};
    REQUIRE(stat(device.c_str(), &node) == 0);
    const std::string folder = std::string(kDevices) + "/7:" + std::to_string(minor(node.st_rdev));
    Identity identity = {};
    {
        const EmptySysfs sysfs;
        fs::create_directories(kDevices);
        CHECK(!ReadIdentity(device.c_str(), &identity));
        fs::create_directories(folder);
        REQUIRE(ReadIdentity(device.c_str(), &identity));
        CHECK(SameIdentity(identity, {DiskKind::Block, node.st_rdev, 0}));
        WriteFile(std::string(kDevices) + "/diskseq", "18446744073709551615\n");
        REQUIRE(ReadIdentity(device.c_str(), &identity));
        CHECK(identity.number == 18446744073709551615U);
        WriteFile(folder + "/diskseq", "no number\n");
        REQUIRE(ReadIdentity(device.c_str(), &identity));
        CHECK(identity.number == 18446744073709551615U);
        WriteFile(folder + "/diskseq", "42\n");
        REQUIRE(ReadIdentity(device.c_str(), &identity));
        CHECK(SameIdentity(identity, {DiskKind::Block, node.st_rdev, 42}));
    }
    REQUIRE(stat(image.c_str(), &node) == 0);
    REQUIRE(ReadLoopFile(device.c_str(), &identity));
    CHECK(SameIdentity(identity, {DiskKind::Image, node.st_dev, node.st_ino}));
    CHECK(std::system(("losetup -d " + device).c_str()) == 0);
}

TEST_CASE("a loop device without a file is no disk, and looking at it costs no descriptor")
{
    if (!EnterWorld())
        return;
    std::string device;
    for (const std::string &name : NamesIn("/dev")) {
        if (name.rfind("loop", 0) == 0 && name.find_first_of("0123456789") != std::string::npos &&
            Output("losetup -nO BACK-FILE /dev/" + name + " 2>/dev/null").empty())
            device = "/dev/" + name;
    }
    if (device.empty()) {
        MESSAGE("skipped: no free loop device here");
        return;
    }
    const int descriptors = CountDescriptors();
    Identity identity = {};
    CHECK(!ReadLoopFile(device.c_str(), &identity));
    CHECK(!ReadIdentity(device.c_str(), &identity));
    CHECK(CountDescriptors() == descriptors);
}
