// Which disks are offered, to whom, and when.
#include "World.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static const std::string kLabels = "/dev/disk/by-label/";

// ---- Functions of the C library that fail when they are told to ----

static int g_watchError = 0;          // inotify_add_watch fails with this
static std::string g_plugInWatching;  // is plugged just before the next watch on the labels is set
static int g_allocationsToFail = 0;   // so many calls of reallocarray
static time_t g_secondsAhead = 0;     // the clock is so much ahead

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    now->tv_sec += g_secondsAhead;
    return result;
}

extern "C" int inotify_add_watch(int fd, const char *path, uint32_t mask) noexcept
{
    if (!g_plugInWatching.empty() && path + std::string("/") == kLabels) {
        const std::string name = g_plugInWatching;
        g_plugInWatching.clear();
        Plug(name, NewFolder());
    }
    if (g_watchError != 0) {
        errno = g_watchError;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_add_watch, fd, path, mask));
}

extern "C" void *reallocarray(void *memory, size_t count, size_t size) noexcept
{
    if (g_allocationsToFail > 0) {
        g_allocationsToFail--;
        errno = ENOMEM;
        return nullptr;
    }
    return std::realloc(memory, count * size);
}

static int g_readError = 0;  // readdir fails with this, once

extern "C" dirent *readdir(DIR *folder)
{
    if (g_readError == 0)
        return reinterpret_cast<dirent *>(readdir64(folder));
    errno = g_readError;
    g_readError = 0;
    return nullptr;
}

// A session on the loop, without a callback.
static DASessionRef Scheduled()
{
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    return session;
}

// An empty match dictionary.
static CFMutableDictionaryRef NewMatch()
{
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

TEST_CASE("a disk that is plugged in is offered, mounted on request, and unmounted when it goes")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    CHECK(ReadFile("/Volumes/Orvanta/app") == "app");
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    Settle();
    CHECK(g_events.size() == 2);
    Forget(session);
}

TEST_CASE("disks that were there before are not offered")
{
    if (!EnterWorld())
        return;
    Plug("before", NewFolder());
    DASessionRef session = Scheduled();
    Register(session, nullptr, 0, RecordPeek, const_cast<char *>("early"));
    Plug("between", NewFolder());
    Register(session, nullptr, 0, RecordPeek, const_cast<char *>("late"));
    Plug("after", NewFolder());
    CHECK(Await(3) == Events{"peek between (early)", "peek after (early)", "peek after (late)"});
    // One that goes and comes again is an arrival.
    Unplug("before");
    Settle();
    Plug("before", NewFolder());
    CHECK(Await(5).size() == 5);
    CHECK(g_events.back() == "peek before (late)");
    Forget(session);
}

TEST_CASE("a callback that is registered before its session is scheduled waits for that")
{
    if (!EnterWorld())
        return;
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    Register(session, nullptr, 0, RecordPeek);
    Plug("before", NewFolder());
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Plug("after", NewFolder());
    CHECK(Await(1) == Events{"peek after"});
    Forget(session);
}

TEST_CASE("the match dictionary chooses by the label, and no dictionary takes every disk")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orv\xC3\xA4nta Plus", RecordPeek, const_cast<char *>("one"));
    Register(session, nullptr, 0, RecordPeek, const_cast<char *>("all"));
    CFMutableDictionaryRef match = NewMatch();
    DARegisterDiskPeekCallback(session, match, 0, RecordPeek, const_cast<char *>("empty"));
    CFDictionarySetValue(match, CFSTR("DAMediaBSDName"), CFSTR("disk2"));
    DARegisterDiskPeekCallback(session, match, 0, RecordPeek, const_cast<char *>("other key"));
    CFDictionarySetValue(match, kDADiskDescriptionVolumeNameKey, CFSTR("Other"));
    DARegisterDiskPeekCallback(session, match, 0, RecordPeek, const_cast<char *>("two keys"));
    CFRelease(match);
    Plug("Orv\xC3\xA4nta\\x20Plus", NewFolder());
    CHECK(Await(3) == Events{"peek Orv\xC3\xA4nta Plus (one)", "peek Orv\xC3\xA4nta Plus (all)",
                             "peek Orv\xC3\xA4nta Plus (empty)"});
    g_events.clear();
    Plug("Other", NewFolder());
    CHECK(Await(2) == Events{"peek Other (all)", "peek Other (empty)"});
    g_events.clear();
    // A label that is no UTF-8 has no name to match.
    Plug("\\xff", NewFolder());
    CHECK(Await(2) == Events{"peek ? (all)", "peek ? (empty)"});
    Forget(session);
}

