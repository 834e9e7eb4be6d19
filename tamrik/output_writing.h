// What a call of formatted output and one of its specifications know, and how text goes out: checked
// against the room that is left, in the engine's own width.
//
// Where the narrow and the wide engine differ there is a pair of overloads. Part of output.cpp alone.
#ifndef TAMRIK_OUTPUT_WRITING_H
#define TAMRIK_OUTPUT_WRITING_H

#include "tamrik/small.h"
#include "tamrik/tamrik.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

// ---- Constants ----

enum : unsigned {
    kForceSign = 0x1,        // '+'
    kSpaceForSign = 0x2,     // ' '
    kLeftJustify = 0x4,      // '-', or a negative '*' width
    kZeroPad = 0x8,          // '0' as a flag
    kLong = 0x10,            // "l"
    kShort = 0x20,           // "h"
    kSigned = 0x40,          // 'd', 'i'
    kAlternate = 0x80,       // '#', forced by 'p'
    kNegative = 0x100,       // the value is below zero
    kOctalZero = 0x200,      // 'o' with '#'
    kLongDouble = 0x400,     // 'L', 'q'
    kWide = 0x800,           // 'w'; what 'S' and 'C' mean in the narrow engine
    kLongLong = 0x1000,      // "ll", 'L', 'q'
    kCharSized = 0x2000,     // "hh"
    kPointer = 0x4000,       // 'p'
    kPointerSized = 0x8000,  // "I", "I64", 'p'
    kPtrDiff = 0x10000,      // 't'
    kSizeT = 0x20000,        // 'z'
    kIntMax = 0x40000,       // 'j'
};

constexpr int kNumberLimit = 21474836;  // a width or precision above it takes no more digits
constexpr int kNoPrecision = -1;
constexpr int kDoesNotFit = -2;         // vsnprintf_helper: the output is longer than the room
constexpr int kIntegerPrecision = 512;  // the most that an integer is filled up to
constexpr int kFloatPrecision = 6;      // where none is given
constexpr int kTextSize = 512;          // the buffer that conversions are built in
constexpr int kDoubleExtra = 349;       // what a double may need beside its precision
constexpr int kLongDoubleExtra = 4972;
constexpr int kSubFormatSize = 16;  // a longer specification is copied to the heap
constexpr int kNumberSize = 10;     // the digits of the largest int
constexpr int kLongestSigned = 20;  // -9223372036854775808
constexpr int kPrefixSize = 2;
constexpr int kDecimal = 0;  // as bitsPerDigit; it has no whole number of them
constexpr int kOctal = 3;
constexpr int kHexadecimal = 4;
constexpr int kHexPrefixLetter = 16;  // where the digit tables hold 'x' or 'X'

constexpr char _itoa_upper_digits[] = "0123456789ABCDEFX";
constexpr char _itoa_lower_digits[] = "0123456789abcdefx";
constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324"
                               "25262728293031323334353637383940414243444546474849"
                               "50515253545556575859606162636465666768697071727374"
                               "75767778798081828384858687888990919293949596979899";
constexpr char STR_NULL_STRING[] = "(null)";
constexpr wchar_t WSTR_NULL_STRING[] = L"(null)";
constexpr char kNilText[] = "(nil)";

// ---- What a call and a specification know ----

// The arguments not taken yet. A va_list may be an array; in a struct it can be handed on.
struct Arguments {
    va_list list;
};

// Lives as long as one call of an engine.
template <class Char>
struct Call {
    const Char *next;  // the format character to be read next
    OutputStream *stream;
    Arguments *arguments;  // null when none were passed
    // Intended: once set by a '*' these stay set in the specifications that follow, until a digit of
    // a width or a precision clears them; a later floating conversion depends on it.
    bool widthFromArgs = false;
    bool precisionFromArgs = false;
    bool isShiftStateReset = false;
    int charsOut = 0;  // characters produced; negative once the call has failed
};

// Begins anew at every '%'.
template <class Char>
struct Specification {
    const Char *start = nullptr;  // its '%'
    unsigned flags = 0;
    int width = 0;
    int precision = kNoPrecision;
};

// What stands before a number: a sign, or "0x".
struct Prefix {
    char text[kPrefixSize];
    int length;
};

// Text on its way out, by what has to happen to it.
struct NumberText {  // digits that are not made yet
    uint64_t value;
    int digitCount;  // of the value; none for 0
    int length;      // with the zeros before them
    int bitsPerDigit;
    const char *digits;
};
struct PlainText {  // of ASCII alone: numbers, prefixes
    const char *text;
    int length;
};
struct NarrowText {  // a caller's bytes, in the encoding of the locale
    const char *text;
    int length;
};
struct WideText {
    const wchar_t *text;
    int length;
};

// ---- Putting, where there is room ----

