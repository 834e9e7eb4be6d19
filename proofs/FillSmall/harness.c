// FillSmall fills each count of bytes from 1 to kSmallFill, and writes no other byte.
//
// Assumes: a block of count bytes, and a word whose bytes are all alike.
// Shows:   every byte has the word's value; the block ends where its bytes do.
//
// takes: tamrik/small.h
// proves: EachCount: every count 1 to 32, any value
// with: --object-bits 12
#include "product.h"
#include "arena.h"

void EachCount(void)
{
    const unsigned char value = (unsigned char)nondet_int();
    for (size_t count = 1; count <= kSmallFill; count++) {
        unsigned char *const dest = Block(count);
        FillSmall(dest, value * UINT64_C(0x0101010101010101), count);
        for (size_t i = 0; i < count; i++)
            SHOW(dest[i] == value, "every byte is as promised");
    }
}
