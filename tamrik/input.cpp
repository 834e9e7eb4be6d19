// The bounded scanf engine, for narrow and for wide formats, and the sources it reads from.
//
// Three layers, each of which knows nothing of the one above it: the source (a string, a file read
// in blocks, or standard input), whose state is the caller's InputSource; the reader, which hands out
// bytes and whole characters of a source and takes back what was read too far; and the engine, one
// template over the character type of the format. Where the two widths differ there is a pair of
// overloads. There is no state beside the source: all else lives in a Scan on the stack of the call.
// The reader stands in input_reader.h, the fields and the conversions in the input_*.h beside it, which
// nothing else includes.
// What surprises: wide formats read wide characters from strings alone; files hold multibyte text.
#include "tamrik/tamrik.h"

#include "tamrik/input_fields.h"
#include "tamrik/input_numbers.h"
#include "tamrik/input_reader.h"
#include "tamrik/input_text.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static const size_t kBlockSize = 1024;         // bytes that are read from a file at once
static const int kMostConsumed = INT_MAX / 2;  // where the count of a file's bytes begins anew
static const size_t kLargestHeapText = MAX_BUFFER_SIZE;  // of a floating-point field, in bytes
static const int kBadParameterResult = -2;

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
// to it either: of such a one no more is taken than can be given back with ungetc. A byte-order mark
// is one at the beginning alone: at position 0, or where a stream without one is read for the first time.
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
    const long offset = isFirst ? ftell(source->stream) : source->startOffset;
    const bool isBeginning = isFirst && (offset == 0 || (offset < 0 && source->startOffset >= 0));
    size_t got = 0;
    if (offset >= 0)
        got = fread(source->base, 1, kBlockSize, source->stream);
    else if (isBeginning)
        got = ReadFirstSingly(source);
    else
        got = fread(source->base, 1, 1, source->stream);
    if (got == 0 || got > kBlockSize)
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

