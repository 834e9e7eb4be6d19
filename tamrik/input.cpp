// input.cpp - the bounded scanf engine, for narrow and for wide formats: it reads the format and
// has each directive carried out.
//
// Each layer knows nothing of the one above it. The sources (input_source.h): a string, a file or
// standard input, whose state is the caller's InputSource. The reader (input_reader.h): bytes and
// whole characters of a source, and what was read too far. The fields (input_fields.h) and the
// conversions of numbers and text (input_numbers.h, input_text.h). The engine: one template over
// the character type of the format, with a pair of overloads where the two widths differ. All state
// beside the source is in a Scan on the stack of the call.
//
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

static constexpr int kBadParameterResult = -2;

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
    for (int matched = 0; matched < length; matched++) {
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
        reader->at++;
        (*format)++;
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
    (*format)++;
    return kDone;
}

// ---- Directives ----

template <class Char>
static const Char *ReadWidth(const Char *format, Directive *directive)
{
    int64_t width = directive->width == kAnyWidth ? 0 : directive->width;
    for (Unit digit = AsUnit(*format) - '0'; digit >= 0 && digit <= 9;
         digit = AsUnit(*++format) - '0')
        width = Least(width * 10 + digit, INT_MAX);
    directive->width = width;
    return format;
}

// 'I' and what belongs to it; null when nothing does.
template <class Char>
static const Char *ReadSizeOfI(const Char *format, Directive *directive)
{
    directive->size = k64BitSize;
    switch (format[1]) {
    case '6': return format[2] == '4' ? format + 3 : nullptr;
    case '3': directive->size = kIntSize; return format[2] == '2' ? format + 3 : nullptr;
    case 'd':
    case 'i':
    case 'o':
    case 'x':
    case 'X': return format + 1;
    default: return nullptr;
    }
}

