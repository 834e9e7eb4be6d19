// The rules of the disk arbitration service that the layer keeps, in the order of its README: first
// those that hold where the layer stands for the whole service.
#include "World.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static const std::string kLabels = "/dev/disk/by-label/";

static time_t g_secondsAhead = 0;  // every clock is so much ahead

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    now->tv_sec += g_secondsAhead;
    return result;
}

// The layer stands for the whole service in this test case.
static void StandForService()
{
    fs::create_directories("/run/kestrun");
    WriteFile("/run/kestrun/automount", "");
}

// Plugs a disk of that label, which came so many seconds ago.
static void PlugAged(const std::string &label, time_t seconds)
{
    Plug(label, NewFolder());
    timespec made = {};
    clock_gettime(CLOCK_REALTIME, &made);
    made.tv_sec -= seconds;
    const timespec times[] = {made, made};
    REQUIRE(utimensat(AT_FDCWD, (kLabels + label).c_str(), times, AT_SYMLINK_NOFOLLOW) == 0);
}

// What was mounted, by the options that mount was given: the layer's own mounts are not read-only.
static const std::string kOptionsScript =
    "#!/bin/sh\necho \"${5##*/} $2\" >> /run/options\nexec /bin/mount \"$@\"\n";

static const char kOwnOptions[] = " bind,nosuid,nodev\n";
static const char kAskedOptions[] = " bind,nosuid,nodev,ro,x-gvfs-show\n";

static void (*g_meanwhile)();  // what happens while the callback below takes its time

static void MountedSlowly(DADiskRef disk, DADissenterRef dissenter, void *context)
{
    RecordMount(disk, dissenter, context);
    if (g_meanwhile != nullptr && LabelOf(disk) == "first")
        g_meanwhile();
}

static void MountSlowly(DADiskRef disk, void *context)
{
    RecordPeek(disk, context);
    DADiskMountWithArguments(disk, nullptr, 0, MountedSlowly, context, g_arguments);
}

// Plugs a disk whose completion takes a minute, in which these things happen.
static Events WaitInCompletion(void (*meanwhile)(), size_t events)
{
    g_meanwhile = meanwhile;
    DASessionRef session = Watch(nullptr, MountSlowly);
    Plug("first", NewFolder());
    const Events told = Await(events);
    g_meanwhile = nullptr;
    Forget(session);
    return told;
}

TEST_CASE(
    "a disk that nobody answers for in ten seconds is mounted by the system, and is not offered")
{
    if (!EnterWorld())
        return;
    StandForService();
    UseMountProgram(kOptionsScript, "");
    const CaughtErrors errors;
    const Events told = WaitInCompletion(
        [] {
            g_secondsAhead += 60;
            PlugAged("old", 10);
            PlugAged("young", 9);
        },
        2);
    // The younger one came before the session was given up.
    CHECK(told == Events{"peek first", "mounted first", "peek young", "mounted young"});
    CHECK(errors.Text().rfind("DARegisterDiskPeekCallback: not responding: nobody answered for "
                              "/disks/folder",
                              0) == 0);
    CHECK(errors.Text().find(" within 10 s\n") != std::string::npos);
    CHECK(NamesIn("/Volumes") == Events{"first", "old", "young"});
    CHECK(MountPoints().size() == 3);
    CHECK(ReadFile("/run/options").find("old" + std::string(kOwnOptions)) != std::string::npos);
    CHECK(ReadFile("/run/options").find("young" + std::string(kAskedOptions)) != std::string::npos);
}

