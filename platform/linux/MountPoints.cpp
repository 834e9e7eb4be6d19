// MountPoints.cpp - the folders under /Volumes and what is mounted there.
//
// What this layer mounted is known by the folder under it, which bears the layer's mark: mounts of
// anybody else are left alone as long as their device is there. mountinfo names places by their
// true path, so /Volumes may be a link.

#include "MountPoints.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static constexpr char kMountInfo[] = "/proc/self/mountinfo";
static constexpr mode_t kFolderMode = 0755;

// The sticky bit marks a folder that this layer has made, from its first moment on. Others make
// sticky folders too, but for everybody to write to: only just this mode is the layer's.
static constexpr mode_t kPlaceMode = kFolderMode | S_ISVTX;
static constexpr mode_t kModeBits = 07777 & ~S_ISGID;  // that one a folder has from /Volumes

// ---- Names ----

bool PlaceName(const char *label, int number, char *place, size_t size)
{
    const int length = number == 0 ? snprintf(place, size, VOLUMES_FOLDER "/%s", label)
                                   : snprintf(place, size, VOLUMES_FOLDER "/%s %d", label, number);
    if (length < 0 || static_cast<size_t>(length) >= size) {
        if (size > 0)
            place[0] = '\0';
        return false;
    }
    for (char *c = place + sizeof VOLUMES_FOLDER; *c != '\0'; c++) {
        if (*c == '/')
            *c = ':';
    }
    return true;
}

// Makes a folder of just kPlaceMode, whatever the process's umask would take from it.
static int MakePlace(const char *place)
{
    const mode_t mask = umask(0);
    const int result = mkdir(place, kPlaceMode);
    umask(mask);
    return result;
}

int TakePlace(const char *label, char *place, size_t size)
{
    if (mkdir(VOLUMES_FOLDER, kFolderMode) != 0 && errno != EEXIST) {
        place[0] = '\0';
        return errno;
    }
    for (int number = 0; number <= kLastPlaceNumber; number++) {
        if (!PlaceName(label, number, place, size))
            return ENAMETOOLONG;
        if (MakePlace(place) == 0)
            return 0;
        if (errno == EEXIST)
            continue;
        place[0] = '\0';
        return errno;
    }
    place[0] = '\0';
    return EEXIST;
}

// ---- mountinfo ----

// A blank, tab, line feed or backslash in a path is written as a backslash and three octal digits.
static void DecodeOctal(char *text)
{
    char *out = text;
    for (const char *in = text; *in != '\0'; out++) {
        const bool escaped = in[0] == '\\' && in[1] >= '0' && in[1] <= '3' && in[2] >= '0' &&
                             in[2] <= '7' && in[3] >= '0' && in[3] <= '7';
        *out = escaped ? static_cast<char>((in[1] - '0') * 64 + (in[2] - '0') * 8 + (in[3] - '0'))
                       : *in;
        in += escaped ? 4 : 1;
    }
    *out = '\0';
}

// The next field of the line; null at its end.
static char *NextField(char **rest)
{
    char *field = strsep(rest, " \n");
    return field == nullptr || *field == '\0' ? nullptr : field;
}

bool ParseMountLine(char *line, MountLine *mount)
{
    char *rest = line;
    NextField(&rest);  // the mount's id
    NextField(&rest);  // its parent's
    const char *device = NextField(&rest);
    char *root = NextField(&rest);
    char *point = NextField(&rest);
    const char *options = NextField(&rest);
    if (device == nullptr || root == nullptr || point == nullptr || options == nullptr)
        return false;
    const char *separator = NextField(&rest);
    while (separator != nullptr && strcmp(separator, "-") != 0)
        separator = NextField(&rest);
    const char *type = NextField(&rest);
    char *source = NextField(&rest);
    unsigned int majorNumber = 0;
    unsigned int minorNumber = 0;
    if (type == nullptr || source == nullptr ||
        sscanf(device, "%9u:%9u", &majorNumber, &minorNumber) != 2)  // NOLINT(cert-err34-c)
        return false;
    DecodeOctal(root);
    DecodeOctal(point);
    DecodeOctal(source);
    *mount = {makedev(majorNumber, minorNumber), root, point, options, source};
    return true;
}

