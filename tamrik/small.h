// Small fills and copies without a call: the inline part of memory.cpp and string.cpp.
//
// Each size is served by wide moves from both ends that meet or overlap in the middle, so that no
// byte outside of the block is touched and no loop remains. The sizes given to __builtin_memcpy are
// constants: what comes out is a load and a store, never a call.
#ifndef TAMRIK_SMALL_H
#define TAMRIK_SMALL_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

static constexpr size_t kSmallFill = 32;  // the largest block that FillSmall fills, in bytes
static constexpr size_t kSmallCopy = 64;  // the largest block that CopySmall copies, in bytes

// Sixteen bytes that travel in one register.
typedef uint64_t TwoWords __attribute__((vector_size(16)));

// Stores two pieces of the type Piece, the first at the block's start and the second at its end.
template <class Piece>
static inline void StoreEnds(unsigned char *dest, size_t count, Piece first, Piece last)
{
    __builtin_memcpy(dest, &first, sizeof first);
    __builtin_memcpy(dest + count - sizeof last, &last, sizeof last);
}

// Copies a block of at least one and at most two pieces of the type Piece.
template <class Piece>
static inline void CopyEnds(unsigned char *dest, const unsigned char *src, size_t count)
{
    Piece first, last;
    __builtin_memcpy(&first, src, sizeof first);
    __builtin_memcpy(&last, src + count - sizeof last, sizeof last);
    StoreEnds<Piece>(dest, count, first, last);
}

// Fills 1 to kSmallFill bytes of dest with the bytes of word, which are all alike.
static inline void FillSmall(unsigned char *dest, uint64_t word, size_t count)
{
    if (count >= sizeof word) {
        if (count < sizeof(TwoWords))
            return StoreEnds<uint64_t>(dest, count, word, word);
        const TwoWords words = {word, word};
        return StoreEnds<TwoWords>(dest, count, words, words);
    }
    if (count >= sizeof(uint32_t)) {
        const uint32_t half = static_cast<uint32_t>(word);
        return StoreEnds<uint32_t>(dest, count, half, half);
    }
    // One to three bytes: the first, the middle and the last one, whichever fall together.
    const unsigned char byte = static_cast<unsigned char>(word);
    dest[0] = byte;
    dest[count / 2] = byte;
    dest[count - 1] = byte;
}

// Copies up to kSmallCopy bytes from src to dest, which do not overlap.
static inline void CopySmall(void *to, const void *from, size_t count)
{
    unsigned char *dest = static_cast<unsigned char *>(to);
    const unsigned char *src = static_cast<const unsigned char *>(from);
    if (count >= sizeof(uint64_t)) {
        constexpr size_t kHalf = 2 * sizeof(TwoWords);
        if (count <= sizeof(TwoWords))
            return CopyEnds<uint64_t>(dest, src, count);
        if (count <= kHalf)
            return CopyEnds<TwoWords>(dest, src, count);
        CopyEnds<TwoWords>(dest, src, kHalf);
        return CopyEnds<TwoWords>(dest + count - kHalf, src + count - kHalf, kHalf);
    }
    if (count >= sizeof(uint32_t))
        return CopyEnds<uint32_t>(dest, src, count);
    if (count == 0)
        return;
    // One to three bytes: the first, the middle and the last one, whichever fall together.
    const unsigned char first = src[0], middle = src[count / 2], last = src[count - 1];
    dest[0] = first;
    dest[count / 2] = middle;
    dest[count - 1] = last;
}

// Copies 1 or more bytes between regions that do not overlap, without a call when they are few: at
// most small, which is at most kSmallCopy.
static inline void CopyBlock(char *dest, const char *src, size_t count, size_t small)
{
    if (count > small)
        memcpy(dest, src, count);
    else
        CopySmall(dest, src, count);
}

// How far apart two addresses lie, in bytes, whichever is the higher one. Two regions of count
// bytes each overlap when the distance of their starts is below count.
static inline size_t Distance(const void *one, const void *other)
{
    const uintptr_t a = reinterpret_cast<uintptr_t>(one);
    const uintptr_t b = reinterpret_cast<uintptr_t>(other);
    return a > b ? a - b : b - a;
}

// Whether two regions of count bytes each, 1 to half of all addresses, overlap: Distance(one,
// other) below count in a single comparison. Regions that run into each other across the end of the
// address space overlap too; no memory lies there.
static inline bool IsNear(const void *one, const void *other, size_t count)
{
    const uintptr_t apart = reinterpret_cast<uintptr_t>(one) - reinterpret_cast<uintptr_t>(other);
    return apart + (count - 1) < count + (count - 1);
}

// True for a destination size that no function takes. Zero wraps round and fails with the large
// ones.
static inline bool IsBadSize(size_t destMax, size_t largest)
{
    return destMax - 1 > largest - 1;
}

#endif
