// output.cpp - the bounded printf family and the engine behind it, for narrow and wide characters.
//
// One text serves both engines: templates over the character of the format, with the few overloads
// that differ in one section. A format is read by the state machine below; integers, characters,
// strings and pointers are converted here, floating values by the platform's vsprintf. Nothing
// survives a call, and errno is put back wherever the C library may have touched it.
//
// What surprises: the markers widthFromArgs and precisionFromArgs outlive their specification, and
// the platform reads the sub-format of a floating conversion not always as it was written. Both are
// told where they happen.
#include "tamrik/tamrik.h"
#include "tamrik/small.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

// ---- The state machine ----

enum class CharClass { Other, Percent, Dot, Star, Zero, Digit, FlagChar, SizeChar, TypeChar };
enum class State { Normal, Percent, Flag, Width, Dot, Precision, Size, Type, Invalid };

constexpr int kClasses = 9;
constexpr int kStates = 9;
constexpr int kReadStates = 7 + 1;  // all but Invalid, which nothing follows
constexpr unsigned kFirstChar = ' ';
constexpr unsigned kTableSize = 'z' - kFirstChar + 1;

// The members of each class. Every character outside ' ' to 'z' is Other too.
constexpr const char *kClassMembers[kClasses] = {
    "",                   // Other: whatever no other class has
    "%",                  // Percent
    ".",                  // Dot
    "*",                  // Star
    "0",                  // Zero
    "123456789",          // Digit
    " #+-",               // FlagChar
    "ILNZhjlqtwz",        // SizeChar
    "CEFGSXcdefgiopsux",  // TypeChar: neither 'a' nor 'A' nor 'n'
};

static constexpr State NextStateAsPrinted(int charClass, int from)
{
    using enum State;
    // clang-format off
    constexpr State next[kClasses][kReadStates] = {
        /* from state:    Normal   Percent  Flag     Width    Dot        Precision  Size     Type     */
        /* Other    */  { Normal,  Invalid, Invalid, Invalid, Invalid,   Invalid,   Invalid, Normal  },
        /* Percent  */  { Percent, Normal,  Invalid, Invalid, Invalid,   Invalid,   Invalid, Percent },
        /* Dot      */  { Normal,  Dot,     Dot,     Dot,     Invalid,   Invalid,   Invalid, Normal  },
        /* Star     */  { Normal,  Width,   Width,   Invalid, Precision, Invalid,   Invalid, Normal  },
        /* Zero     */  { Normal,  Flag,    Flag,    Width,   Precision, Precision, Invalid, Normal  },
        /* Digit    */  { Normal,  Width,   Width,   Width,   Precision, Precision, Invalid, Normal  },
        /* FlagChar */  { Normal,  Flag,    Flag,    Flag,    Invalid,   Invalid,   Invalid, Normal  },
        /* SizeChar */  { Normal,  Size,    Size,    Size,    Size,      Size,      Size,    Normal  },
        /* TypeChar */  { Normal,  Type,    Type,    Type,    Type,      Type,      Type,    Normal  },
    };
    // clang-format on
    return next[charClass][from];
}

// A byte of the packed table does two jobs: its low nibble is the class of the character
// kFirstChar + index, its high nibble the next state at index class * kStates + state.
static constexpr unsigned char PackedByte(int index)
{
    int charClass = 0;
    for (int row = 0; row < kClasses; row++) {
        for (const char *member = kClassMembers[row]; *member != '\0'; member++)
            if (*member == static_cast<int>(kFirstChar) + index)
                charClass = row;
    }
    const int row = index / kStates;
    const int from = index % kStates;
    const bool isCell = row < kClasses && from < kReadStates;
    const int next = isCell ? static_cast<int>(NextStateAsPrinted(row, from)) : 0;
    return static_cast<unsigned char>(next << 4 | charClass);
}

#define SEVEN_BYTES(i)                                                                             \
    PackedByte(i), PackedByte((i) + 1), PackedByte((i) + 2), PackedByte((i) + 3),                  \
        PackedByte((i) + 4), PackedByte((i) + 5), PackedByte((i) + 6)

constinit const unsigned char tamrik__lookuptable_s[kTableSize] = {
    SEVEN_BYTES(0),  SEVEN_BYTES(7),  SEVEN_BYTES(14), SEVEN_BYTES(21), SEVEN_BYTES(28),
    SEVEN_BYTES(35), SEVEN_BYTES(42), SEVEN_BYTES(49), SEVEN_BYTES(56), SEVEN_BYTES(63),
    SEVEN_BYTES(70), SEVEN_BYTES(77), SEVEN_BYTES(84)};

