#include "benchmarks/peers/bounds.h"

#include "tamrik/tamrik.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

int UncheckedFill(void *dest, std::size_t, int c, std::size_t count)
{
    std::memset(dest, c, count);
    return 0;
}

int UncheckedCopy(void *dest, std::size_t, const void *src, std::size_t count)
{
    std::memcpy(dest, src, count);
    return 0;
}

int BareFloat(char *dest, std::size_t destMax, std::size_t count, const char *format, ...)
{
    constexpr int kTextSize = 512;
    constexpr int kLongest = 6 + 349;
    if (destMax - 1 >= MAX_BUFFER_SIZE || dest == nullptr || format == nullptr ||
        count >= destMax || format[0] != '%' || format[1] != 'f' || format[2] != '\0')
        return -1;
    char text[kTextSize];
    const int savedErrno = errno;
    va_list argList;
    va_start(argList, format);
    const int length = indirectSprintf(text, format, va_arg(argList, double));
    va_end(argList);
    errno = savedErrno;
    if (length < 0 || length > kLongest || static_cast<std::size_t>(length) > count)
        return -1;
    std::memcpy(dest, text, static_cast<std::size_t>(length) + 1);
    return length;
}
