// The proofs of the copies. They differ in FUNCTION; in HAS_LIMIT, whether a destMax above
// MAX_BUFFER_SIZE is refused where all else is in order; in MAY_OVERLAP; and in LARGE, the function
// that serves what is not small.
#include "arena.h"
#include "tamrik/tamrik.h"

// The table of tamrik.h, with addresses as plain numbers.
static int Promised(size_t dest, size_t destMax, size_t src, size_t count)
{
    const size_t apart = dest > src ? dest - src : src - dest;
    const bool isInOrder =
        dest != 0 && src != 0 && count != 0 && count <= destMax && apart >= count;
    if (!HAS_LIMIT && isInOrder)
        return RESULT_OK;
    if (destMax == 0 || destMax > MAX_BUFFER_SIZE)
        return ERANGE;
    if (dest == 0)
        return EINVAL;
    if (src == 0)
        return EINVAL_CLEARED;
    if (count > destMax)
        return ERANGE_CLEARED;
    if (dest == src)
        return RESULT_OK;
    return apart < count && !MAY_OVERLAP ? OVERLAP_CLEARED : RESULT_OK;
}

void Apart(void)
{
    const size_t destMax = nondet_size(), count = nondet_size(), at = nondet_size();
    const size_t readable = count <= destMax ? count : 0;
    const size_t writable = destMax <= MAX_BUFFER_SIZE ? destMax : HAS_LIMIT ? 0 : readable;
    ASSUME(readable <= MAX_BUFFER_SIZE);
    unsigned char *const dest = nondet_bool() ? Block(writable) : NULL;
    unsigned char *const src = nondet_bool() ? Block(readable) : NULL;
    const unsigned char before = dest != NULL && at < writable ? dest[at] : 0;
    const unsigned char given = src != NULL && at < readable ? src[at] : 0;

    const size_t far = 1 + (size_t)MAX_BUFFER_SIZE;
    const int promised =
        Promised(dest != NULL ? far : 0, destMax, src != NULL ? 2 * far : 0, count);
    const int result = LARGE(dest, destMax, src, count);
    SHOW(result == promised, "the result is as promised");
    if (dest != NULL && at < writable) {
        const bool isCopied = promised == RESULT_OK && at < count;
        const unsigned char expected = promised >= 128 ? 0 : isCopied ? given : before;
        SHOW(dest[at] == expected, "every byte is as promised");
    }
    if (src != NULL && at < readable)
        SHOW(src[at] == given, "the source stays");
}

void Anywhere(void)
{
    const size_t to = nondet_size(), from = nondet_size();
    const size_t destMax = nondet_size(), count = nondet_size();
    ASSUME(to <= ARENA && from <= ARENA);
    ASSUME(destMax > MAX_BUFFER_SIZE || destMax <= ARENA - to);
    ASSUME(count > destMax || count <= ARENA - from);
    ASSUME(HAS_LIMIT || count > destMax || count <= ARENA - to);
    FillArena();
    unsigned char *const dest = nondet_bool() ? g_arena + to : NULL;
    unsigned char *const src = nondet_bool() ? g_arena + from : NULL;

    const int promised =
        Promised(dest != NULL ? to + 1 : 0, destMax, src != NULL ? from + 1 : 0, count);
    for (size_t i = 0; i < ARENA; i++) {
        if (promised == RESULT_OK && i < count)
            g_expected[to + i] = g_before[from + i];
        if (promised >= 128 && i < destMax)
            g_expected[to + i] = 0;
    }
    const int result = FUNCTION(dest, destMax, src, count);
    SHOW(result == promised, "the result is as promised");
    CheckArena();
}
