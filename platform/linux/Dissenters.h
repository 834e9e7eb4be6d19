// Dissenters.h - why a mount request failed.
#ifndef PLATFORM_LINUX_DISSENTERS_H
#define PLATFORM_LINUX_DISSENTERS_H

#include <DiskArbitration/DiskArbitration.h>

// The dissenter of that status, the caller's; null for kDAReturnSuccess. When memory runs out it
// tells of kDAReturnNoResources instead.
DADissenterRef CreateDissenter(DAReturn status);

// The status of an error of the system: a code of its own, or unix_err.
DAReturn StatusOfErrno(int error);

// The status of a mount program's end, told as in Children.h. mount(8) tells the kind of an error
// alone, so it is the most general one of its kind.
DAReturn StatusOfMount(int status);

#endif
