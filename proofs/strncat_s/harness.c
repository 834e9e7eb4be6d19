// strncat_s does what the table of tamrik.h says: its result, and every byte.
//
// Assumes: dest is null or memory of destMax bytes; of src, what the table has to read is there, or
// it is null. Shows:   that anywhere in an arena, overlapping or not. Nothing outside of it is read
// or written.
//
// takes: tamrik/string.cpp
// proves: Anywhere ARENA=2 ARENA=6: every content, place, overlap and size in ARENA bytes, every count
#include "product.h"
#include "text.h"

static int Promised(const Given *given)
{
    if (given->destMax == 0 || given->destMax > MAX_BUFFER_SIZE)
        return ERANGE;
    if (!given->hasDest)
        return EINVAL;
    if (!given->hasSrc)
        return Emptied(given, EINVAL_CLEARED);
    if (given->count > MAX_BUFFER_SIZE)
        return Emptied(given, ERANGE_CLEARED);
    const bool isBelow = given->to < given->from;
    size_t length = 0;
    while (length < given->destMax && Byte(given->to + length) != 0) {
        length++;
        if (isBelow && given->to + length == given->from && length < given->destMax)
            return Emptied(given, OVERLAP_CLEARED);
    }
    if (length == given->destMax)
        return Emptied(given, EINVAL_CLEARED);
    // Byte after byte, as the checks are made; what is read may have been written just before.
    for (size_t j = 0; j < given->count; j++) {
        const size_t at = given->to + length + j;
        ASSUME(given->from + j < ARENA);
        g_expected[at] = g_expected[given->from + j];
        if (g_expected[at] == 0)
            return RESULT_OK;
        if (length + j == given->destMax - 1)
            return Emptied(given, ERANGE_CLEARED);
        if (isBelow ? at + 1 == given->from : given->from + j + 1 == given->to)
            return Emptied(given, OVERLAP_CLEARED);
    }
    g_expected[given->to + length + given->count] = 0;
    return RESULT_OK;
}

static int Called(char *dest, const char *src, const Given *given)
{
    return strncat_s(dest, given->destMax, src, given->count);
}
