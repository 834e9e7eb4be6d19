// Suspects.h - names of links that udev is about to change.
#ifndef PLATFORM_LINUX_SUSPECTS_H
#define PLATFORM_LINUX_SUSPECTS_H

#include <stdint.h>

// Milliseconds for which a name found in a look must be left alone still; 0 for the name of a
// label. `wasThere`: it stood when watching began.
int64_t SuspicionLeft(const char *name, bool wasThere);

// True for a name that was suspected and stood when watching began.
bool WasSuspectThere(const char *name);

// Forgets the suspects that no look has found since the last call, or all.
void ForgetSuspects(bool all);

#endif
