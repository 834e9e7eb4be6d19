// What a daemon that is started again finds of the one before it.
#include "World.h"

#include "platform/linux/MountPoints.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>

#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static constexpr unsigned long kOwnFlags = MS_NOSUID | MS_NODEV;

static bool g_noTree = false;  // open_tree fails

extern "C" int open_tree(int folder, const char *path, unsigned int flags) noexcept
{
    if (!g_noTree)
        return static_cast<int>(syscall(SYS_open_tree, folder, path, flags));
    errno = EPERM;
    return -1;
}

static bool NothingIsLeft()
{
    return NamesIn("/Volumes").empty() && MountPoints().empty();
}

// A mount as a process before this one has left it.
static void LeaveMounted(const std::string &folder, const std::string &place)
{
    REQUIRE(mkdir(place.c_str(), 01755) == 0);
    REQUIRE(mount(folder.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0);
    REQUIRE(mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_BIND | kOwnFlags, nullptr) == 0);
}

TEST_CASE("a disk that is still there keeps its mount until it goes")
{
    if (!EnterWorld())
        return;
    const std::string folder = NewFolder();
    Plug("Orvanta", folder);
    LeaveMounted(folder, "/Volumes/Orvanta");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Settle();
    CHECK(g_events.empty());
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil(NothingIsLeft));
    Forget(session);
}

TEST_CASE("a disk that stands at two places goes from both")
{
    if (!EnterWorld())
        return;
    const std::string folder = NewFolder();
    Plug("Orvanta", folder);
    LeaveMounted(folder, "/Volumes/Orvanta");
    LeaveMounted(folder, "/Volumes/Orvanta 1");
    DASessionRef session = Watch(nullptr, RecordPeek);
    Settle();
    CHECK(MountPoints() == Events{"/Volumes/Orvanta", "/Volumes/Orvanta 1"});
    Unplug("Orvanta");
    Settle();
    CHECK(NothingIsLeft());
    Forget(session);
}

TEST_CASE(
    "where the folder under a mount cannot be seen the layer's mounts are known by their options")
{
    if (!EnterWorld())
        return;
    fs::create_directory("/Volumes/bound");
    REQUIRE(mount(NewFolder().c_str(), "/Volumes/bound", nullptr, MS_BIND, nullptr) == 0);
    LeaveMounted(NewFolder(), "/Volumes/Orvanta");
    g_noTree = true;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Settle();
    g_noTree = false;
    CHECK(MountPoints() == Events{"/Volumes/bound"});
    CHECK(NamesIn("/Volumes") == Events{"bound"});
    Forget(session);
}

