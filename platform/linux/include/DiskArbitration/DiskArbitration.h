/*
 * DiskArbitration.h - the part of DiskArbitration that stands on Linux: disks that arrive are
 * offered to peek callbacks and mounted on request. Names, types and values are the framework's
 * own; what is not declared here is not provided. Serves C and C++.
 */
#ifndef DISKARBITRATION_DISKARBITRATION_H
#define DISKARBITRATION_DISKARBITRATION_H

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp, modernize-*)
// The names are the framework's.

typedef struct __DASession *DASessionRef;
typedef struct __DADisk *DADiskRef;
typedef const struct __DADissenter *DADissenterRef;

typedef int DAReturn;
typedef UInt32 DADiskOptions;
typedef UInt32 DADiskMountOptions;

enum {
    err_local = -0x08000000, /* 0xF8000000 */
    err_local_diskarbitration = 0x00DA0000
};

enum {
    kDAReturnSuccess = 0,
    kDAReturnError = err_local | err_local_diskarbitration | 0x01,
    kDAReturnBusy = err_local | err_local_diskarbitration | 0x02, /* 0xF8DA0002 */
    kDAReturnBadArgument = err_local | err_local_diskarbitration | 0x03,
    kDAReturnNoResources = err_local | err_local_diskarbitration | 0x05,
    kDAReturnNotFound = err_local | err_local_diskarbitration | 0x06,
    kDAReturnNotPermitted = err_local | err_local_diskarbitration | 0x08,
    kDAReturnUnsupported = err_local | err_local_diskarbitration | 0x0C
};

/* What a mount ends with that failed for an error of the system, unless one of the codes above says
 * it: the error's number in the low bits. */
#define unix_err(number) (0xC000 | (number))

/* Bits of DADiskSetOptions. A new disk has kDADiskOptionMountAutomatic set; nobody reads it. */
enum { kDADiskOptionDefault = 0x00000000, kDADiskOptionMountAutomatic = 0x00000010 };

enum { kDADiskMountOptionDefault = 0x00000000 };

/* Keys of a description or a match dictionary, for strings: the disk's label, and the name of its
 * device ("sr0"). */
extern const CFStringRef kDADiskDescriptionVolumeNameKey;
extern const CFStringRef kDADiskDescriptionMediaBSDNameKey;

/* A disk has arrived. `disk` is borrowed for the call; CFRetain keeps it. */
typedef void (*DADiskPeekCallback)(DADiskRef disk, void *context);

/* A mount request is done: dissenter is NULL when the disk is mounted, and says why not otherwise.
 * Both are borrowed for the call. */
typedef void (*DADiskMountCallback)(DADiskRef disk, DADissenterRef dissenter, void *context);

/* A session, the caller's; NULL when memory runs out. With its last reference its callbacks are
 * gone. */
DASessionRef DASessionCreate(CFAllocatorRef allocator);

/* From now on the session's callbacks are called by the run loop, in its default mode (another mode
 * has no effect), for the disks that arrive from now on. The loop holds a reference of the
 * session. */
void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef runLoop,
                                  CFStringRef runLoopMode);

/* The opposite. When no session is scheduled any more, disks are no longer watched, and what is
 * mounted stays mounted; mounts under way are still completed. */
void DASessionUnscheduleFromRunLoop(DASessionRef session, CFRunLoopRef runLoop,
                                    CFStringRef runLoopMode);

/* Registers callback for each disk that arrives from now on and has every entry of `match` in its
 * description, compared with CFEqual; NULL matches every disk. `match` is copied. Callbacks are
 * called in ascending `order`, equal ones in the order of their registration. When memory runs out
 * nothing is registered. */
void DARegisterDiskPeekCallback(DASessionRef session, CFDictionaryRef match, CFIndex order,
                                DADiskPeekCallback callback, void *context);

/* What is known of the disk, the caller's: its label and its device's name, each unless it is no
 * valid UTF-8. NULL for NULL. */
CFDictionaryRef DADiskCopyDescription(DADiskRef disk);

/* The option bits that are set; 0 for NULL. */
DADiskOptions DADiskGetOptions(DADiskRef disk);

/* Sets (value true) or clears the bits of `options`. kDAReturnBadArgument for a null disk. */
DAReturn DADiskSetOptions(DADiskRef disk, DADiskOptions options, Boolean value);

/* Asks for the disk to be mounted at /Volumes/<label>, and returns at once. `path` must be NULL and
 * `options` 0. `arguments` ends with a null element, or is NULL; it is not used after the call.
 * `callback` (or nobody, if NULL) is called once, later, by the run loop; but before the function
 * returns where the request is refused at once: with a path or options (kDAReturnUnsupported), for
 * a null disk (kDAReturnBadArgument), and when memory runs out (kDAReturnNoResources). */
void DADiskMountWithArguments(DADiskRef disk, CFURLRef path, DADiskMountOptions options,
                              DADiskMountCallback callback, void *context, CFStringRef arguments[]);

/* Why the request failed; kDAReturnSuccess for NULL. */
DAReturn DADissenterGetStatus(DADissenterRef dissenter);

// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp, modernize-*)

#ifdef __cplusplus
}
#endif

#endif
