#include "benchmarks/peers/bounds.h"

#include <cstring>

int UncheckedFill(void *dest, std::size_t, int c, std::size_t count)
{
    std::memset(dest, c, count);
    return 0;
}

int UncheckedCopy(void *dest, std::size_t, const void *src, std::size_t count)
{
    std::memcpy(dest, src, count);
    return 0;
}
