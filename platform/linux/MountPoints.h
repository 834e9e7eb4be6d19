// MountPoints.h - the folders under /Volumes and what is mounted there.
#ifndef PLATFORM_LINUX_MOUNTPOINTS_H
#define PLATFORM_LINUX_MOUNTPOINTS_H

#include "Identity.h"
#include "Labels.h"

#include <stddef.h>

#define VOLUMES_FOLDER "/Volumes"

// The numbers that a taken name may get behind it: "Orvanta 1" to "Orvanta 99".
constexpr int kLastPlaceNumber = 99;

// "/Volumes/", a label, a blank, a number and the zero byte.
constexpr size_t kPlaceSize = sizeof VOLUMES_FOLDER "/" + kLabelMax + sizeof " 99" - 1;

// Writes the path of the folder for a disk of that label: "/" in the label written ":", and, unless
// number is 0, a blank and the number behind it. False, with an empty path, if it does not fit.
bool PlaceName(const char *label, int number, char *place, size_t size);

// Makes the folder for a disk of that label, the first of the names that nothing stands at, and
// /Volumes itself if need be; its path is in place. 0, or the errno of what failed with an empty
// path: EEXIST when all names are taken.
int TakePlace(const char *label, char *place, size_t size);

// Removes the folders that TakePlace made and that are empty now, with nothing mounted there: a
// process that was killed has left them.
void RemoveStalePlaces();

// One line of /proc/self/mountinfo. The texts lie in the line that was parsed.
struct MountLine {
    dev_t device;
    const char *root;     // what of the file system is mounted
    const char *point;    // where
    const char *options;  // those of this mount, with commas between
    const char *source;
};

// Takes a line apart, in place; escapes in its paths are decoded. False if it is no such line.
bool ParseMountLine(char *line, MountLine *mount);

// True if the options hold this one.
bool HasOption(const char *options, const char *option);

// The answers of a search through mountinfo. With Unknown errno tells why.
enum class Found { Yes, No, Unknown };

// Is the disk mounted? A block device: anywhere; a folder or an image: under /Volumes.
Found IsMounted(const Identity &disk);

// Is anything mounted at this path under /Volumes?
Found IsMountPoint(const char *place);

// The first place directly under /Volumes where the disk is mounted as this layer mounts or, with
// `anybodys`, in any way. place is empty unless the answer is Yes.
Found FindPlaceOf(const Identity &disk, bool anybodys, char *place, size_t size);

// Calls `leftover` with each place directly under /Volumes that shows a disk which is gone: mounted
// as this layer mounts, and isKnown, called with the disk's identity, is false; or mounted in any
// way, of a device that the kernel does not know any more. False if mountinfo cannot be read.
bool ForEachLeftover(bool (*isKnown)(const Identity &disk),
                     void (*leftover)(const char *place, dev_t device));

#endif
