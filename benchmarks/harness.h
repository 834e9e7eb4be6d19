// The frame of all benchmarks: cases, and the candidates that do the same work in each of them.
//
// A case names a piece of work, says what its result must be, and holds its candidates. main.cpp
// runs all candidates of a case in turn, round after round, so that what slows the machine slows
// them all; a candidate whose result is wrong is told and left out. benchmarks/report.py makes
// ratios, goals and the picture of what comes out.
#ifndef BENCHMARKS_HARNESS_H
#define BENCHMARKS_HARNESS_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

struct Candidate {
    std::string name;
    std::function<void(benchmark::State &)> measure;  // the work, as often as the state asks
    std::function<void(std::size_t)> repeat;          // the work, so many times
};

struct Case {
    std::string name;                     // "strcpy/64 aligned"
    std::function<void()> prepare;        // puts everything in place before a candidate is checked
    std::function<std::string()> result;  // what the work that was done last gave
    std::string expected;                 // what it has to give
    double seconds = 0.01;                // how long a candidate works in each round, at least
    bool isCounted = true;                // whether its instructions are counted as well
    std::vector<Candidate> candidates = {};
};

// Adds a case; the reference is good until the next one is added.
Case &AddCase(Case added);

// Adds a candidate, whose work is one call of work().
template <typename Work>
void AddCandidate(Case &to, const std::string &name, Work work)
{
    const auto measure = [work](benchmark::State &state) mutable {
        for (auto _ : state) {
            work();
            benchmark::ClobberMemory();
        }
    };
    const auto repeat = [work](std::size_t times) mutable {
        for (; times > 0; times--) {
            work();
            benchmark::ClobberMemory();
        }
    };
    to.candidates.push_back({name, measure, repeat});
}

// Says once that a peer is left out, and why.
void LeaveOut(const std::string &peer, const std::string &why);

// What the compiler must take for any value whatever, though it stands right there.
template <typename Value>
inline Value Hidden(Value value)
{
    benchmark::DoNotOptimize(value);
    return value;
}

// The cases of each module, one source each.
void AddMemoryCases();
void AddStringCases();
void AddOutputCases();
void AddInputCases();
void AddLogCases();
void AddIniCases();

#endif