bool HasOption(const char *options, const char *option)
{
    const size_t length = strlen(option);
    while (options != nullptr) {
        const char *end = strchrnul(options, ',');
        if (static_cast<size_t>(end - options) == length && strncmp(options, option, length) == 0)
            return true;
        options = *end == ',' ? end + 1 : nullptr;
    }
    return false;
}

// The true path of /Volumes; the path itself while there is none.
static void VolumesPath(char path[PATH_MAX])
{
    if (realpath(VOLUMES_FOLDER, path) == nullptr)
        memcpy(path, VOLUMES_FOLDER, sizeof VOLUMES_FOLDER);
}

// The name in /Volumes of a mount directly in it; null for any other.
static const char *NameInVolumes(const MountLine &mount, const char *volumes)
{
    const size_t length = strlen(volumes);
    if (strncmp(mount.point, volumes, length) != 0 || mount.point[length] != '/')
        return nullptr;
    const char *name = mount.point + length + 1;
    return *name == '\0' || strchr(name, '/') != nullptr ? nullptr : name;
}

// A view of /Volumes in which nothing is mounted on its folders; -1 where there is none to be had.
static int OpenUncovered()
{
    return open_tree(AT_FDCWD, VOLUMES_FOLDER, OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC);
}

static void CloseUncovered(int uncovered)
{
    if (uncovered >= 0)
        close(uncovered);
}

// True if the folder of that name is one that TakePlace has made.
static bool IsOwnFolder(int volumes, const char *name)
{
    struct stat status = {};
    return fstatat(volumes, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode) &&
           (status.st_mode & kModeBits) == kPlaceMode && status.st_uid == geteuid();
}

// True for a mount of this layer's. Without a view of the folder under it the options must do: a
// mount program that is killed may not have come to set them.
static bool IsOwnMount(const MountLine &mount, const char *name, int uncovered)
{
    if (uncovered >= 0)
        return IsOwnFolder(uncovered, name);
    return HasOption(mount.options, "nosuid") && HasOption(mount.options, "nodev");
}

// The block device that a mount shows. A file system of many devices has a number of its own: then
// its source tells.
static dev_t BlockDeviceOf(const MountLine &mount)
{
    struct stat status = {};
    if (major(mount.device) != 0 || strncmp(mount.source, "/dev/", strlen("/dev/")) != 0 ||
        stat(mount.source, &status) != 0 || !S_ISBLK(status.st_mode))
        return mount.device;
    return status.st_rdev;
}

static bool Shows(const MountLine &mount, const Identity &disk)
{
    if (disk.kind == DiskKind::Block)
        return mount.device == disk.device || BlockDeviceOf(mount) == disk.device;
    if (disk.kind == DiskKind::Image) {
        Identity file;
        return IsLoopDevice(mount.device) && ReadLoopFile(mount.source, &file) &&
               SameIdentity(file, disk);
    }
    struct stat status = {};
    return stat(mount.point, &status) == 0 && status.st_dev == disk.device &&
           status.st_ino == disk.number;
}

// What a search looks for, and what it found.
struct Search {
    const char *volumes;   // the true path of /Volumes
    const Identity *disk;  // the disk that is looked for
    const char *name;      // the name in /Volumes that is looked for
    bool anybodys;         // not only those of this layer
    int uncovered;         // what OpenUncovered gave
    char *place;           // what was found
    size_t size;
};

// Calls visit for each mount until one is what it looks for.
static Found SearchMounts(bool (*visit)(const MountLine &mount, void *context), void *context)
{
    FILE *file = fopen(kMountInfo, "re");
    if (file == nullptr)
        return Found::Unknown;
    char *line = nullptr;
    size_t size = 0;
    Found found = Found::No;
    while (found == Found::No && getline(&line, &size, file) > 0) {
        MountLine mount;
        if (ParseMountLine(line, &mount) && visit(mount, context))
            found = Found::Yes;
    }
    const int error = errno;
    if (found == Found::No && !feof(file))
        found = Found::Unknown;
    free(line);
    fclose(file);
    errno = error;
    return found;
}

static bool VisitForDisk(const MountLine &mount, void *context)
{
    const Search *search = static_cast<const Search *>(context);
    if (search->disk->kind != DiskKind::Block && NameInVolumes(mount, search->volumes) == nullptr)
        return false;
    return Shows(mount, *search->disk);
}

