// The bounded scanf engine, for narrow and for wide formats, and the sources it reads from.
//
// Three layers, each of which knows nothing of the one above it: the source (a string, a file read
// in blocks, or standard input), whose state is the caller's InputSource; the reader, which hands out
// bytes and whole characters of a source and takes back what was read too far; and the engine, one
// template over the character type of the format. Where the two widths differ there is a pair of
// overloads. There is no state beside the source: all else lives in a Scan on the stack of the call.
// What surprises: wide formats read wide characters from strings alone; files hold multibyte text.
#include "tamrik/tamrik.h"

#include <ctype.h>
#include <langinfo.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wctype.h>

// The bits of InputSource.kind.
enum SourceKind {
    kString = 0x1,
    kFile = 0x2,
    kStandardInput = 0x4,
    kLoaded = 0x8,        // a block of the file has been read
    kMarkSkipped = 0x10,  // the file began with a byte-order mark
};

static const size_t kBlockSize = 1024;
static const char kByteOrderMark[] = {'\xEF', '\xBB', '\xBF'};
static const size_t kMarkSize = sizeof kByteOrderMark;
static const int kMostConsumed = INT_MAX / 2;

static const size_t kFloatTextSize = 350;
static const size_t kLineSize = 64;  // of the processor's cache
static const size_t kLargestHeapText = 0x7FFFFFFF;
static const unsigned int kLargestNarrowSize = 0x7FFFFFFF;
static const unsigned int kLargestWideSize = 0x1FFFFFFF;

static const int kBadParameterResult = -2;

// A character of the input, or one of the three values below. It holds each wchar_t beside them.
using Unit = int64_t;
static const Unit kEnd = EOF;
static const Unit kFieldFull = -2;    // the field's width is used up
static const Unit kNoCharacter = -3;  // the bytes are no character of the locale's encoding

// ---- Sources ----

// The first bytes of a stream without a position: a single one, unless a byte-order mark begins there.
static size_t ReadFirstSingly(InputSource *source)
{
    size_t got = fread(source->base, 1, 1, source->stream);
    while (got > 0 && got < kMarkSize && source->base[got - 1] == kByteOrderMark[got - 1]) {
        if (fread(source->base + got, 1, 1, source->stream) == 0)
            break;
        ++got;
    }
    return got;
}

// Fills the buffer of a file source anew. A stream that cannot tell its position cannot be set back
// to it either: of such a one no more is taken than can be given back with ungetc.
static bool LoadBlock(InputSource *source)
{
    if (source->stream == nullptr)
        return false;
    if (source->base == nullptr) {
        source->base = static_cast<char *>(malloc(kBlockSize + 1));
        if (source->base == nullptr)
            return false;
        source->base[kBlockSize] = '\0';
        source->cur = source->base;
    }
    const bool isFirst = (source->kind & kLoaded) == 0;
    if (isFirst) {
        source->startOffset = ftell(source->stream);
        source->consumed = 0;
    }
    if (source->consumed > kMostConsumed && source->startOffset >= 0) {
        source->startOffset += source->consumed;
        source->consumed = 0;
    }

    size_t got = 0;
    if (source->startOffset >= 0)
        got = fread(source->base, 1, kBlockSize, source->stream);
    else if (isFirst)
        got = ReadFirstSingly(source);
    else
        got = fread(source->base, 1, 1, source->stream);
    if (got == 0 || got > kBlockSize)
        return false;

    source->kind |= kLoaded;
    source->cur = source->base;
    source->count = static_cast<int>(got);
    if (isFirst && got >= kMarkSize && memcmp(source->base, kByteOrderMark, kMarkSize) == 0) {
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
        --source->count;
    if (!isThere) {
        // Intended: beyond the end of a string both fields go on; no byte is looked at there.
        if (source->cur != nullptr)
            ++source->cur;
        return EOF;
    }
    if (source->kind & kFile)
        ++source->consumed;
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
        --source->cur;
        ++source->count;
    }
    if (source->kind & kFile)
        --source->consumed;
}

// ---- The reader: bytes and characters of a source ----

// A string is read from at to end, and its source is told when the scan is over; for the other sources
// the three pointers are equal. What waits are bytes that were given back to a file or to standard
// input and are to be read again, the next one first. A scan gives back at most the character that it
// has just read, so they never are more than one character has.
struct Reader {
    InputSource *source;
    const char *begin;
    const char *at;
    const char *end;
    char waiting[MB_LEN_MAX];
    int waitingCount;
    char last[MB_LEN_MAX];  // the bytes of the last whole character
    int lastCount;
};

static inline bool IsPlainString(const InputSource *source)
{
    return (source->kind & (kFile | kStandardInput)) == 0;
}

static int TakeWaiting(Reader *reader)
{
    const unsigned char byte = static_cast<unsigned char>(reader->waiting[0]);
    --reader->waitingCount;
    memmove(reader->waiting, reader->waiting + 1, static_cast<size_t>(reader->waitingCount));
    return byte;
}

// At the end of a string, or from a source that is none.
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
        --reader->at;
        return;
    }
    const char byte = static_cast<char>(ch);
    UnreadBytes(reader, &byte, 1);
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
        if (source->pushbackValid) {
            source->pushbackValid = 0;
            return static_cast<Unit>(static_cast<wint_t>(source->pushback));
        }
        const wint_t wide = fgetwc(stdin);
        source->pushback = static_cast<int>(wide);
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

// The last byte goes first, so that the first is the next to be read.
static void UngetBytes(const char *bytes, int count, FILE *stream)
{
    while (count > 0)
        ungetc(static_cast<unsigned char>(bytes[--count]), stream);
}

