// Mounting.h - mount requests, one after the other for each disk.
#ifndef PLATFORM_LINUX_MOUNTING_H
#define PLATFORM_LINUX_MOUNTING_H

#include "Disks.h"

// Asks for the disk to be mounted; `callback` (or nobody, if null) is called once, by
// DeliverCompletion, or at once when memory runs out.
void RequestMount(DADiskRef disk, DADiskMountCallback callback, void *context,
                  CFStringRef const arguments[]);

// The layer's own request, behind those that were made for the disk or, with `first`, before them.
void RequestAutomaticMount(DADiskRef disk, bool first);

// Calls the callback, if it is not null, of a request that has come to this status.
void CompleteMount(DADiskRef disk, DADiskMountCallback callback, void *context, DAReturn status);

// Starts the requests that need not wait any more.
void ProceedWithMounts();

// Of the requests that are done and whose callbacks have not been called, the number that the first
// has among what has happened; 0 if there are none. DeliverCompletion, which needs one, calls that
// one's.
uint64_t FirstCompletion();
void DeliverCompletion();

// True while a mount program runs.
bool IsMounting();

// True while the disk's mount program runs.
bool IsBeingMounted(DADiskRef disk);

// True while the disk is being mounted or unmounted.
bool IsInUse(const Identity &disk);

#endif