template <class Char>
static inline State NextState(Char ch, State state)
{
    const unsigned index = static_cast<unsigned>(ch) - kFirstChar;
    const int charClass = index < kTableSize ? tamrik__lookuptable_s[index] & 0xF : 0;
    const int cell = charClass * kStates + static_cast<int>(state);
    return static_cast<State>(tamrik__lookuptable_s[cell] >> 4);
}

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
    Arguments *arguments;
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

// Puts the decimal digits of `value`, which are `count` (0 has none or one), and returns where they
// end.
template <class Unsigned>
static char *PutDecimal(char *to, Unsigned value, int count)
{
    char *at = to + count;
    for (; value >= 100; value /= 100) {
        at -= 2;
        memcpy(at, kDigitPairs + static_cast<size_t>(value % 100) * 2, 2);
    }
    if (value >= 10)
        memcpy(at - 2, kDigitPairs + static_cast<size_t>(value) * 2, 2);
    else if (at != to)
        *--at = static_cast<char>('0' + value);
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
    else if (n > 0)
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

// ---- Conversions ----

// Lays a converted text out in its field: blanks, prefix, zeros, text, blanks.
template <class Char, class Text>
static void WriteField(Call<Char> *call, unsigned flags, int width, Text text,
                       Prefix signOrRadix = {{}, 0})
{
    const int64_t length = int64_t{signOrRadix.length} + text.length;
    const int64_t padding = width > length ? width - length : 0;
    const int64_t left = (flags & kLeftJustify) != 0 ? padding : 0;
    const int64_t zeros = left == 0 && (flags & kZeroPad) != 0 ? padding : 0;
    const int64_t blanks = padding - zeros - left;
    const PlainText prefix = {signOrRadix.text, signOrRadix.length};
    if constexpr (requires(char *to, Call<char> *own) { Put(to, text), own = call; }) {
        if (length + padding < call->stream->count) {
            char *to = PutRepeated(call->stream->cur, ' ', static_cast<size_t>(blanks));
            to = PutRepeated(Put(to, prefix), '0', static_cast<size_t>(zeros));
            PutRepeated(Put(to, text), ' ', static_cast<size_t>(left));
            const int written = static_cast<int>(length + padding);
            Settle<Char>(call->stream, written, written, &call->charsOut);
            return;
        }
    }
    WritePadding(call, ' ', blanks);
    WriteText(call, prefix);
    WritePadding(call, '0', zeros);
    WriteText(call, text);
    if (call->charsOut >= 0)
        WritePadding(call, ' ', left);
}

// Takes an integer of the size that the flags ask for; the first match of the list wins. A signed
// one comes back sign-extended, an unsigned one zero-extended.
static uint64_t TakeInteger(Arguments *arguments, unsigned flags)
{
    const bool isSigned = (flags & kSigned) != 0;
    if ((flags & (kPointerSized | kLongLong | kLong)) != 0)
        return va_arg(arguments->list, uint64_t);
    if ((flags & kCharSized) != 0) {
        const int value = va_arg(arguments->list, int);
        return isSigned ? static_cast<uint64_t>(static_cast<signed char>(value))
                        : static_cast<unsigned char>(value);
    }
    if ((flags & kShort) != 0) {
        const int value = va_arg(arguments->list, int);
        return isSigned ? static_cast<uint64_t>(static_cast<short>(value))
                        : static_cast<unsigned short>(value);
    }
    if ((flags & (kPtrDiff | kSizeT | kIntMax)) != 0)
        return va_arg(arguments->list, uint64_t);
    const int value = va_arg(arguments->list, int);
    return isSigned ? static_cast<uint64_t>(value) : static_cast<unsigned>(value);
}

static int BitsPerDigit(char conversion)
{
    switch (conversion) {
    case 'o': return kOctal;
    case 'x':
    case 'X':
    case 'p': return kHexadecimal;
    default: return kDecimal;
    }
}

static Prefix PrefixOf(unsigned flags, uint64_t value, int bitsPerDigit, const char *digits)
{
    if ((flags & kSigned) != 0) {
        if ((flags & kNegative) != 0)
            return {{'-'}, 1};
        if ((flags & kForceSign) != 0)
            return {{'+'}, 1};
        return {{' '}, (flags & kSpaceForSign) != 0 ? 1 : 0};
    }
    const bool isPrefixed = bitsPerDigit == kHexadecimal && (flags & kAlternate) != 0 && value != 0;
    return {{'0', digits[kHexPrefixLetter]}, isPrefixed ? kPrefixSize : 0};
}

// 'd', 'i', 'u', 'o', 'x', 'X' and 'p'.
template <class Char>
static void ConvertInteger(Call<Char> *call, const Specification<Char> &spec, char conversion)
{
    unsigned flags = spec.flags;
    int precision = spec.precision;
    if (conversion == 'd' || conversion == 'i')
        flags |= kSigned;
    if (conversion == 'p') {
        flags |= kPointer | kPointerSized | kAlternate;
        precision = 0;
    }
    if (conversion == 'o' && (flags & kAlternate) != 0)
        flags |= kOctalZero;

    // 1. The magnitude.
    uint64_t value = TakeInteger(call->arguments, flags);
    if ((flags & kSigned) != 0 && static_cast<int64_t>(value) < 0) {
        flags |= kNegative;
        value = -value;
    }
    if ((flags & (kPointerSized | kIntMax | kSizeT | kPtrDiff | kLongLong | kLong)) == 0)
        value &= 0xFFFFFFFFU;

    // 2. The precision.
    if (precision < 0) {
        precision = 1;
    } else {
        flags &= (flags & kPointer) != 0 ? ~0U : ~static_cast<unsigned>(kZeroPad);
        precision = precision < kIntegerPrecision ? precision : kIntegerPrecision;
    }

    // 3. The prefix, which a zero does not have.
    const char *digits = conversion == 'X' ? _itoa_upper_digits : _itoa_lower_digits;
    const int bits = BitsPerDigit(conversion);
    const Prefix prefix = PrefixOf(flags, value, bits, digits);

    // 4. to 6. The digits, as many zeros as the precision asks for, and the octal zero.
    const int count = bits == kDecimal ? CountDecimal(value) : CountDigits(value, bits);
    int length = count > precision ? count : precision;
    if ((flags & kOctalZero) != 0 && length == count)
        length++;

    // 7. A null pointer, the only one without a digit, has a name.
    if (conversion == 'p' && length == 0) {
        flags &= ~static_cast<unsigned>(kZeroPad);
        WriteField(call, flags, spec.width, PlainText{kNilText, sizeof kNilText - 1});
        return;
    }
    WriteField(call, flags, spec.width, NumberText{value, count, length, bits, digits}, prefix);
}

// 'S' and 'C' without a size of their own.
template <class Char>
static bool IsWideText(const Call<Char> *call, unsigned flags, bool isCapital)
{
    if (isCapital && (flags & (kShort | kLong | kWide)) == 0)
        flags |= UnsizedCapital(call);
    return (flags & (kLong | kWide)) != 0;
}

// 'c' and 'C'. A character that cannot be converted prints nothing, no padding either.
template <class Char>
static void ConvertCharacter(Call<Char> *call, const Specification<Char> &spec, bool isCapital)
{
    const unsigned flags = spec.flags & ~static_cast<unsigned>(kZeroPad);
    const int value = va_arg(call->arguments->list, int);
    Char own[MB_LEN_MAX];
    int used = 0;
    int length = 0;
    if (IsWideText(call, flags, isCapital)) {
        const wchar_t wide = static_cast<wchar_t>(value);
        length = ToOwnWidth(call, WideText{&wide, 1}, own, &used);
    } else {
        const char narrow = static_cast<char>(value);
        length = ToOwnWidth(call, NarrowText{&narrow, 1}, own, &used);
    }
    if (length >= 0)
        WriteField(call, flags, spec.width, AsText(own, length));
}

// 's' and 'S'. Reads no further than the precision.
template <class Char>
static void ConvertString(Call<Char> *call, const Specification<Char> &spec, bool isCapital)
{
    const unsigned flags = spec.flags & ~static_cast<unsigned>(kZeroPad);
    const size_t most = spec.precision < 0 ? INT_MAX : static_cast<size_t>(spec.precision);
    if (IsWideText(call, flags, isCapital)) {
        const wchar_t *text = va_arg(call->arguments->list, const wchar_t *);
        text = text != nullptr ? text : WSTR_NULL_STRING;
        WriteField(call, flags, spec.width, WideText{text, static_cast<int>(wcsnlen(text, most))});
        return;
    }
    const char *text = va_arg(call->arguments->list, const char *);
    text = text != nullptr ? text : STR_NULL_STRING;
    WriteField(call, flags, spec.width, NarrowText{text, static_cast<int>(strnlen(text, most))});
}

// ---- Floating conversions ----

// A width or a precision as it stands in the format: "*", digits, or digits behind a '*'.
template <class Char>
struct WrittenNumber {
    const Char *text;
    int length;
};

// Copies a width or precision to the sub-format. Digits behind a '*' continue its number, which no
// platform understands: there the number itself goes out, or nothing where it is negative.
template <class Char>
static char *PutWrittenNumber(char *to, WrittenNumber<Char> written, int value)
{
    if (written.length > 1 && written.text[0] == '*') {
        const unsigned number = value > 0 ? static_cast<unsigned>(value) : 0;
        return PutDecimal(to, number, CountDecimal(number));
    }
    for (int i = 0; i < written.length; i++)
        *to++ = static_cast<char>(written.text[i]);
    return to;
}

// Writes the specification that ends before call->next for the platform's vsprintf and returns how
// many '*' it holds. An ordinary one comes out as it was written, byte for byte. What C does not
// know is brought into its order: flags behind a width move to the front, the last width holds, and
// of the size letters only those stay that name the type really passed.
template <class Char>
static int PutSubFormat(const Call<Char> &call, const Specification<Char> &spec, char *to)
{
    *to++ = '%';
    WrittenNumber<Char> width = {spec.start, 0};
    WrittenNumber<Char> precision = {spec.start, 0};
    bool hasPrecision = false;
    State state = State::Percent;
    const Char *at = spec.start + 1;
    for (;; at++) {
        const State previous = state;
        state = NextState(*at, state);
        if (state == State::Flag) {
            *to++ = static_cast<char>(*at);
        } else if (state == State::Width) {
            width = previous == State::Width ? width : WrittenNumber<Char>{at, 0};
            width.length++;
        } else if (state == State::Dot) {
            hasPrecision = true;
            precision.text = at + 1;
        } else if (state == State::Precision) {
            precision.length++;
        } else {
            break;
        }
    }

    to = PutWrittenNumber(to, width, spec.width);
    // Digits behind a negative '*' leave no precision; C has no way to write that but to say nothing.
    if (hasPrecision && (spec.precision >= 0 || precision.length == 1)) {
        *to++ = '.';
        to = PutWrittenNumber(to, precision, spec.precision);
    }
    const Char *conversion = call.next - 1;
    if ((spec.flags & kLongDouble) != 0)
        *to++ = 'L';
    else if (conversion - at == 1 && *at == 'l')
        *to++ = 'l';
    *to++ = static_cast<char>(*conversion);
    *to = '\0';
    return (width.length == 1 && *width.text == '*' ? 1 : 0) +
           (precision.length == 1 && *precision.text == '*' ? 1 : 0);
}

// Hands the value to the platform with `stars` integers before it, as many as the sub-format reads,
// and what is left of the two behind it. Where integers and floating values travel in registers of
// their own this is the same as all before the value; where they share the stack, an integer too
// many before the value would be printed in its place.
template <class Value>
static int PrintFloat(char *text, const char *subFormat, int stars, const int (&numbers)[2],
                      Value value)
{
    if (stars == 0)
        return indirectSprintf(text, subFormat, value, numbers[0], numbers[1]);
    if (stars == 1)
        return indirectSprintf(text, subFormat, numbers[0], value, numbers[1]);
    return indirectSprintf(text, subFormat, numbers[0], numbers[1], value);
}

// Makes the sub-format and lets the platform print the value into `text`. False when there is no
// memory for the sub-format; else *result is what the platform returned.
template <class Char, class Value>
static bool CallPlatform(const Call<Char> &call, const Specification<Char> &spec, int precision,
                         Value value, char *text, int *result)
{
    // Numbers that replace a '*' may be longer than it.
    constexpr size_t kNumbersSize = size_t{2} * kNumberSize;
    char local[kSubFormatSize + kNumbersSize];
    const size_t size = static_cast<size_t>(call.next - spec.start) + 1;
    char *subFormat =
        size <= kSubFormatSize ? local : static_cast<char *>(malloc(size + kNumbersSize));
    if (subFormat == nullptr)
        return false;

    // Intended: the markers decide what is passed, and they may stem from an earlier specification.
    // So a ".*" without a '*' width of its own may find the stale width, 0, as its precision.
    int numbers[2] = {0, 0};
    int passed = 0;
    if (call.widthFromArgs) {
        // Intended: the magnitude alone, a negative '*' width does not left-justify here. The most
        // negative one has no magnitude and asks for no padding.
        numbers[passed++] = spec.width > 0 ? spec.width : 0;
    }
    if (call.precisionFromArgs)
        numbers[passed++] = precision;
    const int stars = PutSubFormat(call, spec, subFormat);
    *result = PrintFloat(text, subFormat, stars, numbers, value);
    if (subFormat != local)
        free(subFormat);
    return true;
}

// Writes what the platform printed, unless it is longer than the conversion's `size`. A negative
// result lowers the count.
template <class Char>
static void WritePlatformText(Call<Char> *call, const char *text, int length, int size)
{
    if (length < 0)
        call->charsOut += length;
    else if (length <= size)
        WriteText(call, NarrowText{text, length});
}

template <class Char, class Value>
static void ConvertFloat(Call<Char> *call, const Specification<Char> &spec, Value value, int extra)
{
    const char conversion = static_cast<char>(call->next[-1]);
    int precision = spec.precision < 0 ? kFloatPrecision : spec.precision;
    if (precision == 0 && (conversion == 'g' || conversion == 'G'))
        precision = 1;
    if (precision > INT_MAX - extra)
        return;
    const int size = spec.width > precision + extra ? spec.width : precision + extra;

    const int savedErrno = errno;
    char local[kTextSize];
    char *text =
        size < kTextSize ? local : static_cast<char *>(malloc(static_cast<size_t>(size) + 2));
    int length = 0;
    if (text != nullptr && CallPlatform(*call, spec, precision, value, text, &length))
        WritePlatformText(call, text, length, size);
    if (text != local)
        free(text);
    errno = savedErrno;
}

// ---- The machine's steps ----

template <class Char>
static void TakeFlag(Specification<Char> *spec, Char ch)
{
    switch (ch) {
    case ' ': spec->flags |= kSpaceForSign; return;
    case '#': spec->flags |= kAlternate; return;
    case '+': spec->flags |= kForceSign; return;
    case '-': spec->flags |= kLeftJustify; return;
    case '0': spec->flags |= kZeroPad; return;
    default: return;
    }
}

// Appends a digit to a width or precision. False when the number is beyond the limit. A negative one
// (from a '*') stays as it is.
static bool TakeDigit(int *number, int digit)
{
    if (*number > kNumberLimit)
        return false;
    if (*number >= 0)
        *number = *number * 10 + digit;
    return true;
}

template <class Char>
static bool TakeWidth(Call<Char> *call, Specification<Char> *spec, Char ch, bool isFirst)
{
    if (ch != '*') {
        spec->width = isFirst ? 0 : spec->width;
        call->widthFromArgs = false;
        return TakeDigit(&spec->width, ch - '0');
    }
    spec->width = va_arg(call->arguments->list, int);
    call->widthFromArgs = true;
    if (spec->width < 0) {
        spec->flags |= kLeftJustify;
        // The most negative width has no magnitude: it stays as it is and pads nothing.
        spec->width = spec->width > INT_MIN ? -spec->width : INT_MIN;
    }
    return true;
}

template <class Char>
static bool TakePrecision(Call<Char> *call, Specification<Char> *spec, Char ch)
{
    if (ch != '*') {
        call->precisionFromArgs = false;
        return TakeDigit(&spec->precision, ch - '0');
    }
    const int precision = va_arg(call->arguments->list, int);
    spec->precision = precision < 0 ? kNoPrecision : precision;
    call->precisionFromArgs = true;
    return true;
}

// 'I' asks for 64 bits by itself before an integer conversion. Returns false when it is no size.
template <class Char>
static bool TakePointerSize(Call<Char> *call, Specification<Char> *spec)
{
    const Char *next = call->next;
    if (next[0] == '6' && next[1] == '4') {
        spec->flags |= kPointerSized;
        call->next += 2;
        return true;
    }
    if (next[0] == '3' && next[1] == '2') {
        spec->flags &= ~static_cast<unsigned>(kPointerSized);
        call->next += 2;
        return true;
    }
    switch (next[0]) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X': spec->flags |= kPointerSized; return true;
    default: return false;
    }
}

