// CopySmall copies each count of bytes from 0 to kSmallCopy, and reads and writes no other byte.
//
// Assumes: two blocks of count bytes that do not overlap.
// Shows:   every byte of the one is in the other, and nothing outside of the two is read or
//          written: they end where their bytes do.
//
// takes: tamrik/small.h
// proves: EachCount COUNTS=18 COUNTS=64: every count 0 to COUNTS, any content
// with: --object-bits 12
#include "product.h"
#include "arena.h"

void EachCount(void)
{
    for (size_t count = 0; count <= COUNTS; count++) {
        unsigned char *const dest = Block(count), *const src = Block(count), before[COUNTS];
        for (size_t i = 0; i < count; i++)
            before[i] = src[i];
        CopySmall(dest, src, count);
        for (size_t i = 0; i < count; i++)
            SHOW(dest[i] == before[i] && src[i] == before[i], "every byte is as promised");
    }
}
