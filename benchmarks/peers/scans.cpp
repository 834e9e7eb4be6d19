#include "benchmarks/peers/scans.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr std::ptrdiff_t kFloatText = 350;
constexpr std::ptrdiff_t kWidth = 127;

// A scan on its way.
struct Place {
    const char *at;
    const char *end;
    va_list arguments;
    int fields;
    char *text;  // of a float, kFloatText bytes
};

inline bool IsBlank(char ch)
{
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

inline bool SkipBlanks(Place *place)
{
    while (place->at != place->end && IsBlank(*place->at))
        ++place->at;
    return true;
}

inline bool PassLiteral(Place *place, char ch)
{
    if (place->at == place->end || *place->at != ch)
        return false;
    ++place->at;
    return true;
}

// A decimal number, kept within 64 bits.
template <typename Type>
inline bool TakeDecimal(Place *place)
{
    auto *dest = va_arg(place->arguments, Type *);
    if (dest == nullptr)
        return false;
    SkipBlanks(place);
    const bool isNegative = PassLiteral(place, '-');
    if (!isNegative)
        PassLiteral(place, '+');
    const char *start = place->at;
    std::int64_t value = 0;
    for (; place->at != place->end && *place->at >= '0' && *place->at <= '9'; ++place->at)
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_sub_overflow(value, *place->at - '0', &value))
            value = INT64_MIN;
    if (place->at == start)
        return false;
    *dest = static_cast<Type>(isNegative ? value : -std::max(value, -INT64_MAX));
    ++place->fields;
    return true;
}

inline bool TakeHexadecimal(Place *place)
{
    auto *dest = va_arg(place->arguments, unsigned *);
    if (dest == nullptr)
        return false;
    SkipBlanks(place);
    if (place->end - place->at >= 2 && place->at[0] == '0' && (place->at[1] | 0x20) == 'x')
        place->at += 2;
    const char *start = place->at;
    std::uint64_t value = 0;
    for (; place->at != place->end; ++place->at) {
        const char ch = *place->at;
        const char lower = static_cast<char>(ch | 0x20);
        unsigned digit = 0;
        if (ch >= '0' && ch <= '9')
            digit = static_cast<unsigned>(ch - '0');
        else if (lower >= 'a' && lower <= 'f')
            digit = static_cast<unsigned>(lower - 'a') + 10;
        else
            break;
        value = value >> 60 != 0 ? UINT64_MAX : value << 4 | digit;
    }
    if (place->at == start)
        return false;
    *dest = static_cast<unsigned>(value);
    ++place->fields;
    return true;
}

// The text up to where ends() finds its end, if it has room.
template <typename Ends>
inline bool TakeText(Place *place, Ends ends)
{
    char *dest = va_arg(place->arguments, char *);
    const unsigned size = va_arg(place->arguments, unsigned);
    if (dest == nullptr || size > MAX_BUFFER_SIZE)
        return false;
    dest[0] = '\0';
    const char *start = place->at;
    const char *last = start + std::min({kWidth, std::ptrdiff_t(size), place->end - start});
    const char *end = ends(start, last);
    const std::ptrdiff_t length = end - start;
    if (length == 0 || length >= std::ptrdiff_t(size))
        return false;
    std::memcpy(dest, start, static_cast<std::size_t>(length));
    dest[length] = '\0';
    place->at = end;
    ++place->fields;
    return true;
}

inline bool TakeWord(Place *place)
{
    SkipBlanks(place);
    return TakeText(place, [](const char *at, const char *end) {
        while (at != end && !IsBlank(*at))
            ++at;
        return at;
    });
}

inline bool TakeUpTo(Place *place, char stop)
{
    return TakeText(place, [stop](const char *at, const char *end) {
        const void *found = std::memchr(at, stop, static_cast<std::size_t>(end - at));
        return found != nullptr ? static_cast<const char *>(found) : end;
    });
}

// Keeps digits; false when the buffer is full.
inline bool KeepDigits(Place *place, std::ptrdiff_t *used)
{
    for (; place->at != place->end && *place->at >= '0' && *place->at <= '9'; ++place->at) {
        if (*used == kFloatText - 1)
            return false;
        place->text[(*used)++] = *place->at;
    }
    return true;
}

// A decimal with digits in front of its point, and no exponent.
inline bool TakeFloat(Place *place)
{
    auto *dest = va_arg(place->arguments, double *);
    if (dest == nullptr)
        return false;
    SkipBlanks(place);
    std::ptrdiff_t used = 0;
    if (place->at != place->end && (*place->at == '-' || *place->at == '+'))
        place->text[used++] = *place->at++;
    const std::ptrdiff_t sign = used;
    if (!KeepDigits(place, &used) || used == sign || used == kFloatText - 1)
        return false;
    if (PassLiteral(place, '.'))
        place->text[used++] = '.';
    if (!KeepDigits(place, &used))
        return false;
    place->text[used] = '\0';
    *dest = std::strtod(place->text, nullptr);
    ++place->fields;
    return true;
}

// What stands around the fields of every scan.
template <typename Fields>
inline int Run(InputSource *source, va_list arguments, Fields fields)
{
    if (source == nullptr || source->kind != 0x1 || source->cur == nullptr)
        return -2;
    const int savedErrno = errno;
    char text[kFloatText];
    Place place = {source->cur, source->cur + source->count, {}, 0, text};
    va_copy(place.arguments, arguments);
    fields(&place);
    va_end(place.arguments);
    // Volatile, so that the wipe is not left out.
    void *(*const volatile fill)(void *, int, std::size_t) = std::memset;
    fill(text, 0, sizeof text);
    source->count -= static_cast<int>(place.at - source->cur);
    source->cur = place.at;
    errno = savedErrno;
    return place.fields > 0 || place.at != place.end ? place.fields : EOF;
}

}  // namespace

int ScanNumber(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, [](Place *place) { return TakeDecimal<int>(place); });
}

int ScanThreeNumbers(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, [](Place *place) {
        return TakeDecimal<int>(place) && TakeDecimal<int>(place) && TakeDecimal<int>(place);
    });
}

int ScanTimeStamp(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, [](Place *place) {
        return TakeDecimal<int>(place) && PassLiteral(place, '-') && TakeDecimal<int>(place) &&
               PassLiteral(place, '-') && TakeDecimal<int>(place) && TakeDecimal<int>(place) &&
               PassLiteral(place, ':') && TakeDecimal<int>(place) && PassLiteral(place, ':') &&
               TakeDecimal<int>(place);
    });
}

int ScanHexadecimal(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, TakeHexadecimal);
}

int ScanLongNumber(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, TakeDecimal<long long>);
}

int ScanWord(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, TakeWord);
}

int ScanTwoWords(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, [](Place *place) { return TakeWord(place) && TakeWord(place); });
}

int ScanKeyAndValue(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, [](Place *place) {
        return TakeUpTo(place, '=') && PassLiteral(place, '=') && TakeUpTo(place, '\n');
    });
}

int ScanFloat(InputSource *source, const char *, va_list arguments)
{
    return Run(source, arguments, TakeFloat);
}
