/*
 * The public header from a C99 program that includes nothing else before it, or, with
 * ERRNO_FIRST, <errno.h>. What must be a constant expression stands where only one may stand. The
 * program calls one function of each family and exits with the number of what went wrong first.
 */
#ifdef ERRNO_FIRST
#include <errno.h>
#endif
#include "tamrik/tamrik.h"

#if MAX_BUFFER_SIZE != 0x7FFFFFFF || EINVAL != 22 || ERANGE != 34
#error "the constants serve the preprocessor"
#endif

static const int kCodes[] = {RESULT_OK,      EINVAL,         ERANGE,
                             EINVAL_CLEARED, ERANGE_CLEARED, OVERLAP_CLEARED};
static const size_t kLimit = MAX_BUFFER_SIZE;
typedef char LimitHolds[MAX_BUFFER_SIZE == 2147483647 ? 1 : -1];
struct Bits {
    unsigned code : EINVAL_CLEARED - 149;
};

static int IsResultCode(int code)
{
    switch (code) {
    case RESULT_OK:
    case EINVAL:
    case ERANGE:
    case EINVAL_CLEARED:
    case ERANGE_CLEARED:
    case OVERLAP_CLEARED: return 1;
    default: return 0;
    }
}

int main(void)
{
    char text[64];
    unsigned short number = 0;
    LimitHolds holds = {0};
    struct Bits bits = {1};
    size_t i;

    for (i = 0; i < sizeof kCodes / sizeof kCodes[0]; i++)
        if (!IsResultCode(kCodes[i]))
            return 1;
    if (kLimit != MAX_BUFFER_SIZE || holds[0] != 0 || bits.code != 1)
        return 2;
    if (memset_s(text, sizeof text, 'x', sizeof text + 1) != ERANGE_CLEARED || text[63] != 'x')
        return 3;
    if (strcpy_s(text, sizeof text, "abc") != RESULT_OK || text[2] != 'c' || text[3] != '\0')
        return 4;
    if (strncat_s(text, sizeof text, "def", 2) != RESULT_OK || text[4] != 'e' || text[5] != '\0')
        return 5;
    if (memcpy_sOptAsm(text, sizeof text, myStrAllFF, sizeof myStrAllFF) != RESULT_OK)
        return 6;
    getQvTamrikVersion(text, (int)sizeof text, &number);
    return number == 0x0504 && text[0] == 'Q' ? 0 : 7;
}
