// The plain pieces of a format: literal text, and the directives of the common kind, which are put
// without the state machine as long as there is ample room and no marker is set. A log line takes
// 57 ns with them and 333 ns without.
//
// What is not plain, or comes near the end of the room, is left to the machine, which does the same
// with all checks. A header, since snprintf_s has the loop over the pieces inline.
#ifndef TAMRIK_OUTPUT_PLAIN_H
#define TAMRIK_OUTPUT_PLAIN_H

#include "tamrik/output_digits.h"
#include "tamrik/output_writing.h"
#include "tamrik/tamrik.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

// ---- Constants and state ----

// How far a format has been put: where it goes on, and the output with it.
struct Place {
    const char *next;
    char *to;
};

static constexpr Place kNotPlain = {nullptr, nullptr};  // nothing was put, no argument taken

// Where the plain pieces stop, and why.
struct Stop {
    Place at;
    const char *text = nullptr;  // a string that was taken and finds no room
    int lowered = 0;             // what the platform lowered the count of characters by, 0 or less
    bool isDone = false;         // the format ends there, and a terminator has room
};

static constexpr int kShortRun = 6;    // so many literal characters move one by one
static constexpr int kPlainRoom = 32;  // more than such a run and a number without a field may need
static constexpr int kFloatRoom = kFloatPrecision + kDoubleExtra;  // what a "%f" may need

// ---- Numbers ----

// A value below 100.
static inline char *PutUpTo99(char *to, unsigned value)
{
    if (value < 10) {
        *to = static_cast<char>('0' + value);
        return to + 1;
    }
    return PutTwoDigits(to, value);
}

// "%ld" and "%lld". Not inline: it needs more registers than all the rest.
[[gnu::noinline]] static char *PutLong(char *to, int64_t value)
{
    uint64_t magnitude = static_cast<uint64_t>(value);
    if (value < 0) {
        *to++ = '-';
        magnitude = 0 - magnitude;
    }
    return PutDecimal(to, magnitude, magnitude < 10 ? 1 : CountDecimal(magnitude));
}

// "%d".
static inline char *PutInt(char *to, int value)
{
    const unsigned magnitude = static_cast<unsigned>(value);
    if (magnitude < 100)
        return PutUpTo99(to, magnitude);
    if (magnitude >= 100 * 100)
        return PutLong(to, value);
    to = PutUpTo99(to, magnitude / 100);
    return PutTwoDigits(to, magnitude % 100);
}

// "%x". Not inline, like PutLong.
[[gnu::noinline]] static char *PutHexadecimal(char *to, unsigned value)
{
    const int count = CountDigits(value, kHexadecimal);
    const int length = count > 0 ? count : 1;
    return Put(to, NumberText{value, count, length, kHexadecimal, _itoa_lower_digits});
}

// Where the "%ld" or "%lld" that begins at a '%' ends; null for anything else.
static inline const char *EndOfPlainLong(const char *at)
{
    if (at[1] != 'l')
        return nullptr;
    at += at[2] == 'l' ? 3 : 2;
    return *at == 'd' ? at + 1 : nullptr;
}

// ---- Fields and strings ----

// A directive of the common kind: "%d", "%s", "%lld", "%10d", "%-20s".
struct PlainField {
    int width = 0;
    bool isLeft = false;
    bool isLong = false;
};

// Reads what stands between a '%' and its conversion if it is of the common kind, and returns where
// it ends: a conversion that is no plain one means that it was not.
static const char *ReadPlainField(const char *at, PlainField *field)
{
    constexpr int kWidestPlain = 100;
    if (*at == '-') {
        field->isLeft = true;
        at++;
    }
    if (*at == '0')
        return at;  // a flag
    for (; *at >= '0' && *at <= '9' && field->width < kWidestPlain; at++)
        field->width = field->width * 10 + (*at - '0');
    if (*at != 'l')
        return at;
    field->isLong = true;
    return at[1] == 'l' ? at + 2 : at + 1;
}

