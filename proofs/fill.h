// The proofs of the fills. They differ in FUNCTION and in HAS_LIMIT: whether a destMax above
// MAX_BUFFER_SIZE is refused where all else is in order; and in LARGE, the function that serves
// what is not small.
#include "arena.h"
#include "tamrik/tamrik.h"

void Apart(void)
{
    const size_t destMax = nondet_size(), count = nondet_size(), at = nondet_size();
    const int c = nondet_int();
    const bool isTaken = count <= destMax && (!HAS_LIMIT || destMax <= MAX_BUFFER_SIZE);
    const size_t writable = destMax <= MAX_BUFFER_SIZE ? destMax : isTaken ? count : 0;
    ASSUME(writable <= MAX_BUFFER_SIZE);
    unsigned char *const dest = nondet_bool() ? Block(writable) : NULL;
    const unsigned char before = dest != NULL && at < writable ? dest[at] : 0;

    int promised = RESULT_OK;
    if (!isTaken || dest == NULL)
        promised = destMax == 0 || destMax > MAX_BUFFER_SIZE ? ERANGE
                   : dest == NULL                            ? EINVAL
                                                             : ERANGE_CLEARED;
    const int result = LARGE(dest, destMax, c, count);
    SHOW(result == promised, "the result is as promised");
    if (dest != NULL && at < writable) {
        const bool isFilled = promised == ERANGE_CLEARED || (promised == RESULT_OK && at < count);
        SHOW(dest[at] == (isFilled ? (unsigned char)c : before), "every byte is as promised");
    }
}
