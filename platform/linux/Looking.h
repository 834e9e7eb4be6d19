// Looking.h - one look into the folder of labels.
#ifndef PLATFORM_LINUX_LOOKING_H
#define PLATFORM_LINUX_LOOKING_H

#include "Identity.h"
#include "Labels.h"

#include <stddef.h>
#include <stdint.h>

// One entry of the folder.
struct Link {
    char name[kLabelMax + 1];
    char label[kLabelMax + 1];
    bool leads;  // to a disk, of this identity and at this path
    Identity identity;
    char *node;
    int64_t made;  // when udev made it: nanoseconds of the clock on the wall
};

// What one look has found.
struct Look {
    Link *links;
    size_t count;
};

// Lists the folder, sorted by name; no folder is an empty one. Links that udev is about to rename
// are left out: *again is the time in milliseconds after which the next look finds more, 0 for
// none. `first`: watching has just begun. False on a failure, with nothing to be freed.
bool ListFolder(Look *look, bool first, int64_t *again);

void FreeLook(Look *look);

// The newest link first.
void SortByAge(Look *look);

// For how many milliseconds the link has been there, by the clock on the wall; 0 if that says the
// future.
int64_t AgeOf(const Link &link);

// The link of that name, and the first that leads to the disk; null if there is none.
const Link *FindLinkByName(const Look &look, const char *name);
const Link *FindLinkTo(const Look &look, const Identity &identity);

#endif
