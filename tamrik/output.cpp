// output.cpp - the bounded printf family and the engine behind it, for narrow and wide characters.
//
// One text serves both engines: templates over the character of the format, with the few overloads
// that differ in one section. A format is read by the state machine of output_machine.h; integers,
// characters, strings and pointers are converted in output_conversions.h, floating values by the
// platform's vsprintf; output_writing.h puts the text out. Nothing else includes the three. Nothing
// survives a call, and errno is put back wherever the C library may have touched it.
//
// What surprises: the markers widthFromArgs and precisionFromArgs outlive their specification, and
// the platform reads the sub-format of a floating conversion not always as it was written. Both are
// told where they happen.
#include "tamrik/tamrik.h"

#include "tamrik/output_conversions.h"
#include "tamrik/output_machine.h"
#include "tamrik/output_writing.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

// ---- The packed table ----

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
