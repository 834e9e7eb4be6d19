// The formatted output in several threads at once: each has a buffer of its own.
#include "tamrik/tamrik.h"

#include <doctest/doctest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

TEST_CASE("several threads format at once")
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::atomic<int> wrong = 0;
    const auto work = [&wrong](int number) {
        for (int round = 0; round < kRounds; round++) {
            char text[64];
            snprintf_s(text, sizeof text, sizeof text - 1, "%d|%5.2f|%s|%*d|%ls|%#x", number, 1.5,
                       "abc", -4, round, L"xyz", number + 16);
            const std::string rounds = std::to_string(round);
            const std::string padded = rounds + std::string(4 - rounds.size(), ' ');
            wrong += std::to_string(number) + "| 1.50|abc|" + padded + "|xyz|0x1" +
                         std::to_string(number) !=
                     text;
        }
    };
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; number++)
        threads.emplace_back(work, number);
    for (std::thread &thread : threads)
        thread.join();
    CHECK(wrong == 0);
}