// How many decimal digits `value` has; none for 0.
static inline int CountDecimal(uint64_t value)
{
    // clang-format off
    static constexpr uint64_t kPowersOfTen[] = {
        1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000, 10000000000,
        100000000000, 1000000000000, 10000000000000, 100000000000000, 1000000000000000,
        10000000000000000, 100000000000000000, 1000000000000000000, 10000000000000000000U,
    };
    // clang-format on
    // 1233 / 4096 is the logarithm of 2 to the base 10: the estimate is right or one too low.
    const int bits = 64 - __builtin_clzll(value | 1);
    const int estimate = bits * 1233 >> 12;
    return estimate + (value >= kPowersOfTen[estimate] ? 1 : 0);
}

static int CountDigits(uint64_t value, int bitsPerDigit)
{
    int count = 0;
    for (; value != 0; value >>= bitsPerDigit)
        count++;
    return count;
}

// The two digits of a value below 100.
static inline char *PutTwoDigits(char *to, uint32_t value)
{
    memcpy(to, kDigitPairs + size_t{value} * 2, 2);
    return to + 2;
}

// The four digits of a value below 10000.
static inline char *PutFourDigits(char *to, uint32_t value)
{
    return PutTwoDigits(PutTwoDigits(to, value / 100), value % 100);
}

// Puts the decimal digits of `value`, which are `count` (0 has none or one), and returns where they
// end. From the end on, in groups of eight whose halves do not wait for each other.
static char *PutDecimal(char *to, uint64_t value, int count)
{
    constexpr uint32_t kHalf = 10000;
    constexpr uint64_t kGroup = uint64_t{kHalf} * kHalf;
    constexpr int kGroupDigits = 8;
    char *at = to + count;
    for (; value >= kGroup; value /= kGroup) {
        const uint32_t group = static_cast<uint32_t>(value % kGroup);
        at -= kGroupDigits;
        PutFourDigits(PutFourDigits(at, group / kHalf), group % kHalf);
    }
    uint32_t rest = static_cast<uint32_t>(value);
    for (; rest >= 100; rest /= 100) {
        at -= 2;
        PutTwoDigits(at, rest % 100);
    }
    if (rest >= 10)
        PutTwoDigits(at - 2, rest);
    else if (at != to)
        *--at = static_cast<char>('0' + rest);
    return to + count;
}

static char *PutRepeated(char *to, char ch, size_t n)
{
    if (n > kSmallFill) {
        memset(to, ch, n);
    } else if (n > 0) {
        const uint64_t everyByte = UINT64_C(0x0101010101010101);
        FillSmall(reinterpret_cast<unsigned char *>(to), static_cast<unsigned char>(ch) * everyByte,
                  n);
    }
    return to + n;
}

static char *PutBytes(char *to, const char *text, size_t n)
{
    if (n > kSmallCopy)
        memcpy(to, text, n);
    else
        CopySmall(to, text, n);
    return to + n;
}

static char *Put(char *to, PlainText text)
{
    return PutBytes(to, text.text, static_cast<size_t>(text.length));
}

static char *Put(char *to, NarrowText text)
{
    return PutBytes(to, text.text, static_cast<size_t>(text.length));
}

static char *Put(char *to, NumberText number)
{
    to = PutRepeated(to, '0', static_cast<size_t>(number.length - number.digitCount));
    if (number.bitsPerDigit == kDecimal)
        return PutDecimal(to, number.value, number.digitCount);
    const unsigned mask = (1U << number.bitsPerDigit) - 1;
    for (char *at = to + number.digitCount; at != to; number.value >>= number.bitsPerDigit)
        *--at = number.digits[number.value & mask];
    return to + number.digitCount;
}

// ---- Writing ----

// How many of `wanted` characters the stream still takes.
template <class Char>
static int Fitting(const OutputStream *stream, int wanted)
{
    const int room = stream->count / static_cast<int>(sizeof(Char));
    if (wanted <= room)
        return wanted;
    return room > 0 ? room : 0;
}

// Accounts for `written` of `wanted` characters. The first one that found no room counts as an
// attempt: it lowers the room below zero and fails the call.
template <class Char>
static void Settle(OutputStream *stream, int written, int wanted, int *charsOut)
{
    constexpr int size = static_cast<int>(sizeof(Char));
    stream->cur += written * static_cast<ptrdiff_t>(size);
    stream->count -= written * size;
    *charsOut += written;
    if (written < wanted) {
        stream->count -= stream->count >= INT_MIN + size ? size : 0;
        *charsOut = -1;
    }
}

template <class Char>
static void WriteString(const Char *text, int n, OutputStream *stream, int *charsOut)
{
    if (n < 1)
        return;
    const int fitting = Fitting<Char>(stream, n);
    PutBytes(stream->cur, reinterpret_cast<const char *>(text),
             static_cast<size_t>(fitting) * sizeof(Char));
    Settle<Char>(stream, fitting, n, charsOut);
}