TEST_CASE("a match dictionary that changes after the registration changes nothing")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Scheduled();
    CFMutableDictionaryRef match = NewMatch();
    CFDictionarySetValue(match, CFSTR("DAVolumeName"), CFSTR("Orvanta"));
    DARegisterDiskPeekCallback(session, match, 0, RecordPeek, nullptr);
    CFDictionarySetValue(match, CFSTR("DAVolumeName"), CFSTR("Other"));
    CFRelease(match);
    Plug("Orvanta", NewFolder());
    Plug("Other", NewFolder());
    CHECK(Await(1) == Events{"peek Orvanta"});
    Forget(session);
}

TEST_CASE("callbacks are called in their order, equal ones as they were registered")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Scheduled();
    DASessionRef other = Scheduled();
    Register(session, nullptr, 5, RecordPeek, const_cast<char *>("5"));
    Register(session, nullptr, 0, RecordPeek, const_cast<char *>("0 first"));
    Register(other, nullptr, -3, RecordPeek, const_cast<char *>("-3"));
    Register(other, nullptr, 0, RecordPeek, const_cast<char *>("0 second"));
    Plug("b", NewFolder());
    Plug("a", NewFolder());
    CHECK(Await(8) == Events{"peek a (-3)", "peek a (0 first)", "peek a (0 second)", "peek a (5)",
                             "peek b (-3)", "peek b (0 first)", "peek b (0 second)", "peek b (5)"});
    g_events.clear();
    Forget(other, false);
    Plug("c", NewFolder());
    CHECK(Await(2) == Events{"peek c (0 first)", "peek c (5)"});
    Forget(session);
}

TEST_CASE("a link made anew for the same medium is no arrival")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    const std::string folder = NewFolder();
    Plug("Orvanta", folder);
    CHECK(Await(2).size() == 2);
    for (int i = 0; i < 5; i++) {
        Plug("Orvanta", folder);
        Settle();
    }
    // Gone and back before the loop looks, the folders of the links included.
    Unplug("Orvanta");
    Plug("Orvanta", folder);
    Settle();
    CHECK(g_events.size() == 2);
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("other media under the same label are an arrival, and find the name free")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    const std::string drive = "/disks/drive";
    fs::rename(NewFolder(), drive);
    Plug("Orvanta", drive);
    CHECK(Await(2).size() == 2);
    for (int i = 0; i < 5; i++) {
        g_events.clear();
        fs::rename(drive, "/disks/old" + std::to_string(i));
        fs::rename(NewFolder(), drive);
        WriteFile(drive + "/app", std::to_string(i));
        Plug("Orvanta", drive);
        CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
        CHECK(ReadFile("/Volumes/Orvanta/app") == std::to_string(i));
        CHECK(NamesIn("/Volumes") == Events{"Orvanta"});
    }
    Forget(session);
}

