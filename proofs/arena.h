// What the harnesses of the memory and string functions share: memory of which nothing is known,
// and a look at all of it afterwards. The functions nondet_... return any value, another one at
// each call.
#ifndef PROOFS_ARENA_H
#define PROOFS_ARENA_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#define ASSUME(condition)      __CPROVER_assume(condition)
#define SHOW(condition, claim) __CPROVER_assert(condition, claim)

size_t nondet_size(void);
int nondet_int(void);
bool nondet_bool(void);

#ifndef ARENA
#define ARENA 1  // for the entries that use none
#endif

// Bytes in which source and destination lie anywhere: as they are, as they were, and as they have
// to be.
static unsigned char g_arena[ARENA], g_before[ARENA], g_expected[ARENA];

static void FillArena(void)
{
    __CPROVER_havoc_object(g_arena);
    for (size_t i = 0; i < ARENA; i++)
        g_before[i] = g_expected[i] = g_arena[i];
}

static void CheckArena(void)
{
    for (size_t i = 0; i < ARENA; i++)
        SHOW(g_arena[i] == g_expected[i], "every byte is as promised");
}

// A block of its own, of any content.
static void *Block(size_t size)
{
    void *const block = malloc(size);
    ASSUME(block != NULL);
    return block;
}

#endif
