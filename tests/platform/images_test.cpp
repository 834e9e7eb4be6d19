// Disks that are images or block devices: both need loop devices.
#include "World.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <filesystem>

#include <sys/mount.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static void MountTwice(DADiskRef disk, void *context)
{
    RecordAndMount(disk, context);
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, RecordMount,
                             const_cast<char *>("again"), g_arguments);
}

// False, with a message, where an image cannot be mounted at all.
static bool CanMountImages()
{
    const std::string image = NewImage("probe");
    int status = -1;
    if (!image.empty()) {
        fs::create_directory("/run/probe");
        Output("mount -o loop -- " + image + " /run/probe 2>&1 && umount /run/probe", &status);
    }
    if (status != 0)
        MESSAGE("skipped: no loop devices or no mkfs.ext4 for us here");
    return status == 0;
}

TEST_CASE("an image is mounted through a loop device, which goes with it")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    DASessionRef session = Watch(nullptr, MountTwice);
    const std::string image = NewImage("Orvanta");
    Plug("Orvanta", image);
    CHECK(Await(3) == Events{"peek Orvanta", "mounted Orvanta", "refused Orvanta busy (again)"});
    CHECK(Exists("/Volumes/Orvanta/lost+found"));
    const std::string device = Output("losetup -nO NAME -j " + image);
    CHECK(device.rfind("/dev/loop", 0) == 0);

    SUBCASE("and whose own link is no arrival")
    {
        Plug("Orvanta", device);
        Settle();
        CHECK(g_events.size() == 3);
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    }
    SUBCASE("while umount runs, when the link is no arrival either")
    {
        UseProgram("umount", "#!/bin/sh\n" + kHold + "exec /bin/umount \"$@\"\n");
        Unplug("Orvanta");
        CHECK(AwaitReached());
        Plug("other", device);
        Drain();
        CHECK(g_events.size() == 3);
        Release();
        Settle();
        Unplug("other");
        Plug("Orvanta", "/nowhere");
    }
    SUBCASE("and after the watch began anew")
    {
        DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        Settle();
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    }
    SUBCASE("and the image stays busy")
    {
    }
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(RunUntil([&] { return Output("losetup -j " + image).empty(); }));
    Settle();
    CHECK(g_events.size() == 3);
    Forget(session);
}

TEST_CASE("an image of ext4 is mounted read-only at its first error, whatever it asks for itself")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    g_arguments[0] = nullptr;
    const std::string image = NewImage("Orvanta");
    REQUIRE(!Output("PATH=$PATH:/usr/sbin:/sbin tune2fs -e panic " + image).empty());
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", image);
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(Output("grep -c '/Volumes/Orvanta .*errors=remount-ro' /proc/self/mountinfo") == "1");
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE("an image whose file system is none for such media is refused, unread by the kernel")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    const std::string image = NewImage("Orvanta");
    REQUIRE(!Output("PATH=$PATH:/usr/sbin:/sbin mkswap -L Orvanta " + image + " 2>&1").empty());
    DASessionRef session = Watch(nullptr, RecordAndMount);
    const CaughtErrors errors;
    Plug("Orvanta", image);
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta unsupported"});
    CHECK(errors.Text() == "DADiskMountWithArguments: " + image +
                               " is not mounted: it holds no file system that blkid knows\n");
    Forget(session);
}

TEST_CASE(
    "the link of the loop device is no arrival while mount runs, nor is the device's own mount stale")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    UseProgram("mount", "#!/bin/sh\n/bin/mount \"$@\"\n" + kHold);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    const std::string image = NewImage("Orvanta");
    Plug("Orvanta", image);
    CHECK(AwaitReached());
    const std::string device = Output("losetup -nO NAME -j " + image);
    Plug("again", device);
    Drain();
    CHECK(g_events == Events{"peek Orvanta"});
    Release();
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    Unplug("again");
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
    // A device that is mounted as the layer does it, and whose link is there, keeps its mount.
    const std::string kept = Output("losetup -f --show " + image);
    Plug("Orvanta", kept);
    REQUIRE(mkdir("/Volumes/Orvanta", 01755) == 0);
    REQUIRE(mount(kept.c_str(), "/Volumes/Orvanta", "ext4", MS_NOSUID | MS_NODEV, nullptr) == 0);
    session = Watch(nullptr, RecordPeek);
    Settle();
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Output("losetup -d " + kept + " 2>&1");
    Forget(session);
}

