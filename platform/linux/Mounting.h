// Mounting.h - mount requests, one after the other for each disk.
#ifndef PLATFORM_LINUX_MOUNTING_H
#define PLATFORM_LINUX_MOUNTING_H

#include "Disks.h"

// Asks for the disk to be mounted; `callback` (or nobody, if null) is called once, by
// DeliverCompletion. `refusal` other than kDAReturnSuccess completes the request with that.
void RequestMount(DADiskRef disk, DADiskMountCallback callback, void *context,
                  CFStringRef const arguments[], DAReturn refusal);

// Starts the requests that need not wait any more.
void ProceedWithMounts();

// Calls the callback of one request that is done. False if there is none.
bool DeliverCompletion();
bool IsCompletionDue();

// True while a mount program runs.
bool IsMounting();

// True while the disk's mount program runs.
bool IsBeingMounted(DADiskRef disk);

// True while the disk is being mounted or unmounted.
bool IsInUse(const Identity &disk);

#endif
