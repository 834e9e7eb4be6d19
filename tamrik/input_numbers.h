// The integers and floating-point values of formatted input.
//
// Integers are summed up as they are read and clamped at the end; the text of a floating-point
// value is collected as C11 7.21.6.2 says and converted by strtod.
#ifndef TAMRIK_INPUT_NUMBERS_H
#define TAMRIK_INPUT_NUMBERS_H

#include "tamrik/input_fields.h"

#include <errno.h>
#include <langinfo.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

// ---- Integers ----

struct Integer {
    uint64_t magnitude;
    bool isNegative;
    bool isTooLarge;
    bool hasDigits;
};

static constexpr unsigned int kNoDigit = UCHAR_MAX;

struct DigitTable {
    unsigned char values[UCHAR_MAX + 1];
};

static consteval DigitTable MakeDigitTable()
{
    DigitTable table = {};
    for (unsigned char &value : table.values)
        value = kNoDigit;
    for (unsigned char digit = 0; digit < 16; digit++) {
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
    // Below 2 to the 60 there is room for a digit of any base.
    if (value->magnitude >> 60 != 0 && value->magnitude > (UINT64_MAX - digit) / base)
        value->isTooLarge = true;
    else
        value->magnitude = value->magnitude * base + digit;
}

template <class AnyField>
static inline void AddDigits(AnyField *field, unsigned int base, Integer *value)
{
    for (unsigned int digit = DigitValue(field->ch); digit < base; digit = DigitValue(field->ch)) {
        AddDigit(value, base, digit);
        Advance(field);
    }
}

// A value that no 64 bits hold becomes the nearest that they do; unsigned ones with a '-' wrap.
static inline uint64_t ValueOf(const Integer &value, bool isSigned)
{
    uint64_t magnitude = value.magnitude;
    if (value.isTooLarge || magnitude > INT64_MAX) {
        if (value.isTooLarge && !isSigned)
            return UINT64_MAX;
        if (isSigned)
            magnitude = static_cast<uint64_t>(INT64_MAX) + (value.isNegative ? 1 : 0);
    }
    return value.isNegative ? 0 - magnitude : magnitude;
}

template <class Type>
static inline void StoreAs(void *dest, uint64_t value)
{
    const Type narrowed = static_cast<Type>(value);
    memcpy(dest, &narrowed, sizeof narrowed);
}

static inline void StoreInteger(void *dest, IntegerSize size, uint64_t value)
{
    if (size == kIntSize) [[likely]]
        StoreAs<unsigned int>(dest, value);
    else if (size == k64BitSize)
        StoreAs<uint64_t>(dest, value);
    else if (size == kLongSize)
        StoreAs<unsigned long>(dest, value);
    else if (size == kShortSize)
        StoreAs<unsigned short>(dest, value);
    else
        StoreAs<unsigned char>(dest, value);
}

static inline bool IsLetter(Unit ch, char lower)
{
    return ch == lower || (lower >= 'a' && lower <= 'z' && ch == lower - 'a' + 'A');
}

// Goes past "(nil)", in either case.
template <class AnyField>
static inline bool PassNull(AnyField *field)
{
    for (const char *word = "(nil)"; *word != '\0'; word++) {
        if (!IsLetter(field->ch, *word))
            return false;
        Advance(field);
    }
    return true;
}

// Reads the "0x" that base 16 may have, and finds the base that a base of 0 stands for. A zero that
// no 'x' follows is a digit.
template <class AnyField>
static inline unsigned int ReadPrefix(AnyField *field, unsigned int base, Integer *value)
{
    if (base == 8 || base == 10)
        return base;
    if (field->ch != '0')
        return base == 0 ? 10 : base;
    Advance(field);
    if (IsLetter(field->ch, 'x')) {
        Advance(field);
        return 16;
    }
    value->hasDigits = true;
    return base == 0 ? 8 : base;
}

template <class AnyField>
static inline Outcome ReadIntegerField(AnyField *field, const Directive &directive)
{
    Integer value = {};
    if (field->ch == kEnd)
        return kInputEnd;
    if (field->ch == '(' && directive.type == 'p') {
        value.hasDigits = PassNull(field);
    } else {
        value.isNegative = field->ch == '-';
        if (field->ch == '-' || field->ch == '+')
            Advance(field);
        AddDigits(field, ReadPrefix(field, directive.letter->base, &value), &value);
    }
    LeaveField(*field);
    if (!value.hasDigits)
        return kNoMatch;
    if (!directive.isSuppressed)
        StoreInteger(directive.dest, directive.type == 'p' ? k64BitSize : directive.size,
                     ValueOf(value, directive.letter->isSigned));
    return kDone;
}

template <class Char>
static inline Outcome ReadInteger(Scan<Char> *scan, const Directive &directive)
{
    return ReadField(scan, directive, [](auto *field, const Directive &what) {
        return ReadIntegerField(field, what);
    });
}

// ---- Floating point ----

// Keeps text in place of the next character, and goes on to the one after it.
template <class AnyField>
static inline void Keep(AnyField *field, char text)
{
    if (Append(&field->scan->number, text)) {
        Advance(field);
        return;
    }
    field->isOutOfMemory = true;
    EndAfterNext(field);
}

template <class AnyField>
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
    const int64_t most = Least(field->end - field->at, room);
    char *const dest = number->text + number->used;
    int64_t count = 0;
    for (; count < most && DigitValue(AsUnit(field->at[count])) < base; count++)
        dest[count] = field->at[count];
    LookAt(field, field->at + count);
    number->used += static_cast<size_t>(count);
    return count;
}

