// What a call of formatted output knows, and how text goes out: checked against the room that is
// left.
//
// A header, since the bounded calls and the conversions both have these few lines inline.
#ifndef TAMRIK_OUTPUT_WRITING_H
#define TAMRIK_OUTPUT_WRITING_H

#include "tamrik/small.h"
#include "tamrik/tamrik.h"

#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <string.h>

static constexpr int kTextSize = 512;      // the buffer that conversions are built in
static constexpr int kFloatPrecision = 6;  // where none is given
static constexpr int kDoubleExtra = 349;   // what a double may need beside its precision
static constexpr char STR_NULL_STRING[] = "(null)";

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
    // Intended: once set by a '*' these stay set in the directives that follow, until a digit of a
    // width or a precision clears them; a later floating conversion depends on it.
    bool widthFromArgs = false;
    bool precisionFromArgs = false;
    bool isShiftStateReset = false;
    int charsOut = 0;  // characters produced; negative once the call has failed
};

// Copies n characters and returns where they end.
template <class Char>
static char *PutCharacters(char *to, const Char *text, size_t n)
{
    const size_t size = n * sizeof(Char);
    if (size > kSmallCopy)
        memcpy(to, text, size);
    else
        CopySmall(to, text, size);
    return to + size;
}

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
    PutCharacters(stream->cur, text, static_cast<size_t>(fitting));
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

#endif
