// input_float_text.cpp - how the text buffer of a floating-point field grows.
#include "tamrik/input_float_text.h"

#include <errno.h>

static constexpr size_t kLargestHeapText = MAX_BUFFER_SIZE;  // in bytes

int __check_float_string(size_t used, size_t *size, char **buffer, char *localBuffer, int *onHeap)
{
    if (used != *size)
        return 1;
    if (*onHeap && *size > kLargestHeapText / 2)
        return 0;
    // Volatile, as the compiler may believe that malloc leaves errno alone.
    const volatile int savedErrno = errno;
    char *larger = static_cast<char *>(malloc(*size * 2));
    errno = savedErrno;
    if (larger == nullptr)
        return 0;

    memset(larger + *size, 0, *size);
    if (*onHeap) {
        memcpy(larger, *buffer, *size);
        Wipe(*buffer, *size);
        free(*buffer);
    } else {
        memcpy(larger, localBuffer, *size);
        *onHeap = 1;
    }
    *buffer = larger;
    *size *= 2;
    return 1;
}