TEST_CASE("a session that was given up is offered nothing that comes before it listens again")
{
    if (!EnterWorld())
        return;
    StandForService();
    g_meanwhile = [] {
        g_secondsAhead += 60;
        PlugAged("lost", 30);
        PlugAged("after", 1);
    };
    DASessionRef session = Watch(nullptr, MountSlowly);
    Plug("first", NewFolder());
    const CaughtErrors errors;
    CHECK(Await(2) == Events{"peek first", "mounted first"});
    CHECK(NamesIn("/Volumes") == Events{"after", "first", "lost"});
    Plug("later", NewFolder());
    CHECK(Await(4) == Events{"peek first", "mounted first", "peek later", "mounted later"});
    g_meanwhile = nullptr;
    Forget(session);
}

TEST_CASE("without the whole service a disk is offered late rather than never")
{
    if (!EnterWorld())
        return;
    Events told = WaitInCompletion(
        [] {
            g_secondsAhead += 60;
            PlugAged("lost", 30);
            PlugAged("after", 1);
        },
        6);
    REQUIRE(told.size() == 6);
    std::sort(told.begin() + 4, told.end());  // the two mounts run beside each other
    CHECK(told == Events{"peek first", "mounted first", "peek after", "peek lost", "mounted after",
                         "mounted lost"});
}

TEST_CASE("a clock that is put ahead makes no disk late")
{
    if (!EnterWorld())
        return;
    StandForService();
    DASessionRef session = Watch(nullptr, RecordPeek);
    Settle();
    PlugAged("Orvanta", 3600);
    CHECK(Await(1) == Events{"peek Orvanta"});
    PlugAged("future", -3600);
    CHECK(Await(2) == Events{"peek Orvanta", "peek future"});
    Forget(session);
}

TEST_CASE("the system mounts every disk after the peeks, whatever they switch off")
{
    if (!EnterWorld())
        return;
    StandForService();
    UseMountProgram(kOptionsScript, "");
    DASessionRef session = Watch("switched off", [](DADiskRef disk, void *) {
        CHECK(DADiskSetOptions(disk, kDADiskOptionMountAutomatic, false) == kDAReturnSuccess);
    });
    Register(session, "asked for", 0, RecordAndMount);
    for (const char *entry : {"switched\\x20off", "asked\\x20for", "left"}) {
        Plug(entry, NewFolder());
        Settle();
    }
    CHECK(g_events == Events{"peek asked for", "mounted asked for"});
    CHECK(ReadFile("/run/options") == "switched off" + std::string(kOwnOptions) + "asked for" +
                                          kAskedOptions + "left" + kOwnOptions);
    CHECK(NamesIn("/Volumes") == Events{"asked for", "left", "switched off"});
    Forget(session);
}