// Returns the state that the machine goes on in.
template <class Char>
static State TakeSize(Call<Char> *call, Specification<Char> *spec, Char ch)
{
    switch (ch) {
    case 'h': spec->flags |= *call->next == 'h' ? kCharSized : kShort; break;
    case 'l':
        if (*call->next != 'l') {
            spec->flags |= kLong;
            break;
        }
        spec->flags |= kLongLong;
        call->next++;
        break;
    case 'j': spec->flags |= kIntMax; break;
    case 't': spec->flags |= kPtrDiff; break;
    case 'z': spec->flags |= kSizeT; break;
    case 'w': spec->flags |= kWide; break;
    case 'L':
    case 'q': spec->flags |= kLongLong | kLongDouble; break;
    case 'I':
        if (!TakePointerSize(call, spec)) {
            // Intended: the specification is dropped and its rest is text, the 'I' included.
            call->next--;
            return State::Normal;
        }
        break;
    default: break;  // 'N' and 'Z' say nothing
    }
    return State::Size;
}

template <class Char>
static void Convert(Call<Char> *call, const Specification<Char> &spec, Char ch)
{
    switch (ch) {
    case 'c': ConvertCharacter(call, spec, false); return;
    case 'C': ConvertCharacter(call, spec, true); return;
    case 's': ConvertString(call, spec, false); return;
    case 'S': ConvertString(call, spec, true); return;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
        if ((spec.flags & kLongDouble) != 0) {
            const long double value = va_arg(call->arguments->list, long double);
            ConvertFloat(call, spec, value, kLongDoubleExtra);
        } else {
            ConvertFloat(call, spec, va_arg(call->arguments->list, double), kDoubleExtra);
        }
        return;
    default: ConvertInteger(call, spec, static_cast<char>(ch)); return;
    }
}

