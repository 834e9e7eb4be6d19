// util_memmove moves bytes between regions that may overlap, and looks at nothing for a count of 0.
//
// Assumes: count bytes at both places, or a count of 0 with any two pointers.
// Shows:   dest receives what src held; no other byte is read or written.
//
// takes: tamrik/memory.cpp util_memmove
// proves: Anywhere ARENA=4 ARENA=14: any place, overlap and count within ARENA bytes
#include "arena.h"
#include <string.h>
#include "product.h"

void Anywhere(void)
{
    const size_t to = nondet_size(), from = nondet_size(), count = nondet_size();
    ASSUME(count <= ARENA && to <= ARENA - count && from <= ARENA - count);
    FillArena();
    for (size_t i = 0; i < ARENA; i++)
        if (i < count)
            g_expected[to + i] = g_before[from + i];
    util_memmove(nondet_bool() || count > 0 ? g_arena + to : NULL,
                 nondet_bool() || count > 0 ? g_arena + from : NULL, count);
    CheckArena();
}