template <class Char>
static void WriteRepeated(Char ch, int n, OutputStream *stream, int *charsOut)
{
    if (n < 1)
        return;
    const int fitting = Fitting<Char>(stream, n);
    char *to = stream->cur;
    for (int i = 0; i < fitting; i++) {
        memcpy(to, &ch, sizeof ch);
        to += sizeof ch;
    }
    Settle<Char>(stream, fitting, n, charsOut);
}

template <class Char>
static void WritePadding(Call<Char> *call, char ch, int64_t n)
{
    if (n > 0)
        WriteRepeated(static_cast<Char>(ch), static_cast<int>(n), call->stream, &call->charsOut);
}

// ---- What differs between the engines ----

// 'S' and 'C' mean the other width's text where no size is given.
static constexpr unsigned UnsizedCapital(const Call<char> * /*call*/)
{
    return kWide;
}

static constexpr unsigned UnsizedCapital(const Call<wchar_t> * /*call*/)
{
    return kShort;
}

// Whether the shift state of an earlier call is to be reset now. An encoding of single bytes has none;
// converting a zero leaves the initial one behind.
template <class Char>
static bool IsFirstConversion(Call<Char> *call)
{
    const bool isFirst = !call->isShiftStateReset;
    call->isShiftStateReset = true;
    return isFirst && MB_CUR_MAX > 1;
}

// Converts the first character of `text` into the engine's own width; `to` takes MB_LEN_MAX of them.
// Stores how much of the text was used and returns how many characters came out, or -1.
static int ToOwnWidth(Call<char> *call, WideText text, char *to, int *used)
{
    const int savedErrno = errno;
    if (IsFirstConversion(call))
        static_cast<void>(wctomb(to, L'\0'));
    const int length = wctomb(to, *text.text);
    errno = savedErrno;
    *used = 1;
    return length;
}

static int ToOwnWidth(Call<wchar_t> *call, NarrowText text, wchar_t *to, int *used)
{
    const int savedErrno = errno;
    if (IsFirstConversion(call))
        static_cast<void>(mbtowc(nullptr, nullptr, 0));
    *to = L'\0';
    const int length = mbtowc(to, text.text, static_cast<size_t>(text.length));
    // What begins a character without its rest would be taken for the beginning of the next text.
    if (length < 0)
        static_cast<void>(mbtowc(nullptr, nullptr, 0));
    errno = savedErrno;
    *used = length > 0 ? length : 1;
    return length < 0 ? -1 : 1;
}

static int ToOwnWidth(Call<char> * /*call*/, NarrowText text, char *to, int *used)
{
    *used = 1;
    *to = *text.text;
    return 1;
}

static int ToOwnWidth(Call<wchar_t> * /*call*/, WideText text, wchar_t *to, int *used)
{
    *used = 1;
    *to = *text.text;
    return 1;
}

static void WriteText(Call<char> *call, PlainText text)
{
    WriteString(text.text, text.length, call->stream, &call->charsOut);
}

static void WriteText(Call<wchar_t> *call, PlainText text)
{
    wchar_t wide[kTextSize];
    for (int i = 0; i < text.length; i++)
        wide[i] = static_cast<wchar_t>(text.text[i]);
    WriteString(wide, text.length, call->stream, &call->charsOut);
}

static void WriteText(Call<char> *call, NarrowText text)
{
    WriteString(text.text, text.length, call->stream, &call->charsOut);
}

static void WriteText(Call<wchar_t> *call, WideText text)
{
    WriteString(text.text, text.length, call->stream, &call->charsOut);
}

// Text of the other width, a character at a time; one that cannot be converted fails the call.
template <class Char, class Text>
static void WriteConverted(Call<Char> *call, Text text)
{
    while (text.length > 0 && call->charsOut >= 0) {
        Char own[MB_LEN_MAX];
        int used = 0;
        const int length = ToOwnWidth(call, text, own, &used);
        if (length < 1) {
            call->charsOut = -1;
            return;
        }
        WriteString(own, length, call->stream, &call->charsOut);
        text.text += used;
        text.length -= used;
    }
}

static void WriteText(Call<char> *call, WideText text)
{
    WriteConverted(call, text);
}

static void WriteText(Call<wchar_t> *call, NarrowText text)
{
    WriteConverted(call, text);
}

template <class Char>
static void WriteText(Call<Char> *call, NumberText number)
{
    char text[kTextSize];
    Put(text, number);
    WriteText(call, PlainText{text, number.length});
}

static PlainText AsText(const char *text, int length)
{
    return {text, length};
}

static WideText AsText(const wchar_t *text, int length)
{
    return {text, length};
}

#endif
