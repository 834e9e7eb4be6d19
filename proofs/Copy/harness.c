// Copy, under memcpy_sOptAsm and memcpy_sOptTc, does itself what is small and in order, and hands
// on all else as it came.
//
// Assumes: nothing; the addresses are any numbers. CopySmall and CopyOther are proved by
// themselves. Shows:   CopySmall is called for 1 to 64 bytes in order, which do not overlap; else
// CopyOther; never both.
//
// takes: tamrik/memory.cpp kSmallCopy IsNear Copy memcpy_sOptAsm memcpy_sOptTc
// proves: Admission: every address, size and count of 64 bits
#include "tamrik/tamrik.h"
#include "arena.h"

static size_t g_dest, g_destMax, g_src, g_count;  // what the function was called with
static int g_small, g_other;                      // how often each of the two was called

static void CopySmall(void *dest, const void *src, size_t count)
{
    SHOW((size_t)dest == g_dest && (size_t)src == g_src && count == g_count,
         "handed on as it came");
    g_small++;
}

static int Other(void *dest, size_t destMax, const void *src, size_t count, int code)
{
    SHOW((size_t)dest == g_dest && (size_t)src == g_src && count == g_count,
         "handed on as it came");
    SHOW(destMax == g_destMax, "handed on as it came");
    g_other++;
    return code;
}

static int CopyOther_true(void *dest, size_t destMax, const void *src, size_t count)
{
    return Other(dest, destMax, src, count, 1);
}

static int CopyOther_false(void *dest, size_t destMax, const void *src, size_t count)
{
    return Other(dest, destMax, src, count, 2);
}

#include "product.h"

void Admission(void)
{
    g_dest = nondet_size(), g_destMax = nondet_size(), g_src = nondet_size(),
    g_count = nondet_size();
    const bool hasLimit = nondet_bool();
    const size_t apart = g_dest > g_src ? g_dest - g_src : g_src - g_dest;
    // A region that would pass the end of all addresses overlaps what stands above it; no memory is
    // there.
    const bool isWithin = g_dest <= SIZE_MAX - g_count && g_src <= SIZE_MAX - g_count;
    const bool isInOrder = g_dest != 0 && g_src != 0 && g_count <= g_destMax && apart >= g_count &&
                           (!hasLimit || g_destMax <= MAX_BUFFER_SIZE);
    const bool isSmall = g_count >= 1 && g_count <= 64 && isInOrder;
    const int code = hasLimit
                         ? memcpy_sOptAsm((void *)g_dest, g_destMax, (const void *)g_src, g_count)
                         : memcpy_sOptTc((void *)g_dest, g_destMax, (const void *)g_src, g_count);
    SHOW(g_small + g_other == 1, "one of the two, once");
    SHOW(g_small == 0 || isSmall, "what is not in order is not done here");
    SHOW(g_small == 1 || !isSmall || !isWithin, "what is in order is done here");
    SHOW(code == (g_small == 1 ? RESULT_OK
                  : hasLimit   ? 1
                               : 2),
         "the result is that of the function called");
}
