// Disks.cpp - the disks that are there, and those that have just arrived.
//
// Whatever wakes the watch, the whole folder is looked at and compared with what is known: lost
// events, folders that came anew and links that were made anew for the same medium need no care of
// their own. A disk is known by its medium. It has gone when its link is deleted, and when its
// medium is not there any more; a link that leads to another disk of the same label leaves it
// where it is, and its node is watched instead.

#include "Disks.h"

#include "Mounting.h"
#include "Suspects.h"
#include "Unmounting.h"
#include "Watching.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// After a look that failed, and where the kernel has no watch to give, this is when to look again.
static constexpr int64_t kRetryMs = 1000;

// One entry of the folder.
struct Link {
    char name[kLabelMax + 1];
    char label[kLabelMax + 1];
    bool leads;  // to a disk, of this identity and at this path
    Identity identity;
    char *node;
};

// What one look into the folder has found.
struct Look {
    Link *links;
    size_t count;
};

static void WatchIsReady(LoopSource *source);

static bool g_watching = false;
static bool g_begun = false;         // the disks that were there at the beginning are known
static bool g_cleaned = false;       // what an earlier process left was taken care of
static __DADisk *g_disks = nullptr;  // the known disks, each with one reference; newest last
static uint64_t g_arrivals = 0;      // the number of the latest arrival
static LoopSource g_source = {-1, false, 0, WatchIsReady, nullptr, false, nullptr};

// ---- Disk objects ----

static void DestroyDisk(Object *object)
{
    __DADisk *disk = reinterpret_cast<__DADisk *>(object);
    free(disk->node);
    free(disk);
}

static constexpr ObjectType kDiskType = {DestroyDisk, nullptr, nullptr};

// Takes the node of the link over.
static __DADisk *NewDisk(Link *link)
{
    __DADisk *disk = static_cast<__DADisk *>(NewObject(&kDiskType, sizeof(__DADisk)));
    if (disk == nullptr)
        return nullptr;
    disk->identity = link->identity;
    memcpy(disk->link, link->name, sizeof disk->link);
    memcpy(disk->label, link->label, sizeof disk->label);
    disk->node = link->node;
    link->node = nullptr;
    disk->options = kDADiskOptionMountAutomatic;
    disk->seen = true;
    disk->nodeWatch = -1;
    return disk;
}

static __DADisk *FindDisk(const Identity &identity)
{
    for (__DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (SameIdentity(disk->identity, identity))
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

// True if the name is to be left alone in this look: it may be gone at the next one.
static bool MayBeTemporary(const char *name)
{
    const int64_t left = SuspicionLeft(name, !g_begun);
    if (left > 0)
        LookAgainIn(left);
    return left > 0;
}

// ---- A look into the folder ----

static void FreeLook(Look *look)
{
    for (size_t i = 0; i < look->count; i++)
        free(look->links[i].node);
    free(look->links);
    *look = {nullptr, 0};
}

// The loop device that a mount of an image made comes with the image's own label: it is the image
// that it shows. While the image is being unmounted the device is on its way out.
static void SeeThroughLoopDevice(Link *link)
{
    Identity file;
    if (link->identity.kind != DiskKind::Block || !IsLoopDevice(link->identity.device) ||
        !ReadLoopFile(link->node, &file))
        return;
    const __DADisk *image = FindDisk(file);
    if (!IsInUse(file) && (image == nullptr || image->place[0] == '\0'))
        return;
    link->identity = file;
    link->leads = image != nullptr;
}

// Finds out where the link leads. False when memory runs out.
static bool FollowLink(Link *link)
{
    char path[sizeof LABELS_FOLDER "/" + kLabelMax];
    snprintf(path, sizeof path, LABELS_FOLDER "/%s", link->name);
    link->node = realpath(path, nullptr);
    if (link->node == nullptr)
        return errno != ENOMEM;
    link->leads = ReadIdentity(link->node, &link->identity);
    if (link->leads)
        SeeThroughLoopDevice(link);
    return true;
}

// Adds the entry to the look if its name is that of a label. False when memory runs out.
static bool AddLink(Look *look, const char *name)
{
    char label[kLabelMax + 1];
    if (MayBeTemporary(name) || !DecodeLabel(name, label, sizeof label))
        return true;
    Link *links = static_cast<Link *>(reallocarray(look->links, look->count + 1, sizeof(Link)));
    if (links == nullptr)
        return false;
    look->links = links;
    Link *link = &links[look->count++];
    *link = {};
    snprintf(link->name, sizeof link->name, "%s", name);
    memcpy(link->label, label, sizeof link->label);
    return FollowLink(link);
}

static int CompareLinks(const void *left, const void *right)
{
    return strcmp(static_cast<const Link *>(left)->name, static_cast<const Link *>(right)->name);
}

// Lists the folder, sorted by name; no folder is an empty one. False on a failure, with nothing to
// be freed.
static bool ListFolder(Look *look)
{
    *look = {nullptr, 0};
    DIR *folder = opendir(LABELS_FOLDER);
    if (folder == nullptr)
        return errno == ENOENT || errno == ENOTDIR;
    bool complete = true;
    errno = 0;
    for (const dirent *entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        complete = AddLink(look, entry->d_name);
        if (!complete)
            break;
        errno = 0;
    }
    complete = complete && errno == 0;
    closedir(folder);
    if (!complete) {
        FreeLook(look);
        return false;
    }
    if (look->count > 0)
        qsort(look->links, look->count, sizeof(Link), CompareLinks);
    return true;
}

// ---- What the look says about the known disks ----

static Link *FindLinkByName(const Look &look, const char *name)
{
    for (size_t i = 0; i < look.count; i++) {
        if (strcmp(look.links[i].name, name) == 0)
            return &look.links[i];
    }
    return nullptr;
}

static Link *FindLinkTo(const Look &look, const Identity &identity)
{
    for (size_t i = 0; i < look.count; i++) {
        if (look.links[i].leads && SameIdentity(look.links[i].identity, identity))
            return &look.links[i];
    }
    return nullptr;
}

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
        if (Reconsider(disk, look)) {
            at = &disk->next;
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

// False when memory runs out: the rest is found by the next look.
static bool AddNewDisks(const Look &look)
{
    __DADisk **end = &g_disks;
    while (*end != nullptr)
        end = &(*end)->next;
    for (size_t i = 0; i < look.count; i++) {
        Link *link = &look.links[i];
        if (!link->leads || IsKnown(link->identity))
            continue;
        __DADisk *disk = NewDisk(link);
        if (disk == nullptr)
            return false;
        disk->offered = !g_begun || WasSuspectThere(link->name);
        disk->arrival = disk->offered ? 0 : ++g_arrivals;
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
    // A program of the earlier process may be ending just now. Without its folder a mount fails; and
    // what is unmounted before the search leaves a folder for the second time.
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
    if (!ListFolder(&look))
        return false;
    RemoveGoneDisks(look);
    const bool complete = AddNewDisks(look);
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

uint64_t LatestArrival()
{
    return g_arrivals;
}

DADiskRef NextArrival()
{
    for (__DADisk *disk = g_disks; disk != nullptr; disk = disk->next) {
        if (!disk->offered)
            return disk;
    }
    return nullptr;
}
