// strncpy_error does what the table of tamrik.h says: its result, and every byte.
//
// Assumes: dest is null or memory of destMax bytes; of src, what the table has to read is there, or
// it is null. Shows:   that anywhere in an arena, overlapping or not. Nothing outside of it is read
// or written.
//
// takes: tamrik/string.cpp
// proves: Anywhere ARENA=3 ARENA=6: every content, place, overlap and size in ARENA bytes, every count
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
    if (given->count == 0)
        return Emptied(given, RESULT_OK);
    const size_t most = given->count < given->destMax ? given->count : given->destMax;
    const size_t length = SourceLength(given, most);
    if (length == given->destMax)
        return Emptied(given, ERANGE_CLEARED);
    return RESULT_OK;
}

static int Called(char *dest, const char *src, const Given *given)
{
    return strncpy_error(dest, given->destMax, src, given->count);
}