template <class Char>
static const Char *ReadSizeLetter(const Char *format, Directive *directive)
{
    const bool isDouble = format[1] == format[0];
    switch (*format) {
    case 'h':
        directive->size = isDouble ? kCharSize : kShortSize;
        directive->wideLetters -= isDouble ? 2 : 1;
        return format + (isDouble ? 2 : 1);
    case 'l':
        directive->size = isDouble ? k64BitSize : kLongSize;
        directive->wideLetters += isDouble ? 2 : 1;
        return format + (isDouble ? 2 : 1);
    case 'w': directive->wideLetters++; return format + 1;
    case 'L':
    case 'q':
        directive->size = k64BitSize;
        directive->isLongDouble = true;
        return format + 1;
    case 'I': return ReadSizeOfI(format, directive);
    case 'j':
    case 't':
    case 'z': directive->size = k64BitSize; return format + 1;
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
        for (const char *letter = row.letters; *letter != '\0'; letter++)
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

// Reads all that belongs to a '%', the conversion character included; returns what comes after it,
// or null when the letters make no sense.
template <class Char>
static inline const Char *ReadDirective(const Char *format, Directive *directive)
{
    directive->width = kAnyWidth;
    directive->wideLetters = 0;
    directive->size = kIntSize;
    directive->isSuppressed = false;
    directive->isLongDouble = false;
    while (format != nullptr) {
        directive->type = AsUnit(*format);
        directive->letter = LetterOf(directive->type);
        if (IsConversion(directive->letter->role)) [[likely]]
            return format + 1;
        switch (directive->letter->role) {
        case kPercent:
            directive->isSuppressed = true;
            return format + 1;  // nothing is passed for it
        case kStar:
            directive->isSuppressed = true;
            format++;
            break;
        case kWidth: format = ReadWidth(format, directive); break;
        case kSizeLetter: format = ReadSizeLetter(format, directive); break;
        default: return nullptr;
        }
    }
    return nullptr;
}

// ---- Conversions ----

template <class Char>
static Outcome ConvertPercent(Scan<Char> *scan, const Directive &directive)
{
    SkipBlanks(scan);
    if (directive.width == 0)
        return EndEmptyField(scan);
    const Unit ch = Next(scan);
    if (ch == '%')
        return kDone;
    GiveBack(scan, ch);
    return ch == kEnd ? kInputEnd : kNoMatch;
}

template <class Char>
static Outcome ConvertPosition(Scan<Char> *scan, const Directive &directive)
{
    if (directive.width == 0)
        return kNoMatch;
    if (!directive.isSuppressed)
        StoreInteger(directive.dest, directive.size, static_cast<uint64_t>(CharsRead(*scan)));
    return kDone;
}

template <class Char>
static inline Outcome ConvertNumber(Scan<Char> *scan, const Directive &directive)
{
    SkipBlanks(scan);
    if (directive.width == 0)
        return EndEmptyField(scan);
    return directive.letter->role == kInteger ? ReadInteger(scan, directive)
                                              : ReadFloat(scan, directive);
}

// Carries out the directive that follows a '%', at *format, and leaves *format after it.
template <class Char>
static inline Outcome Convert(Scan<Char> *scan, const Char **format)
{
    Directive directive;
    *format = ReadDirective(*format, &directive);
    if (*format == nullptr)
        return kNoMatch;
    const Role role = directive.letter->role;
    if (!directive.isSuppressed) {
        directive.dest = va_arg(scan->arguments, void *);
        if (directive.dest == nullptr)
            return kBadParameter;
    }

    Outcome outcome = kDone;
    if (role <= kFloat)
        outcome = ConvertNumber(scan, directive);
    else if (role <= kCapitalText)
        outcome = ConvertText(scan, &directive, format);
    else
        return role == kPercent ? ConvertPercent(scan, directive)
                                : ConvertPosition(scan, directive);
    if (outcome != kDone)
        return outcome;
    if (directive.isSuppressed)
        scan->hasSkipped = true;
    else
        scan->assigned++;
    return kDone;
}

// ---- The format ----

// White space or a literal of the format.
template <class Char>
static inline Outcome MatchText(Scan<Char> *scan, const Char **format)
{
    if (!IsSpace(Char{}, AsUnit(**format)))
        return MatchLiteral(scan, format);
    SkipBlanks(scan);
    (*format)++;
    return kDone;
}

template <class Char>
static inline Outcome ScanFormat(Scan<Char> *scan, const Char *format)
{
    while (*format != '\0') {
        if (*format != '%') {
            const Outcome outcome = MatchText(scan, &format);
            if (outcome != kDone)
                return outcome;
            continue;
        }
        format++;
        const Outcome outcome = Convert(scan, &format);
        if (outcome != kDone)
            return outcome;
        if (scan->isAtEnd && !(format[0] == '%' && format[1] == 'n'))
            return kDone;
    }
    return kDone;
}

template <class Char>
static inline int ResultOf(const Scan<Char> &scan, Outcome outcome)
{
    if (outcome == kBadParameter)
        return kBadParameterResult;
    if (outcome == kInputEnd && scan.assigned == 0 && !scan.hasSkipped)
        return EOF;
    return scan.assigned;
}

template <class Char>
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
template <class Char>
static Directive FirstTextDirective(const Char *format)
{
    Directive directive = {};
    while (*format != '\0' && *format != '%')
        format++;
    if (*format == '\0')
        return directive;
    format++;
    while (*format >= '0' && *format <= '9')
        format++;
    while (*format == 'l' || *format == 'w' || *format == 'h')
        format = ReadSizeLetter(format, &directive);
    directive.type = AsUnit(*format);
    switch (LetterOf(directive.type)->role) {
    case kCapitalText: LowerCapital(&directive); return directive;
    case kCharacters:
    case kWord: return directive;
    case kSet: directive.type = EndOfSet(format + 1) != nullptr ? '[' : 0; return directive;
    default: directive.type = 0; return directive;
    }
}

template <class Char>
static void ClearFirstText(const Char *input, const Char *format, va_list argList)
{
    if (format == nullptr)
        return;
    const Directive directive = FirstTextDirective(format);
    if (directive.type == 0)
        return;
    const bool hasInput = input != nullptr && *input != '\0';
    if (hasInput && directive.type != 's')
        return;

    va_list arguments;
    va_copy(arguments, argList);
    Text text = {false, true, nullptr, 0, 0};
    text.dest = va_arg(arguments, char *);
    const unsigned int size = va_arg(arguments, unsigned int);
    va_end(arguments);
    // A size below that of a wide zero may be one in bytes.
    text.isWide = directive.wideLetters > 0 && size >= sizeof(wchar_t);
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
