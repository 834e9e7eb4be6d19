// Identity.h - what tells one disk from another: the medium itself, whatever links point to it.
#ifndef PLATFORM_LINUX_IDENTITY_H
#define PLATFORM_LINUX_IDENTITY_H

#include <stdint.h>
#include <sys/types.h>

enum class DiskKind { Block, Folder, Image };

struct Identity {
    DiskKind kind;
    dev_t device;     // Block: its own number; else that of the file system it lies in
    uint64_t number;  // Block: its diskseq, 0 where the kernel has none; else the inode
};

bool SameIdentity(const Identity &left, const Identity &right);

// True for the same disk, and for a whole disk and its partitions.
bool SameUnit(const Identity &left, const Identity &right);

// What stands at path, links followed: a block device, a folder or a file. False when nothing does,
// when it is anything else, and for a block device that is already gone from the kernel or is a
// loop device without a file.
bool ReadIdentity(const char *path, Identity *identity);

// The file behind the loop device at path. False if it is no loop device, or one without a file.
bool ReadLoopFile(const char *path, Identity *file);

// False for a block device that the kernel does not know any more: it was pulled.
bool IsDeviceThere(dev_t device);

// True if the device number is one of a loop device.
bool IsLoopDevice(dev_t device);

#endif
