// The checked memory functions: fills, copies, moves, and the library's version.
//
// Each function first tests, all at once, whether its arguments are good, and then does its work. A
// call with a bad one goes to a function of its own that finds out what to report and how to reset
// the destination. The Opt variants fill up to 32 and copy up to 64 bytes without calling the C
// library; the plain functions always call it. There is no state.
#include "tamrik/tamrik.h"

#include "tamrik/small.h"

#include <string.h>

static constexpr char kVersionBanner[] = "Qarvel Tamrik V100R001C01SCP004B001";
static constexpr unsigned short kVersionNumber = 0x0504;

// All ones, for the wide stores of the small fills.
const unsigned char myStrAllFF[32] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
};

// What a fill that was not admitted reports, and the filling of the whole buffer when count is what
// does not fit: what is left when size and pointer are good.
[[gnu::cold, gnu::noinline]] static int FillError(void *dest, size_t destMax, int c)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
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

// A fill that is not small: an empty one, one for the C library, or one with a bad argument. With
// hasLimit, a destMax above the limit is one.
template <bool hasLimit>
[[gnu::noinline]] static int FillOther(void *dest, size_t destMax, int c, size_t count)
{
    if ((hasLimit && destMax > MAX_BUFFER_SIZE) || dest == nullptr || count > destMax)
        return FillError(dest, destMax, c);
    if (count != 0)
        memset(dest, c, count);
    return RESULT_OK;
}

// The fill of the Opt variants: a small one with good arguments is done here, without a call.
template <bool hasLimit>
static inline int Fill(void *dest, size_t destMax, int c, size_t count)
{
    if (count - 1 >= kSmallFill || count > destMax || dest == nullptr ||
        (hasLimit && destMax > MAX_BUFFER_SIZE)) [[unlikely]]
        return FillOther<hasLimit>(dest, destMax, c, count);

    // The all-ones word holds a one in every byte, 255 times.
    uint64_t ones;
    __builtin_memcpy(&ones, myStrAllFF, sizeof ones);
    const uint64_t word = static_cast<unsigned char>(c) * (ones / 0xFF);
    FillSmall(static_cast<unsigned char *>(dest), word, count);
    return RESULT_OK;
}

// A copy that is not small: one for the C library, or one with a bad argument.
template <bool hasLimit>
[[gnu::noinline]] static int CopyOther(void *dest, size_t destMax, const void *src, size_t count)
{
    if ((hasLimit && destMax > MAX_BUFFER_SIZE) || count == 0 || count > destMax ||
        dest == nullptr || src == nullptr || Distance(dest, src) < count)
        return CopyError(dest, destMax, src, count);
    memcpy(dest, src, count);
    return RESULT_OK;
}

// The copy of the Opt variants: a small one with good arguments is done here, without a call.
template <bool hasLimit>
static inline int Copy(void *dest, size_t destMax, const void *src, size_t count)
{
    if (count - 1 >= kSmallCopy || count > destMax || dest == nullptr || src == nullptr ||
        IsNear(dest, src, count) || (hasLimit && destMax > MAX_BUFFER_SIZE)) [[unlikely]]
        return CopyOther<hasLimit>(dest, destMax, src, count);

    CopySmall(dest, src, count);
    return RESULT_OK;
}

int memset_s(void *dest, size_t destMax, int c, size_t count)
{
    // Intended: a size of 0 is good here when count is 0 too; FillError would call it ERANGE.
    if (destMax <= MAX_BUFFER_SIZE && dest != nullptr && count <= destMax) [[likely]] {
        memset(dest, c, count);
        return RESULT_OK;
    }
    return FillError(dest, destMax, c);
}

int memset_sOptAsm(void *dest, size_t destMax, int c, size_t count)
{
    return Fill<true>(dest, destMax, c, count);
}

// Intended: the upper limit of destMax is not tested, only where the call fails.
int memset_sOptTc(void *dest, size_t destMax, int c, size_t count)
{
    return Fill<false>(dest, destMax, c, count);
}

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    // A count of 0 wraps round and goes to CopyError with what is too large.
    if (destMax <= MAX_BUFFER_SIZE && count - 1 < destMax && dest != nullptr && src != nullptr &&
        !IsNear(dest, src, count)) [[likely]] {
        memcpy(dest, src, count);
        return RESULT_OK;
    }
    return CopyError(dest, destMax, src, count);
}

int memcpy_sOptAsm(void *dest, size_t destMax, const void *src, size_t count)
{
    return Copy<true>(dest, destMax, src, count);
}

// Intended: the upper limit of destMax is not tested, only where the call fails.
int memcpy_sOptTc(void *dest, size_t destMax, const void *src, size_t count)
{
    return Copy<false>(dest, destMax, src, count);
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
