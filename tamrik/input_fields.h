// What one call of formatted input knows, and the fields that its conversions read.
//
// A field counts its width and ends where the input does. Fields of strings are read by pointer, all
// others a character at a time; where the two differ there is a pair of overloads. Part of input.cpp
// alone.
#ifndef TAMRIK_INPUT_FIELDS_H
#define TAMRIK_INPUT_FIELDS_H

#include "tamrik/input_reader.h"
#include "tamrik/tamrik.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>

// ---- The text of a floating-point field ----

static const size_t kFloatTextSize = 350;
static const size_t kLineSize = 64;  // of the processor's cache

// Through a volatile pointer the compiler cannot know that this is a store nobody reads.
static void Wipe(char *text, size_t size)
{
    void *(*const volatile fill)(void *, int, size_t) = memset;
    fill(text, 0, size);
}

struct FloatText {
    // At the start of a cache line it is wiped faster than across.
    alignas(kLineSize) char local[kFloatTextSize];
    int onHeap;
    char *text;
    size_t used;
    size_t size;
};

// There is always room for one character more; false when there could not be made any.
static inline bool Append(FloatText *number, char ch)
{
    number->text[number->used++] = ch;
    return number->used != number->size ||
           __check_float_string(number->used, &number->size, &number->text, number->local,
                                &number->onHeap);
}

static void WipeFloatText(FloatText *number)
{
    Wipe(number->local, sizeof number->local);
    if (number->onHeap) {
        Wipe(number->text, number->size);
        free(number->text);
    }
}

// ---- The engine's state ----

// What lives as long as the call.
template <typename Char>
struct Scan {
    Reader reader;
    va_list arguments;
    int64_t charsOfStream;  // read from a source that is no string
    int assigned;
    bool hasConverted;  // some conversion has been completed, a suppressed one included
    bool isAtEnd;       // a read has met the end of the input
    FloatText number;
};

// How a conversion or a literal ended. All but the first end the scan.
enum Outcome { kDone, kNoMatch, kInputEnd, kBadParameter };

enum IntegerSize { kCharSize, kShortSize, kIntSize, kLongSize, k64BitSize };

// The members of a "%[" set, as they stand in the format.
template <typename Char>
struct Set {
    const Char *begin;
    const Char *end;
    bool isNegated;
    uint64_t low[4];  // a bit for each character below 256 that matches
};

// What one '%' asks for.
template <typename Char>
struct Spec {
    Unit type;
    int width;
    bool hasWidth;
    bool isSuppressed;
    int wideLetters;  // 'l' and 'w' less 'h'
    IntegerSize size;
    bool isLongDouble;
    void *dest;
    Set<Char> set;
};

// Where a string-like conversion stores, in characters of its destination.
struct Text {
    bool isWide;
    bool isStored;
    char *dest;
    size_t size;  // what the field itself may take, its terminator left out
    size_t used;
};

// ---- Reading characters of the format's width ----

static inline Unit AsUnit(char ch)
{
    return static_cast<unsigned char>(ch);
}

static inline Unit AsUnit(wchar_t ch)
{
    return static_cast<Unit>(static_cast<wint_t>(ch));
}

template <typename Char>
static inline int64_t CharsRead(const Scan<Char> &scan)
{
    const ptrdiff_t bytes = scan.reader.at - scan.reader.begin;
    return scan.charsOfStream + bytes / static_cast<ptrdiff_t>(sizeof(Char));
}

template <typename Char>
static inline bool IsFromString(const Scan<Char> *scan)
{
    return scan->reader.begin != nullptr;
}

template <typename Char>
static inline Unit CountRead(Scan<Char> *scan, Unit ch)
{
    if (ch < 0)
        scan->isAtEnd = true;
    else if (!IsFromString(scan))
        ++scan->charsOfStream;
    return ch;
}

static inline Unit Next(Scan<char> *scan)
{
    Reader *reader = &scan->reader;
    if (reader->at != reader->end)
        return static_cast<unsigned char>(*reader->at++);
    return CountRead(scan, ReadByteOfStream(reader));
}

static inline Unit Next(Scan<wchar_t> *scan)
{
    const Unit ch = ReadWide(&scan->reader);
    return CountRead(scan, ch == kNoCharacter ? kEnd : ch);
}

static inline void GiveBack(Scan<char> *scan, Unit ch)
{
    if (ch < 0)
        return;
    UnreadByte(&scan->reader, ch);
    scan->charsOfStream -= IsFromString(scan) ? 0 : 1;
}

