// Fill, under memset_sOptAsm and memset_sOptTc, does itself what is small and in order, and hands
// on all else as it came.
//
// Assumes: nothing; the address is any number. FillSmall and FillOther are proved by themselves.
// Shows:   FillSmall is called for 1 to 32 bytes in order, with the low byte of c; else FillOther;
// never both.
//
// takes: tamrik/memory.cpp kSmallFill myStrAllFF Fill memset_sOptAsm memset_sOptTc
// proves: Admission: every address, size, count and value
#include "tamrik/tamrik.h"
#include "arena.h"

static size_t g_dest, g_destMax, g_count;  // what the function was called with
static int g_c;
static int g_small, g_other;  // how often each of the two was called

static void FillSmall(unsigned char *dest, uint64_t word, size_t count)
{
    SHOW((size_t)dest == g_dest && count == g_count, "handed on as it came");
    SHOW(word == (unsigned char)g_c * UINT64_C(0x0101010101010101),
         "each byte is the low one of c");
    g_small++;
}

static int Other(void *dest, size_t destMax, int c, size_t count, int code)
{
    SHOW((size_t)dest == g_dest && c == g_c && count == g_count, "handed on as it came");
    SHOW(destMax == g_destMax, "handed on as it came");
    g_other++;
    return code;
}

static int FillOther_true(void *dest, size_t destMax, int c, size_t count)
{
    return Other(dest, destMax, c, count, 1);
}

static int FillOther_false(void *dest, size_t destMax, int c, size_t count)
{
    return Other(dest, destMax, c, count, 2);
}

#include "product.h"

void Admission(void)
{
    g_dest = nondet_size(), g_destMax = nondet_size(), g_count = nondet_size(), g_c = nondet_int();
    const bool hasLimit = nondet_bool();
    const bool isSmall = g_dest != 0 && g_count >= 1 && g_count <= 32 && g_count <= g_destMax &&
                         (!hasLimit || g_destMax <= MAX_BUFFER_SIZE);
    const int code = hasLimit ? memset_sOptAsm((void *)g_dest, g_destMax, g_c, g_count)
                              : memset_sOptTc((void *)g_dest, g_destMax, g_c, g_count);
    SHOW(g_small + g_other == 1, "one of the two, once");
    SHOW((g_small == 1) == isSmall, "what is small and in order is done here, and nothing else");
    SHOW(code == (g_small == 1 ? RESULT_OK
                  : hasLimit   ? 1
                               : 2),
         "the result is that of the function called");
}
