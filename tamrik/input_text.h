// "%[", "%s" and "%c" of formatted input: sets, and text stored within its size.
//
// Sizes are in characters of the destination; nothing is written past them. A missing field leaves
// its destination as it was, one that began and cannot be stored leaves a terminated text. What
// goes from a string to a narrow destination is found as a whole, all else is read by single
// characters.
#ifndef TAMRIK_INPUT_TEXT_H
#define TAMRIK_INPUT_TEXT_H

#include "tamrik/input_fields.h"
#include "tamrik/small.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static constexpr unsigned int kLargestNarrowSize = MAX_BUFFER_SIZE;
static constexpr unsigned int kLargestWideSize = 0x1FFFFFFF;

// ---- Sets ----

// Finds the ']' that closes the set whose '[' comes just before text; null when there is none. One
// that comes first, after the '^' if there is one, is a member.
template <class Char>
static const Char *EndOfSet(const Char *text)
{
    if (*text == '^')
        text++;
    if (*text == ']')
        text++;
    while (*text != '\0' && *text != ']')
        text++;
    return *text == ']' ? text : nullptr;
}

// The next members, low to high, at *text. A '-' between two of which the second is not the smaller
// makes a range, and the end of one range can begin another; any other '-' is a member itself.
template <class Char>
static void NextMembers(const Char **text, const Char *end, Unit *low, Unit *high)
{
    *low = AsUnit(*(*text)++);
    *high = *low;
    if (end - *text < 2 || **text != '-' || AsUnit((*text)[1]) < *low)
        return;
    *high = AsUnit((*text)[1]);
    (*text)++;
}

// Reads the set whose '[' comes just before text and returns where it ends: after its ']'. When
// there is none, its end is null and nothing of the text is taken.
template <class Char>
static inline const Char *ReadSet(const Char *text, Set<Char> *set)
{
    set->isNegated = *text == '^';
    set->begin = text + (set->isNegated ? 1 : 0);
    set->end = EndOfSet(text);
    return set->end != nullptr ? set->end + 1 : text;
}

// Finds out which of the lowest characters match.
template <class Char>
static void ListMembers(Set<Char> *set)
{
    memset(set->has, set->isNegated, sizeof set->has);
    for (const Char *at = set->begin; at < set->end;) {
        Unit low = 0;
        Unit high = 0;
        NextMembers(&at, set->end, &low, &high);
        high = high < UCHAR_MAX ? high : UCHAR_MAX;
        if (low <= high)
            memset(set->has + low, !set->isNegated, static_cast<size_t>(high - low + 1));
    }
}

template <class Char>
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

// ---- Strings, characters and sets ----