static inline void GiveBack(Scan<wchar_t> *scan, Unit ch)
{
    if (ch < 0)
        return;
    UnreadWide(&scan->reader, ch);
    scan->charsOfStream -= IsFromString(scan) ? 0 : 1;
}

// A field of a number while it is read.
template <typename Char>
struct Field {
    Scan<Char> *scan;
    int64_t left;        // how many characters more it may have
    Unit ch;             // the next character, kEnd or kFieldFull
    bool isOutOfMemory;  // a float's text could not grow: the field ends there
};

// The same in a narrow string, where the next character is the one at `at`. As long as the field is
// open it has the string's place for itself, so that the compiler can keep that in a register.
struct StringField {
    Scan<char> *scan;
    const char *at;
    const char *end;  // where the field's width or the string ends
    Unit ch;
    bool isOutOfMemory;
    Unit atEnd;  // what comes at the end: kEnd or kFieldFull
};

template <typename Char>
static inline void Advance(Field<Char> *field)
{
    field->ch = field->left == 0 ? kFieldFull : Next(field->scan);
    field->left -= field->left == 0 ? 0 : 1;
}

static inline void LookAt(StringField *field, const char *at)
{
    field->at = at;
    field->ch = at != field->end ? AsUnit(*at) : field->atEnd;
}

static inline void Advance(StringField *field)
{
    LookAt(field, field->at + 1);
}

// Ends the field behind the character that was the next.
template <typename Char>
static inline void EndBehind(Field<Char> *field)
{
    field->left = 0;
    field->ch = kFieldFull;
}

static inline void EndBehind(StringField *field)
{
    field->end = field->at + 1;
    field->atEnd = kFieldFull;
    Advance(field);
}

template <typename Char>
static inline void LeaveField(const Field<Char> &field)
{
    GiveBack(field.scan, field.ch);
}

static inline void LeaveField(const StringField &field)
{
    field.scan->reader.at = field.at;
    if (field.at == field.end && field.atEnd == kEnd)
        field.scan->isAtEnd = true;
}

template <typename Char>
static inline int64_t FieldWidth(const Spec<Char> &spec)
{
    return spec.hasWidth ? spec.width : INT64_MAX;
}

template <typename Char>
static inline Field<Char> EnterField(Scan<Char> *scan, const Spec<Char> &spec)
{
    Field<Char> field = {scan, FieldWidth(spec), kEnd, false};
    Advance(&field);
    return field;
}

static inline StringField EnterStringField(Scan<char> *scan, const Spec<char> &spec)
{
    const char *at = scan->reader.at;
    const int64_t there = scan->reader.end - at;
    const bool isCut = FieldWidth(spec) <= there;
    StringField field = {scan, at,    at + (isCut ? FieldWidth(spec) : there),
                         kEnd, false, isCut ? kFieldFull : kEnd};
    LookAt(&field, at);
    return field;
}

// Reads a number's field with read(), which takes either kind of field.
template <typename Read>
static inline Outcome ReadField(Scan<char> *scan, const Spec<char> &spec, Read read)
{
    if (IsFromString(scan)) {
        StringField field = EnterStringField(scan, spec);
        return read(&field);
    }
    Field<char> field = EnterField(scan, spec);
    return read(&field);
}

template <typename Read>
static inline Outcome ReadField(Scan<wchar_t> *scan, const Spec<wchar_t> &spec, Read read)
{
    Field<wchar_t> field = EnterField(scan, spec);
    return read(&field);
}

// Skips blanks one by one, up to the end of the input.
template <typename Char>
[[gnu::noinline]] static void SkipBlanksSingly(Scan<Char> *scan)
{
    Unit ch = Next(scan);
    while (IsSpace(Char{}, ch))
        ch = Next(scan);
    GiveBack(scan, ch);
}

static inline void SkipBlanks(Scan<char> *scan)
{
    Reader *reader = &scan->reader;
    while (reader->at != reader->end && IsSpace(char{}, AsUnit(*reader->at)))
        ++reader->at;
    if (reader->at == reader->end)
        SkipBlanksSingly(scan);
}

static inline void SkipBlanks(Scan<wchar_t> *scan)
{
    SkipBlanksSingly(scan);
}

// Copies up to most characters as long as they pass, from the one at count on; returns how many did.
template <typename Test>
static inline int64_t CopyWhile(char *dest, const char *at, int64_t count, int64_t most,
                                Test passes)
{
    for (; count < most && passes(AsUnit(at[count])); ++count)
        dest[count] = at[count];
    return count;
}

#endif
