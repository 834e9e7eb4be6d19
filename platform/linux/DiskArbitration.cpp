// DiskArbitration.cpp - sessions, their peek callbacks, and the offering of disks to them.
//
// The disks themselves are followed in Disks.cpp, mounts in Mounting.cpp. One source of the run loop
// does one thing at a time: it delivers a completion or offers a disk; so between two calls of the
// daemon's functions the newest state of things has been looked at.

#include <DiskArbitration/DiskArbitration.h>

#include "Disks.h"
#include "Mounting.h"
#include "Runtime.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// Where this file is, the layer mounts disks by itself.
static constexpr char kAutomountFile[] = "/run/kestrun/automount";

static constexpr char kVolumeNameText[] = "DAVolumeName";
static constexpr __CFString kVolumeName = {
    {&kStringType, kImmortal}, sizeof kVolumeNameText - 1, kVolumeNameText};

const CFStringRef kDADiskDescriptionVolumeNameKey = &kVolumeName;

struct __DASession {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    bool scheduled;
    uint64_t since;  // the latest arrival when it was scheduled
    __DASession *next;
};

struct PeekCallback {
    DASessionRef session;   // borrowed: the session takes its callbacks along
    CFDictionaryRef match;  // one reference; null matches every disk
    CFIndex order;
    uint64_t number;  // among the registrations
    uint64_t since;   // the latest arrival when it was registered
    DADiskPeekCallback callback;
    void *context;
    PeekCallback *next;
};

static void DoWork(LoopSource *source);

static __DASession *g_scheduled = nullptr;   // the scheduled sessions, each with one reference
static PeekCallback *g_callbacks = nullptr;  // sorted by order, then by number
static uint64_t g_registrations = 0;         // the number of the latest registration
static bool g_workAdded = false;             // g_work is on the run loop
static LoopSource g_work = {-1, false, 0, DoWork, nullptr, false, nullptr};

// ---- Sessions ----

static void DestroySession(Object *object)
{
    DASessionRef session = reinterpret_cast<DASessionRef>(object);
    PeekCallback **at = &g_callbacks;
    while (*at != nullptr) {
        PeekCallback *peek = *at;
        if (peek->session != session) {
            at = &peek->next;
            continue;
        }
        *at = peek->next;
        Release(peek->match);
        free(peek);
    }
    free(session);
}

static constexpr ObjectType kSessionType = {DestroySession, nullptr, nullptr};

DASessionRef DASessionCreate(CFAllocatorRef /*allocator*/)
{
    return static_cast<DASessionRef>(NewObject(&kSessionType, sizeof(__DASession)));
}

// True if the arguments of a call to schedule or unschedule name the one loop and its one mode.
static bool IsOnLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef runLoopMode)
{
    return session != nullptr && runLoop == CFRunLoopGetCurrent() &&
           CFEqual(runLoopMode, kCFRunLoopDefaultMode);
}

void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef runLoop,
                                  CFStringRef runLoopMode)
{
    if (!IsOnLoop(session, runLoop, runLoopMode) || session->scheduled)
        return;
    if (AreDisksWatched())
        LookForDisks();
    else if (!StartWatchingDisks())
        return;
    session->scheduled = true;
    session->since = LatestArrival();
    session->next = g_scheduled;
    g_scheduled = session;
    CFRetain(session);
}

void DASessionUnscheduleFromRunLoop(DASessionRef session, CFRunLoopRef runLoop,
                                    CFStringRef runLoopMode)
{
    if (!IsOnLoop(session, runLoop, runLoopMode) || !session->scheduled)
        return;
    __DASession **at = &g_scheduled;
    while (*at != session)
        at = &(*at)->next;
    *at = session->next;
    session->scheduled = false;
    Release(session);
    if (g_scheduled == nullptr)
        StopWatchingDisks();
}

