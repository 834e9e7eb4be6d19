// The checked memory functions: fills, copies, moves, and the library's version.
//
// Each function first tests, all at once, whether everything is in order, and then does its work.
// Whatever is not in order goes to a function of its own that finds out what to report and what to
// leave behind. The Opt variants fill up to 32 and copy up to 64 bytes without calling the C
// library; the plain functions always call it. There is no state.
#include "tamrik/tamrik.h"

#include "tamrik/small.h"

#include <string.h>

static const char kVersionBanner[] = "Qarvel Tamrik V100R001C01SCP004B001";
static const unsigned short kVersionNumber = 0x0504;

// All ones, for the wide stores of the small fills.
const unsigned char myStrAllFF[32] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
};

// What a fill that was not admitted reports, and the filling of the whole buffer when count is what
// does not fit.
[[gnu::cold, gnu::noinline]] static int FillError(void *dest, size_t destMax, int c, size_t count)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (count <= destMax)
        return RESULT_OK;
    // Intended: the buffer is filled with the caller's value, where every other function clears.
    memset(dest, c, destMax);
    return ERANGE_CLEARED;
}

static int ClearAll(void *dest, size_t destMax, int code)
{
    memset(dest, 0, destMax);
    return code;
}

// What a copy that was not admitted reports, and the clearing of the whole buffer where it can be
// trusted. Equal pointers and a count of 0 end here too, in success.
[[gnu::cold, gnu::noinline]] static int CopyError(void *dest, size_t destMax, const void *src,
                                                  size_t count)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (src == nullptr)
        return ClearAll(dest, destMax, EINVAL_CLEARED);
    if (count > destMax)
        return ClearAll(dest, destMax, ERANGE_CLEARED);
    if (dest == src)
        return RESULT_OK;
    if (Distance(dest, src) < count)
        return ClearAll(dest, destMax, OVERLAP_CLEARED);
    return RESULT_OK;
}

// Whether everything but the upper limit of destMax is in order for a copy. Equal pointers overlap.
static inline bool IsCopyAdmitted(const void *dest, size_t destMax, const void *src, size_t count)
{
    return count != 0 && count <= destMax && dest != nullptr && src != nullptr &&
           Distance(dest, src) >= count;
}

// Fills count bytes of a buffer in which they have room.
static inline int FillAdmitted(void *dest, int c, size_t count)
{
    if (count > kSmallFill) {
        memset(dest, c, count);
        return RESULT_OK;
    }
    if (count == 0)
        return RESULT_OK;

    uint64_t word = static_cast<unsigned char>(c) * UINT64_C(0x0101010101010101);
    if (c == 0xFF)
        __builtin_memcpy(&word, myStrAllFF, sizeof word);
    FillSmall(static_cast<unsigned char *>(dest), word, count);
    return RESULT_OK;
}

// Copies count bytes between regions that were found to be in order.
static inline int CopyAdmitted(void *dest, const void *src, size_t count)
{
    if (count > kSmallCopy)
        memcpy(dest, src, count);
    else
        CopySmall(dest, src, count);
    return RESULT_OK;
}

int memset_s(void *dest, size_t destMax, int c, size_t count)
{
    // Intended: a size of 0 is in order here when count is 0 too; FillError would call it ERANGE.
    if (destMax <= MAX_BUFFER_SIZE && dest != nullptr && count <= destMax) [[likely]] {
        memset(dest, c, count);
        return RESULT_OK;
    }
    return FillError(dest, destMax, c, count);
}

int memset_sOptAsm(void *dest, size_t destMax, int c, size_t count)
{
    if (destMax <= MAX_BUFFER_SIZE && dest != nullptr && count <= destMax) [[likely]]
        return FillAdmitted(dest, c, count);
    return FillError(dest, destMax, c, count);
}

int memset_sOptTc(void *dest, size_t destMax, int c, size_t count)
{
    // Intended: the upper limit of destMax is not tested here, only where the call fails.
    if (dest != nullptr && count <= destMax) [[likely]]
        return FillAdmitted(dest, c, count);
    return FillError(dest, destMax, c, count);
}

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    if (destMax <= MAX_BUFFER_SIZE && IsCopyAdmitted(dest, destMax, src, count)) [[likely]] {
        memcpy(dest, src, count);
        return RESULT_OK;
    }
    return CopyError(dest, destMax, src, count);
}

int memcpy_sOptAsm(void *dest, size_t destMax, const void *src, size_t count)
{
    if (destMax <= MAX_BUFFER_SIZE && IsCopyAdmitted(dest, destMax, src, count)) [[likely]]
        return CopyAdmitted(dest, src, count);
    return CopyError(dest, destMax, src, count);
}

int memcpy_sOptTc(void *dest, size_t destMax, const void *src, size_t count)
{
    // Intended: the upper limit of destMax is not tested here, only where the call fails.
    if (IsCopyAdmitted(dest, destMax, src, count)) [[likely]]
        return CopyAdmitted(dest, src, count);
    return CopyError(dest, destMax, src, count);
}

int memmove_s(void *dest, size_t destMax, const void *src, size_t count)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (src == nullptr)
        return ClearAll(dest, destMax, EINVAL_CLEARED);
    if (count > destMax)
        return ClearAll(dest, destMax, ERANGE_CLEARED);
    if (dest == src || count == 0)
        return RESULT_OK;

    memmove(dest, src, count);
    return RESULT_OK;
}

void util_memmove(void *dest, const void *src, size_t count)
{
    // With a count of 0 the pointers may be anything, which memmove does not allow.
    if (count != 0)
        memmove(dest, src, count);
}

void getQvTamrikVersion(char *verStr, int bufSize, unsigned short *verNumber)
{
    // Intended: the copy's result is ignored; a buffer that is too short holds an empty string.
    if (verStr != nullptr && bufSize > 0)
        strcpy_s(verStr, static_cast<size_t>(bufSize), kVersionBanner);
    if (verNumber != nullptr)
        *verNumber = kVersionNumber;
}
