// Disks.cpp - the disks that are there, and those that have just arrived.
//
// Whatever wakes the watch, the whole folder is looked at and compared with what is known: lost
// events, folders that came anew and links that were made anew for the same medium need no care of
// their own. A disk is known by its medium. It has gone when its link is deleted, and when its
// medium is not there any more; a link that leads to another disk of the same label leaves it
// where it is, and its node is watched instead.

#include "Disks.h"

#include "Encodings.h"
#include "Looking.h"
#include "Mounting.h"
#include "Suspects.h"
#include "Unmounting.h"
#include "Watching.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// Where this file is, the layer stands for the whole service.
static constexpr char kAutomountFile[] = "/run/kestrun/automount";

// After a look that failed, and where the kernel has no watch to give, this is when to look again.
static constexpr int64_t kRetryMs = 1000;

static void WatchIsReady(LoopSource *source);

static bool g_watching = false;
static bool g_begun = false;         // the disks that were there at the beginning are known
static bool g_cleaned = false;       // what an earlier process left was taken care of
static __DADisk *g_disks = nullptr;  // the known disks, each with one reference; newest last
static uint64_t g_events = 0;        // the number of the latest arrival or completion
static int64_t g_lastLook = 0;       // MonotonicTime
static LoopSource g_source = {-1, false, 0, WatchIsReady, nullptr, false, nullptr};

// ---- Disk objects ----

static void DestroyDisk(Object *object)
{
    __DADisk *disk = reinterpret_cast<__DADisk *>(object);
    Release(disk->description);
    free(disk->node);
    free(disk);
}

static constexpr ObjectType kDiskType = {DestroyDisk, nullptr, nullptr};

// Adds the entry, unless the text is no UTF-8. False when memory runs out.
static bool Describe(CFMutableDictionaryRef description, CFStringRef key, const char *text)
{
    if (!IsUtf8(text, strlen(text)))
        return true;
    CFStringRef value = CreateString(text);
    if (value == nullptr)
        return false;
    CFDictionarySetValue(description, key, value);
    Release(value);
    return CFDictionaryGetValue(description, key) != nullptr;
}

// What is known of a disk at that node, an absolute path; null when memory runs out.
static CFDictionaryRef NewDescription(const char *label, const char *node)
{
    CFMutableDictionaryRef description = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    const char *name = strrchr(node, '/') + 1;
    if (description != nullptr && Describe(description, kDADiskDescriptionVolumeNameKey, label) &&
        Describe(description, kDADiskDescriptionMediaBSDNameKey, name))
        return description;
    Release(description);
    return nullptr;
}

// Takes the node of the link over.
static __DADisk *NewDisk(Link *link)
{
    __DADisk *disk = static_cast<__DADisk *>(NewObject(&kDiskType, sizeof(__DADisk)));
    if (disk == nullptr)
        return nullptr;
    disk->nodeWatch = -1;
    disk->description = NewDescription(link->label, link->node);
    if (disk->description == nullptr) {
        Release(disk);
        return nullptr;
    }
    disk->identity = link->identity;
    memcpy(disk->link, link->name, sizeof disk->link);
    memcpy(disk->label, link->label, sizeof disk->label);
    disk->node = link->node;
    link->node = nullptr;
    disk->options = kDADiskOptionMountAutomatic;
    return disk;
}

static __DADisk *FindDisk(const Identity &identity)
{
    for (__DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (!disk->gone && SameIdentity(disk->identity, identity))
            return disk;
    }
    return nullptr;
}

static bool IsKnown(const Identity &identity)
{
    return FindDisk(identity) != nullptr;
}

static void LookAgainIn(int64_t milliseconds)
{
    const int64_t at = MonotonicTime() + milliseconds;
    if (g_source.deadline == 0 || at < g_source.deadline)
        g_source.deadline = at;
}

// The loop device that a mount of an image made comes with the image's own label: it is the image
// that it shows. While the image is being unmounted the device is on its way out.
static void SeeThroughLoopDevice(Link *link)
{
    Identity file;
    if (!link->leads || link->identity.kind != DiskKind::Block ||
        !IsLoopDevice(link->identity.device) || !ReadLoopFile(link->node, &file))
        return;
    const __DADisk *image = FindDisk(file);
    if (!IsInUse(file) && (image == nullptr || image->place[0] == '\0'))
        return;
    link->identity = file;
    link->leads = image != nullptr;
}

// ---- What the look says about the known disks ----

static void SetNodeWatch(DADiskRef disk, bool watched)
{
    if (watched && disk->nodeWatch < 0)
        disk->nodeWatch = WatchNode(disk->node);
    if (watched)
        return;
    UnwatchNode(disk->nodeWatch);
    disk->nodeWatch = -1;
}

static bool IsStillThere(DADiskRef disk)
{
    Identity identity;
    return ReadIdentity(disk->node, &identity) && SameIdentity(identity, disk->identity);
}

// True if the disk is there. A disk under a new label keeps its identity and gets its new name.
static bool Reconsider(DADiskRef disk, const Look &look)
{
    const Link *own = FindLinkByName(look, disk->link);
    if (own == nullptr || !own->leads || !SameIdentity(own->identity, disk->identity)) {
        const Link *other = FindLinkTo(look, disk->identity);
        if (other == nullptr) {
            // The watch first: what goes after it is seen.
            if (own != nullptr)
                SetNodeWatch(disk, true);
            return own != nullptr && IsStillThere(disk);
        }
        CFDictionaryRef description = NewDescription(other->label, disk->node);
        if (description == nullptr)  // the next look finds the same
            return true;
        Release(disk->description);
        disk->description = description;
        memcpy(disk->link, other->name, sizeof disk->link);
        memcpy(disk->label, other->label, sizeof disk->label);
    }
    SetNodeWatch(disk, false);
    return true;
}

