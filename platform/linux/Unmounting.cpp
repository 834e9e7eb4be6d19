// Unmounting.cpp - what is on its way out of /Volumes.
//
// umount is given an argument vector, as mount is. What counts in the end is whether anything is
// mounted at the place, not who has unmounted it.

#include "Unmounting.h"

#include "Children.h"
#include "MountPoints.h"
#include "Mounting.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// A place may have been mounted over; it is unmounted this often at most.
static constexpr int kUnmountTries = 16;

// Something that is to be unmounted, and its folder removed.
struct Unmount {
    char place[kPlaceSize];
    dev_t device;    // of the disk, or of the mount that was found
    DADiskRef disk;  // whose it is, one reference; null for what an earlier process left
    bool running;    // false: it could not be unmounted
    int tries;
    Child child;  // umount
    Unmount *next;
};

static Unmount *g_unmounts = nullptr;

static Unmount *FindUnmount(const char *place)
{
    for (Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (strcmp(unmount->place, place) == 0)
            return unmount;
    }
    return nullptr;
}

static void ForgetUnmount(Unmount *unmount)
{
    Unmount **at = &g_unmounts;
    while (*at != unmount)
        at = &(*at)->next;
    *at = unmount->next;
    Release(unmount->disk);
    free(unmount);
}

static void StartUnmount(Unmount *unmount);

// Where the disk, which is gone, is mounted still. What others have mounted is theirs as long as
// the device is there; a folder or an image has none but its link.
static Found FindPlaceLeft(const __DADisk *disk, char *place, size_t size)
{
    const Identity &identity = disk->identity;
    const bool anybodys = identity.kind != DiskKind::Block || !IsDeviceThere(identity.device);
    return FindPlaceOf(identity, anybodys, place, size);
}

// Others may have been quicker: what counts is whether anything is mounted there still. A disk that
// is mounted at a second place is unmounted from there too.
static void UnmountHasEnded(Child *child, int status)
{
    Unmount *unmount = static_cast<Unmount *>(child->owner);
    unmount->running = false;
    const bool stands = IsMountPoint(unmount->place) == Found::Yes;
    if (stands && status == 0 && ++unmount->tries < kUnmountTries) {
        StartUnmount(unmount);
        return;
    }
    if (!stands) {
        rmdir(unmount->place);
        char other[kPlaceSize];
        if (unmount->disk != nullptr && unmount->tries < kUnmountTries &&
            FindPlaceLeft(unmount->disk, other, sizeof other) == Found::Yes &&
            FindUnmount(other) == nullptr) {
            memcpy(unmount->place, other, sizeof unmount->place);
            unmount->tries++;
            StartUnmount(unmount);
            return;
        }
        ForgetUnmount(unmount);
    }
    ProceedWithMounts();
}

// A program that cannot be started leaves the place to a later look.
static void StartUnmount(Unmount *unmount)
{
    const char *const argv[] = {"umount", "-l", "--", unmount->place, nullptr};
    unmount->running = StartChild(&unmount->child, argv, -1, UnmountHasEnded, unmount);
}

void UnmountPlace(const char *place, dev_t device, DADiskRef disk)
{
    if (FindUnmount(place) != nullptr)
        return;
    Unmount *unmount = static_cast<Unmount *>(calloc(1, sizeof *unmount));
    if (unmount == nullptr)
        return;
    snprintf(unmount->place, sizeof unmount->place, "%s", place);
    unmount->device = device;
    unmount->disk = disk;
    if (disk != nullptr)
        CFRetain(disk);
    unmount->next = g_unmounts;
    g_unmounts = unmount;
    StartUnmount(unmount);
}

void UnmountDisk(DADiskRef disk)
{
    if (IsBeingMounted(disk))
        return;
    if (disk->place[0] == '\0' &&
        FindPlaceLeft(disk, disk->place, sizeof disk->place) != Found::Yes)
        return;
    UnmountPlace(disk->place, disk->identity.device, disk);
    disk->place[0] = '\0';
}

void RetryUnmounts()
{
    for (Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->running)
            continue;
        unmount->tries = 0;
        StartUnmount(unmount);
    }
}

bool IsBeingUnmounted(const Identity &disk)
{
    for (const Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->disk != nullptr && SameIdentity(unmount->disk->identity, disk))
            return true;
    }
    return false;
}

bool IsOnItsWayOut(dev_t device, const char *place)
{
    for (const Unmount *unmount = g_unmounts; unmount != nullptr; unmount = unmount->next) {
        if (unmount->running && (unmount->device == device || strcmp(unmount->place, place) == 0))
            return true;
    }
    return false;
}
