// Random numbers that repeat from run to run, cheap enough for a million rounds.
#ifndef TESTS_SUPPORT_RANDOM_H
#define TESTS_SUPPORT_RANDOM_H

#include <cstddef>
#include <cstdint>

struct Random {
    std::uint64_t state = 0x9E3779B97F4A7C15;

    std::uint64_t Next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    // One of 0 to limit - 1.
    std::size_t Below(std::size_t limit)
    {
        return static_cast<std::size_t>(Next() >> 11) % limit;
    }
    // True once in so many times.
    bool OneIn(std::size_t times)
    {
        return Below(times) == 0;
    }
};

#endif
