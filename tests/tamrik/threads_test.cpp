// The memory and string functions in several threads at once: each thread has destinations of its
// own, the sources and the constants are everybody's.
#include "tamrik/tamrik.h"

#include <doctest/doctest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

TEST_CASE("the memory and string functions work in several threads at once")
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    const std::string source =
        "a source that every thread reads, longer than all small copies are long";
    std::atomic<int> wrong = 0;

    const auto work = [&](int seed) {
        char text[128];
        unsigned char block[128];
        for (int round = 0; round < kRounds; round++) {
            const std::size_t count =
                1 + static_cast<std::size_t>(round * 7 + seed) % source.size();
            const std::string part = source.substr(0, count);
            unsigned short number = 0;
            getQvTamrikVersion(text, static_cast<int>(sizeof text), &number);
            wrong += number != 0x0504 || std::strlen(text) != 35;
            wrong += strncpy_s(text, sizeof text, source.c_str(), count) != 0 || text != part;
            wrong += strncat_s(text, sizeof text, "!", 1) != 0 || text != part + "!";
            wrong += strcpy_s(text, sizeof text, source.c_str()) != 0 || text != source;
            for (const auto copy : {memcpy_s, memcpy_sOptAsm, memcpy_sOptTc, memmove_s})
                wrong += copy(block, sizeof block, source.data(), count) != 0 ||
                         std::memcmp(block, source.data(), count) != 0;
            for (const auto fill : {memset_s, memset_sOptAsm, memset_sOptTc})
                wrong += fill(block, sizeof block, 255, count) != 0 || block[count - 1] != 255;
            wrong += memcmp(myStrAllFF, block, count < 32 ? count : 32) != 0;
        }
    };

    std::vector<std::thread> threads;
    for (int seed = 0; seed < kThreads; seed++)
        threads.emplace_back(work, seed);
    for (std::thread &thread : threads)
        thread.join();
    CHECK(wrong == 0);
}