static void RemoveGoneDisks(const Look &look)
{
    __DADisk **at = &g_disks;
    while (*at != nullptr) {
        __DADisk *disk = *at;
        if (disk->gone ? !disk->offered : Reconsider(disk, look)) {
            at = &disk->next;
            continue;
        }
        // The service keeps in its queue what is gone: it is still offered.
        if (!disk->offered && StandsForService()) {
            disk->gone = true;
            continue;
        }
        *at = disk->next;
        disk->next = nullptr;
        disk->gone = true;
        SetNodeWatch(disk, false);
        UnmountDisk(disk);
        Release(disk);
    }
}

// When the link's disk came: not before the last look, which did not find it, nor after now. A
// clock that was set meanwhile says no worse.
static int64_t ArrivalTime(const Link &link)
{
    const int64_t at = MonotonicTime() - AgeOf(link);
    return at > g_lastLook ? at : g_lastLook;
}

// False when memory runs out: the rest is found by the next look. Of disks that are new at once the
// service considers the newest first.
static bool AddNewDisks(Look *look)
{
    if (StandsForService())
        SortByAge(look);
    __DADisk **end = &g_disks;
    while (*end != nullptr)
        end = &(*end)->next;
    for (size_t i = 0; i < look->count; i++) {
        Link *link = &look->links[i];
        if (!link->leads || IsKnown(link->identity))
            continue;
        __DADisk *disk = NewDisk(link);
        if (disk == nullptr)
            return false;
        disk->offered = !g_begun || WasSuspectThere(link->name);
        disk->arrival = disk->offered ? 0 : NumberNextEvent();
        disk->arrivedAt = ArrivalTime(*link);
        *end = disk;
        end = &disk->next;
    }
    return true;
}

// ---- What an earlier process left ----

static void UnmountLeftover(const char *place, dev_t device)
{
    UnmountPlace(place, device, nullptr);
}

// Takes over what is mounted of the disks that are there, and unmounts what is of others. False if
// mountinfo cannot be read.
static bool CleanUp()
{
    for (__DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (FindPlaceOf(disk->identity, false, disk->place, sizeof disk->place) == Found::Unknown)
            return false;
    }
    // A program of the earlier process may be ending just now. Without its folder a mount fails;
    // and what is unmounted before the search leaves a folder for the second time.
    const bool mounting = IsMounting();
    if (!mounting)
        RemoveStalePlaces();
    if (!ForEachLeftover(IsKnown, UnmountLeftover))
        return false;
    if (!mounting)
        RemoveStalePlaces();
    return true;
}

// ---- Watching ----

// False if the look was not complete and has to be repeated.
static bool LookOnce()
{
    Look look;
    int64_t again = 0;
    if (!ListFolder(&look, !g_begun, &again))
        return false;
    if (again > 0)
        LookAgainIn(again);
    for (size_t i = 0; i < look.count; i++)
        SeeThroughLoopDevice(&look.links[i]);
    RemoveGoneDisks(look);
    const bool complete = AddNewDisks(&look);
    g_lastLook = MonotonicTime();
    FreeLook(&look);
    if (!complete)
        return false;
    g_begun = true;
    ForgetSuspects(false);
    if (!g_cleaned)
        g_cleaned = CleanUp();
    return g_cleaned;
}

void LookForDisks()
{
    if (!g_watching)
        return;
    g_source.deadline = 0;
    DrainWatch();
    const bool watched = WatchLabels();
    g_source.fd = OpenWatch();
    const bool complete = LookOnce();
    if (!watched || !complete)
        LookAgainIn(kRetryMs);
    RetryUnmounts();
    if (NextArrival() != nullptr)
        SignalWork();
}

static void WatchIsReady(LoopSource * /*source*/)
{
    LookForDisks();
}

bool StartWatchingDisks()
{
    if (g_watching)
        return true;
    g_source.signalled = false;
    g_source.deadline = 0;
    g_source.fd = OpenWatch();
    if (!RunLoopAddSource(&g_source)) {
        CloseWatch();
        return false;
    }
    g_watching = true;
    g_begun = false;
    g_cleaned = false;
    LookForDisks();
    return true;
}

void StopWatchingDisks()
{
    if (!g_watching)
        return;
    g_watching = false;
    RunLoopRemoveSource(&g_source);
    CloseWatch();
    while (g_disks != nullptr) {
        __DADisk *disk = g_disks;
        g_disks = disk->next;
        disk->next = nullptr;
        disk->nodeWatch = -1;
        Release(disk);
    }
    ForgetSuspects(true);
}

bool AreDisksWatched()
{
    return g_watching;
}

bool StandsForService()
{
    return access(kAutomountFile, F_OK) == 0;
}

uint64_t NumberNextEvent()
{
    return ++g_events;
}

uint64_t LatestEvent()
{
    return g_events;
}

// A new disk stands behind the known ones, so the first has the lowest number.
DADiskRef NextArrival()
{
    for (__DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (!disk->offered)
            return disk;
    }
    return nullptr;
}

bool FirstArrivalTime(int64_t *arrivedAt)
{
    bool found = false;
    for (const __DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (disk->offered || (found && disk->arrivedAt >= *arrivedAt))
            continue;
        *arrivedAt = disk->arrivedAt;
        found = true;
    }
    return found;
}
