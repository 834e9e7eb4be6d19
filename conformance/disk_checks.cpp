// disk_checks.cpp - disks as the disk arbitration service offers, mounts and loses them.
//
// Each check watches disks of its own labels with a session of its own, and writes down what its
// callbacks see, in order: "peek LABEL", "mounted LABEL", "refused LABEL".
#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include "conformance/Checks.h"
#include "conformance/System.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <utility>

#include <unistd.h>

namespace conformance
{
namespace
{

// How long something that is expected may take, in seconds.
constexpr double kPatience = 20;

// The service waits ten seconds for an answer, and may take one more.
constexpr double kBeyondTheLimit = 12;

// ---- What the callbacks do and see ----

std::vector<std::string> g_events;
CFStringRef g_arguments[2];  // of a mount, ended by null; none: no mount
DAReturn g_status;           // of the last dissenter
std::function<void(const std::string &label)> g_inPeek;  // called once, at the end of a peek
std::function<void(DADiskRef disk)> g_inMount;           // once, at the end of a completion

std::string LabelOf(DADiskRef disk)
{
    char label[256] = "<no label>";
    CFDictionaryRef description = disk == nullptr ? nullptr : DADiskCopyDescription(disk);
    if (description == nullptr)
        return "<no disk>";
    const void *name = CFDictionaryGetValue(description, kDADiskDescriptionVolumeNameKey);
    if (name != nullptr)
        (void)CFStringGetCString(static_cast<CFStringRef>(name), label, sizeof label,
                                 kCFStringEncodingUTF8);
    CFRelease(description);
    return label;
}

// Calls the function, if there is one, and forgets it.
template <typename Function, typename Argument>
void CallOnce(Function *function, Argument argument)
{
    const Function once = std::exchange(*function, nullptr);
    if (once)
        once(argument);
}

void Mounted(DADiskRef disk, DADissenterRef dissenter, void * /*context*/)
{
    const std::string label = LabelOf(disk);
    if (dissenter != nullptr)
        g_status = DADissenterGetStatus(dissenter);
    g_events.push_back((dissenter == nullptr ? "mounted " : "refused ") + label);
    CallOnce(&g_inMount, disk);
}

void Mount(DADiskRef disk)
{
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, Mounted, nullptr,
                             g_arguments);
}

// As the daemon does it, but for the mount where none is wanted.
void Peek(DADiskRef disk, void * /*context*/)
{
    const std::string label = LabelOf(disk);
    g_events.push_back("peek " + label + (MountOf(label).mounted ? ", mounted before" : ""));
    (void)DADiskSetOptions(disk, 0x10, false);
    if (g_arguments[0] != nullptr)
        Mount(disk);
    CallOnce(&g_inPeek, label);
}

std::string Events()
{
    std::string text;
    for (const std::string &event : g_events)
        text += (text.empty() ? "" : ", ") + event;
    return text.empty() ? "nothing" : text;
}

std::string Hex(DAReturn status)
{
    char text[16];
    (void)snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
    return text;
}

// ---- Sessions and time ----

// A session that is scheduled on the run loop, with the check's callbacks as they are at the start.
struct Watch {
    explicit Watch(CFStringRef argument) : session(DASessionCreate(kCFAllocatorDefault))
    {
        g_events.clear();
        g_arguments[0] = argument;
        g_inPeek = nullptr;
        g_inMount = nullptr;
        DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    ~Watch()
    {
        DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        CFRelease(session);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    // Watches for the label; with a further entry that disks may have or not.
    void For(const std::string &label, CFStringRef key = nullptr) const
    {
        CFMutableDictionaryRef match =
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        CFStringRef name = CFStringCreateWithCString(kCFAllocatorDefault, label.c_str(),
                                                     kCFStringEncodingMacRoman);
        CFDictionarySetValue(match, kDADiskDescriptionVolumeNameKey, name);
        if (key != nullptr)
            CFDictionarySetValue(match, key, name);
        DARegisterDiskPeekCallback(session, match, 0, Peek, nullptr);
        CFRelease(name);
        CFRelease(match);
    }

    DASessionRef session;
};

// Lets time pass without the run loop, as a callback does that waits.
void Pause(double seconds)
{
    (void)usleep(static_cast<useconds_t>(seconds * 1e6));
}

void Run(double seconds)
{
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false);
}

// Runs the loop until `done`, for kPatience at most; what `done` says at the end.
bool RunUntil(const std::function<bool()> &done)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(kPatience));
    while (!done() && Clock::now() < end)
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
    return done();
}

