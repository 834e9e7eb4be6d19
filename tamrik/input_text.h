// "%[", "%s" and "%c" of formatted input: sets, and text stored within its size.
//
// Sizes are in characters of the destination; nothing is written past them, and a terminated text is
// left on every failure. Part of input.cpp alone.
#ifndef TAMRIK_INPUT_TEXT_H
#define TAMRIK_INPUT_TEXT_H

#include "tamrik/input_fields.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static const unsigned int kLargestNarrowSize = MAX_BUFFER_SIZE;
static const unsigned int kLargestWideSize = 0x1FFFFFFF;

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

#endif