int __check_float_string(size_t used, size_t *size, char **buffer, char *localBuffer, int *onHeap)
{
    if (used != *size)
        return 1;
    if (*onHeap && *size > kLargestHeapText / 2)
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
[[gnu::noinline]] static Outcome MatchBytes(Scan<char> *scan, const char *text, int length)
{
    for (int matched = 0; matched < length; ++matched) {
        const Unit ch = Next(scan);
        if (ch == AsUnit(text[matched]))
            continue;
        GiveBack(scan, ch);
        UnreadBytes(&scan->reader, text, matched);
        return ch == kEnd ? kInputEnd : kNoMatch;
    }
    return kDone;
}

static inline Outcome MatchLiteral(Scan<char> *scan, const char **format)
{
    const char *text = *format;
    Reader *reader = &scan->reader;
    // What prints is a character of one byte.
    if (IsPrinting(AsUnit(*text)) && reader->at != reader->end && *reader->at == *text) {
        ++reader->at;
        ++*format;
        return kDone;
    }
    const int length = CharacterLength(text);
    *format += length;
    return MatchBytes(scan, text, length);
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

// ---- Specifications ----

template <typename Char>
static const Char *ReadWidth(const Char *format, Spec *spec)
{
    int64_t width = spec->width == kAnyWidth ? 0 : spec->width;
    for (Unit digit = AsUnit(*format) - '0'; digit >= 0 && digit <= 9;
         digit = AsUnit(*++format) - '0')
        width = Least(width * 10 + digit, INT_MAX);
    spec->width = width;
    return format;
}

// 'I' and what belongs to it; null when nothing does.
template <typename Char>
static const Char *ReadSizeOfI(const Char *format, Spec *spec)
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
static const Char *ReadSizeLetter(const Char *format, Spec *spec)
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

struct LetterRow {
    const char *letters;
    Letter meaning;
};

static constexpr LetterRow kLetterRows[] = {
    {"%", {kPercent, 0, false}},
    {"s", {kWord, 0, false}},
    {"[", {kSet, 0, false}},
    {"c", {kCharacters, 0, false}},
    {"SC", {kCapitalText, 0, false}},
    {"d", {kInteger, 10, true}},
    {"u", {kInteger, 10, false}},
    {"i", {kInteger, 0, true}},
    {"o", {kInteger, 8, false}},
    {"xXp", {kInteger, 16, false}},
    {"aAeEfgG", {kFloat, 0, false}},
    {"n", {kPosition, 0, false}},
    {"*", {kStar, 0, false}},
    {"0123456789", {kWidth, 0, false}},
    {"hlwLqjtzIFN", {kSizeLetter, 0, false}},
};

struct LetterTable {
    Letter of[UCHAR_MAX + 1];
};

static consteval LetterTable MakeLetterTable()
{
    LetterTable table = {};
    for (const LetterRow &row : kLetterRows) {
        for (const char *letter = row.letters; *letter != '\0'; ++letter)
            table.of[static_cast<unsigned char>(*letter)] = row.meaning;
    }
    return table;
}

static constexpr LetterTable kLetters = MakeLetterTable();

static inline const Letter *LetterOf(Unit ch)
{
    return &kLetters.of[ch >= 0 && ch <= UCHAR_MAX ? ch : 0];
}

static inline bool IsConversion(Role role)
{
    return role >= kInteger && role <= kPosition;
}

// Reads all that belongs to a '%', the conversion character included; returns what stands behind it,
// or null when the letters make no sense.
template <typename Char>
static inline const Char *ReadSpec(const Char *format, Spec *spec)
{
    spec->width = kAnyWidth;
    spec->wideLetters = 0;
    spec->size = kIntSize;
    spec->isSuppressed = false;
    spec->isLongDouble = false;
    while (format != nullptr) {
        spec->type = AsUnit(*format);
        spec->letter = LetterOf(spec->type);
        if (IsConversion(spec->letter->role)) [[likely]]
            return format + 1;
        switch (spec->letter->role) {
        case kPercent: spec->isSuppressed = true; return format + 1;  // nothing is passed for it
        case kStar:
            spec->isSuppressed = true;
            ++format;
            break;
        case kWidth: format = ReadWidth(format, spec); break;
        case kSizeLetter: format = ReadSizeLetter(format, spec); break;
        default: return nullptr;
        }
    }
    return nullptr;
}

// ---- Conversions ----

template <typename Char>
static Outcome ConvertPercent(Scan<Char> *scan, const Spec &spec)
{
    SkipBlanks(scan);
    if (spec.width == 0)
        return EndEmptyField(scan);
    const Unit ch = Next(scan);
    if (ch == '%')
        return kDone;
    GiveBack(scan, ch);
    return ch == kEnd ? kInputEnd : kNoMatch;
}

template <typename Char>
static Outcome ConvertPosition(Scan<Char> *scan, const Spec &spec)
{
    if (spec.width == 0)
        return kNoMatch;
    if (!spec.isSuppressed)
        StoreInteger(spec.dest, spec.size, static_cast<uint64_t>(CharsRead(*scan)));
    return kDone;
}

template <typename Char>
static inline Outcome ConvertNumber(Scan<Char> *scan, const Spec &spec)
{
    SkipBlanks(scan);
    if (spec.width == 0)
        return EndEmptyField(scan);
    return spec.letter->role == kInteger ? ReadInteger(scan, spec) : ReadFloat(scan, spec);
}

// Carries out the specification behind a '%' at *format and leaves *format behind it.
template <typename Char>
static inline Outcome Convert(Scan<Char> *scan, const Char **format)
{
    Spec spec;
    *format = ReadSpec(*format, &spec);
    if (*format == nullptr)
        return kNoMatch;
    const Role role = spec.letter->role;
    if (!spec.isSuppressed) {
        spec.dest = va_arg(scan->arguments, void *);
        if (spec.dest == nullptr)
            return kBadParameter;
    }

    Outcome outcome = kDone;
    if (role <= kFloat)
        outcome = ConvertNumber(scan, spec);
    else if (role <= kCapitalText)
        outcome = ConvertText(scan, &spec, format);
    else
        return role == kPercent ? ConvertPercent(scan, spec) : ConvertPosition(scan, spec);
    if (outcome != kDone)
        return outcome;
    if (spec.isSuppressed)
        scan->hasSkipped = true;
    else
        ++scan->assigned;
    return kDone;
}

// ---- The format ----

// White space or a literal of the format.
template <typename Char>
static inline Outcome MatchText(Scan<Char> *scan, const Char **format)
{
    if (!IsSpace(Char{}, AsUnit(**format)))
        return MatchLiteral(scan, format);
    SkipBlanks(scan);
    ++*format;
    return kDone;
}

template <typename Char>
static inline Outcome ScanFormat(Scan<Char> *scan, const Char *format)
{
    while (*format != '\0') {
        if (*format != '%') {
            const Outcome outcome = MatchText(scan, &format);
            if (outcome != kDone)
                return outcome;
            continue;
        }
        ++format;
        const Outcome outcome = Convert(scan, &format);
        if (outcome != kDone)
            return outcome;
        if (scan->isAtEnd && !(format[0] == '%' && format[1] == 'n'))
            return kDone;
    }
    return kDone;
}

template <typename Char>
static inline int ResultOf(const Scan<Char> &scan, Outcome outcome)
{
    if (outcome == kBadParameter)
        return kBadParameterResult;
    if (outcome == kInputEnd && scan.assigned == 0 && !scan.hasSkipped)
        return EOF;
    return scan.assigned;
}

template <typename Char>
static int RunScan(InputSource *source, const Char *format, va_list argList)
{
    if (source == nullptr || format == nullptr || !IsUsable(source))
        return kBadParameterResult;
    const int savedErrno = errno;
    Scan<Char> scan;
    EnterSource(&scan.reader, source);
    scan.charsOfStream = 0;
    scan.assigned = 0;
    scan.hasSkipped = false;
    scan.isAtEnd = false;
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
static Spec FirstTextSpec(const Char *format)
{
    Spec spec = {};
    while (*format != '\0' && *format != '%')
        ++format;
    if (*format == '\0')
        return spec;
    ++format;
    while (*format >= '0' && *format <= '9')
        ++format;
    while (*format == 'l' || *format == 'w' || *format == 'h')
        format = ReadSizeLetter(format, &spec);
    spec.type = AsUnit(*format);
    switch (LetterOf(spec.type)->role) {
    case kCapitalText: LowerCapital(&spec); return spec;
    case kCharacters:
    case kWord: return spec;
    case kSet: spec.type = EndOfSet(format + 1) != nullptr ? '[' : 0; return spec;
    default: spec.type = 0; return spec;
    }
}

template <typename Char>
static void ClearFirstText(const Char *input, const Char *format, va_list argList)
{
    if (format == nullptr)
        return;
    const Spec spec = FirstTextSpec(format);
    if (spec.type == 0)
        return;
    const bool hasInput = input != nullptr && *input != '\0';
    if (hasInput && spec.type != 's')
        return;

    va_list arguments;
    va_copy(arguments, argList);
    Text text = {false, true, nullptr, 0, 0};
    text.dest = va_arg(arguments, char *);
    const unsigned int size = va_arg(arguments, unsigned int);
    va_end(arguments);
    // A size below that of a wide zero may be one in bytes.
    text.isWide = spec.wideLetters > 0 && size >= sizeof(wchar_t);
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