// Gives the bytes that were read ahead back to the file, and frees the buffer. The fields that tell
// what was read stay; the next scan from the source begins anew where the file then stands.
static void LeaveFile(Reader *reader)
{
    InputSource *source = reader->source;
    if (source->kind & kLoaded) {
        const bool isExhausted = source->count <= 0 && reader->waitingCount == 0;
        if (source->startOffset < 0) {
            UngetBytes(source->cur, source->count, source->stream);
            UngetBytes(reader->waiting, reader->waitingCount, source->stream);
        } else if (!isExhausted || !feof(source->stream)) {
            const long mark = source->kind & kMarkSkipped ? static_cast<long>(kMarkSize) : 0;
            const long used = static_cast<long>(source->consumed) - reader->waitingCount;
            fseek(source->stream, source->startOffset + mark + used, SEEK_SET);
        }
    }
    free(source->base);
    source->base = nullptr;
    source->cur = nullptr;
    source->count = 0;
    source->kind &= ~(kLoaded | kMarkSkipped);
}

// What waits to be read again goes back to the stream, where any reader finds it.
static void LeaveStandardInput(Reader *reader, bool isWide)
{
    InputSource *source = reader->source;
    if (source->pushbackValid && isWide)
        ungetwc(static_cast<wint_t>(source->pushback), stdin);
    else if (source->pushbackValid)
        ungetc(source->pushback, stdin);
    source->pushbackValid = 0;
    UngetBytes(reader->waiting, reader->waitingCount, stdin);
}

static void EnterSource(Reader *reader, InputSource *source)
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
    if (reader->begin != nullptr) {
        source->cur = reader->at;
        source->count -= static_cast<int>(reader->at - reader->begin);
    } else if (source->kind & kStandardInput) {
        LeaveStandardInput(reader, isWide);
    } else if (source->kind & kFile) {
        LeaveFile(reader);
    }
}

static bool IsUsable(const InputSource *source)
{
    if (source == nullptr)
        return false;
    if (source->kind & kStandardInput)
        return true;
    if (source->kind & kFile)
        return source->stream != nullptr;
    return (source->kind & kString) && (source->cur != nullptr || source->count <= 0);
}

// ---- White space ----

// Characters that print are no white space in any locale, and the six of C are it in every one, which
// spares asking for nearly all.
static inline bool IsPrinting(Unit ch)
{
    return ch > ' ' && ch <= '~';
}