// ---- Pieces that need no machine ----

// Only a '%' leaves the state Normal: the characters from call->next to it, or to the format's end,
// are written in one go.
template <class Char>
static void WriteLiterals(Call<Char> *call)
{
    const Char *end = call->next;
    while (*end != '%' && *end != '\0' && end - call->next < INT_MAX)
        end++;
    WriteString(call->next, static_cast<int>(end - call->next), call->stream, &call->charsOut);
    call->next = end;
}

// Copies a format's text up to its next '%', its end or the end of the room.
static char *PutLiterals(char *to, const char *end, const char **next)
{
    constexpr int kShortRun = 8;
    const char *from = *next;
    for (int i = 0; i < kShortRun; i++, from++, to++) {
        if (*from == '%' || *from == '\0' || to == end) {
            *next = from;
            return to;
        }
        *to = *from;
    }
    const char *percent = strchr(from, '%');
    const size_t length = percent != nullptr ? static_cast<size_t>(percent - from) : strlen(from);
    const size_t room = static_cast<size_t>(end - to);
    const size_t fitting = length < room ? length : room;
    *next = from + fitting;
    return PutBytes(to, from, fitting);
}

// A specification of the common kind: "%d", "%s", "%lld", "%10d", "%-20s".
struct PlainField {
    int width = 0;
    bool isLeft = false;
    bool isLong = false;
};