bool RunUntilEvents(size_t count)
{
    return RunUntil([count] { return g_events.size() >= count; });
}

// A disk of a label that no other has, for as long as this lives.
struct Disk {
    explicit Disk(const std::string &name) : label("K" + std::to_string(getpid()) + name)
    {
    }
    ~Disk()
    {
        if (attached)
            Detach(label);
    }
    Disk(const Disk &) = delete;
    Disk &operator=(const Disk &) = delete;

    void Come()
    {
        attached = Attach(label, &why);
        if (!attached)
            g_events.push_back(why);
    }

    const std::string label;
    bool attached = false;
    std::string why;
};

std::string StateOf(const Disk &disk)
{
    const MountState state = MountOf(disk.label);
    if (!state.mounted)
        return "not mounted";
    return std::string(state.readOnly ? "read-only" : "writable") +
           (state.hidden ? ", hidden" : "");
}

// ---- The checks ----

std::string RegistrationReplaysNothing()
{
    Disk disk("A");
    Watch others(nullptr);
    disk.Come();
    if (!RunUntil([&] { return MountOf(disk.label).mounted; }))
        return "the system did not mount " + disk.label + "; " + Events();
    const Watch watch(nullptr);
    watch.For(disk.label);
    Run(kSettled);
    return Difference(Events(), "nothing");
}

std::string ADiskIsOfferedOnceBeforeAnyMount()
{
    Disk disk("B");
    const Watch watch(nullptr);
    watch.For(disk.label);
    disk.Come();
    if (!RunUntil([&] { return MountOf(disk.label).mounted; }))
        return "the system did not mount it; " + Events();
    Run(kSettled);
    return Difference(Events() + "; then " + StateOf(disk),
                      "peek " + disk.label + "; then writable");
}

std::string AMountWith(const char *name, CFStringRef argument, const std::string &expected)
{
    Disk disk(name);
    const Watch watch(argument);
    watch.For(disk.label);
    disk.Come();
    RunUntilEvents(2);
    Run(kSettled);
    return Difference(Events() + "; then " + StateOf(disk),
                      "peek " + disk.label + ", mounted " + disk.label + "; then " + expected);
}

std::string RdonlyWins()
{
    return AMountWith("C", CFSTR("rdonly"), "read-only");
}

std::string NobrowseWins()
{
    return AMountWith("D", CFSTR("nobrowse"), "writable, hidden");
}

std::string ASecondMountIsRefusedAsBusy()
{
    Disk disk("E");
    const Watch watch(CFSTR("rdonly"));
    watch.For(disk.label);
    g_inMount = [](DADiskRef mounted) { Mount(mounted); };
    g_status = kDAReturnSuccess;
    disk.Come();
    RunUntilEvents(3);
    const std::string expected =
        "peek " + disk.label + ", mounted " + disk.label + ", refused " + disk.label + "; busy";
    return Difference(Events() + "; " + (g_status == kDAReturnBusy ? "busy" : Hex(g_status)),
                      expected);
}

std::string ARefusedRequestIsCompletedAtOnce()
{
    const Watch watch(CFSTR("rdonly"));
    g_status = kDAReturnSuccess;
    Mount(nullptr);
    const std::string status = g_status == kDAReturnBadArgument ? "bad argument" : Hex(g_status);
    return Difference(Events() + "; " + status, "refused <no disk>; bad argument");
}

std::string EveryEntryOfAMatchMustAgree()
{
    Disk disk("F");
    const Watch watch(nullptr);
    watch.For(disk.label, CFSTR("NoSuchEntry"));
    disk.Come();
    if (!RunUntil([&] { return MountOf(disk.label).mounted; }))
        return "the system did not mount it; " + Events();
    Run(kSettled);
    return Difference(Events(), "nothing");
}

// A session that is busy with the completion of `first` until `meanwhile` has returned.
void WatchBusily(const Watch &watch, Disk *first, const std::function<void()> &meanwhile)
{
    watch.For(first->label);
    g_inMount = [&meanwhile](DADiskRef) { meanwhile(); };
    first->Come();
    RunUntilEvents(2);
}

