// output_conversions.cpp - integers, characters, strings and pointers of formatted output, and
// floating values by the platform's vsprintf.
//
// One text for both engines; where they differ there is a pair of overloads.
#include "tamrik/output_conversions.h"

#include "tamrik/output_digits.h"
#include "tamrik/output_states.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

// ---- Constants ----

static constexpr int kIntegerPrecision = 512;  // the most that an integer is filled up to
static constexpr int kLongDoubleExtra = 4972;  // what a long double may need beside its precision
static constexpr int kSubFormatSize = 16;      // a longer directive is copied to the heap
static constexpr int kNumberSize = 10;         // the digits of the largest int
static constexpr int kPrefixSize = 2;
static constexpr int kOctal = 3;             // as bitsPerDigit
static constexpr int kHexPrefixLetter = 16;  // where the digit tables hold 'x' or 'X'

static constexpr wchar_t WSTR_NULL_STRING[] = L"(null)";
static constexpr char kNilText[] = "(nil)";

// What stands before a number: a sign, or "0x".
struct Prefix {
    char text[kPrefixSize];
    int length;
};

// ---- Text on its way out, by what has to happen to it ----

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

static char *Put(char *to, PlainText text)
{
    return PutCharacters(to, text.text, static_cast<size_t>(text.length));
}

static char *Put(char *to, NarrowText text)
{
    return PutCharacters(to, text.text, static_cast<size_t>(text.length));
}

template <class Char>
static void WritePadding(Call<Char> *call, char ch, int64_t n)
{
    if (n > 0)
        WriteRepeated(static_cast<Char>(ch), static_cast<int>(n), call->stream, &call->charsOut);
}

// ---- What differs between the engines ----

// Whether the shift state of an earlier call is to be reset now. An encoding of single bytes has
// none; after the conversion of a zero it is the initial one.
template <class Char>
static bool IsFirstConversion(Call<Char> *call)
{
    const bool isFirst = !call->isShiftStateReset;
    call->isShiftStateReset = true;
    return isFirst && MB_CUR_MAX > 1;
}

// Converts the first character of `text` into the engine's own width; `to` takes MB_LEN_MAX of
// them. Stores how much of the text was used and returns how many characters came out, or -1.
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
    char text[kTextSize] = {};
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

// ---- Fields, integers, characters and strings ----

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
static void ConvertInteger(Call<Char> *call, const Directive<Char> &directive, char conversion)
{
    unsigned flags = directive.flags;
    int precision = directive.precision;
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
        WriteField(call, flags, directive.width, PlainText{kNilText, sizeof kNilText - 1});
        return;
    }
    WriteField(call, flags, directive.width, NumberText{value, count, length, bits, digits},
               prefix);
}

// 'S' and 'C' mean the other width's text where no size is given.
static constexpr unsigned UnsizedCapital(const Call<char> * /*call*/)
{
    return kWide;
}