static inline bool BeginsField(char ch)
{
    return ch == '-' || ch == 'l' || (ch >= '1' && ch <= '9');
}

// Reads what stands between a '%' and its conversion if it is of the common kind, and returns where it
// ends: a conversion that is no plain one means that it was not.
static const char *ReadPlainField(const char *at, PlainField *field, Call<char> *call)
{
    constexpr int kWidestPlain = 100;
    if (*at == '-') {
        field->isLeft = true;
        at++;
    }
    if (*at == '0')
        return at;  // a flag
    for (; *at >= '0' && *at <= '9' && field->width < kWidestPlain; at++) {
        field->width = field->width * 10 + (*at - '0');
        call->widthFromArgs = false;
    }
    if (*at != 'l')
        return at;
    field->isLong = true;
    return at[1] == 'l' ? at + 2 : at + 1;
}

// Puts blanks around a text, whose length is known, while `put` puts the text itself.
template <class Put>
static inline char *PutPadded(char *to, const PlainField &field, size_t length, Put put)
{
    const size_t width = static_cast<size_t>(field.width);
    const size_t blanks = width > length ? width - length : 0;
    to = put(PutRepeated(to, ' ', field.isLeft ? 0 : blanks));
    return PutRepeated(to, ' ', field.isLeft ? blanks : 0);
}

