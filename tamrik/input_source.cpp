// input_source.cpp - the sources of formatted input: a string, a file that is read in blocks, and
// standard input, by single characters.
//
// All state is the caller's InputSource. What surprises: a stream that cannot tell its position is
// read by single characters too, as nothing else could be given back to it.
#include "tamrik/input_source.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

static constexpr size_t kFileBlockSize = 1024;     // bytes that are read from a file at once
static constexpr int kMostConsumed = INT_MAX / 2;  // beyond it consumed starts again
static constexpr char kByteOrderMark[] = {'\xEF', '\xBB', '\xBF'};
static constexpr size_t kMarkSize = sizeof kByteOrderMark;

// ---- Reading ----

// The first bytes of a stream without a position: a single one, unless a byte-order mark begins
// there.
static size_t ReadFirstSingly(InputSource *source)
{
    size_t got = fread(source->base, 1, 1, source->stream);
    while (got > 0 && got < kMarkSize && source->base[got - 1] == kByteOrderMark[got - 1]) {
        if (fread(source->base + got, 1, 1, source->stream) == 0)
            break;
        got++;
    }
    return got;
}

// Fills the buffer of a file source again. A stream that cannot tell its position cannot be set
// back to it either: from such a stream no more is taken than ungetc can give back. A byte-order
// mark is one at the beginning alone: at position 0, or where a stream without a position is read
// first.
static bool LoadBlock(InputSource *source)
{
    if (source->stream == nullptr)
        return false;
    if (source->base == nullptr) {
        source->base = static_cast<char *>(malloc(kFileBlockSize + 1));
        if (source->base == nullptr)
            return false;
        source->base[kFileBlockSize] = '\0';
        source->cur = source->base;
    }
    const bool isFirst = (source->kind & kLoaded) == 0;
    const long offset = isFirst ? ftell(source->stream) : source->startOffset;
    const bool wasRead =
        source->startOffset < 0;  // a stream without a position, by an earlier scan
    const bool isBeginning = isFirst && (offset == 0 || (offset < 0 && !wasRead));
    size_t got = 0;
    if (offset >= 0)
        got = fread(source->base, 1, kFileBlockSize, source->stream);
    else if (isBeginning)
        got = ReadFirstSingly(source);
    else
        got = fread(source->base, 1, 1, source->stream);
    if (got == 0 || got > kFileBlockSize)
        return false;

    if (isFirst) {
        source->startOffset = offset;
        source->consumed = 0;
    } else if (source->consumed > kMostConsumed && offset >= 0) {
        source->startOffset += source->consumed;
        source->consumed = 0;
    }
    source->kind |= kLoaded;
    source->cur = source->base;
    source->count = static_cast<int>(got);
    if (isBeginning && got >= kMarkSize && memcmp(source->base, kByteOrderMark, kMarkSize) == 0) {
        source->kind |= kMarkSkipped;
        source->cur += kMarkSize;
        source->count -= static_cast<int>(kMarkSize);
    }
    return true;
}

static int NextOfStandardInput(InputSource *source)
{
    if (source->pushbackValid) {
        source->pushbackValid = 0;
        return source->pushback;
    }
    source->pushback = fgetc(stdin);
    return source->pushback;
}

int _inc(InputSource *source)
{
    const int savedErrno = errno;
    if (source->kind & kStandardInput) {
        const int ch = NextOfStandardInput(source);
        errno = savedErrno;
        return ch;
    }
    // The first block may hold nothing but the mark.
    while ((source->kind & kFile) && source->count <= 0) {
        const bool isLoaded = LoadBlock(source);
        errno = savedErrno;
        if (!isLoaded)
            return EOF;
    }

    const bool isThere = source->count > 0;
    if (source->count > INT_MIN)
        source->count--;
    if (!isThere) {
        // Intended: beyond the end of a string both fields go on; no byte is looked at there.
        if (source->cur != nullptr)
            source->cur++;
        return EOF;
    }
    if (source->kind & kFile)
        source->consumed++;
    return static_cast<unsigned char>(*source->cur++);
}

void _un_inc(int ch, InputSource *source)
{
    if (ch == EOF)
        return;
    if (source->kind & kStandardInput) {
        source->pushback = ch;
        source->pushbackValid = 1;
        return;
    }
    if (source->cur != source->base && source->count < INT_MAX) {
        source->cur--;
        source->count++;
    }
    if (source->kind & kFile)
        source->consumed--;
}

int _whiteout(int *counter, InputSource *source)
{
    int ch = EOF;
    do {
        ch = _inc(source);
        if (ch != EOF && *counter < INT_MAX)
            (*counter)++;
    } while (ch != EOF && isspace(ch));
    return ch;
}

wint_t tamrik_next_wide(InputSource *source)
{
    if (source->pushbackValid) {
        source->pushbackValid = 0;
        return static_cast<wint_t>(source->pushback);
    }
    const wint_t wide = fgetwc(stdin);
    source->pushback = static_cast<int>(wide);
    return wide;
}

// ---- The end of a scan ----

// The last byte goes first, so that the first is the next to be read.
static void UngetBytes(const char *bytes, int count, FILE *stream)
{
    while (count > 0)
        ungetc(static_cast<unsigned char>(bytes[--count]), stream);
}

// Gives the bytes that were read ahead back to the file, and frees the buffer. The fields that tell
// what was read stay; the next scan from the source begins at the file's position.
static void LeaveFile(InputSource *source, const char *waiting, int count)
{
    if (source->kind & kLoaded) {
        const bool isExhausted = source->count <= 0 && count == 0;
        source->consumed -= count;
        if (source->startOffset < 0) {
            UngetBytes(source->cur, source->count, source->stream);
            UngetBytes(waiting, count, source->stream);
        } else if (!isExhausted || !feof(source->stream)) {
            const long mark = source->kind & kMarkSkipped ? static_cast<long>(kMarkSize) : 0;
            fseek(source->stream, source->startOffset + mark + source->consumed, SEEK_SET);
        }
    }
    free(source->base);
    source->base = nullptr;
    source->cur = nullptr;
    source->count = 0;
    source->kind &= ~(kLoaded | kMarkSkipped);
}

// What waits to be read again goes back to the stream, where any reader finds it.
static void LeaveStandardInput(InputSource *source, const char *waiting, int count, bool isWide)
{
    if (source->pushbackValid && isWide)
        ungetwc(static_cast<wint_t>(source->pushback), stdin);
    else if (source->pushbackValid)
        ungetc(source->pushback, stdin);
    source->pushbackValid = 0;
    UngetBytes(waiting, count, stdin);
}

void tamrik_leave_source(InputSource *source, const char *waiting, int count, bool isWide)
{
    if (source->kind & kStandardInput)
        LeaveStandardInput(source, waiting, count, isWide);
    else if (source->kind & kFile)
        LeaveFile(source, waiting, count);
}
