// output.cpp - the bounded printf family and the engine behind it, for narrow and wide characters.
//
// One text serves both engines: templates over the character of the format, with the few overloads
// that differ in one section. A format is read by the state machine of output_machine.h; integers,
// characters, strings and pointers are converted in output_conversions.h, floating values by the
// platform's vsprintf; output_writing.h puts the text out. What is common, text and specifications
// like "%d" and "%s", is put by output_plain.h without the machine. Nothing else includes the four.
// Nothing survives a call, and errno is put back wherever the C library may have touched it.
//
// What surprises: the markers widthFromArgs and precisionFromArgs outlive their specification, and
// the platform reads the sub-format of a floating conversion not always as it was written. Both are
// told where they happen.
#include "tamrik/tamrik.h"

#include "tamrik/output_conversions.h"
#include "tamrik/output_machine.h"
#include "tamrik/output_plain.h"
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

// Whether the call was passed no arguments, so that the specification, which needs one now, must be
// left alone. The call then stands at its '%' again.
template <class Char>
static bool LacksArgument(Call<Char> *call, const Specification<Char> &spec)
{
    if (call->arguments != nullptr)
        return false;
    call->next = spec.start;
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
    if (LacksArgument(call, *spec))
        return false;
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
    if (LacksArgument(call, *spec))
        return false;
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

// ---- The engine ----

// Whether the machine is outside of any specification.
static bool IsOutside(State state)
{
    return state == State::Normal || state == State::Type;
}

// Runs the machine over one specification, or over one character that found no room. False when the
// specification is invalid or the format ends inside it. False too when it lacks an argument; the call
// then stands where it stood before.
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
        case State::Type:
            if (LacksArgument(call, spec))
                return false;
            Convert(call, spec, ch);
            break;
        case State::Invalid: return false;
        }
    } while (!IsOutside(state));
    return true;
}

// Formats what is left of a call's format.
template <class Char>
static int FormatRest(Call<Char> *call)
{
    while (*call->next != '\0' && call->charsOut >= 0) {
        if (!RunMachine(call))
            return -1;
        if (call->charsOut >= 0)
            WritePlainPieces(call);
    }
    return call->charsOut;
}

template <class Char>
static int Format(OutputStream *stream, const Char *format, Arguments *arguments)
{
    Call<Char> call = {.next = format, .stream = stream, .arguments = arguments};
    WritePlainPieces(&call);
    return FormatRest(&call);
}

// Formats a call that was passed no arguments, up to the first specification that needs one.
static int FormatText(Call<char> *call)
{
    for (;;) {
        WriteLiterals(call);
        if (*call->next == '\0' || call->charsOut < 0)
            return call->charsOut;
        const char *const start = call->next;
        if (!RunMachine(call))
            return call->next == start ? call->charsOut : -1;
    }
}

// ---- The bounded calls ----

// Ends the text in a destination of `size` bytes, of which the engine returned `result`.
static inline int Terminate(char *dest, size_t size, OutputStream *stream, int result)
{
    if (result >= 0) {
        const int left = stream->count--;
        if (left > 0) {
            *stream->cur = '\0';
            return result;
        }
    }
    if (size > 0)
        dest[size - 1] = '\0';
    return stream->count < 0 ? kDoesNotFit : -1;
}

// Of a text that did not fit, what fits stays; one that failed is emptied.
static inline int KeepWhatFits(char *dest, int result)
{
    if (result >= 0)
        return result;
    if (result != kDoesNotFit)
        dest[0] = '\0';
    return -1;
}

// Formats into a destination of `size` bytes what stands behind the plain pieces that are there.
[[gnu::noinline]] static int FormatSlowly(char *dest, size_t size, Stop stop, Arguments *arguments)
{
    OutputStream stream = {static_cast<int>(size), dest};
    Call<char> call = {.next = stop.at.next, .stream = &stream, .arguments = arguments};
    GoOn(&call, stop);
    return Terminate(dest, size, &stream, FormatRest(&call));
}

// Formats into a destination of `size` bytes and keeps what fits of a text that is longer.
[[gnu::noinline]] static int FormatTruncating(char *dest, size_t size, const char *format,
                                              Arguments *arguments)
{
    Stop stop = {.at = {format, dest}};
    if (size >= kPlainRoom) [[likely]] {
        stop = PutPlainPieces(format, dest, dest + (size - kPlainRoom), arguments);
        if (stop.isDone) [[likely]] {
            *stop.at.to = '\0';
            return static_cast<int>(stop.at.to - dest);
        }
    }
    return KeepWhatFits(dest, FormatSlowly(dest, size, stop, arguments));
}

// Formats into a destination of `size` bytes and keeps nothing of a text that is longer.
[[gnu::noinline]] static int FormatWhole(char *dest, size_t size, const char *format,
                                         Arguments *arguments)
{
    const int result = FormatSlowly(dest, size, {.at = {format, dest}}, arguments);
    // Intended: the last byte is cleared even behind a text that ends long before it.
    dest[size - 1] = '\0';
    if (result >= 0)
        return result;
    dest[0] = '\0';
    return -1;
}

[[gnu::cold, gnu::noinline]] static int Refuse(char *dest, size_t destMax)
{
    if (dest != nullptr && destMax != 0)
        dest[0] = '\0';
    return -1;
}

static inline int FormatBounded(char *dest, size_t destMax, size_t count, const char *format,
                                Arguments *arguments)
{
    // The one count above the limit that is good, SIZE_MAX, wraps round.
    if (IsBadSize(destMax, MAX_BUFFER_SIZE) || dest == nullptr || format == nullptr ||
        count + 1 > MAX_BUFFER_SIZE)
        return Refuse(dest, destMax);
    if (destMax > count)
        return FormatTruncating(dest, count + 1, format, arguments);
    return FormatWhole(dest, destMax, format, arguments);
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

int snprintf_text(char *strDest, size_t destMax, const char *format, const char **rest)
{
    *rest = nullptr;
    if (IsBadSize(destMax, MAX_BUFFER_SIZE) || strDest == nullptr || format == nullptr)
        return Refuse(strDest, destMax);
    OutputStream stream = {static_cast<int>(destMax), strDest};
    Call<char> call = {.next = format, .stream = &stream, .arguments = nullptr};
    const int result =
        KeepWhatFits(strDest, Terminate(strDest, destMax, &stream, FormatText(&call)));
    if (result >= 0)
        *rest = call.next;
    return result;
}

int vsnprintf_helper(char *dest, size_t size, const char *format, va_list argList)
{
    Arguments arguments;
    va_copy(arguments.list, argList);
    const size_t room = size < MAX_BUFFER_SIZE ? size : MAX_BUFFER_SIZE;
    const int result =
        FormatSlowly(dest, dest != nullptr ? room : 0, {.at = {format, dest}}, &arguments);
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