template <class Char>
static inline bool Belongs(const Directive &directive, const Set<Char> &set, Unit ch)
{
    if (directive.type == 's')
        return !IsSpace(Char{}, ch);
    if (directive.type == 'c')
        return true;
    return ch <= UCHAR_MAX ? set.has[ch] != 0 : IsInFarSet(set, ch);
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
    text->used++;
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

// A character of the field: as wide text is counted in whole characters, they are read whole. A
// byte that is not in the set ends the field before anything is made of it.
static inline Unit NextOfText(Scan<char> *scan, const Directive &directive, const Set<char> &set,
                              const Text &text)
{
    if (!text.isWide)
        return Next(scan);
    Unit ch = 0;
    if (directive.type == '[') {
        ch = PeekByte(&scan->reader);
        if (ch >= 0 && !set.has[ch])
            return kFieldEnd;
    }
    if (ch >= 0)
        ch = ReadCharacter(&scan->reader);
    if (ch == kEnd)
        scan->isAtEnd = true;
    if (ch >= 0 && !IsFromString(scan))
        scan->charsOfStream += scan->reader.lastCount;
    return ch;
}

static inline Unit NextOfText(Scan<wchar_t> *scan, const Directive & /*tag*/,
                              const Set<wchar_t> & /*tag*/, const Text & /*tag*/)
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
static inline bool BelongsToText(const Scan<char> *scan, const Directive &directive,
                                 const Set<char> &set, const Text &text, Unit ch)
{
    if (!text.isWide)
        return Belongs(directive, set, ch);
    for (int i = 0; i < scan->reader.lastCount; i++) {
        if (!Belongs(directive, set, AsUnit(scan->reader.last[i])))
            return false;
    }
    return true;
}

static inline bool BelongsToText(const Scan<wchar_t> * /*tag*/, const Directive &directive,
                                 const Set<wchar_t> &set, const Text & /*tag*/, Unit ch)
{
    return Belongs(directive, set, ch);
}

// Ends a field that has begun and does not fit or cannot be converted: its text is empty.
static inline Outcome EndBrokenText(const Text &text)
{
    if (text.isStored)
        Terminate(text, 0);
    return kNoMatch;
}

// Ends a field of as many characters as are stored, which may not be none. A "%c" has no
// terminator, unless the input's end cut it short: then it is terminated like a string, and must
// have the room.
static inline Outcome EndText(const Directive &directive, const Text &text, bool isCut)
{
    if (directive.type == 'c' && !isCut)
        return kDone;
    if (directive.type == 'c' && text.used == text.size)
        return EndBrokenText(text);
    Terminate(text, text.used);
    return kDone;
}

// Reads the field into the destination, which stays as it was when the field is missing.
template <class Char>
static Outcome ReadText(Scan<Char> *scan, const Directive &directive, Set<Char> *set, Text text)
{
    if (directive.type == '[')
        ListMembers(set);
    int64_t left = directive.width;
    bool isEmpty = true;
    Unit ch = kFieldEnd;
    for (; left > 0; left--) {
        ch = NextOfText(scan, directive, *set, text);
        if (ch < 0)
            break;
        if (!BelongsToText(scan, directive, *set, text, ch)) {
            GiveBackOfText(scan, text, ch);
            break;
        }
        if (text.isStored && !Store(scan, &text, ch)) {
            GiveBackOfText(scan, text, ch);
            return EndBrokenText(text);
        }
        isEmpty = false;
    }
    if (ch == kNoCharacter)
        return EndBrokenText(text);
    if (isEmpty)
        return ch == kEnd ? kInputEnd : kNoMatch;
    return text.isStored ? EndText(directive, text, left > 0) : kDone;
}

// ---- Narrow text of strings, found as a whole ----

// Eight bytes, the first of them the lowest.
static inline uint64_t EightBytes(const char *at)
{
    uint64_t bytes = 0;
    memcpy(&bytes, at, sizeof bytes);
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? bytes : __builtin_bswap64(bytes);
}

// Marks the bytes that do not print by their highest bits: the lowest of them surely, above it also
// others, as sums and differences carry.
static inline uint64_t MarkNotPrinting(uint64_t bytes)
{
    const uint64_t everyByte = UINT64_C(0x0101010101010101);
    const uint64_t isAbove = bytes | (bytes + everyByte * (0x7F - '~'));
    const uint64_t isBelow = bytes - everyByte * '!';
    return (isAbove | isBelow) & everyByte * 0x80;
}

// The first byte that does not print, or end.
static inline const char *SkipPrinting(const char *at, const char *end)
{
    const ptrdiff_t block = sizeof(uint64_t);
    if (end - at < block) {
        while (at != end && IsPrinting(AsUnit(*at)))
            at++;
        return at;
    }
    // The last block may begin within the one before.
    for (const char *const last = end - block;; at = last - at < block ? last : at + block) {
        const uint64_t marks = MarkNotPrinting(EightBytes(at));
        if (marks != 0)
            return at + __builtin_ctzll(marks) / CHAR_BIT;
        if (at == last)
            return end;
    }
}

[[gnu::noinline]] static const char *EndOfWordSingly(const char *at, const char *end)
{
    while (at != end && !IsSpace(char{}, AsUnit(*at)))
        at++;
    return at;
}

static inline const char *EndOfWord(const char *at, const char *end)
{
    at = SkipPrinting(at, end);
    return at == end || IsPlainSpace(AsUnit(*at)) ? at : EndOfWordSingly(at, end);
}

[[gnu::noinline]] static const char *EndOfMembers(const char *at, const char *end, Set<char> *set)
{
    // All but one character, as in "%[^=]", is what sets are used for most.
    if (set->isNegated && set->end - set->begin == 1) {
        const int only = static_cast<unsigned char>(*set->begin);
        const void *found = memchr(at, only, static_cast<size_t>(end - at));
        return found != nullptr ? static_cast<const char *>(found) : end;
    }
    ListMembers(set);
    while (at != end && set->has[AsUnit(*at)])
        at++;
    return at;
}

// "%S" and "%C" are wide and the others narrow unless a size letter says something else. As with
// the letters, narrow and wide are the same in both engines.
static void LowerCapital(Directive *directive)
{
    directive->type += 'a' - 'A';
    if (directive->wideLetters == 0)
        directive->wideLetters = 1;
}

// Takes the destination's size from the arguments and judges it. One of 0 gets its terminator all
// the same.
template <class Char>
static Outcome TakeTextSize(Scan<Char> *scan, const Directive &directive, Text *text)
{
    const unsigned int size = va_arg(scan->arguments, unsigned int);
    text->dest = static_cast<char *>(directive.dest);
    text->isStored = true;
    if (size > (text->isWide ? kLargestWideSize : kLargestNarrowSize))
        return kBadParameter;
    if (size == 0) {
        Terminate(*text, 0);
        return kBadParameter;
    }
    text->size = size;
    return kDone;
}

template <class Char>
[[gnu::noinline]] static Outcome ConvertTextSingly(Scan<Char> *scan, Directive *directive,
                                                   Set<Char> *set)
{
    if (directive->letter->role == kCapitalText)
        LowerCapital(directive);
    if (directive->type == 'c' && directive->width == kAnyWidth)
        directive->width = 1;
    Text text = {directive->wideLetters > 0, !directive->isSuppressed, nullptr, 0, 0};
    Outcome outcome = text.isStored ? TakeTextSize(scan, *directive, &text) : kDone;
    if (outcome != kDone)
        return outcome;
    if (directive->type == '[' && set->end == nullptr)
        return kNoMatch;
    if (directive->type == 's')
        SkipBlanks(scan);
    if (directive->width == 0)
        return EndEmptyField(scan);
    if (text.isStored && directive->type != 'c')
        text.size--;
    return ReadText(scan, *directive, set, text);
}

// Reads a "%s" or "%[" whose blanks are skipped. The field is found as a whole and copied at once;
// one that is as long as the size says has no room for its terminator.
static inline Outcome ReadWholeText(Scan<char> *scan, const Directive &directive, Set<char> *set,
                                    const Text &text)
{
    const char *const at = scan->reader.at;
    const int64_t there = scan->reader.end - at;
    const int64_t size = static_cast<int64_t>(text.size);
    const int64_t most = Least(Least(there, directive.width), size);
    if (most == 0)
        return EndEmptyField(scan);
    const char *const last = at + most;
    const char *const end =
        directive.type == 's' ? EndOfWord(at, last) : EndOfMembers(at, last, set);
    const int64_t length = end - at;
    if (length == 0)
        return kNoMatch;
    if (length == size) {
        memcpy(text.dest, at, text.size - 1);
        text.dest[0] = '\0';
        scan->reader.at += size - 1;
        return kNoMatch;
    }
    CopyBlock(text.dest, at, static_cast<size_t>(length), kSmallCopy);
    text.dest[length] = '\0';
    scan->reader.at = end;
    if (length == there && length < directive.width)
        scan->isAtEnd = true;
    return kDone;
}

// A "%s" or "%[" that is stored, narrow, and read from a string.
[[gnu::noinline]] static Outcome ConvertWholeText(Scan<char> *scan, const Directive &directive,
                                                  Set<char> *set)
{
    Text text = {false, true, nullptr, 0, 0};
    const Outcome outcome = TakeTextSize(scan, directive, &text);
    if (outcome != kDone)
        return outcome;
    if (directive.type == 's')
        SkipBlanks(scan);
    else if (set->end == nullptr)
        return kNoMatch;
    return ReadWholeText(scan, directive, set, text);
}

static inline Outcome ConvertAnyText(Scan<char> *scan, Directive *directive, Set<char> *set)
{
    const bool isWhole = IsFromString(scan) && directive->letter->role <= kSet &&
                         !directive->isSuppressed && directive->wideLetters <= 0;
    return isWhole ? ConvertWholeText(scan, *directive, set)
                   : ConvertTextSingly(scan, directive, set);
}

static inline Outcome ConvertAnyText(Scan<wchar_t> *scan, Directive *directive, Set<wchar_t> *set)
{
    return ConvertTextSingly(scan, directive, set);
}

template <class Char>
static inline Outcome ConvertText(Scan<Char> *scan, Directive *directive, const Char **format)
{
    Set<Char> set;
    if (directive->letter->role == kSet)
        *format = ReadSet(*format, &set);
    return ConvertAnyText(scan, directive, &set);
}

#endif