static inline bool IsPlainSpace(Unit ch)
{
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
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

int _whiteout(int *counter, InputSource *source)
{
    int ch = EOF;
    do {
        ch = _inc(source);
        if (ch != EOF && *counter < INT_MAX)
            ++*counter;
    } while (IsSpace(char{}, ch));
    return ch;
}

// ---- The text of a floating-point field ----

// Through a volatile pointer the compiler cannot know that this is a store nobody reads.
static void Wipe(char *text, size_t size)
{
    void *(*const volatile fill)(void *, int, size_t) = memset;
    fill(text, 0, size);
}

int __check_float_string(size_t used, size_t *size, char **buffer, char *localBuffer, int *onHeap)
{
    if (used != *size)
        return 1;
    if (*size > kLargestHeapText / 2)
        return 0;
    // Volatile, as the compiler may believe that malloc leaves errno alone.
    const volatile int savedErrno = errno;
    char *larger = static_cast<char *>(malloc(*size * 2));
    errno = savedErrno;
    if (larger == nullptr)
        return 0;

    memset(larger + *size, 0, *size);
    if (*onHeap) {
        memcpy(larger, *buffer, *size);
        Wipe(*buffer, *size);
        free(*buffer);
    } else {
        memcpy(larger, localBuffer, *size);
        *onHeap = 1;
    }
    *buffer = larger;
    *size *= 2;
    return 1;
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

// ---- Literal text ----

// How many bytes the character at text has: 1 also for bytes that are none.
static int CharacterLength(const char *text)
{
    if (static_cast<unsigned char>(*text) < 0x80)
        return 1;
    mbstate_t state = {};
    const size_t length = mbrlen(text, strnlen(text, MB_CUR_MAX), &state);
    return length >= 1 && length <= MB_LEN_MAX ? static_cast<int>(length) : 1;
}

// A character of several bytes matches as a whole: where a later byte differs, the earlier ones are
// given back with it.
static Outcome MatchLiteral(Scan<char> *scan, const char **format)
{
    const int length = CharacterLength(*format);
    for (int matched = 0; matched < length; ++matched) {
        const Unit ch = Next(scan);
        if (ch == static_cast<unsigned char>((*format)[matched]))
            continue;
        GiveBack(scan, ch);
        UnreadBytes(&scan->reader, *format, matched);
        return ch == kEnd ? kInputEnd : kNoMatch;
    }
    *format += length;
    return kDone;
}

static Outcome MatchLiteral(Scan<wchar_t> *scan, const wchar_t **format)
{
    const Unit ch = Next(scan);
    if (ch != static_cast<Unit>(static_cast<wint_t>(**format))) {
        GiveBack(scan, ch);
        return ch == kEnd ? kInputEnd : kNoMatch;
    }
    ++*format;
    return kDone;
}

// ---- Sets ----

// Finds the ']' that closes the set whose '[' stands just before text; null when there is none. One
// that comes first, behind the '^' if there is one, is a member.
template <typename Char>
static const Char *EndOfSet(const Char *text)
{
    if (*text == '^')
        ++text;
    if (*text == ']')
        ++text;
    while (*text != '\0' && *text != ']')
        ++text;
    return *text == ']' ? text : nullptr;
}

// The next members, low to high, at *text. A '-' between two of which the second is not the smaller
// makes a range, and the end of one range can begin another; any other '-' is a member itself.
template <typename Char>
static void NextMembers(const Char **text, const Char *end, Unit *low, Unit *high)
{
    *low = AsUnit(*(*text)++);
    *high = *low;
    if (end - *text < 2 || **text != '-' || AsUnit((*text)[1]) < *low)
        return;
    *high = AsUnit((*text)[1]);
    ++*text;
}

static const Unit kLowest = 256;  // the first character that the bits do not tell

static void AddLow(uint64_t *bits, Unit low, Unit high)
{
    for (Unit word = low / 64; word <= high / 64; ++word) {
        const Unit first = low > word * 64 ? low - word * 64 : 0;
        const Unit last = high < word * 64 + 63 ? high - word * 64 : 63;
        bits[word] |= (UINT64_MAX >> (63 - last)) & (UINT64_MAX << first);
    }
}

// Reads the set whose '[' stands at *format, and leaves *format at its ']'.
template <typename Char>
static bool ReadSet(const Char **format, Set<Char> *set)
{
    set->begin = *format + 1;
    set->end = EndOfSet(set->begin);
    if (set->end == nullptr)
        return false;
    *format = set->end;
    set->isNegated = *set->begin == '^';
    if (set->isNegated)
        ++set->begin;

    memset(set->low, 0, sizeof set->low);
    for (const Char *at = set->begin; at < set->end;) {
        Unit low = 0;
        Unit high = 0;
        NextMembers(&at, set->end, &low, &high);
        if (low < kLowest)
            AddLow(set->low, low, high < kLowest ? high : kLowest - 1);
    }
    for (uint64_t &word : set->low)
        word = set->isNegated ? ~word : word;
    return true;
}

template <typename Char>
static bool IsInFarSet(const Set<Char> &set, Unit ch)
{
    for (const Char *at = set.begin; at < set.end;) {
        Unit low = 0;
        Unit high = 0;
        NextMembers(&at, set.end, &low, &high);
        if (ch >= low && ch <= high)
            return !set.isNegated;
    }
    return set.isNegated;
}

template <typename Char>
static inline bool IsInSet(const Set<Char> &set, Unit ch)
{
    return ch < kLowest ? ((set.low[ch / 64] >> (ch % 64)) & 1U) != 0 : IsInFarSet(set, ch);
}

// ---- Strings, characters and sets ----

template <typename Char>
static inline bool Belongs(const Spec<Char> &spec, Unit ch)
{
    if (spec.type == 's')
        return !IsSpace(Char{}, ch);
    return spec.type == 'c' || IsInSet(spec.set, ch);
}

static void StoreWide(char *dest, size_t index, Unit ch)
{
    const wchar_t wide = static_cast<wchar_t>(ch);
    memcpy(dest + index * sizeof wide, &wide, sizeof wide);
}

static inline void Terminate(const Text &text, size_t index)
{
    if (text.isWide)
        StoreWide(text.dest, index, L'\0');
    else
        text.dest[index] = '\0';
}

// Stores a character; false when it does not fit or has no form in the destination's encoding.
static inline bool Store(const Scan<char> * /*tag*/, Text *text, Unit ch)
{
    if (text->used == text->size)
        return false;
    if (text->isWide)
        StoreWide(text->dest, text->used, ch);
    else
        text->dest[text->used] = static_cast<char>(ch);
    ++text->used;
    return true;
}

static bool Store(const Scan<wchar_t> * /*tag*/, Text *text, Unit ch)
{
    if (text->isWide) {
        if (text->used == text->size)
            return false;
        StoreWide(text->dest, text->used++, ch);
        return true;
    }
    char bytes[MB_LEN_MAX];
    mbstate_t state = {};
    const size_t length = wcrtomb(bytes, static_cast<wchar_t>(ch), &state);
    if (length > text->size - text->used)  // a failure is the largest size
        return false;
    memcpy(text->dest + text->used, bytes, length);
    text->used += length;
    return true;
}

// A character of the field: as wide text is counted in whole characters, they are read whole.
static inline Unit NextOfText(Scan<char> *scan, const Text &text)
{
    if (!text.isWide)
        return Next(scan);
    const Unit ch = ReadCharacter(&scan->reader);
    if (ch == kEnd)
        scan->isAtEnd = true;
    if (ch >= 0 && !IsFromString(scan))
        scan->charsOfStream += scan->reader.lastCount;
    return ch;
}

static inline Unit NextOfText(Scan<wchar_t> *scan, const Text & /*tag*/)
{
    return Next(scan);
}

static inline void GiveBackOfText(Scan<char> *scan, const Text &text, Unit ch)
{
    if (!text.isWide) {
        GiveBack(scan, ch);
        return;
    }
    UnreadCharacter(&scan->reader);
    scan->charsOfStream -= IsFromString(scan) ? 0 : scan->reader.lastCount;
}

static inline void GiveBackOfText(Scan<wchar_t> *scan, const Text & /*tag*/, Unit ch)
{
    GiveBack(scan, ch);
}

// A character read whole belongs to the field when each of its bytes does.
static inline bool BelongsToText(const Scan<char> *scan, const Spec<char> &spec, const Text &text,
                                 Unit ch)
{
    if (!text.isWide)
        return Belongs(spec, ch);
    for (int i = 0; i < scan->reader.lastCount; ++i) {
        if (!Belongs(spec, AsUnit(scan->reader.last[i])))
            return false;
    }
    return true;
}

static inline bool BelongsToText(const Scan<wchar_t> * /*tag*/, const Spec<wchar_t> &spec,
                                 const Text & /*tag*/, Unit ch)
{
    return Belongs(spec, ch);
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

// Whether all bytes of a block print: its sums and differences carry into a byte's highest bit where
// one is above '~' or below '!', and at most into more bytes than are.
static inline bool IsPrintingBlock(uint64_t block)
{
    const uint64_t everyByte = UINT64_C(0x0101010101010101);
    const uint64_t isAbove = block | (block + everyByte * (0x7F - '~'));
    const uint64_t isBelow = block - everyByte * '!';
    return ((isAbove | isBelow) & everyByte * 0x80) == 0;
}

// The same with characters that are no white space, those that print in blocks.
[[gnu::noinline]] static int64_t CopyWord(char *dest, const char *at, int64_t most)
{
    int64_t count = 0;
    uint64_t block = 0;
    const int64_t size = sizeof block;
    for (; most - count >= size; count += size) {
        memcpy(&block, at + count, sizeof block);
        if (!IsPrintingBlock(block))
            break;
        memcpy(dest + count, &block, sizeof block);
    }
    return CopyWhile(dest, at, count, most, [](Unit ch) { return !IsSpace(char{}, ch); });
}

// The same with the members of a set.
[[gnu::noinline]] static int64_t CopyMembers(char *dest, const char *at, int64_t most,
                                             const Set<char> &set)
{
    return CopyWhile(dest, at, 0, most, [&set](Unit ch) { return IsInSet(set, ch); });
}

// Stores as much of a string's field as needs no second look: narrow text that is there, belongs to
// the field and has room. Takes what it read from *left, and all where the next character ends the
// field; else ReadText finds out what comes then. Returns how many characters it was.
static inline int64_t StoreRun(Scan<char> *scan, const Spec<char> &spec, Text *text, int64_t *left)
{
    if (text->isWide || !text->isStored)
        return 0;
    const char *at = scan->reader.at;
    const int64_t there = scan->reader.end - at;
    const int64_t room = static_cast<int64_t>(text->size);
    int64_t most = *left < there ? *left : there;
    most = most < room ? most : room;
    if (most == 0)
        return 0;

    int64_t count = most;
    if (spec.type == 's') {
        count = CopyWord(text->dest, at, most);
    } else if (spec.type == 'c') {
        memcpy(text->dest, at, static_cast<size_t>(most));
    } else {
        count = CopyMembers(text->dest, at, most, spec.set);
    }
    scan->reader.at += count;
    text->used = static_cast<size_t>(count);
    *left = count < most ? 0 : *left - count;
    return count;
}

static inline int64_t StoreRun(Scan<wchar_t> * /*tag*/, const Spec<wchar_t> & /*tag*/,
                               Text * /*tag*/, int64_t * /*tag*/)
{
    return 0;
}

// Reads the field into the destination, which is left empty when the field is missing, does not fit
// or cannot be converted.
template <typename Char>
static Outcome ReadText(Scan<Char> *scan, const Spec<Char> &spec, Text *text)
{
    int64_t left = spec.type == 'c' && !spec.hasWidth ? 1 : FieldWidth(spec);
    bool isEmpty = StoreRun(scan, spec, text, &left) == 0;
    Unit ch = kFieldFull;
    for (; left > 0; --left) {
        ch = NextOfText(scan, *text);
        if (ch < 0)
            break;
        if (!BelongsToText(scan, spec, *text, ch)) {
            GiveBackOfText(scan, *text, ch);
            break;
        }
        if (text->isStored && !Store(scan, text, ch)) {
            GiveBackOfText(scan, *text, ch);
            return kNoMatch;
        }
        isEmpty = false;
    }
    if (ch == kNoCharacter)
        return kNoMatch;
    if (isEmpty)
        return ch == kEnd ? kInputEnd : kNoMatch;
    if (!text->isStored || (spec.type == 'c' && left == 0))
        return kDone;
    // A "%c" that the input's end cuts short is terminated like a string, and must have the room.
    if (spec.type == 'c' && text->used == text->size)
        return kNoMatch;
    Terminate(*text, text->used);
    return kDone;
}

// Takes the destination's size from the arguments and judges it.
template <typename Char>
static Outcome TakeTextSize(Scan<Char> *scan, const Spec<Char> &spec, Text *text)
{
    const unsigned int size = va_arg(scan->arguments, unsigned int);
    text->dest = static_cast<char *>(spec.dest);
    text->isStored = true;
    if (size > (text->isWide ? kLargestWideSize : kLargestNarrowSize))
        return kBadParameter;
    Terminate(*text, 0);
    if (size == 0)
        return kBadParameter;
    text->size = spec.type == 'c' ? size : size - 1;
    return kDone;
}

// ---- Integers ----

struct Integer {
    uint64_t magnitude;
    bool isNegative;
    bool isTooLarge;
    bool hasDigits;
};

static const unsigned int kNoDigit = UCHAR_MAX;

struct DigitTable {
    unsigned char values[UCHAR_MAX + 1];
};

static consteval DigitTable MakeDigitTable()
{
    DigitTable table = {};
    for (unsigned char &value : table.values)
        value = kNoDigit;
    for (unsigned char digit = 0; digit < 16; ++digit) {
        table.values[static_cast<unsigned char>("0123456789abcdef"[digit])] = digit;
        table.values[static_cast<unsigned char>("0123456789ABCDEF"[digit])] = digit;
    }
    return table;
}

static constexpr DigitTable kDigits = MakeDigitTable();

static inline unsigned int DigitValue(Unit ch)
{
    return ch >= 0 && ch <= UCHAR_MAX ? kDigits.values[ch] : kNoDigit;
}

static inline void AddDigit(Integer *value, unsigned int base, unsigned int digit)
{
    value->hasDigits = true;
    uint64_t larger = 0;
    if (__builtin_mul_overflow(value->magnitude, base, &larger) ||
        __builtin_add_overflow(larger, digit, &larger))
        value->isTooLarge = true;
    else
        value->magnitude = larger;
}

// Adds the first digits of a string at once: as many as there are, of those that 64 bits always have
// room for. What comes then, ReadIntegerField finds out.
static inline void AddRun(StringField *field, unsigned int base, Integer *value)
{
    const ptrdiff_t alwaysFit = base == 16 ? 16 : 19;
    const bool isShort = field->end - field->at <= alwaysFit;
    const char *const end = isShort ? field->end : field->at + alwaysFit;
    const char *at = field->at;
    uint64_t magnitude = 0;
    for (; at != end && DigitValue(AsUnit(*at)) < base; ++at)
        magnitude = magnitude * base + DigitValue(AsUnit(*at));
    value->magnitude = magnitude;
    value->hasDigits |= at != field->at;
    LookAt(field, at);
}

template <typename Char>
static inline void AddRun(Field<Char> * /*tag*/, unsigned int /*tag*/, Integer * /*tag*/)
{
}

// A value that no 64 bits hold becomes the nearest that they do; unsigned ones with a '-' wrap.
static uint64_t ValueOf(const Integer &value, bool isSigned)
{
    if (!isSigned && value.isTooLarge)
        return UINT64_MAX;
    const uint64_t largest = static_cast<uint64_t>(INT64_MAX) + (value.isNegative ? 1 : 0);
    uint64_t magnitude = value.magnitude;
    if (isSigned && (value.isTooLarge || magnitude > largest))
        magnitude = largest;
    return value.isNegative ? 0 - magnitude : magnitude;
}

template <typename Type>
static inline void StoreAs(void *dest, uint64_t value)
{
    const Type narrowed = static_cast<Type>(value);
    memcpy(dest, &narrowed, sizeof narrowed);
}

static void StoreInteger(void *dest, IntegerSize size, uint64_t value)
{
    switch (size) {
    case kCharSize: StoreAs<unsigned char>(dest, value); break;
    case kShortSize: StoreAs<unsigned short>(dest, value); break;
    case kIntSize: StoreAs<unsigned int>(dest, value); break;
    case kLongSize: StoreAs<unsigned long>(dest, value); break;
    case k64BitSize: StoreAs<uint64_t>(dest, value); break;
    }
}

static inline bool IsLetter(Unit ch, char lower)
{
    return ch == lower || (lower >= 'a' && lower <= 'z' && ch == lower - 'a' + 'A');
}

// Goes past "(nil)", in either case.
template <typename AnyField>
static inline bool PassNull(AnyField *field)
{
    for (const char *word = "(nil)"; *word != '\0'; ++word) {
        if (!IsLetter(field->ch, *word))
            return false;
        Advance(field);
    }
    return true;
}

// Reads the "0x" that base 16 may have, and finds the base that a base of 0 stands for. A zero that no
// 'x' follows is a digit.
template <typename AnyField>
static inline unsigned int ReadPrefix(AnyField *field, unsigned int base, Integer *value)
{
    if (field->ch != '0' || (base != 0 && base != 16))
        return base == 0 ? 10 : base;
    Advance(field);
    if (IsLetter(field->ch, 'x')) {
        Advance(field);
        return 16;
    }
    value->hasDigits = true;
    return base == 0 ? 8 : base;
}

template <typename AnyField, typename Char>
static inline Outcome ReadIntegerField(AnyField *field, const Spec<Char> &spec, unsigned int base,
                                       bool isSigned)
{
    Integer value = {};
    if (field->ch == kEnd)
        return kInputEnd;
    if (spec.type == 'p' && field->ch == '(') {
        value.hasDigits = PassNull(field);
    } else {
        value.isNegative = field->ch == '-';
        if (field->ch == '-' || field->ch == '+')
            Advance(field);
        base = ReadPrefix(field, base, &value);
        AddRun(field, base, &value);
        for (unsigned int digit = DigitValue(field->ch); digit < base;
             digit = DigitValue(field->ch)) {
            AddDigit(&value, base, digit);
            Advance(field);
        }
    }
    LeaveField(*field);
    if (!value.hasDigits)
        return kNoMatch;
    if (!spec.isSuppressed)
        StoreInteger(spec.dest, spec.type == 'p' ? k64BitSize : spec.size,
                     ValueOf(value, isSigned));
    return kDone;
}

template <typename Char>
static Outcome ReadInteger(Scan<Char> *scan, const Spec<Char> &spec, unsigned int base,
                           bool isSigned)
{
    return ReadField(scan, spec,
                     [&](auto *field) { return ReadIntegerField(field, spec, base, isSigned); });
}

// ---- Floating point ----

// Keeps text in place of the next character, and goes on to the one behind it.
template <typename AnyField>
static inline void Keep(AnyField *field, char text)
{
    if (Append(&field->scan->number, text)) {
        Advance(field);
        return;
    }
    field->isOutOfMemory = true;
    EndBehind(field);
}

template <typename AnyField>
static inline void KeepNext(AnyField *field)
{
    Keep(field, static_cast<char>(field->ch));
}

// Keeps as many digits of a string as there are and as have room in the text buffer, at once. What
// comes then, KeepDigits finds out. Returns how many digits it was.
static inline int64_t KeepRun(StringField *field, unsigned int base)
{
    FloatText *number = &field->scan->number;
    const int64_t room = static_cast<int64_t>(number->size - number->used) - 1;
    const int64_t there = field->end - field->at;
    const int64_t count =
        CopyWhile(number->text + number->used, field->at, 0, there < room ? there : room,
                  [base](Unit ch) { return DigitValue(ch) < base; });
    LookAt(field, field->at + count);
    number->used += static_cast<size_t>(count);
    return count;
}

template <typename Char>
static inline int64_t KeepRun(Field<Char> * /*tag*/, unsigned int /*tag*/)
{
    return 0;
}

template <typename AnyField>
static inline bool KeepDigits(AnyField *field, unsigned int base)
{
    bool hasDigits = KeepRun(field, base) > 0;
    while (DigitValue(field->ch) < base) {
        hasDigits = true;
        KeepNext(field);
    }
    return hasDigits;
}

template <typename AnyField>
static void KeepSign(AnyField *field)
{
    if (field->ch == '-' || field->ch == '+')
        KeepNext(field);
}

template <typename AnyField>
static bool KeepWord(AnyField *field, const char *word)
{
    for (; *word != '\0'; ++word) {
        if (!IsLetter(field->ch, *word))
            return false;
        KeepNext(field);
    }
    return true;
}

template <typename AnyField>
static bool KeepNan(AnyField *field)
{
    if (!KeepWord(field, "nan"))
        return false;
    if (field->ch != '(')
        return true;
    do {
        KeepNext(field);
    } while (field->ch == '_' || DigitValue(field->ch) < 10 ||
             ((field->ch | 0x20) >= 'a' && (field->ch | 0x20) <= 'z'));
    if (field->ch != ')')
        return false;
    KeepNext(field);
    return true;
}

// Keeps the locale's decimal point if it is next; false when only its first bytes are there.
template <typename AnyField>
static bool KeepPoint(AnyField *field)
{
    const char *point = nl_langinfo(RADIXCHAR);
    if (field->ch != AsUnit(*point))
        return true;
    for (; *point != '\0'; ++point) {
        if (field->ch != AsUnit(*point))
            return false;
        KeepNext(field);
    }
    return true;
}

static bool KeepPoint(Field<wchar_t> *field)
{
    const char *point = nl_langinfo(RADIXCHAR);
    wchar_t wide = L'\0';
    mbstate_t state = {};
    const size_t length = strlen(point);
    if (mbrtowc(&wide, point, length, &state) != length || field->ch != AsUnit(wide))
        return true;
    for (size_t i = 0; i + 1 < length; ++i) {
        field->isOutOfMemory = !Append(&field->scan->number, point[i]);
        if (field->isOutOfMemory)
            return false;
    }
    Keep(field, point[length - 1]);
    return true;
}

template <typename AnyField>
static bool KeepNumber(AnyField *field)
{
    bool isHex = false;
    bool hasDigits = field->ch == '0';
    if (hasDigits) {
        KeepNext(field);
        isHex = IsLetter(field->ch, 'x');
    }
    if (isHex) {
        KeepNext(field);
        hasDigits = false;
    }
    const unsigned int base = isHex ? 16 : 10;
    hasDigits |= KeepDigits(field, base);
    if (!KeepPoint(field))
        return false;
    hasDigits |= KeepDigits(field, base);
    if (!hasDigits || !IsLetter(field->ch, isHex ? 'p' : 'e'))
        return hasDigits;
    KeepNext(field);
    KeepSign(field);
    return KeepDigits(field, 10);
}

template <typename Char>
static void StoreFloat(const Spec<Char> &spec, const char *text)
{
    if (spec.isLongDouble) {
        const long double value = strtold(text, nullptr);
        memcpy(spec.dest, &value, sizeof value);
        return;
    }
    const double value = strtod(text, nullptr);
    if (spec.size == kLongSize || spec.size == k64BitSize) {
        memcpy(spec.dest, &value, sizeof value);
        return;
    }
    const float rounded = static_cast<float>(value);
    memcpy(spec.dest, &rounded, sizeof rounded);
}

template <typename AnyField, typename Char>
static inline Outcome ReadFloatField(AnyField *field, const Spec<Char> &spec)
{
    FloatText *number = &field->scan->number;
    number->used = 0;
    if (field->ch == kEnd)
        return kInputEnd;
    KeepSign(field);
    bool isNumber = false;
    if (IsLetter(field->ch, 'i'))
        isNumber =
            KeepWord(field, "inf") && (!IsLetter(field->ch, 'i') || KeepWord(field, "inity"));
    else if (IsLetter(field->ch, 'n'))
        isNumber = KeepNan(field);
    else
        isNumber = KeepNumber(field);
    LeaveField(*field);
    if (!isNumber || field->isOutOfMemory)
        return kNoMatch;
    number->text[number->used] = '\0';
    if (!spec.isSuppressed)
        StoreFloat(spec, number->text);
    return kDone;
}

template <typename Char>
static Outcome ReadFloat(Scan<Char> *scan, const Spec<Char> &spec)
{
    return ReadField(scan, spec, [&](auto *field) { return ReadFloatField(field, spec); });
}

// ---- Specifications ----

template <typename Char>
static const Char *ReadWidth(const Char *format, Spec<Char> *spec)
{
    spec->hasWidth = true;
    for (; *format >= '0' && *format <= '9'; ++format) {
        const int64_t width = int64_t{spec->width} * 10 + (*format - '0');
        spec->width = width < INT_MAX ? static_cast<int>(width) : INT_MAX;
    }
    return format;
}

// 'I' and what belongs to it; null when nothing does.
template <typename Char>
static const Char *ReadSizeOfI(const Char *format, Spec<Char> *spec)
{
    spec->size = k64BitSize;
    switch (format[1]) {
    case '6': return format[2] == '4' ? format + 3 : nullptr;
    case '3': spec->size = kIntSize; return format[2] == '2' ? format + 3 : nullptr;
    case 'd':
    case 'i':
    case 'o':
    case 'x':
    case 'X': return format + 1;
    default: return nullptr;
    }
}

template <typename Char>
static const Char *ReadSizeLetter(const Char *format, Spec<Char> *spec)
{
    const bool isDouble = format[1] == format[0];
    switch (*format) {
    case 'h':
        spec->size = isDouble ? kCharSize : kShortSize;
        spec->wideLetters -= isDouble ? 2 : 1;
        return format + (isDouble ? 2 : 1);
    case 'l':
        spec->size = isDouble ? k64BitSize : kLongSize;
        spec->wideLetters += isDouble ? 2 : 1;
        return format + (isDouble ? 2 : 1);
    case 'w': ++spec->wideLetters; return format + 1;
    case 'L':
    case 'q':
        spec->size = k64BitSize;
        spec->isLongDouble = true;
        return format + 1;
    case 'I': return ReadSizeOfI(format, spec);
    case 'j':
    case 't':
    case 'z': spec->size = k64BitSize; return format + 1;
    default: return format + 1;  // 'F' and 'N' say nothing
    }
}

// Reads all between a '%' and the conversion character; returns where that stands, or null when the
// letters make no sense.
template <typename Char>
static const Char *ReadSpec(const Char *format, Spec<Char> *spec)
{
    spec->width = 0;
    spec->hasWidth = false;
    spec->isSuppressed = false;
    spec->wideLetters = 0;
    spec->size = kIntSize;
    spec->isLongDouble = false;
    spec->dest = nullptr;
    while (format != nullptr) {
        switch (*format) {
        case '*':
            spec->isSuppressed = true;
            ++format;
            break;
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9': format = ReadWidth(format, spec); break;
        case 'h':
        case 'l':
        case 'w':
        case 'L':
        case 'q':
        case 'j':
        case 't':
        case 'z':
        case 'I':
        case 'F':
        case 'N': format = ReadSizeLetter(format, spec); break;
        default: return format;
        }
    }
    return nullptr;
}

enum Family { kNoFamily, kPercent, kTextFamily, kNumberFamily, kPosition };

static constexpr const char *kConversions[] = {
    "",                // kNoFamily: whatever no other family has
    "%",               // kPercent
    "sScC[",           // kTextFamily
    "diuoxXpaAeEfgG",  // kNumberFamily
    "n",               // kPosition
};

struct FamilyTable {
    unsigned char families[UCHAR_MAX + 1];
};

static consteval FamilyTable MakeFamilyTable()
{
    FamilyTable table = {};
    for (unsigned char family = kNoFamily; family <= kPosition; ++family) {
        for (const char *conversion = kConversions[family]; *conversion != '\0'; ++conversion)
            table.families[static_cast<unsigned char>(*conversion)] = family;
    }
    return table;
}

static constexpr FamilyTable kFamilies = MakeFamilyTable();

static inline Family FamilyOf(Unit type)
{
    return type >= 0 && type <= UCHAR_MAX ? static_cast<Family>(kFamilies.families[type])
                                          : kNoFamily;
}

// "%S" and "%C" are wide and the others narrow unless a size letter says something else. As with the
// letters, narrow and wide are the same in both engines.
static bool IsWideText(Unit type, int wideLetters)
{
    return wideLetters > 0 || (wideLetters == 0 && (type == 'S' || type == 'C'));
}

// ---- Conversions ----

template <typename Char>
[[gnu::noinline]] static Outcome ConvertText(Scan<Char> *scan, Spec<Char> *spec,
                                             const Char **format)
{
    Text text = {IsWideText(spec->type, spec->wideLetters), false, nullptr, 0, 0};
    // From here on the case of the letter says no more.
    if (spec->type == 'S')
        spec->type = 's';
    if (spec->type == 'C')
        spec->type = 'c';
    if (!spec->isSuppressed) {
        const Outcome outcome = TakeTextSize(scan, *spec, &text);
        if (outcome != kDone)
            return outcome;
    }
    if (spec->type == '[' && !ReadSet(format, &spec->set))
        return kNoMatch;
    if (spec->type == 's')
        SkipBlanks(scan);
    if (spec->hasWidth && spec->width == 0) {
        const Unit ch = Next(scan);
        GiveBack(scan, ch);
        return ch == kEnd ? kInputEnd : kNoMatch;
    }
    const Outcome outcome = ReadText(scan, *spec, &text);
    if (outcome != kDone && text.isStored)
        Terminate(text, 0);
    return outcome;
}

template <typename Char>
static Outcome ConvertNumber(Scan<Char> *scan, const Spec<Char> &spec)
{
    SkipBlanks(scan);
    if (spec.hasWidth && spec.width == 0) {
        const Unit ch = Next(scan);
        GiveBack(scan, ch);
        return ch == kEnd ? kInputEnd : kNoMatch;
    }
    switch (spec.type) {
    case 'd': return ReadInteger(scan, spec, 10, true);
    case 'i': return ReadInteger(scan, spec, 0, true);
    case 'u': return ReadInteger(scan, spec, 10, false);
    case 'o': return ReadInteger(scan, spec, 8, false);
    case 'x':
    case 'X':
    case 'p': return ReadInteger(scan, spec, 16, false);
    default: return ReadFloat(scan, spec);
    }
}

template <typename Char>
static Outcome ConvertPercent(Scan<Char> *scan)
{
    SkipBlanks(scan);
    const Unit ch = Next(scan);
    if (ch == '%')
        return kDone;
    GiveBack(scan, ch);
    return ch == kEnd ? kInputEnd : kNoMatch;
}

template <typename Char>
static Outcome ConvertPosition(Scan<Char> *scan, const Spec<Char> &spec)
{
    if (spec.hasWidth && spec.width == 0)
        return kNoMatch;
    if (!spec.isSuppressed)
        StoreInteger(spec.dest, spec.size, static_cast<uint64_t>(CharsRead(*scan)));
    return kDone;
}

// Carries out the specification behind a '%' at *format and leaves *format behind it.
template <typename Char>
static Outcome Convert(Scan<Char> *scan, const Char **format)
{
    Spec<Char> spec;
    *format = ReadSpec(*format, &spec);
    if (*format == nullptr)
        return kNoMatch;
    spec.type = AsUnit(**format);
    const Family family = FamilyOf(spec.type);
    if (family == kNoFamily)
        return kNoMatch;
    if (family == kPercent) {
        ++*format;
        return ConvertPercent(scan);
    }
    if (!spec.isSuppressed) {
        spec.dest = va_arg(scan->arguments, void *);
        if (spec.dest == nullptr)
            return kBadParameter;
    }

    Outcome outcome = kDone;
    if (family == kPosition)
        outcome = ConvertPosition(scan, spec);
    else if (family == kTextFamily)
        outcome = ConvertText(scan, &spec, format);
    else
        outcome = ConvertNumber(scan, spec);
    if (outcome == kDone && family != kPosition) {
        scan->hasConverted = true;
        scan->assigned += spec.isSuppressed ? 0 : 1;
    }
    ++*format;
    return outcome;
}

// ---- The format ----

template <typename Char>
static Outcome ScanFormat(Scan<Char> *scan, const Char *format)
{
    while (*format != '\0') {
        Outcome outcome = kDone;
        bool isConversion = false;
        if (*format == '%') {
            ++format;
            outcome = Convert(scan, &format);
            isConversion = true;
        } else if (IsSpace(Char{}, AsUnit(*format))) {
            SkipBlanks(scan);
            ++format;
        } else {
            outcome = MatchLiteral(scan, &format);
        }
        if (outcome != kDone)
            return outcome;
        if (isConversion && scan->isAtEnd && !(format[0] == '%' && format[1] == 'n'))
            return kDone;
    }
    return kDone;
}

template <typename Char>
static int ResultOf(const Scan<Char> &scan, Outcome outcome)
{
    if (outcome == kBadParameter)
        return kBadParameterResult;
    return outcome == kInputEnd && !scan.hasConverted ? EOF : scan.assigned;
}

template <typename Char>
static int RunScan(InputSource *source, const Char *format, va_list argList)
{
    if (!IsUsable(source) || format == nullptr)
        return kBadParameterResult;
    const int savedErrno = errno;
    Scan<Char> scan;
    EnterSource(&scan.reader, source);
    scan.charsOfStream = 0;
    scan.assigned = 0;
    scan.hasConverted = false;
    scan.isAtEnd = false;
    scan.number.text = scan.number.local;
    scan.number.used = 0;
    scan.number.size = sizeof scan.number.local;
    scan.number.onHeap = 0;
    va_copy(scan.arguments, argList);

    const Outcome outcome = ScanFormat(&scan, format);

    va_end(scan.arguments);
    WipeFloatText(&scan.number);
    LeaveSource(&scan.reader, sizeof(Char) == sizeof(wchar_t));
    errno = savedErrno;
    return ResultOf(scan, outcome);
}

int tamrik_input_s(InputSource *source, const char *format, va_list argList)
{
    return RunScan(source, format, argList);
}

int tamrik_winput_s(InputSource *source, const wchar_t *format, va_list argList)
{
    return RunScan(source, format, argList);
}

// ---- Clearing ----

// What the first '%' of the format asks for when it is a string-like conversion with a destination;
// its type is 0 otherwise.
template <typename Char>
static Spec<Char> FirstTextSpec(const Char *format)
{
    Spec<Char> spec = {};
    while (*format != '\0' && *format != '%')
        ++format;
    if (*format == '\0')
        return spec;
    ++format;
    while (*format >= '0' && *format <= '9')
        ++format;
    while (*format == 'l' || *format == 'w' || *format == 'h')
        format = ReadSizeLetter(format, &spec);
    const Unit type = AsUnit(*format);
    if (FamilyOf(type) == kTextFamily && (type != '[' || EndOfSet(format + 1) != nullptr))
        spec.type = type;
    return spec;
}

template <typename Char>
static void ClearFirstText(const Char *input, const Char *format, va_list argList)
{
    if (format == nullptr)
        return;
    const Spec<Char> spec = FirstTextSpec(format);
    if (spec.type == 0)
        return;
    const bool hasInput = input != nullptr && *input != '\0';
    if (hasInput && spec.type != 's' && spec.type != 'S')
        return;

    va_list arguments;
    va_copy(arguments, argList);
    Text text = {IsWideText(spec.type, spec.wideLetters), true, nullptr, 0, 0};
    text.dest = va_arg(arguments, char *);
    const unsigned int size = va_arg(arguments, unsigned int);
    va_end(arguments);
    if (text.dest != nullptr && size >= 1 && size <= kLargestNarrowSize)
        Terminate(text, 0);
}

void clearDestBuf(const char *input, const char *format, va_list argList)
{
    ClearFirstText(input, format, argList);
}

void clearwDestBuf(const wchar_t *input, const wchar_t *format, va_list argList)
{
    ClearFirstText(input, format, argList);
}
