// How many rounds a long randomised test runs.
#ifndef TESTS_SUPPORT_ROUNDS_H
#define TESTS_SUPPORT_ROUNDS_H

// A tenth of them where the test runs again for each of many builds (script/mutants).
constexpr int Rounds(int all)
{
#if defined(KESTRUN_FEW_ROUNDS)
    return all / 10;
#else
    return all;
#endif
}

#endif