static inline char *PutSigned(char *to, const PlainField &field, int64_t value)
{
    const uint64_t bits = static_cast<uint64_t>(value);
    const uint64_t magnitude = value < 0 ? 0 - bits : bits;
    const int count = magnitude < 10 ? 1 : CountDecimal(magnitude);
    const int length = value < 0 ? count + 1 : count;
    return PutPadded(to, field, static_cast<size_t>(length), [=](char *at) {
        *at = '-';
        return PutDecimal(at + (length - count), magnitude, count);
    });
}

// The same without a field, for "%d".
static inline char *PutInt(char *to, int value)
{
    unsigned magnitude = static_cast<unsigned>(value);
    if (value < 0) {
        *to++ = '-';
        magnitude = 0 - magnitude;
    }
    if (magnitude < 10) {
        *to = static_cast<char>('0' + magnitude);
        return to + 1;
    }
    return PutDecimal(to, magnitude, CountDecimal(magnitude));
}

// The same for "%ld" and "%lld". A function of its own, which leaves the registers of the others alone.
[[gnu::noinline]] static char *PutLong(char *to, int64_t value)
{
    uint64_t magnitude = static_cast<uint64_t>(value);
    if (value < 0) {
        *to++ = '-';
        magnitude = 0 - magnitude;
    }
    return PutDecimal(to, magnitude, magnitude < 10 ? 1 : CountDecimal(magnitude));
}

// How many characters the "%ld" or "%lld" at a '%' has; 0 for anything else.
static inline int LengthOfPlainLong(const char *at)
{
    if (at[1] != 'l')
        return 0;
    if (at[2] == 'd')
        return 3;
    return at[2] == 'l' && at[3] == 'd' ? 4 : 0;
}