std::string WhatHappensIsToldInOrder()
{
    Disk first("G");
    Disk second("H");
    Disk third("I");
    const Watch watch(CFSTR("rdonly"));
    watch.For(second.label);
    watch.For(third.label);
    WatchBusily(watch, &first, [&] {
        second.Come();
        third.Come();
        Pause(kSettled);
        // A mount that is done before the peek has returned is told after the peek that waits.
        g_inPeek = [](const std::string &) { Pause(kSettled); };
    });
    RunUntilEvents(6);
    // Which of the two comes first is open.
    if (g_events.size() == 6 && g_events[2] == "peek " + third.label) {
        std::swap(g_events[2], g_events[3]);
    }
    if (g_events.size() == 6 && g_events[4] == "mounted " + third.label)
        std::swap(g_events[4], g_events[5]);
    return Difference(Events(), "peek " + first.label + ", mounted " + first.label + ", peek " +
                                    second.label + ", peek " + third.label + ", mounted " +
                                    second.label + ", mounted " + third.label);
}

std::string AGoneDiskIsStillOffered()
{
    Disk first("J");
    Disk second("L");
    Disk third("M");
    const Watch watch(CFSTR("rdonly"));
    watch.For(second.label);
    watch.For(third.label);
    std::string gone;
    WatchBusily(watch, &first, [&] {
        second.Come();
        third.Come();
        Pause(kSettled);
        g_inPeek = [&](const std::string &label) {
            Disk &other = label == second.label ? third : second;
            gone = other.label;
            other.attached = false;
            Detach(other.label);
        };
    });
    RunUntilEvents(6);
    const auto told = [](const std::string &event) {
        return std::count(g_events.begin(), g_events.end(), event) == 1;
    };
    const bool good = g_events.size() == 6 && told("peek " + gone) && told("refused " + gone);
    return good ? "" : Events();
}

std::string TheTenSeconds()
{
    Disk first("N");
    Disk during("O");
    Disk afterwards("P");
    Disk later("Q");
    const Watch watch(CFSTR("rdonly"));
    watch.For(during.label);
    watch.For(afterwards.label);
    watch.For(later.label);
    WatchBusily(watch, &first, [&] {
        during.Come();
        Pause(kBeyondTheLimit);
        afterwards.Come();
        Pause(kSettled);
    });
    RunUntil([&] { return MountOf(during.label).mounted && MountOf(afterwards.label).mounted; });
    Run(kSettled);
    const std::string lost = StateOf(during) + "; " + StateOf(afterwards);
    const bool offered =
        std::count(g_events.begin(), g_events.end(), "peek " + afterwards.label) != 0;
    g_events.clear();
    later.Come();
    RunUntilEvents(2);
    return Difference(lost + (offered ? "; offered; " : "; not offered; ") + Events(),
                      "writable; writable; not offered; peek " + later.label + ", mounted " +
                          later.label);
}

}  // namespace

const std::vector<Check> kDiskChecks = {
    {"registration replays nothing", RegistrationReplaysNothing},
    {"a disk is offered once, before anything has mounted it, and the system mounts what nobody asked "
     "for, whatever the option 0x10 says",
     ADiskIsOfferedOnceBeforeAnyMount},
    {"a mount with \"rdonly\" that is asked for in the peek comes before the system's", RdonlyWins},
    {"a mount with \"nobrowse\" that is asked for in the peek comes before the system's",
     NobrowseWins},
    {"a disk that is mounted is not mounted again: the completion has a dissenter that says busy",
     ASecondMountIsRefusedAsBusy},
    {"a request for no disk is completed inside the call, as a bad argument",
     ARefusedRequestIsCompletedAtOnce},
    {"every entry of a match dictionary must agree", EveryEntryOfAMatchMustAgree},
    {"peeks and completions are told in the order in which they happened",
     WhatHappensIsToldInOrder},
    {"a disk that goes while its peek waits is offered all the same, and its mount is refused",
     AGoneDiskIsStillOffered},
    {"a peek that is not answered in ten seconds is given up: the system mounts the disk, and the "
     "session is offered no disk until it asks again",
     TheTenSeconds, true},
};

}  // namespace conformance