TEST_CASE("a disk that goes and comes back as another before the loop looks is one arrival")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    const std::string first = NewFolder();
    const std::string second = NewFolder();
    Plug("Orvanta", first);
    CHECK(Await(2).size() == 2);
    g_events.clear();
    Unplug("Orvanta");
    fs::rename(first, first + ".gone");
    Plug("Orvanta", second);
    Unplug("Orvanta");
    fs::rename(second, second + ".gone");
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("the link that moves to a second disk of the label leaves the first where it is")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    const std::string first = NewFolder();
    const std::string second = NewFolder();
    Plug("Orvanta", first);
    CHECK(Await(2).size() == 2);
    Plug("Orvanta", second);
    CHECK(Await(4) == Events{"peek Orvanta", "mounted Orvanta", "peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta", "/Volumes/Orvanta 1"});

    SUBCASE("and coming back to it is no arrival")
    {
        Plug("Orvanta", first);
        Settle();
        CHECK(g_events.size() == 4);
        CHECK(MountPoints() == Events{"/Volumes/Orvanta", "/Volumes/Orvanta 1"});
        // The second disk is pulled: nothing but its node says so.
        fs::rename(second, second + ".gone");
        CHECK(RunUntil([] { return NamesIn("/Volumes") == Events{"Orvanta"}; }));
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    }
    SUBCASE("until the first is pulled")
    {
        fs::rename(first, first + ".gone");
        CHECK(RunUntil([] { return NamesIn("/Volumes") == Events{"Orvanta 1"}; }));
        CHECK(MountPoints() == Events{"/Volumes/Orvanta 1"});
    }
    SUBCASE("and the deleted link says that no disk of the label is there")
    {
        Unplug("Orvanta");
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
        CHECK(MountPoints().empty());
    }
    SUBCASE("while the second is pulled and its link dangles")
    {
        fs::rename(second, second + ".gone");
        Plug("wakes", "/nowhere");
        CHECK(RunUntil([] { return NamesIn("/Volumes") == Events{"Orvanta"}; }));
        Plug("Orvanta", first);
        Settle();
        CHECK(g_events.size() == 4);
        CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    }
    Forget(session);
}

TEST_CASE("a disk under a new label stays the disk that it was")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    const std::string folder = NewFolder();
    Plug("Orvanta", folder);
    CHECK(Await(2).size() == 2);
    Plug("Renamed", folder);
    Unplug("Orvanta");
    Settle();
    CHECK(g_events.size() == 2);
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Renamed");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE("a name before udev's rename is no disk, a label that looks like one is")
{
    if (!EnterWorld())
        return;
    Plug(".#there0123456789abcdef", NewFolder());
    DASessionRef session = Watch(nullptr, RecordPeek);
    const std::string temporary = kLabels + ".#Orvantab8cd1eb03ccd0b0e";
    fs::create_symlink(NewFolder(), temporary);
    Settle();
    CHECK(g_events.empty());
    CHECK(Exists(temporary));
    fs::rename(temporary, kLabels + "Orvanta");
    CHECK(Await(1) == Events{"peek Orvanta"});

    // It stands: so it is a label.
    fs::create_symlink(NewFolder(), temporary);
    Settle();
    CHECK(g_events.size() == 1);
    g_secondsAhead++;
    CHECK(Await(2) == Events{"peek Orvanta", "peek .#Orvantab8cd1eb03ccd0b0e"});
    g_secondsAhead++;
    Settle();
    CHECK(g_events.size() == 2);

    Plug(".#Orvanta", NewFolder());
    CHECK(Await(3).back() == "peek .#Orvanta");
    Forget(session);
}

TEST_CASE("a link that leads nowhere is a disk once it leads somewhere")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("nowhere", "/disks/nowhere");
    Plug("null", "/dev/null");
    Plug("loop", kLabels + "loop");
    Settle();
    CHECK(g_events.empty());
    fs::create_directory("/disks/nowhere");
    Plug("nowhere", "/disks/nowhere");
    CHECK(Await(2) == Events{"peek nowhere", "mounted nowhere"});
    // A pull: the device goes first, its link later.
    fs::rename("/disks/nowhere", "/disks/pulled");
    Plug("null", "/dev/null");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Unplug("nowhere");
    Settle();
    CHECK(g_events.size() == 2);
    Forget(session);
}

TEST_CASE("names that are no labels are left alone")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    for (const char *name : {"a b", "\\x2e", "\\x2e\\x2e", "a\\x00", "\\xzz", "\\", "\xFF", "%"})
        Plug(name, NewFolder());
    Plug("last", NewFolder());
    CHECK(Await(1) == Events{"peek last"});
    Forget(session);
}