void DARegisterDiskPeekCallback(DASessionRef session, CFDictionaryRef match, CFIndex order,
                                DADiskPeekCallback callback, void *context)
{
    if (session == nullptr || callback == nullptr)
        return;
    CFDictionaryRef copy = CFDictionaryCreateCopy(kCFAllocatorDefault, match);
    PeekCallback *peek = static_cast<PeekCallback *>(malloc(sizeof *peek));
    if (peek == nullptr || (copy == nullptr && match != nullptr)) {
        Release(copy);
        free(peek);
        return;
    }
    LookForDisks();
    PeekCallback **at = &g_callbacks;
    while (*at != nullptr && (*at)->order <= order)
        at = &(*at)->next;
    *peek = {session, copy, order, ++g_registrations, LatestArrival(), callback, context, *at};
    *at = peek;
}

// ---- Disks ----

CFDictionaryRef DADiskCopyDescription(DADiskRef disk)
{
    if (disk == nullptr)
        return nullptr;
    CFMutableDictionaryRef description = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFStringRef label = CreateString(disk->label);
    if (label != nullptr)
        CFDictionarySetValue(description, kDADiskDescriptionVolumeNameKey, label);
    Release(label);
    return description;
}

DADiskOptions DADiskGetOptions(DADiskRef disk)
{
    return disk == nullptr ? 0 : disk->options;
}

DAReturn DADiskSetOptions(DADiskRef disk, DADiskOptions options, Boolean value)
{
    if (disk == nullptr)
        return kDAReturnBadArgument;
    disk->options = value ? disk->options | options : disk->options & ~options;
    return kDAReturnSuccess;
}

void DADiskMountWithArguments(DADiskRef disk, CFURLRef path, DADiskMountOptions options,
                              DADiskMountCallback callback, void *context, CFStringRef arguments[])
{
    if (disk == nullptr)
        return;
    const bool supported = path == nullptr && options == kDADiskMountOptionDefault;
    RequestMount(disk, callback, context, arguments,
                 supported ? kDAReturnSuccess : kDAReturnUnsupported);
}

// ---- Work ----

// A disk is described by its label alone, so any other entry matches none.
static bool Matches(const PeekCallback &peek, const __DADisk *disk)
{
    const CFIndex entries = peek.match == nullptr ? 0 : CFDictionaryGetCount(peek.match);
    if (entries == 0)
        return true;
    const char *label =
        TextOfObject(CFDictionaryGetValue(peek.match, kDADiskDescriptionVolumeNameKey));
    return entries == 1 && label != nullptr && strcmp(label, disk->label) == 0;
}

// The first callback behind the registration `order`, `number` that the disk is to be offered to;
// null if there is none. A callback may have added or removed others.
static const PeekCallback *NextPeek(const __DADisk *disk, bool first, CFIndex order,
                                    uint64_t number)
{
    for (const PeekCallback *peek = g_callbacks; peek != nullptr; peek = peek->next) {
        const bool behind =
            first || peek->order > order || (peek->order == order && peek->number > number);
        if (behind && peek->session->scheduled && peek->session->since < disk->arrival &&
            peek->since < disk->arrival && Matches(*peek, disk))
            return peek;
    }
    return nullptr;
}

// The mount requests that the callbacks make come first, the layer's own behind them.
static void OfferDisk(DADiskRef disk)
{
    disk->offered = true;
    CFRetain(disk);
    const PeekCallback *peek = NextPeek(disk, true, 0, 0);
    while (peek != nullptr) {
        const CFIndex order = peek->order;
        const uint64_t number = peek->number;
        peek->callback(disk, peek->context);
        peek = NextPeek(disk, false, order, number);
    }
    if ((disk->options & kDADiskOptionMountAutomatic) != 0 && access(kAutomountFile, F_OK) == 0)
        RequestMount(disk, nullptr, nullptr, nullptr, kDAReturnSuccess);
    Release(disk);
}

void SignalWork()
{
    if (!g_workAdded)
        g_workAdded = RunLoopAddSource(&g_work);
    g_work.signalled = true;
}

static void DoWork(LoopSource *source)
{
    if (!DeliverCompletion()) {
        DADiskRef disk = NextArrival();
        if (disk != nullptr)
            OfferDisk(disk);
    }
    ProceedWithMounts();
    if (IsCompletionDue() || NextArrival() != nullptr)
        SignalWork();
    if (source->signalled)
        return;
    RunLoopRemoveSource(source);
    g_workAdded = false;
}
