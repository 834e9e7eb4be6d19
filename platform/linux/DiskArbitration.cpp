// DiskArbitration.cpp - sessions, their peek callbacks, and the offering of disks to them.
//
// The disks themselves are followed in Disks.cpp, mounts in Mounting.cpp. Arrivals and completions
// are told in the order in which they happened. One source of the run loop tells one of them at a
// time, so that between two calls of the daemon's functions the newest state of things has been
// looked at. Where the layer stands for the whole service it tells all that waits at once, as a
// session fetches it.

#include <DiskArbitration/DiskArbitration.h>

#include "Disks.h"
#include "Mounting.h"
#include "Runtime.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// Milliseconds for which the service waits for the answer to a peek.
static constexpr int64_t kPeekLimitMs = 10000;

static constexpr char kVolumeNameText[] = "DAVolumeName";
static constexpr __CFString kVolumeName = {
    {&kStringType, kImmortal}, sizeof kVolumeNameText - 1, kVolumeNameText};
static constexpr char kMediaNameText[] = "DAMediaBSDName";
static constexpr __CFString kMediaName = {
    {&kStringType, kImmortal}, sizeof kMediaNameText - 1, kMediaNameText};

const CFStringRef kDADiskDescriptionVolumeNameKey = &kVolumeName;
const CFStringRef kDADiskDescriptionMediaBSDNameKey = &kMediaName;

struct __DASession {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    bool scheduled;
    uint64_t since;  // the latest event when it was scheduled
    __DASession *next;
};

struct PeekCallback {
    DASessionRef session;   // borrowed: the session takes its callbacks along
    CFDictionaryRef match;  // one reference; null matches every disk
    CFIndex order;
    uint64_t number;  // among the registrations
    uint64_t since;   // the latest event when it was registered
    DADiskPeekCallback callback;
    void *context;
    PeekCallback *next;
};

static void DoWork(LoopSource *source);

static __DASession *g_scheduled = nullptr;   // the scheduled sessions, each with one reference
static PeekCallback *g_callbacks = nullptr;  // sorted by order, then by number
static uint64_t g_registrations = 0;         // the number of the latest registration
static bool g_workAdded = false;             // g_work is on the run loop
static int64_t g_silentSince = 0;            // see IsLost; 0 for never
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
    return session != nullptr && runLoop == CFRunLoopGetCurrent() && runLoopMode != nullptr &&
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
    session->since = LatestEvent();
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
    CFDictionaryRef copy =
        match == nullptr ? nullptr : CFDictionaryCreateCopy(kCFAllocatorDefault, match);
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
    *peek = {session, copy, order, ++g_registrations, LatestEvent(), callback, context, *at};
    *at = peek;
}

// ---- Disks ----

CFDictionaryRef DADiskCopyDescription(DADiskRef disk)
{
    if (disk == nullptr)
        return nullptr;
    return static_cast<CFDictionaryRef>(CFRetain(disk->description));
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
        CompleteMount(disk, callback, context, kDAReturnBadArgument);
    else if (path == nullptr && options == kDADiskMountOptionDefault)
        RequestMount(disk, callback, context, arguments);
    else
        CompleteMount(disk, callback, context, kDAReturnUnsupported);
}

// ---- Work ----

// The first callback behind the registration `order`, `number` that the disk is to be offered to;
// null if there is none. A callback may have added or removed others.
static const PeekCallback *NextPeek(const __DADisk *disk, bool first, CFIndex order,
                                    uint64_t number)
{
    for (const PeekCallback *peek = g_callbacks; peek != nullptr; peek = peek->next) {
        const bool behind =
            first || peek->order > order || (peek->order == order && peek->number > number);
        if (behind && peek->session->scheduled && peek->session->since < disk->arrival &&
            peek->since < disk->arrival && HasEntriesOf(disk->description, peek->match))
            return peek;
    }
    return nullptr;
}

// True for a disk that the service does not offer any more: nobody answered for it in time, or it
// came while a session did not respond. That begins when the time of the first disk that waits is
// over, and ends when the session fetches what waits for it.
static bool IsLost(const __DADisk *disk)
{
    if (!StandsForService())
        return false;
    return disk->arrivedAt + kPeekLimitMs <= MonotonicTime() ||
           (g_silentSince != 0 && disk->arrivedAt >= g_silentSince);
}

static void CallPeeks(DADiskRef disk)
{
    const PeekCallback *peek = NextPeek(disk, true, 0, 0);
    while (peek != nullptr) {
        const CFIndex order = peek->order;
        const uint64_t number = peek->number;
        peek->callback(disk, peek->context);
        peek = NextPeek(disk, false, order, number);
    }
}

// The mount requests that the callbacks make come first, the automatic one behind them; but it
// comes before them when the callbacks have taken too long.
static void OfferDisk(DADiskRef disk)
{
    disk->offered = true;
    CFRetain(disk);
    const int64_t begin = MonotonicTime();
    if (IsLost(disk))
        Complain("DARegisterDiskPeekCallback", "not responding: nobody answered for %s within %d s",
                 disk->node, static_cast<int>(kPeekLimitMs / 1000));
    else
        CallPeeks(disk);
    if (StandsForService())
        RequestAutomaticMount(disk, MonotonicTime() - begin >= kPeekLimitMs);
    Release(disk);
}

void SignalWork()
{
    if (!g_workAdded)
        g_workAdded = RunLoopAddSource(&g_work);
    g_work.signalled = true;
}

// Tells the first of what has happened, up to the number `last`. False if there is nothing.
static bool TellNext(uint64_t last)
{
    DADiskRef disk = NextArrival();
    const uint64_t completion = FirstCompletion();
    if (disk != nullptr && disk->arrival <= last &&
        (completion == 0 || disk->arrival < completion)) {
        OfferDisk(disk);
        return true;
    }
    if (completion == 0 || completion > last)
        return false;
    DeliverCompletion();
    return true;
}

static void TellAll()
{
    int64_t first = 0;
    const bool late = FirstArrivalTime(&first) && first + kPeekLimitMs <= MonotonicTime();
    g_silentSince = late ? first + kPeekLimitMs : 0;
    const uint64_t last = LatestEvent();
    while (TellNext(last)) {
    }
    LookForDisks();
}

static void DoWork(LoopSource *source)
{
    if (StandsForService())
        TellAll();
    else
        TellNext(LatestEvent());
    ProceedWithMounts();
    if (FirstCompletion() != 0 || NextArrival() != nullptr)
        SignalWork();
    if (source->signalled)
        return;
    RunLoopRemoveSource(source);
    g_workAdded = false;
}