static constexpr unsigned UnsizedCapital(const Call<wchar_t> * /*call*/)
{
    return kShort;
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
static void ConvertCharacter(Call<Char> *call, const Directive<Char> &directive, bool isCapital)
{
    const unsigned flags = directive.flags & ~static_cast<unsigned>(kZeroPad);
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
        WriteField(call, flags, directive.width, AsText(own, length));
}

// 's' and 'S'. Reads no further than the precision.
template <class Char>
static void ConvertString(Call<Char> *call, const Directive<Char> &directive, bool isCapital)
{
    const unsigned flags = directive.flags & ~static_cast<unsigned>(kZeroPad);
    const size_t most =
        directive.precision < 0 ? INT_MAX : static_cast<size_t>(directive.precision);
    if (IsWideText(call, flags, isCapital)) {
        const wchar_t *text = va_arg(call->arguments->list, const wchar_t *);
        text = text != nullptr ? text : WSTR_NULL_STRING;
        WriteField(call, flags, directive.width,
                   WideText{text, static_cast<int>(wcsnlen(text, most))});
        return;
    }
    const char *text = va_arg(call->arguments->list, const char *);
    text = text != nullptr ? text : STR_NULL_STRING;
    WriteField(call, flags, directive.width,
               NarrowText{text, static_cast<int>(strnlen(text, most))});
}

// ---- Floating conversions ----

// A width or a precision as it is written in the format: "*", digits, or digits after a '*'.
template <class Char>
struct WrittenNumber {
    const Char *text;
    int length;
};

// Copies a width or precision to the sub-format. Digits after a '*' continue its number, which no
// platform understands: there the number itself is written, or nothing where it is negative.
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

// Writes the directive that ends before call->next for the platform's vsprintf and returns how
// many '*' it holds. An ordinary one comes out as it was written, byte for byte. What C does not
// know is brought into its order: flags after a width move to the front, the last width holds, and
// of the size letters only those stay that name the type really passed.
template <class Char>
static int PutSubFormat(const Call<Char> &call, const Directive<Char> &directive, char *to)
{
    *to++ = '%';
    WrittenNumber<Char> width = {directive.start, 0};
    WrittenNumber<Char> precision = {directive.start, 0};
    bool hasPrecision = false;
    State state = State::Percent;
    const Char *at = directive.start + 1;
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

    to = PutWrittenNumber(to, width, directive.width);
    // Digits after a negative '*' leave no precision; in C that is written as none.
    if (hasPrecision && (directive.precision >= 0 || precision.length == 1)) {
        *to++ = '.';
        to = PutWrittenNumber(to, precision, directive.precision);
    }
    const Char *conversion = call.next - 1;
    if ((directive.flags & kLongDouble) != 0)
        *to++ = 'L';
    else if (conversion - at == 1 && *at == 'l')
        *to++ = 'l';
    *to++ = static_cast<char>(*conversion);
    *to = '\0';
    return (width.length == 1 && *width.text == '*' ? 1 : 0) +
           (precision.length == 1 && *precision.text == '*' ? 1 : 0);
}

// Hands the value to the platform with `stars` integers before it, as many as the sub-format reads,
// and what is left of the two after it. Where integers and floating values travel in registers of
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
static bool CallPlatform(const Call<Char> &call, const Directive<Char> &directive, int precision,
                         Value value, char *text, int *result)
{
    // Numbers that replace a '*' may be longer than it.
    constexpr size_t kNumbersSize = size_t{2} * kNumberSize;
    char local[kSubFormatSize + kNumbersSize];
    const size_t size = static_cast<size_t>(call.next - directive.start) + 1;
    char *subFormat =
        size <= kSubFormatSize ? local : static_cast<char *>(malloc(size + kNumbersSize));
    if (subFormat == nullptr)
        return false;

    // Intended: the markers decide what is passed, and an earlier directive may have set them.
    // So a ".*" without a '*' width of its own may find the stale width, 0, as its precision.
    int numbers[2] = {0, 0};
    int passed = 0;
    if (call.widthFromArgs) {
        // Intended: the magnitude alone, a negative '*' width does not left-justify here. The most
        // negative one has no magnitude and asks for no padding.
        numbers[passed++] = directive.width > 0 ? directive.width : 0;
    }
    if (call.precisionFromArgs)
        numbers[passed++] = precision;
    const int stars = PutSubFormat(call, directive, subFormat);
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
static void ConvertFloat(Call<Char> *call, const Directive<Char> &directive, Value value, int extra)
{
    const char conversion = static_cast<char>(call->next[-1]);
    int precision = directive.precision < 0 ? kFloatPrecision : directive.precision;
    if (precision == 0 && (conversion == 'g' || conversion == 'G'))
        precision = 1;
    if (precision > INT_MAX - extra)
        return;
    const int size = directive.width > precision + extra ? directive.width : precision + extra;

    const int savedErrno = errno;
    char local[kTextSize];
    char *text =
        size < kTextSize ? local : static_cast<char *>(malloc(static_cast<size_t>(size) + 2));
    int length = 0;
    if (text != nullptr && CallPlatform(*call, directive, precision, value, text, &length))
        WritePlatformText(call, text, length, size);
    if (text != local)
        free(text);
    errno = savedErrno;
}

// ---- All of them ----

template <class Char>
static inline void ConvertArgument(Call<Char> *call, const Directive<Char> &directive, Char ch)
{
    switch (ch) {
    case 'c': ConvertCharacter(call, directive, false); return;
    case 'C': ConvertCharacter(call, directive, true); return;
    case 's': ConvertString(call, directive, false); return;
    case 'S': ConvertString(call, directive, true); return;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
        if ((directive.flags & kLongDouble) != 0) {
            const long double value = va_arg(call->arguments->list, long double);
            ConvertFloat(call, directive, value, kLongDoubleExtra);
        } else {
            ConvertFloat(call, directive, va_arg(call->arguments->list, double), kDoubleExtra);
        }
        return;
    default: ConvertInteger(call, directive, static_cast<char>(ch)); return;
    }
}

void tamrik_convert(Call<char> *call, const Directive<char> &directive, char ch)
{
    ConvertArgument(call, directive, ch);
}

void tamrik_wconvert(Call<wchar_t> *call, const Directive<wchar_t> &directive, wchar_t ch)
{
    ConvertArgument(call, directive, ch);
}
