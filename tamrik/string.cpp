// The checked string functions: copy, bounded copy, bounded append, and what the copies report when
// their arguments are bad.
//
// Measuring comes first and is bounded: no source is read past its terminator or past what can
// matter, no destination past its size. What is measured is then moved as one block. To clear a
// string is to write one zero byte at its start. There is no state.
#include "tamrik/tamrik.h"

#include "tamrik/small.h"

#include <string.h>

static int ClearString(char *dest, int code)
{
    dest[0] = '\0';
    return code;
}

static inline size_t Smaller(size_t one, size_t other)
{
    return one < other ? one : other;
}

int strcpy_error(char *dest, size_t destMax, const char *src)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (src == nullptr)
        return ClearString(dest, EINVAL_CLEARED);
    // Whether the string fits is known after destMax characters, however long it is.
    if (strnlen(src, destMax) < destMax)
        return RESULT_OK;
    return ClearString(dest, ERANGE_CLEARED);
}

int strcpy_s(char *dest, size_t destMax, const char *src)
{
    constexpr size_t kSmall = 32;  // the largest copy without a call, the terminator included

    if (dest == src || IsBadSize(destMax, MAX_BUFFER_SIZE) || dest == nullptr || src == nullptr)
        return strcpy_error(dest, destMax, src);

    const size_t length = strnlen(src, destMax);
    if (length == destMax)
        return strcpy_error(dest, destMax, src);
    const size_t needed = length + 1;
    if (Distance(dest, src) < needed)
        return ClearString(dest, OVERLAP_CLEARED);

    CopyBlock(dest, src, needed, kSmall);
    return RESULT_OK;
}

int strncpy_error(char *dest, size_t destMax, const char *src, size_t count)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (src == nullptr)
        return ClearString(dest, EINVAL_CLEARED);
    if (count > MAX_BUFFER_SIZE)
        return ClearString(dest, ERANGE_CLEARED);
    // Intended: copying no characters succeeds and leaves an empty string.
    if (count == 0)
        return ClearString(dest, RESULT_OK);
    if (strnlen(src, Smaller(count, destMax)) < destMax)
        return RESULT_OK;
    return ClearString(dest, ERANGE_CLEARED);
}

int strncpy_s(char *dest, size_t destMax, const char *src, size_t count)
{
    if (IsBadSize(count, MAX_BUFFER_SIZE) || dest == nullptr || src == nullptr ||
        IsBadSize(destMax, MAX_BUFFER_SIZE))
        return strncpy_error(dest, destMax, src, count);

    // A string that has not ended after destMax characters does not fit, whatever follows.
    const size_t bound = Smaller(count, destMax);
    const size_t length = strnlen(src, bound);
    if (length == destMax)
        return ClearString(dest, ERANGE_CLEARED);

    const bool isCut = length == count;
    const size_t needed = length + 1;
    // Intended: a string may be copied onto itself, so that it can be cut where it stands.
    if (dest != src) {
        if (Distance(dest, src) < needed)
            return ClearString(dest, OVERLAP_CLEARED);
        CopyBlock(dest, src, isCut ? length : needed, kSmallCopy);
    }
    if (isCut)
        dest[count] = '\0';
    return RESULT_OK;
}

// Appends a string to itself, in the room bytes from its terminator at dest[length] on.
// Intended: its end moves away as it is copied, so that only count or the room ends the copy.
static int AppendToItself(char *dest, size_t length, size_t room, size_t count)
{
    if (length == 0)
        return RESULT_OK;
    for (size_t j = 0; j < count; j++) {
        dest[length + j] = dest[j];
        if (j == room - 1)
            return ClearString(dest, ERANGE_CLEARED);
    }
    dest[length + count] = '\0';
    return RESULT_OK;
}

// Appends to the string of the given length, whose terminator has room bytes from there on.
//
// Three things stop the copy, all of them after a character that is not the terminator: the last
// byte of the buffer is taken, the next byte to write (or to read) is the other string's first, or
// count characters are done. The nearest one says how many characters there are at most; of those
// that fall on the same character the first named wins.
static int Append(char *dest, size_t length, size_t room, const char *src, size_t count)
{
    const size_t apart = Distance(dest, src);
    const size_t gap = dest < src ? apart - length : apart;
    const size_t most = Smaller(Smaller(room, gap), count);

    char *const end = dest + length;
    const size_t copied = strnlen(src, most);
    if (copied < most) {
        CopyBlock(end, src, copied + 1, kSmallCopy);
        return RESULT_OK;
    }
    if (most != 0)
        CopyBlock(end, src, most, kSmallCopy);
    if (most == room)
        return ClearString(dest, ERANGE_CLEARED);
    if (most == gap)
        return ClearString(dest, OVERLAP_CLEARED);
    end[count] = '\0';
    return RESULT_OK;
}

int strncat_s(char *dest, size_t destMax, const char *src, size_t count)
{
    if (IsBadSize(destMax, MAX_BUFFER_SIZE))
        return ERANGE;
    if (dest == nullptr)
        return EINVAL;
    if (src == nullptr)
        return ClearString(dest, EINVAL_CLEARED);
    if (count > MAX_BUFFER_SIZE)
        return ClearString(dest, ERANGE_CLEARED);

    // The search for the end goes no further than to a source that lies after the destination.
    const size_t bound = dest < src ? Smaller(destMax, Distance(dest, src)) : destMax;
    const size_t length = strnlen(dest, bound);
    if (length == destMax)
        return ClearString(dest, EINVAL_CLEARED);
    if (length == bound)
        return ClearString(dest, OVERLAP_CLEARED);

    if (dest == src)
        return AppendToItself(dest, length, destMax - length, count);
    return Append(dest, length, destMax - length, src, count);
}
