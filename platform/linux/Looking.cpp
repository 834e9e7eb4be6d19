// Looking.cpp - one look into the folder of labels.

#include "Looking.h"

#include "Suspects.h"
#include "Watching.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

void FreeLook(Look *look)
{
    for (size_t i = 0; i < look->count; i++)
        free(look->links[i].node);
    free(look->links);
    *look = {nullptr, 0};
}

static int64_t Nanoseconds(const timespec &time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// Finds out where the link leads. False when memory runs out.
static bool FollowLink(Link *link)
{
    char path[sizeof LABELS_FOLDER "/" + kLabelMax];
    snprintf(path, sizeof path, LABELS_FOLDER "/%s", link->name);
    struct stat status = {};
    if (lstat(path, &status) == 0)
        link->made = Nanoseconds(status.st_mtim);
    link->node = realpath(path, nullptr);
    if (link->node == nullptr)
        return errno != ENOMEM;
    link->leads = ReadIdentity(link->node, &link->identity);
    return true;
}

// Adds the entry to the look if its name is that of a label. False when memory runs out.
static bool AddLink(Look *look, const char *name)
{
    char label[kLabelMax + 1];
    if (!DecodeLabel(name, label, sizeof label))
        return true;
    Link *links = static_cast<Link *>(reallocarray(look->links, look->count + 1, sizeof(Link)));
    if (links == nullptr)
        return false;
    look->links = links;
    Link *link = &links[look->count++];
    *link = {};
    snprintf(link->name, sizeof link->name, "%s", name);
    memcpy(link->label, label, sizeof link->label);
    return FollowLink(link);
}

static int CompareLinks(const void *left, const void *right)
{
    return strcmp(static_cast<const Link *>(left)->name, static_cast<const Link *>(right)->name);
}

bool ListFolder(Look *look, bool first, int64_t *again)
{
    *look = {nullptr, 0};
    *again = 0;
    DIR *folder = opendir(LABELS_FOLDER);
    if (folder == nullptr)
        return errno == ENOENT || errno == ENOTDIR;
    bool complete = true;
    errno = 0;
    for (const dirent *entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        const int64_t left = SuspicionLeft(entry->d_name, first);
        if (left > 0 && (*again == 0 || left < *again))
            *again = left;
        complete = left > 0 || AddLink(look, entry->d_name);
        if (!complete)
            break;
        errno = 0;
    }
    complete = complete && errno == 0;
    closedir(folder);
    if (!complete) {
        FreeLook(look);
        return false;
    }
    if (look->count > 0)
        qsort(look->links, look->count, sizeof(Link), CompareLinks);
    return true;
}

// The newest first; what is of one age as it is named, backwards.
static int CompareAges(const void *left, const void *right)
{
    const int64_t one = static_cast<const Link *>(left)->made;
    const int64_t other = static_cast<const Link *>(right)->made;
    if (one == other) {
        const int names = CompareLinks(left, right);
        return (names < 0 ? 1 : 0) - (names > 0 ? 1 : 0);
    }
    return one > other ? -1 : 1;
}

void SortByAge(Look *look)
{
    if (look->count > 0)
        qsort(look->links, look->count, sizeof(Link), CompareAges);
}

int64_t AgeOf(const Link &link)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t age = (Nanoseconds(now) - link.made) / 1000000;
    return age > 0 ? age : 0;
}

const Link *FindLinkByName(const Look &look, const char *name)
{
    for (size_t i = 0; i < look.count; i++) {
        if (strcmp(look.links[i].name, name) == 0)
            return &look.links[i];
    }
    return nullptr;
}

const Link *FindLinkTo(const Look &look, const Identity &identity)
{
    for (size_t i = 0; i < look.count; i++) {
        if (look.links[i].leads && SameIdentity(look.links[i].identity, identity))
            return &look.links[i];
    }
    return nullptr;
}
