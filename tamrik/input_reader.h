// The reader of formatted input: bytes and whole characters of a source, and what is given back.
//
// It knows sources and no formats. It hands out one character after the other and takes back what
// was read too far. A header, like those of the fields, the numbers and the text: inline in the
// engine they save it 4 % of its time.
#ifndef TAMRIK_INPUT_READER_H
#define TAMRIK_INPUT_READER_H

#include "tamrik/input_source.h"

#include <ctype.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wctype.h>

// A character of the input, or one of the three values below. It holds each wchar_t beside them.
using Unit = int64_t;
static constexpr Unit kEnd = EOF;
static constexpr Unit kFieldEnd = -2;     // the field ends here: by its width, or by its set
static constexpr Unit kNoCharacter = -3;  // the bytes are no character of the locale's encoding

// ---- The reader: bytes and characters of a source ----

// A string is read from at to end, and its source is told when the scan is over; for the other
// sources the three pointers are equal. Waiting are the bytes that were given back to a file or to
// standard input and are to be read again, the next one first. A scan gives back at most the
// character that it has just read, so they are never more than the bytes of one character.
struct Reader {
    InputSource *source;
    const char *begin;
    const char *at;
    const char *end;
    char waiting[MB_LEN_MAX];
    char last[MB_LEN_MAX];  // the bytes of the last whole character
    int waitingCount;
    int lastCount;
};

static int TakeWaiting(Reader *reader)
{
    const unsigned char byte = static_cast<unsigned char>(reader->waiting[0]);
    reader->waitingCount--;
    memmove(reader->waiting, reader->waiting + 1, static_cast<size_t>(reader->waitingCount));
    return byte;
}

// At the end of a string, or from a file or standard input.
[[gnu::noinline]] static int ReadByteOfStream(Reader *reader)
{
    if (IsPlainString(reader->source))
        return EOF;
    return reader->waitingCount > 0 ? TakeWaiting(reader) : _inc(reader->source);
}

static inline int ReadByte(Reader *reader)
{
    if (reader->at != reader->end)
        return static_cast<unsigned char>(*reader->at++);
    return ReadByteOfStream(reader);
}

// Gives back the last count bytes that were read.
static void UnreadBytes(Reader *reader, const char *bytes, int count)
{
    if (reader->at != reader->begin) {
        reader->at -= count;
        return;
    }
    const size_t size = static_cast<size_t>(count);
    memmove(reader->waiting + size, reader->waiting, static_cast<size_t>(reader->waitingCount));
    memcpy(reader->waiting, bytes, size);
    reader->waitingCount += count;
}

static inline void UnreadByte(Reader *reader, Unit ch)
{
    if (reader->at != reader->begin) {
        reader->at--;
        return;
    }
    const char byte = static_cast<char>(ch);
    UnreadBytes(reader, &byte, 1);
}

// The next byte, which stays the next, or kEnd.
static Unit PeekByte(Reader *reader)
{
    const int byte = ReadByte(reader);
    if (byte == EOF)
        return kEnd;
    UnreadByte(reader, byte);
    return byte;
}

// Reads one character of the locale's encoding; its bytes are then in reader->last. Bytes that are
// none are given back.
static Unit ReadCharacter(Reader *reader)
{
    mbstate_t state = {};
    reader->lastCount = 0;
    while (reader->lastCount < static_cast<int>(sizeof reader->last)) {
        const int byte = ReadByte(reader);
        if (byte == EOF && reader->lastCount == 0)
            return kEnd;
        if (byte == EOF)
            break;
        char *place = reader->last + reader->lastCount++;
        *place = static_cast<char>(byte);
        wchar_t wide = L'\0';
        const size_t length = mbrtowc(&wide, place, 1, &state);
        if (length <= 1)
            return static_cast<Unit>(static_cast<wint_t>(wide));
        if (length != static_cast<size_t>(-2))
            break;
    }
    UnreadBytes(reader, reader->last, reader->lastCount);
    return kNoCharacter;
}

static void UnreadCharacter(Reader *reader)
{
    UnreadBytes(reader, reader->last, reader->lastCount);
}

// Wide characters of a string stand in it as they are; those of standard input come through fgetwc;
// a file holds multibyte text.
static Unit ReadWide(Reader *reader)
{
    InputSource *source = reader->source;
    if (source->kind & kStandardInput) {
        const wint_t wide = tamrik_next_wide(source);
        return wide == WEOF ? kEnd : static_cast<Unit>(wide);
    }
    if (source->kind & kFile)
        return ReadCharacter(reader);

    wchar_t wide = L'\0';
    if (reader->end - reader->at < static_cast<ptrdiff_t>(sizeof wide))
        return kEnd;
    memcpy(&wide, reader->at, sizeof wide);
    reader->at += sizeof wide;
    return static_cast<Unit>(static_cast<wint_t>(wide));
}

static void UnreadWide(Reader *reader, Unit ch)
{
    InputSource *source = reader->source;
    if (source->kind & kStandardInput) {
        _un_inc(static_cast<int>(ch), source);
    } else if (source->kind & kFile) {
        UnreadCharacter(reader);
    } else {
        reader->at -= sizeof(wchar_t);
    }
}

static inline void EnterSource(Reader *reader, InputSource *source)
{
    const bool isString = IsPlainString(source) && source->count > 0;
    reader->source = source;
    reader->begin = isString ? source->cur : nullptr;
    reader->at = reader->begin;
    reader->end = isString ? source->cur + source->count : nullptr;
    reader->waitingCount = 0;
    reader->lastCount = 0;
}

static inline void LeaveSource(Reader *reader, bool isWide)
{
    InputSource *source = reader->source;
    if (reader->begin == nullptr) {
        tamrik_leave_source(source, reader->waiting, reader->waitingCount, isWide);
        return;
    }
    source->cur = reader->at;
    source->count -= static_cast<int>(reader->at - reader->begin);
}

// ---- White space ----

// Characters that print are no white space in any locale, and the six of C are it in every one,
// which spares asking for nearly all.
static inline bool IsPrinting(Unit ch)
{
    return ch > ' ' && ch <= '~';
}

static inline bool IsPlainSpace(Unit ch)
{
    return ch <= ' ' && (ch == ' ' || (ch >= '\t' && ch <= '\r'));
}

static inline bool IsSpace(char /*tag*/, Unit ch)
{
    if (IsPrinting(ch) || ch < 0)
        return false;
    return IsPlainSpace(ch) || isspace(static_cast<int>(ch));
}

static inline bool IsSpace(wchar_t /*tag*/, Unit ch)
{
    if (IsPrinting(ch) || ch < 0)
        return false;
    return IsPlainSpace(ch) || iswspace(static_cast<wint_t>(ch));
}

#endif
