// Unmounting.h - what is on its way out of /Volumes.
#ifndef PLATFORM_LINUX_UNMOUNTING_H
#define PLATFORM_LINUX_UNMOUNTING_H

#include "Disks.h"

// The disk is not there any more: unmounts what this layer has mounted of it and, once its device
// is gone, what anybody has mounted of it directly under /Volumes. While it is being mounted that
// waits for the mount's end.
void UnmountDisk(DADiskRef disk);

// Unmounts what is mounted at the place under /Volumes, and removes the folder. `device` is the
// number of the disk, or of the mount that was found; `disk` whose mount it is, null for what an
// earlier process left. What is being unmounted already, and what memory runs out for, is left as
// it is.
void UnmountPlace(const char *place, dev_t device, DADiskRef disk);

// Tries again what could not be unmounted before.
void RetryUnmounts();

// True while the disk is being unmounted, or is waiting for another try.
bool IsBeingUnmounted(const Identity &disk);

// True while umount runs for the place, or for the device.
bool IsOnItsWayOut(dev_t device, const char *place);

#endif