template <class Char>
static inline int64_t KeepRun(Field<Char> * /*tag*/, unsigned int /*tag*/)
{
    return 0;
}

template <class AnyField>
static inline bool KeepDigits(AnyField *field, unsigned int base)
{
    bool hasDigits = KeepRun(field, base) > 0;
    while (DigitValue(field->ch) < base) {
        hasDigits = true;
        KeepNext(field);
    }
    return hasDigits;
}

template <class AnyField>
static void KeepSign(AnyField *field)
{
    if (field->ch == '-' || field->ch == '+')
        KeepNext(field);
}

template <class AnyField>
static bool KeepWord(AnyField *field, const char *word)
{
    for (; *word != '\0'; word++) {
        if (!IsLetter(field->ch, *word))
            return false;
        KeepNext(field);
    }
    return true;
}

template <class AnyField>
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
template <class AnyField>
static bool KeepPoint(AnyField *field)
{
    const char *point = nl_langinfo(RADIXCHAR);
    if (field->ch != AsUnit(*point))
        return true;
    for (; *point != '\0'; point++) {
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
    for (size_t i = 0; i + 1 < length; i++) {
        field->isOutOfMemory = !Append(&field->scan->number, point[i]);
        if (field->isOutOfMemory)
            return false;
    }
    Keep(field, point[length - 1]);
    return true;
}

template <class AnyField>
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

static void StoreFloat(const Directive &directive, const char *text)
{
    if (directive.isLongDouble) {
        const long double value = strtold(text, nullptr);
        memcpy(directive.dest, &value, sizeof value);
        return;
    }
    const double value = strtod(text, nullptr);
    if (directive.size == kLongSize || directive.size == k64BitSize) {
        memcpy(directive.dest, &value, sizeof value);
        return;
    }
    const float rounded = static_cast<float>(value);
    memcpy(directive.dest, &rounded, sizeof rounded);
}

template <class AnyField>
static inline Outcome ReadFloatField(AnyField *field, const Directive &directive)
{
    FloatText *number = &field->scan->number;
    Restart(number);
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
    if (!directive.isSuppressed)
        StoreFloat(directive, number->text);
    return kDone;
}

// A function of its own, so that the many steps of a float take no registers from other
// conversions.
template <class Char>
[[gnu::noinline]] static Outcome ReadFloat(Scan<Char> *scan, const Directive &directive)
{
    return ReadField(scan, directive, [](auto *field, const Directive &what) {
        return ReadFloatField(field, what);
    });
}

#endif
