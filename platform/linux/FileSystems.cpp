// FileSystems.cpp - which file systems are mounted at all.
//
// A disk's file system is read by the kernel, and a stick may be made to deceive it. So only those
// are mounted that such media carry, and none may choose by itself what the kernel does about its
// errors.

#include "FileSystems.h"

#include <stddef.h>
#include <string.h>

struct FileSystem {
    const char *type;
    const char *options;
};

// ext2 to ext4 keep in the superblock what an error leads to, a panic of the kernel among it.
static constexpr char kErrorsOfExt[] = "errors=remount-ro";

// clang-format off
static constexpr FileSystem kFileSystems[] = {
    {"iso9660", ""},
    {"udf",     ""},
    {"vfat",    ""},
    {"exfat",   ""},
    {"hfs",     ""},
    {"hfsplus", ""},
    {"ext2",    kErrorsOfExt},
    {"ext3",    kErrorsOfExt},
    {"ext4",    kErrorsOfExt},
};
// clang-format on

const char kMountedFileSystems[] = "iso9660, udf, vfat, exfat, hfs, hfsplus, ext2, ext3 and ext4";

const char *OptionsOfFileSystem(const char *type)
{
    for (const FileSystem &known : kFileSystems) {
        if (strcmp(known.type, type) == 0)
            return known.options;
    }
    return nullptr;
}