TEST_CASE("the system's mount follows one that was asked for and failed")
{
    if (!EnterWorld())
        return;
    StandForService();
    UseMountProgram("#!/bin/sh\ncase $2 in *ro*) exit 32;; esac\nexec /bin/mount \"$@\"\n", "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta Input/output error"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("the system's mount comes before one that was asked for after ten seconds")
{
    if (!EnterWorld())
        return;
    StandForService();
    DASessionRef session = Watch(nullptr, [](DADiskRef disk, void *context) {
        g_secondsAhead += 10;
        RecordAndMount(disk, context);
    });
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta busy"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("nothing is mounted by the system without the file that says so")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordPeek);
    Plug("Orvanta", NewFolder());
    CHECK(Await(1) == Events{"peek Orvanta"});
    CHECK(MountPoints().empty());
    Forget(session);
}

TEST_CASE("arrivals and completions are told as they happened")
{
    if (!EnterWorld())
        return;
    // The mount of the first disk is refused as soon as it is asked for, when the second is known.
    const std::string folder = NewFolder();
    fs::create_directory("/Volumes/busy");
    REQUIRE(mount(folder.c_str(), "/Volumes/busy", nullptr, MS_BIND, nullptr) == 0);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("a", folder);
    Plug("b", NewFolder());
    CHECK(Await(4) == Events{"peek a", "peek b", "refused a busy", "mounted b"});
    Forget(session);
}

// Removes the second disk, while the first is offered.
static void PeekAndPull(DADiskRef disk, void *context)
{
    RecordAndMount(disk, context);
    if (LabelOf(disk) != "b" && Exists(kLabels + "b")) {
        fs::rename(fs::read_symlink(kLabels + "b"), "/disks/pulled");
        Unplug("b");
        // Another session's call looks at the disks.
        DASessionRef other = DASessionCreate(kCFAllocatorDefault);
        DASessionScheduleWithRunLoop(other, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        Forget(other, false);
    }
}

TEST_CASE("a disk that has vanished stays among what is told, and its mount fails")
{
    if (!EnterWorld())
        return;
    StandForService();
    DASessionRef session = Watch(nullptr, PeekAndPull);
    PlugAged("b", 1);
    PlugAged("a", 0);
    CHECK(Await(4) == Events{"peek a", "peek b", "refused b not found", "mounted a"});
    CHECK(MountPoints() == Events{"/Volumes/a"});
    fs::remove_all("/disks/pulled");
    // It is gone all the same: it comes back as a new arrival.
    g_events.clear();
    Plug("b", NewFolder());
    CHECK(Await(2) == Events{"peek b", "mounted b"});
    Forget(session);
}

TEST_CASE("of several disks that are new at once the newest is considered first")
{
    if (!EnterWorld())
        return;
    Events byAge;
    Events byName{"peek a", "peek aa", "peek b", "peek c"};
    SUBCASE("where the layer stands for the service")
    {
        StandForService();
        byAge = {"peek b", "peek c", "peek aa", "peek a"};
    }
    SUBCASE("and otherwise the first by its name")
    {
    }
    DASessionRef session = Watch(nullptr, RecordPeek);
    PlugAged("a", 3);
    PlugAged("b", 1);
    PlugAged("c", 2);
    // Of one age with the first: the names decide.
    Plug("aa", NewFolder());
    struct stat first = {};
    REQUIRE(lstat((kLabels + "a").c_str(), &first) == 0);
    const timespec times[] = {first.st_mtim, first.st_mtim};
    REQUIRE(utimensat(AT_FDCWD, (kLabels + "aa").c_str(), times, AT_SYMLINK_NOFOLLOW) == 0);
    Settle();
    CHECK(g_events == (byAge.empty() ? byName : byAge));
    Forget(session);
}

TEST_CASE("a description holds the label and the device's name, and all entries must match")
{
    if (!EnterWorld())
        return;
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    const std::string folder = NewFolder();
    const std::string device = fs::path(folder).filename();
    const auto watch = [&](const char *label, const std::string &name, const char *context) {
        CFMutableDictionaryRef match =
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        CFStringRef text = CFStringCreateWithCString(nullptr, label, kCFStringEncodingUTF8);
        CFStringRef bsd = CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8);
        CFDictionarySetValue(match, kDADiskDescriptionVolumeNameKey, text);
        CFDictionarySetValue(match, kDADiskDescriptionMediaBSDNameKey, bsd);
        DARegisterDiskPeekCallback(session, match, 0, RecordPeek, const_cast<char *>(context));
        CFRelease(text);
        CFRelease(bsd);
        CFRelease(match);
    };
    watch("Orvanta", device, "both");
    watch("Orvanta", "sr9", "label alone");
    watch("Other", device, "name alone");
    Register(session, nullptr, 1, [](DADiskRef disk, void *) {
        CFDictionaryRef description = DADiskCopyDescription(disk);
        CHECK(CFDictionaryGetCount(description) == 2);
        char name[64] = "";
        CHECK(CFStringGetCString(
            static_cast<CFStringRef>(CFDictionaryGetValue(description, CFSTR("DAMediaBSDName"))),
            name, sizeof name, kCFStringEncodingUTF8));
        g_events.push_back(name);
        CFRelease(description);
    });
    Plug("Orvanta", folder);
    CHECK(Await(2) == Events{"peek Orvanta (both)", device});
    Forget(session);
}