TEST_CASE("a block device is told from its next medium by the kernel's number alone")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    const std::string device = Output("losetup -f --show " + NewImage("Orvanta"));
    REQUIRE(device.rfind("/dev/loop", 0) == 0);
    Plug("Orvanta", device);
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    Plug("Orvanta", device);
    Settle();
    CHECK(g_events.size() == 2);

    // The disk is changed: same device, same label.
    REQUIRE(umount2("/Volumes/Orvanta", MNT_DETACH) == 0);
    REQUIRE(std::system(("losetup -d " + device).c_str()) == 0);
    REQUIRE(std::system(("losetup " + device + " " + NewImage("Orvanta")).c_str()) == 0);
    Plug("Orvanta", device);
    CHECK(Await(4).back() == "mounted Orvanta");
    CHECK(g_events.size() == 4);
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    CHECK(NamesIn("/Volumes") == Events{"Orvanta"});

    // A drive without a disk: the device is there, its link dangles for a while or is gone.
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(RunUntil([&] {
        Output("losetup -d " + device + " 2>&1");
        return Output("losetup -nO NAME").find(device) == std::string::npos;
    }));
    Plug("Orvanta", device);
    Settle();
    CHECK(g_events.size() == 4);
    Forget(session);
}

// A device of an image with the label Orvanta, mounted by hand at this place.
static std::string MountedByHand(const std::string &place)
{
    const std::string device = Output("losetup -f --show " + NewImage("Orvanta"));
    REQUIRE(device.rfind("/dev/loop", 0) == 0);
    fs::create_directories(place);
    REQUIRE(mount(device.c_str(), place.c_str(), "ext4", MS_RDONLY, nullptr) == 0);
    return device;
}

// The kernel forgets every block device, as it does with one that is pulled; until RecallDevices.
static void ForgetDevices()
{
    REQUIRE(mount("none", "/sys/dev/block", "tmpfs", 0, nullptr) == 0);
}

static void RecallDevices(const std::string &device)
{
    REQUIRE(umount2("/sys/dev/block", MNT_DETACH) == 0);
    Output("losetup -d " + device + " 2>&1");
}

TEST_CASE("a mount that somebody else made goes when its device is pulled, and the name is free")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    const std::string device = MountedByHand("/Volumes/Orvanta");
    Plug("Orvanta", device);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    ForgetDevices();
    Unplug("Orvanta");
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    CHECK(ReadFile("/Volumes/Orvanta/app") == "app");
    RecallDevices(device);
    Forget(session);
}

TEST_CASE("a mount that somebody else made of a device that is there stays when its link goes")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    const std::string device = MountedByHand("/Volumes/Orvanta");
    Plug("Orvanta", device);
    DASessionRef session = Watch(nullptr, RecordPeek);
    Unplug("Orvanta");
    Plug("other", NewFolder());
    CHECK(Await(1) == Events{"peek other"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    umount2("/Volumes/Orvanta", 0);
    Output("losetup -d " + device);
    Forget(session);
}

TEST_CASE("of the mounts that somebody else made before, those of devices that are gone go")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    const std::string device = MountedByHand("/Volumes/Orvanta");
    bool isGone = false;
    SUBCASE("the device is there")
    {
    }
    SUBCASE("the device is gone")
    {
        isGone = true;
        ForgetDevices();
    }
    DASessionRef session = Watch(nullptr, RecordPeek);
    if (isGone) {
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
        CHECK(MountPoints().empty());
        RecallDevices(device);
    } else {
        Settle();
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
        umount2("/Volumes/Orvanta", 0);
        Output("losetup -d " + device);
    }
    Forget(session);
}

TEST_CASE("a block device that somebody else has mounted is busy")
{
    if (!EnterWorld() || !CanMountImages())
        return;
    const std::string device = Output("losetup -f --show " + NewImage("Orvanta"));
    REQUIRE(device.rfind("/dev/loop", 0) == 0);
    fs::create_directory("/run/elsewhere");
    REQUIRE(mount(device.c_str(), "/run/elsewhere", "ext4", MS_RDONLY, nullptr) == 0);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", device);
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta busy"});
    CHECK(NamesIn("/Volumes").empty());
    Unplug("Orvanta");
    Settle();
    CHECK(Exists("/run/elsewhere/lost+found"));
    umount2("/run/elsewhere", 0);
    CHECK(std::system(("losetup -d " + device).c_str()) == 0);
    Forget(session);
}
