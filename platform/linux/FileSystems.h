// FileSystems.h - which file systems are mounted at all.
#ifndef PLATFORM_LINUX_FILESYSTEMS_H
#define PLATFORM_LINUX_FILESYSTEMS_H

// The mount options that a file system of that type, as blkid names it, always gets: an empty text
// where there are none. Null for a type that is not mounted.
const char *OptionsOfFileSystem(const char *type);

// The types that are mounted, for people to read.
extern const char kMountedFileSystems[];

#endif