// Where the plain pieces stand: in the format, in the output, and whether a string was too long.
struct Plain {
    const char *next;  // null when what comes is not plain
    char *to;
    const char *cut;  // the string that does not fit, which nothing was put of
};

[[gnu::always_inline]] static inline Plain PutString(const char *next, char *to, const char *end,
                                                     const PlainField &field, Arguments *arguments)
{
    const char *text = va_arg(arguments->list, const char *);
    text = text != nullptr ? text : STR_NULL_STRING;
    const size_t length = strnlen(text, INT_MAX);
    if (length > static_cast<size_t>(end - to))
        return {next, to, text};
    to = PutPadded(to, field, length, [=](char *at) { return PutBytes(at, text, length); });
    return {next, to, nullptr};
}

// Puts a specification of the common kind, other than those without a field.
[[gnu::noinline]] static Plain PutField(const char *next, char *to, const char *end,
                                        Call<char> *call)
{
    PlainField field;
    const char *conversion = ReadPlainField(next + 1, &field, call);
    if (end - to < field.width + kLongestSigned)
        return {nullptr, to, nullptr};
    if (*conversion == 's' && !field.isLong)
        return PutString(conversion + 1, to, end, field, call->arguments);
    if (*conversion != 'd')
        return {nullptr, to, nullptr};
    const int64_t value =
        field.isLong ? va_arg(call->arguments->list, int64_t) : va_arg(call->arguments->list, int);
    return {conversion + 1, PutSigned(to, field, value), nullptr};
}

// Writes text, and the specifications of the common kind, as long as they fit. The rest is left to the
// machine, which does the same with all checks.
static inline void WritePlainPieces(Call<char> *call)
{
    OutputStream *stream = call->stream;
    if (stream->count < 1)
        return;
    char *const end = stream->cur + stream->count;
    Plain plain = {call->next, stream->cur, nullptr};
    while (plain.cut == nullptr) {
        plain.to = PutLiterals(plain.to, end, &plain.next);
        if (*plain.next != '%')
            break;
        if (plain.next[1] == 'd' && end - plain.to > kNumberSize) {
            plain.to = PutInt(plain.to, va_arg(call->arguments->list, int));
            plain.next += 2;
        } else if (plain.next[1] == 's') {
            plain = PutString(plain.next + 2, plain.to, end, {}, call->arguments);
        } else if (!BeginsField(plain.next[1])) {
            break;
        } else if (const int length = LengthOfPlainLong(plain.next);
                   length > 0 && end - plain.to >= kLongestSigned) {
            plain.to = PutLong(plain.to, va_arg(call->arguments->list, int64_t));
            plain.next += length;
        } else {
            const Plain behind = PutField(plain.next, plain.to, end, call);
            if (behind.next == nullptr)
                break;
            plain = behind;
        }
    }
    call->next = plain.next;
    const int written = static_cast<int>(plain.to - stream->cur);
    Settle<char>(stream, written, written, &call->charsOut);
    if (plain.cut != nullptr)
        WriteString(plain.cut, stream->count + 1, stream, &call->charsOut);
}

static void WritePlainPieces(Call<wchar_t> *call)
{
    WriteLiterals(call);
}

static inline bool IsFloating(char conversion)
{
    const unsigned letter = static_cast<unsigned>(conversion | 0x20) - 'e';
    return letter <= 'g' - 'e';
}

// Converts "%f", "%e" and "%g", of either case, which the platform can be handed as they stand when no
// '*' before them has left a marker. False when something else comes.
[[gnu::noinline]] static bool ConvertPlainFloat(Call<char> *call)
{
    if (*call->next != '%' || !IsFloating(call->next[1]) || call->widthFromArgs ||
        call->precisionFromArgs)
        return false;
    const char subFormat[] = {'%', call->next[1], '\0'};
    call->next += 2;
    const int savedErrno = errno;
    char text[kTextSize];
    const int length = indirectSprintf(text, subFormat, va_arg(call->arguments->list, double));
    errno = savedErrno;
    WritePlatformText(call, text, length, kFloatPrecision + kDoubleExtra);
    return true;
}

static bool ConvertPlainFloat(Call<wchar_t> * /*call*/)
{
    return false;
}

// ---- The engine ----

// Whether the machine is outside of any specification.
static bool IsOutside(State state)
{
    return state == State::Normal || state == State::Type;
}