// Puts blanks beside a text, whose length is known, while `put` puts the text itself.
template <class Put>
static inline char *PutPadded(char *to, const PlainField &field, int length, Put put)
{
    const size_t blanks = static_cast<size_t>(field.width > length ? field.width - length : 0);
    if (field.isLeft)
        return PutRepeated(put(to), ' ', blanks);
    return put(PutRepeated(to, ' ', blanks));
}

static inline char *PutSigned(char *to, const PlainField &field, int64_t value)
{
    const uint64_t bits = static_cast<uint64_t>(value);
    const uint64_t magnitude = value < 0 ? 0 - bits : bits;
    const int count = magnitude < 10 ? 1 : CountDecimal(magnitude);
    const int length = value < 0 ? count + 1 : count;
    return PutPadded(to, field, length, [=](char *at) {
        *at = '-';
        return PutDecimal(at + (length - count), magnitude, count);
    });
}

static inline const char *TakeString(Arguments *arguments)
{
    const char *text = va_arg(arguments->list, const char *);
    return text != nullptr ? text : STR_NULL_STRING;
}

// Puts a string in its field; null when it does not fit, and was not taken.
static inline char *PutFieldString(char *to, ptrdiff_t room, const PlainField &field,
                                   Arguments *arguments)
{
    Arguments before;
    va_copy(before.list, arguments->list);
    const char *text = TakeString(arguments);
    const size_t length = strlen(text);
    const bool fits = static_cast<ptrdiff_t>(length) <= room;
    if (!fits) {
        va_end(arguments->list);
        va_copy(arguments->list, before.list);
    }
    va_end(before.list);
    if (!fits)
        return nullptr;
    return PutPadded(to, field, static_cast<int>(length),
                     [=](char *at) { return PutCharacters(at, text, length); });
}

// Puts a 'd' or an 's' with a field.
[[gnu::noinline]] static Place PutField(Place at, const char *end, Arguments *arguments)
{
    PlainField field;
    const char *conversion = ReadPlainField(at.next + 1, &field);
    const ptrdiff_t room = end - at.to - 1;
    char *to = nullptr;
    if (room < field.width)
        return kNotPlain;
    if (*conversion == 's' && !field.isLong) {
        to = PutFieldString(at.to, room, field, arguments);
    } else if (*conversion == 'd') {
        const int64_t value =
            field.isLong ? va_arg(arguments->list, int64_t) : va_arg(arguments->list, int);
        to = PutSigned(at.to, field, value);
    }
    return to != nullptr ? Place{conversion + 1, to} : kNotPlain;
}

// ---- Floating values ----

static inline bool IsFloating(char conversion)
{
    const unsigned letter = static_cast<unsigned>(conversion | 0x20) - 'e';
    return letter <= 'g' - 'e';
}

// Puts "%f", "%e" or "%g", of either case, where there is room for kFloatRoom bytes. Returns how
// many it took, or what the platform returned where that is negative.
[[gnu::noinline]] static int PutFloat(char *to, char conversion, double value)
{
    // As it is written, from a table: bytes that were stored just now are slow to read as a whole.
    static constexpr char kSubFormats[2][3][3] = {{"%E", "%F", "%G"}, {"%e", "%f", "%g"}};
    constexpr unsigned kCaseShift = 5;  // the cases of a letter lie 32 apart
    const unsigned letter = static_cast<unsigned>(conversion) - 'E';
    const char *subFormat = kSubFormats[letter >> kCaseShift][letter % (1U << kCaseShift)];
    char text[kTextSize];
    const int savedErrno = errno;
    const int length = indirectSprintf(text, subFormat, value);
    errno = savedErrno;
    if (length > kFloatRoom)
        return 0;
    if (length >= 0)
        PutCharacters(to, text, static_cast<size_t>(length));
    return length;
}

// ---- All of them ----