Found IsMounted(const Identity &disk)
{
    char volumes[PATH_MAX];
    VolumesPath(volumes);
    Search search = {volumes, &disk, nullptr, true, -1, nullptr, 0};
    return SearchMounts(VisitForDisk, &search);
}

static bool VisitForPoint(const MountLine &mount, void *context)
{
    const Search *search = static_cast<const Search *>(context);
    const char *name = NameInVolumes(mount, search->volumes);
    return name != nullptr && strcmp(name, search->name) == 0;
}

Found IsMountPoint(const char *place)
{
    char volumes[PATH_MAX];
    VolumesPath(volumes);
    Search search = {volumes, nullptr, place + sizeof VOLUMES_FOLDER, true, -1, nullptr, 0};
    return SearchMounts(VisitForPoint, &search);
}

static bool VisitForPlace(const MountLine &mount, void *context)
{
    const Search *search = static_cast<const Search *>(context);
    const char *name = NameInVolumes(mount, search->volumes);
    if (name == nullptr || !Shows(mount, *search->disk) ||
        (!search->anybodys && !IsOwnMount(mount, name, search->uncovered)))
        return false;
    const int length = snprintf(search->place, search->size, VOLUMES_FOLDER "/%s", name);
    return length > 0 && static_cast<size_t>(length) < search->size;
}

Found FindPlaceOf(const Identity &disk, bool anybodys, char *place, size_t size)
{
    char volumes[PATH_MAX];
    VolumesPath(volumes);
    Search search = {volumes, &disk, nullptr, anybodys, OpenUncovered(), place, size};
    const Found found = SearchMounts(VisitForPlace, &search);
    CloseUncovered(search.uncovered);
    if (found != Found::Yes)
        place[0] = '\0';
    return found;
}

// ---- What is left over ----

void RemoveStalePlaces()
{
    DIR *folder = opendir(VOLUMES_FOLDER);
    if (folder == nullptr)
        return;
    for (const dirent *entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        if (IsOwnFolder(dirfd(folder), entry->d_name))
            unlinkat(dirfd(folder), entry->d_name, AT_REMOVEDIR);
    }
    closedir(folder);
}

struct LeftoverSearch {
    const char *volumes;
    int uncovered;
    bool (*isKnown)(const Identity &disk);
    void (*leftover)(const char *place, dev_t device);
};

// True if one of the disks that the mount may show is known: the device, the file behind it, or the
// folder that is bound. A disk whose identity cannot be read is gone, and known to nobody.
static bool IsKnownMount(const MountLine &mount, const LeftoverSearch &search)
{
    Identity disk;
    if (ReadIdentity(mount.source, &disk) && disk.kind == DiskKind::Block && search.isKnown(disk))
        return true;
    if (IsLoopDevice(mount.device) && ReadLoopFile(mount.source, &disk) && search.isKnown(disk))
        return true;
    return ReadIdentity(mount.point, &disk) && search.isKnown(disk);
}

// True if the mount is of a disk that is gone. A file system without a device, mounted whole, is no
// disk: somebody else put it there.
static bool IsLeftover(const MountLine &mount, const char *name, const LeftoverSearch &search)
{
    const dev_t device = BlockDeviceOf(mount);
    if (major(device) != 0 && !IsDeviceThere(device))
        return true;
    const bool isDisk = major(device) != 0 || strcmp(mount.root, "/") != 0;
    return isDisk && IsOwnMount(mount, name, search.uncovered) && !IsKnownMount(mount, search);
}

static bool VisitLeftover(const MountLine &mount, void *context)
{
    const LeftoverSearch *search = static_cast<const LeftoverSearch *>(context);
    const char *name = NameInVolumes(mount, search->volumes);
    if (name == nullptr || !IsLeftover(mount, name, *search))
        return false;
    char place[kPlaceSize];
    const int length = snprintf(place, sizeof place, VOLUMES_FOLDER "/%s", name);
    if (length > 0 && static_cast<size_t>(length) < sizeof place)
        search->leftover(place, mount.device);
    return false;
}

bool ForEachLeftover(bool (*isKnown)(const Identity &disk),
                     void (*leftover)(const char *place, dev_t device))
{
    char volumes[PATH_MAX];
    VolumesPath(volumes);
    LeftoverSearch search = {volumes, OpenUncovered(), isKnown, leftover};
    const Found found = SearchMounts(VisitLeftover, &search);
    CloseUncovered(search.uncovered);
    return found != Found::Unknown;
}