TEST_CASE("what is left of a disk that went meanwhile is cleaned up, and its name is free")
{
    if (!EnterWorld())
        return;
    const std::string gone = NewFolder();
    LeaveMounted(gone, "/Volumes/Orvanta");
    LeaveMounted(NewFolder(), "/Volumes/Orvanta 1");
    SUBCASE("while its folder is there")
    {
    }
    SUBCASE("while its folder is gone")
    {
        fs::remove_all(gone);
    }
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(RunUntil([] { return g_events.size() == 2; }));
    CHECK(g_events == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(RunUntil([] { return NamesIn("/Volumes") == Events{"Orvanta"}; }));
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("an empty folder of the layer's is removed, anybody else's stays")
{
    if (!EnterWorld())
        return;
    mkdir("/Volumes/Orvanta", 01755);
    mkdir("/Volumes/mine", 0755);
    mkdir("/Volumes/full", 01755);
    WriteFile("/Volumes/full/file", "");
    symlink("/run", "/Volumes/link");
    // Sticky folders that anybody may write to are made by people, as /tmp is.
    std::vector<std::string> strangers{"full", "link", "mine"};
    for (const mode_t mode : {01777U, 01775U, 01700U, 01750U, 05755U, 0755U, 0777U}) {
        strangers.push_back("mode" + std::to_string(mode));
        const std::string place = "/Volumes/" + strangers.back();
        REQUIRE(mkdir(place.c_str(), 0700) == 0);
        REQUIRE(chmod(place.c_str(), mode) == 0);
    }
    std::sort(strangers.begin(), strangers.end());
    DASessionRef session = Watch(nullptr, RecordAndMount);
    CHECK(NamesIn("/Volumes") == strangers);
    Forget(session);
}

TEST_CASE("the layer's folder is known as its own whatever the umask and /Volumes hand down")
{
    if (!EnterWorld())
        return;
    mode_t volumesMode = 0755;
    SUBCASE("a plain /Volumes")
    {
    }
    SUBCASE("a /Volumes that hands its group down")
    {
        volumesMode = 02755;
    }
    REQUIRE(chmod("/Volumes", volumesMode) == 0);
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        CAPTURE(mask);
        const mode_t before = umask(mask);
        char place[kPlaceSize];
        const int error = TakePlace("Orvanta", place, sizeof place);
        CHECK(umask(before) == mask);
        REQUIRE(error == 0);
        struct stat status = {};
        REQUIRE(stat("/Volumes/Orvanta", &status) == 0);
        CHECK((status.st_mode & 05777) == 01755);
        RemoveStalePlaces();
        CHECK(NamesIn("/Volumes").empty());
    }
    REQUIRE(chmod("/Volumes", 0755) == 0);
}

TEST_CASE("mounts that the layer has not made stay")
{
    if (!EnterWorld())
        return;
    const std::string folder = NewFolder();
    for (const char *name : {"tmpfs", "bound", "deep", "deep/below", "scratch"})
        fs::create_directory("/Volumes/" + std::string(name));
    REQUIRE(chmod("/Volumes/scratch", 01777) == 0);
    REQUIRE(mount(folder.c_str(), "/Volumes/scratch", nullptr, MS_BIND, nullptr) == 0);
    REQUIRE(mount("t", "/Volumes/tmpfs", "tmpfs", kOwnFlags, nullptr) == 0);
    REQUIRE(mount(folder.c_str(), "/Volumes/bound", nullptr, MS_BIND, nullptr) == 0);
    REQUIRE(mount(folder.c_str(), "/Volumes/deep/below", nullptr, MS_BIND, nullptr) == 0);
    REQUIRE(mount(nullptr, "/Volumes/deep/below", nullptr, MS_REMOUNT | MS_BIND | kOwnFlags,
                  nullptr) == 0);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(RunUntil([] { return g_events.size() == 2; }));
    Unplug("Orvanta");
    Settle();
    CHECK(MountPoints() ==
          Events{"/Volumes/scratch", "/Volumes/tmpfs", "/Volumes/bound", "/Volumes/deep/below"});
    Forget(session);
}

TEST_CASE("a mount that somebody else made of a folder goes with the folder's link")
{
    if (!EnterWorld())
        return;
    const std::string folder = NewFolder();
    fs::create_directory("/Volumes/Orvanta");
    REQUIRE(mount(folder.c_str(), "/Volumes/Orvanta", nullptr, MS_BIND, nullptr) == 0);
    Plug("Orvanta", folder);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Settle();
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    fs::rename(folder, folder + ".gone");
    Plug("Orvanta", NewFolder());
    CHECK(RunUntil([] { return g_events.size() == 2; }));
    CHECK(g_events == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil(NothingIsLeft));
    Forget(session);
}

TEST_CASE("a bound folder whose mount program was killed before it set the options is cleaned up")
{
    if (!EnterWorld())
        return;
    REQUIRE(mkdir("/Volumes/Orvanta", 01755) == 0);
    REQUIRE(mount(NewFolder().c_str(), "/Volumes/Orvanta", nullptr, MS_BIND, nullptr) == 0);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    CHECK(RunUntil(NothingIsLeft));
    Forget(session);
}

TEST_CASE("a mount that was under way when the watch began anew is completed")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\n" + kHold + "exec /bin/mount \"$@\"\n", "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(AwaitReached());
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Release();
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil(NothingIsLeft));
    Forget(session);
}

// A daemon in a process of its own, which watches and mounts for ever.
static pid_t StartDaemon()
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Watch("Orvanta", RecordAndMount);
    CFRunLoopRun();
    _exit(1);
}

static void Kill(pid_t daemon)
{
    kill(daemon, SIGKILL);
    CHECK(waitpid(daemon, nullptr, 0) == daemon);
}

TEST_CASE(
    "a daemon that is killed at any moment leaves nothing that the next one does not clean up")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\nsleep 0.0$(($$ % 3))\nexec /bin/mount \"$@\"\n",
                    "#!/bin/sh\nsleep 0.0$(($$ % 3))\nexec /bin/umount \"$@\"\n");
    std::mt19937 random(20261120);
    for (int round = 0; round < 60; round++) {
        CAPTURE(round);
        const pid_t daemon = StartDaemon();
        usleep(static_cast<useconds_t>(random() % 20000));
        Plug("Orvanta", NewFolder());
        usleep(static_cast<useconds_t>(random() % 50000));
        if (random() % 2 == 0)
            Unplug("Orvanta");
        usleep(static_cast<useconds_t>(random() % 30000));
        Kill(daemon);
        if (Exists("/dev/disk/by-label/Orvanta"))
            Unplug("Orvanta");

        g_events.clear();
        DASessionRef session = Watch("Orvanta", RecordAndMount);
        Plug("Orvanta", NewFolder());
        REQUIRE(RunUntil([] { return g_events.size() == 2; }));
        CHECK(g_events.back() == "mounted Orvanta");
        CAPTURE(Output("grep /Volumes /proc/self/mountinfo; ls -l /Volumes"));
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
        Unplug("Orvanta");
        CHECK(RunUntil(NothingIsLeft));
        Forget(session);
    }
}
