// What one call of formatted input knows, and the fields that its conversions read.
//
// A field counts its width and ends where the input does. Fields of strings are read by pointer,
// all others a character at a time; where the two differ there is a pair of overloads.
#ifndef TAMRIK_INPUT_FIELDS_H
#define TAMRIK_INPUT_FIELDS_H

#include "tamrik/input_float_text.h"
#include "tamrik/input_reader.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>

// ---- The engine's state ----

// What lives as long as the call.
template <class Char>
struct Scan {
    Reader reader;
    va_list arguments;
    int64_t charsOfStream;  // read from a source that is no string
    int assigned;
    bool hasSkipped;  // a suppressed conversion has been completed
    bool isAtEnd;     // a read has met the end of the input
    FloatText number;
};

// How a conversion or a literal ended. All but the first end the scan.
enum Outcome { kDone, kNoMatch, kInputEnd, kBadParameter };

enum IntegerSize : unsigned char { kIntSize, kCharSize, kShortSize, kLongSize, k64BitSize };

// The members of a "%[" set, as they are written in the format.
template <class Char>
struct Set {
    const Char *begin;
    const Char *end;
    bool isNegated;
    unsigned char has[UCHAR_MAX + 1];  // which of the lowest characters match; see ListMembers
};

// What a character after a '%' does: it is a conversion (of a number, of text, any other), or says
// more about the one that follows.
enum Role : unsigned char {
    kNone,
    kInteger,
    kFloat,
    kWord,
    kSet,
    kCharacters,
    kCapitalText,
    kPosition,
    kPercent,
    kStar,
    kWidth,
    kSizeLetter
};

struct Letter {
    Role role;
    unsigned char base;  // of an integer, 0 where its digits tell
    bool isSigned;
};

static constexpr int64_t kAnyWidth = INT64_MAX;  // wider than any field

// What follows one '%'.
struct Directive {
    Unit type;             // 's' for 'S' and 'c' for 'C'
    const Letter *letter;  // what the type is
    void *dest;            // unless it is suppressed
    int64_t width;         // kAnyWidth when none is written
    int wideLetters;       // 'l' and 'w' less 'h'; text is wide when it is positive
    IntegerSize size;
    bool isSuppressed;
    bool isLongDouble;
};

// Where a string-like conversion stores, in characters of its destination.
struct Text {
    bool isWide;
    bool isStored;
    char *dest;
    size_t size;  // for ReadText what the field itself may take, its terminator left out
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

template <class Char>
static inline int64_t CharsRead(const Scan<Char> &scan)
{
    const ptrdiff_t bytes = scan.reader.at - scan.reader.begin;
    return scan.charsOfStream + bytes / static_cast<ptrdiff_t>(sizeof(Char));
}

template <class Char>
static inline bool IsFromString(const Scan<Char> *scan)
{
    return scan->reader.begin != nullptr;
}

template <class Char>
static inline Unit CountRead(Scan<Char> *scan, Unit ch)
{
    if (ch < 0)
        scan->isAtEnd = true;
    else if (!IsFromString(scan))
        scan->charsOfStream++;
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

static inline int64_t Least(int64_t a, int64_t b)
{
    return a < b ? a : b;
}

// A field of a number while it is read.
template <class Char>
struct Field {
    Scan<Char> *scan;
    int64_t left;        // how many characters more it may have
    Unit ch;             // the next character, kEnd or kFieldEnd
    bool isOutOfMemory;  // a float's text could not grow: the field ends there
};

// The same in a narrow string, where the next character is the one at `at`. As long as the field is
// open it has the string's place for itself, so that the compiler can keep that in a register.
struct StringField {
    Scan<char> *scan;
    const char *at;
    const char *end;  // where the field's width or the string ends
    Unit ch;          // kFieldEnd at the end
    bool isOutOfMemory;
    bool isToEnd;  // the string ends before the field is full
};

template <class Char>
static inline void Advance(Field<Char> *field)
{
    field->ch = field->left == 0 ? kFieldEnd : Next(field->scan);
    field->left -= field->left == 0 ? 0 : 1;
}

static inline void LookAt(StringField *field, const char *at)
{
    field->at = at;
    field->ch = at != field->end ? AsUnit(*at) : kFieldEnd;
}

static inline void Advance(StringField *field)
{
    LookAt(field, field->at + 1);
}

// Ends the field after the character that was the next.
template <class Char>
static inline void EndAfterNext(Field<Char> *field)
{
    field->left = 0;
    field->ch = kFieldEnd;
}

static inline void EndAfterNext(StringField *field)
{
    field->end = field->at + 1;
    field->isToEnd = false;
    Advance(field);
}

template <class Char>
static inline void LeaveField(const Field<Char> &field)
{
    GiveBack(field.scan, field.ch);
}

static inline void LeaveField(const StringField &field)
{
    field.scan->reader.at = field.at;
    if (field.at == field.end && field.isToEnd)
        field.scan->isAtEnd = true;
}

template <class Char>
static inline Field<Char> EnterField(Scan<Char> *scan, const Directive &directive)
{
    Field<Char> field = {scan, directive.width, kEnd, false};
    Advance(&field);
    return field;
}

// There must be a character left, and width for it.
static inline StringField EnterStringField(Scan<char> *scan, const Directive &directive)
{
    const char *at = scan->reader.at;
    const int64_t there = scan->reader.end - at;
    return {.scan = scan,
            .at = at,
            .end = at + Least(there, directive.width),
            .ch = AsUnit(*at),
            .isOutOfMemory = false,
            .isToEnd = there < directive.width};
}

template <class Char, class Read>
[[gnu::noinline]] static Outcome ReadFieldSingly(Scan<Char> *scan, const Directive &directive,
                                                 Read read)
{
    Field<Char> field = EnterField(scan, directive);
    return read(&field, directive);
}

// Reads a number's field with read(), which takes either kind of field.
template <class Read>
static inline Outcome ReadField(Scan<char> *scan, const Directive &directive, Read read)
{
    if (scan->reader.at == scan->reader.end)  // always so when the source is no string
        return ReadFieldSingly(scan, directive, read);
    StringField field = EnterStringField(scan, directive);
    return read(&field, directive);
}

template <class Read>
static inline Outcome ReadField(Scan<wchar_t> *scan, const Directive &directive, Read read)
{
    return ReadFieldSingly(scan, directive, read);
}

// Skips blanks one by one, up to the end of the input.
template <class Char>
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
    for (const char *at = reader->at; at != reader->end; at++) {
        const Unit ch = AsUnit(*at);
        if (IsPrinting(ch)) {
            reader->at = at;
            return;
        }
        if (!IsPlainSpace(ch))
            break;
    }
    // From the first blank again: whatever is no plain one, or the end.
    SkipBlanksSingly(scan);
}

static inline void SkipBlanks(Scan<wchar_t> *scan)
{
    SkipBlanksSingly(scan);
}

// How a field without a character ends: by a width of 0, or the input's end.
template <class Char>
[[gnu::noinline]] static Outcome EndEmptyField(Scan<Char> *scan)
{
    const Unit ch = Next(scan);
    GiveBack(scan, ch);
    return ch == kEnd ? kInputEnd : kNoMatch;
}

#endif