// Puts "%ld", "%lld", "%x" and what has a field.
[[gnu::noinline]] static Place PutOther(Place at, const char *end, Arguments *arguments)
{
    const char first = at.next[1];
    if (const char *after = EndOfPlainLong(at.next); after != nullptr)
        return {after, PutLong(at.to, va_arg(arguments->list, int64_t))};
    if (first == 'x')
        return {at.next + 2, PutHexadecimal(at.to, va_arg(arguments->list, unsigned))};
    if (first == '-' || first == 'l' || (first >= '1' && first <= '9'))
        return PutField(at, end, arguments);
    return kNotPlain;
}

static inline size_t LengthOfLiterals(const char *text)
{
    const char *percent = strchr(text, '%');
    return percent != nullptr ? static_cast<size_t>(percent - text) : strlen(text);
}

// Puts text and the directives of the common kind, up to the first piece that is not plain or finds
// no room before `end`, where a terminator has room too. There are kPlainRoom bytes at least at
// first, and only what surely needs no more of them is put without a look at the room. No marker is
// set.
[[gnu::always_inline]] static inline Stop PutPlainPieces(const char *next, char *to,
                                                         const char *end, Arguments *arguments)
{
    const char *const last = end - kPlainRoom;
    do {
        if (*next != '%') {
            int run = 0;
            for (; run < kShortRun && next[run] != '%' && next[run] != '\0'; run++)
                to[run] = next[run];
            to += run;
            next += run;
            if (*next == '\0')
                break;
        }
        if (*next != '%') {
            const size_t length = LengthOfLiterals(next);
            if (static_cast<ptrdiff_t>(length) >= end - to)
                break;
            to = PutCharacters(to, next, length);
            next += length;
            if (*next == '\0')
                break;
        } else if (next[1] == 'd') {
            to = PutInt(to, va_arg(arguments->list, int));
            next += 2;
        } else if (next[1] == 's') {
            const char *text = TakeString(arguments);
            const size_t length = strlen(text);
            next += 2;
            if (static_cast<ptrdiff_t>(length) >= end - to)
                return {.at = {next, to}, .text = text};
            to = PutCharacters(to, text, length);
        } else if (IsFloating(next[1]) && end - to > kFloatRoom) {
            const int length = PutFloat(to, next[1], va_arg(arguments->list, double));
            next += 2;
            if (length < 0)
                return {.at = {next, to}, .lowered = length};
            to += length;
        } else {
            const Place after = PutOther({next, to}, end, arguments);
            if (after.next == nullptr)
                break;
            next = after.next;
            to = after.to;
        }
    } while (to <= last);
    return {.at = {next, to}, .isDone = *next == '\0'};
}

// ---- Writing ----

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

// Accounts for the plain pieces, and writes what did not fit as far as it goes.
static void GoOn(Call<char> *call, const Stop &stop)
{
    const int written = static_cast<int>(stop.at.to - call->stream->cur);
    Settle<char>(call->stream, written, written, &call->charsOut);
    call->charsOut += stop.lowered;
    call->next = stop.at.next;
    if (stop.text != nullptr)
        WriteString(stop.text, static_cast<int>(strnlen(stop.text, INT_MAX)), call->stream,
                    &call->charsOut);
    else if (*call->next != '%' && call->charsOut >= 0)
        WriteLiterals(call);
}

// Writes text and plain directives up to what needs the machine.
[[gnu::noinline]] static void WritePlainPieces(Call<char> *call)
{
    const OutputStream *stream = call->stream;
    if (stream->count < kPlainRoom || call->widthFromArgs || call->precisionFromArgs) {
        WriteLiterals(call);
        return;
    }
    GoOn(call,
         PutPlainPieces(call->next, stream->cur, stream->cur + stream->count, call->arguments));
}

static void WritePlainPieces(Call<wchar_t> *call)
{
    WriteLiterals(call);
}

#endif
