// Lower bounds, written by hand: the least that a function can do for one piece of work. In a
// source of their own, where the compiler sees neither their arguments nor that a result is always
// the same.
#ifndef BENCHMARKS_PEERS_BOUNDS_H
#define BENCHMARKS_PEERS_BOUNDS_H

#include <cstddef>

// The call of the C library and a result: no check at all.
int UncheckedFill(void *dest, std::size_t destMax, int c, std::size_t count);
int UncheckedCopy(void *dest, std::size_t destMax, const void *src, std::size_t count);

// The format "%f" and no other (-1): the arguments are checked, the platform prints into a buffer
// of its own with errno kept, and the text is copied where it has room. Returns its length.
int BareFloat(char *dest, std::size_t destMax, std::size_t count, const char *format, ...);

#endif