// Runs the machine over one specification, or over one character that found no room. False when the
// specification is invalid or the format ends inside it.
template <class Char>
[[gnu::noinline]] static bool RunMachine(Call<Char> *call)
{
    Specification<Char> spec;
    State state = State::Normal;
    do {
        const Char ch = *call->next++;
        const State previous = state;
        state = NextState(ch, state);
        switch (state) {
        case State::Normal: WriteString(&ch, 1, call->stream, &call->charsOut); break;
        case State::Percent: spec.start = call->next - 1; break;
        case State::Flag: TakeFlag(&spec, ch); break;
        case State::Width:
            if (!TakeWidth(call, &spec, ch, previous != State::Width))
                return false;
            break;
        case State::Dot: spec.precision = 0; break;
        case State::Precision:
            if (!TakePrecision(call, &spec, ch))
                return false;
            break;
        case State::Size: state = TakeSize(call, &spec, ch); break;
        case State::Type: Convert(call, spec, ch); break;
        case State::Invalid: return false;
        }
    } while (!IsOutside(state));
    return true;
}

template <class Char>
static inline int Format(OutputStream *stream, const Char *format, Arguments *arguments)
{
    Call<Char> call = {.next = format, .stream = stream, .arguments = arguments};
    do {
        WritePlainPieces(&call);
        if (*call.next == '\0' || call.charsOut < 0)
            break;
        if (!ConvertPlainFloat(&call) && !RunMachine(&call))
            return -1;
    } while (call.charsOut >= 0);
    return call.charsOut;
}

// ---- The bounded calls ----

static inline int FormatTerminated(char *dest, size_t size, const char *format,
                                   Arguments *arguments)
{
    const size_t room = size < MAX_BUFFER_SIZE ? size : MAX_BUFFER_SIZE;
    OutputStream stream = {dest != nullptr ? static_cast<int>(room) : 0, dest};
    const int result = Format(&stream, format, arguments);
    if (result >= 0) {
        const int left = stream.count--;
        if (left > 0) {
            *stream.cur = '\0';
            return result;
        }
    }
    if (dest != nullptr && room > 0)
        dest[room - 1] = '\0';
    return stream.count < 0 ? kDoesNotFit : -1;
}

[[gnu::always_inline]] static inline int FormatBounded(char *dest, size_t destMax, size_t count,
                                                       const char *format, Arguments *arguments)
{
    const bool isCountGood = count < MAX_BUFFER_SIZE || count == SIZE_MAX;
    if (IsBadSize(destMax, MAX_BUFFER_SIZE) || dest == nullptr || format == nullptr ||
        !isCountGood) {
        if (dest != nullptr && destMax != 0)
            dest[0] = '\0';
        return -1;
    }

    const bool isTruncating = destMax > count;
    const int result =
        FormatTerminated(dest, isTruncating ? count + 1 : destMax, format, arguments);
    if (!isTruncating) {
        // Intended: the last byte is cleared even behind a text that ends long before it.
        dest[destMax - 1] = '\0';
    }
    if (result >= 0)
        return result;
    if (!isTruncating || result != kDoesNotFit)
        dest[0] = '\0';
    return -1;
}

// ---- Public functions ----

int snprintf_s(char *strDest, size_t destMax, size_t count, const char *format, ...)
{
    Arguments arguments;
    va_start(arguments.list, format);
    const int result = FormatBounded(strDest, destMax, count, format, &arguments);
    va_end(arguments.list);
    return result;
}

int vsnprintf_s(char *strDest, size_t destMax, size_t count, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = FormatBounded(strDest, destMax, count, format, &arguments);
    va_end(arguments.list);
    return result;
}

int vsnprintf_helper(char *dest, size_t size, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = FormatTerminated(dest, size, format, &arguments);
    va_end(arguments.list);
    return result;
}

int tamrik_output_s(OutputStream *stream, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = Format(stream, format, &arguments);
    va_end(arguments.list);
    return result;
}

int tamrik_woutput_s(OutputStream *stream, const wchar_t *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const int result = Format(stream, format, &arguments);
    va_end(arguments.list);
    return result;
}

int indirectSprintf(char *buffer, const char *format, ...)
{
    va_list argList;
    va_start(argList, format);
#pragma GCC diagnostic push
// Some platforms warn of any vsprintf; the size of this buffer is reckoned from the sub-format.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const int result = vsprintf(buffer, format, argList);
#pragma GCC diagnostic pop
    va_end(argList);
    return result;
}

void write_char_a(char ch, OutputStream *stream, int *charsOut)
{
    WriteRepeated(ch, 1, stream, charsOut);
}

void write_multi_char_a(char ch, int n, OutputStream *stream, int *charsOut)
{
    WriteRepeated(ch, n, stream, charsOut);
}

void write_string_a(const char *str, int n, OutputStream *stream, int *charsOut)
{
    WriteString(str, n, stream, charsOut);
}

int putWcharStrEndingZero(OutputStream *stream, int n)
{
    int written = 0;
    WriteRepeated('\0', n, stream, &written);
    return written == n ? 1 : 0;
}
