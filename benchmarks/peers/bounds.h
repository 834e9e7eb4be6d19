// The least that a function can do that calls the C library and reports a result: no check at all. In
// a source of their own, where the compiler cannot see that the result is always the same.
#ifndef BENCHMARKS_PEERS_BOUNDS_H
#define BENCHMARKS_PEERS_BOUNDS_H

#include <cstddef>

int UncheckedFill(void *dest, std::size_t destMax, int c, std::size_t count);
int UncheckedCopy(void *dest, std::size_t destMax, const void *src, std::size_t count);

#endif