TEST_CASE("the folders of the links may come and go, as often as they like")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    for (size_t i = 1; i <= 60; i++) {
        CAPTURE(i);
        Plug("disk" + std::to_string(i), NewFolder());
        REQUIRE(RunUntil([i] { return g_events.size() == i; }));
        if (i % 3 == 0)
            fs::remove_all("/dev/disk");
        else
            Unplug("disk" + std::to_string(i));
        if (i % 2 == 0)
            Settle();
    }
    // The folders without the link, one after the other.
    g_events.clear();
    Settle();
    fs::create_directory("/dev/disk");
    Settle();
    fs::create_directory("/dev/disk/by-label");
    Settle();
    Plug("Orvanta", NewFolder());
    CHECK(Await(1) == Events{"peek Orvanta"});
    Forget(session);
}

TEST_CASE("a disk that comes and goes before the loop looks is not offered")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Plug("short", NewFolder());
    Unplug("short");
    Plug("stays", NewFolder());
    CHECK(Await(1) == Events{"peek stays"});
    Forget(session);
}

TEST_CASE("a link that udev only touches is looked at again")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Plug("Orvanta", "/disks/late");
    Settle();
    fs::create_directory("/disks/late");
    Settle();
    CHECK(g_events.empty());
    REQUIRE(utimensat(AT_FDCWD, (kLabels + "Orvanta").c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0);
    CHECK(Await(1) == Events{"peek Orvanta"});
    fs::remove_all("/disks/late");
    Forget(session);
}

TEST_CASE("a disk that comes just before the watch is set is found by the look behind it")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    g_plugInWatching = "Orvanta";
    fs::create_directories(kLabels);
    CHECK(Await(1) == Events{"peek Orvanta"});
    CHECK(g_plugInWatching.empty());
    Forget(session);
}

// Removes the second disk, while the first is offered.
static void PeekAndPull(DADiskRef disk, void *context)
{
    RecordPeek(disk, context);
    if (LabelOf(disk) == "a")
        Unplug("b");
}

TEST_CASE("a disk that goes while another is offered is not offered any more")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, PeekAndPull);
    Plug("a", NewFolder());
    Plug("b", NewFolder());
    Plug("c", NewFolder());
    CHECK(Await(2) == Events{"peek a", "peek c"});
    Forget(session);
}

TEST_CASE("more events than the kernel keeps lose nothing that stays")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Plug("first", NewFolder());
    CHECK(Await(1).size() == 1);
    const std::string folder = NewFolder();
    const int kept = std::atoi(ReadFile("/proc/sys/fs/inotify/max_queued_events").c_str());
    REQUIRE(kept > 0);
    for (int i = 0; i < kept / 2; i++) {
        fs::create_symlink(folder, kLabels + "x");
        fs::remove(kLabels + "x");
    }
    Unplug("first");
    Plug("last", NewFolder());
    CHECK(Await(2) == Events{"peek first", "peek last"});
    Plug("later", NewFolder());
    CHECK(Await(3).back() == "peek later");
    Forget(session);
}

TEST_CASE("without a watch to be had the layer looks every second, and watches again when it can")
{
    if (!EnterWorld())
        return;
    for (int error : {ENOSPC, ENOMEM}) {
        CAPTURE(error);
        g_events.clear();
        fs::remove_all("/dev/disk");
        g_watchError = error;
        DASessionRef session = Watch(nullptr, RecordPeek);
        Plug("Orvanta", NewFolder());
        g_secondsAhead++;
        CHECK(Await(1) == Events{"peek Orvanta"});
        g_watchError = 0;
        g_secondsAhead++;
        Settle();
        Plug("other", NewFolder());
        CHECK(Await(2) == Events{"peek Orvanta", "peek other"});
        Forget(session);
    }
}

