// How many rounds a long randomised test runs.
#ifndef TESTS_SUPPORT_ROUNDS_H
#define TESTS_SUPPORT_ROUNDS_H

#include <stdlib.h>

// A tenth of them is what a change needs; the environment's KESTRUN_ALL_ROUNDS asks for all
// (script/test --all).
inline int Rounds(int all)
{
    return getenv("KESTRUN_ALL_ROUNDS") ? all : all / 10;
}

#endif