TEST_CASE("without a free descriptor nothing is lost, and what was there is still no arrival")
{
    if (!EnterWorld())
        return;
    Plug("there", NewFolder());
    rlimit before = {};
    REQUIRE(getrlimit(RLIMIT_NOFILE, &before) == 0);
    const rlimit none = {0, before.rlim_max};
    // Nothing else is done meanwhile: UBSan needs descriptors for its own checks.
    setrlimit(RLIMIT_NOFILE, &none);
    DASessionRef session = Watch(nullptr, RecordPeek);
    Drain();
    setrlimit(RLIMIT_NOFILE, &before);
    g_secondsAhead++;
    Settle();
    Plug("Orvanta", NewFolder());
    CHECK(Await(1) == Events{"peek Orvanta"});
    const std::string folder = NewFolder();
    const std::string link = kLabels + "later";
    setrlimit(RLIMIT_NOFILE, &none);
    const int linked = symlink(folder.c_str(), link.c_str());
    Drain();
    setrlimit(RLIMIT_NOFILE, &before);
    CHECK(linked == 0);
    CHECK(g_events.size() == 1);
    g_secondsAhead++;
    CHECK(Await(2) == Events{"peek Orvanta", "peek later"});
    Forget(session);
}

TEST_CASE("when memory runs out in a look the next one makes up for it")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Plug("first", NewFolder());
    CHECK(Await(1).size() == 1);
    Plug("a", NewFolder());
    Plug("b", NewFolder());
    g_allocationsToFail = 1;
    Drain();
    CHECK(g_allocationsToFail == 0);
    CHECK(g_events.size() == 1);
    g_secondsAhead++;
    CHECK(Await(3) == Events{"peek first", "peek a", "peek b"});
    Forget(session);
}

TEST_CASE("a look that cannot read the folder to its end is repeated")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).size() == 2);
    const std::string other = NewFolder();
    fs::create_symlink(other, kLabels + "other");
    g_readError = EIO;
    Drain();
    CHECK(g_readError == 0);
    CHECK(g_events.size() == 2);
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    g_secondsAhead++;
    CHECK(Await(4) == Events{"peek Orvanta", "mounted Orvanta", "peek other", "mounted other"});
    Forget(session);
}

TEST_CASE("a session that is not scheduled, or is gone, is not called")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek, const_cast<char *>("one"));
    DASessionRef other = Watch(nullptr, RecordPeek, const_cast<char *>("other"));
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Plug("a", NewFolder());
    CHECK(Await(1) == Events{"peek a (other)"});
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Plug("b", NewFolder());
    CHECK(Await(3) == Events{"peek a (other)", "peek b (one)", "peek b (other)"});
    Forget(other, false);
    Plug("c", NewFolder());
    CHECK(Await(4).back() == "peek c (one)");
    Forget(session);
    CHECK(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, false) == kCFRunLoopRunFinished);
}

TEST_CASE(
    "a mode that the loop does not have, and missing arguments, schedule and register nothing")
{
    if (!EnterWorld())
        return;
    const int descriptors = CountDescriptors();
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), CFSTR("another"));
    DASessionScheduleWithRunLoop(session, nullptr, kCFRunLoopDefaultMode);
    DASessionScheduleWithRunLoop(nullptr, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DASessionUnscheduleFromRunLoop(nullptr, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DARegisterDiskPeekCallback(nullptr, nullptr, 0, RecordPeek, nullptr);
    DARegisterDiskPeekCallback(session, nullptr, 0, nullptr, nullptr);
    CHECK(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, false) == kCFRunLoopRunFinished);
    CFRunLoopRun();
    CHECK(CountDescriptors() == descriptors);
    CFRelease(session);
}

TEST_CASE("a disk outlives its removal for who holds a reference")
{
    if (!EnterWorld())
        return;
    static DADiskRef held;
    DASessionRef session = Watch(nullptr, [](DADiskRef disk, void *) {
        held = static_cast<DADiskRef>(const_cast<void *>(CFRetain(disk)));
        g_events.push_back("held");
    });
    Plug("Orvanta", NewFolder());
    CHECK(Await(1).size() == 1);
    CHECK(CFGetRetainCount(held) == 2);
    Unplug("Orvanta");
    CHECK(RunUntil([] { return CFGetRetainCount(held) == 1; }));
    CHECK(LabelOf(held) == "Orvanta");
    DADiskMountWithArguments(held, nullptr, 0, RecordMount, nullptr, nullptr);
    CHECK(Await(2) == Events{"held", "refused Orvanta not found"});
    CFRelease(held);
    Forget(session);
}
