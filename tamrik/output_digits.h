// The digits of numbers, put where there is room for them.
//
// A header, since the bounded calls put the numbers of plain directives inline.
#ifndef TAMRIK_OUTPUT_DIGITS_H
#define TAMRIK_OUTPUT_DIGITS_H

#include "tamrik/small.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

static constexpr int kDecimal = 0;  // as bitsPerDigit; it has no whole number of them
static constexpr int kHexadecimal = 4;

static constexpr char _itoa_upper_digits[] = "0123456789ABCDEFX";
static constexpr char _itoa_lower_digits[] = "0123456789abcdefx";
static constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324"
                                      "25262728293031323334353637383940414243444546474849"
                                      "50515253545556575859606162636465666768697071727374"
                                      "75767778798081828384858687888990919293949596979899";

// A number whose digits are not made yet.
struct NumberText {
    uint64_t value;
    int digitCount;  // of the value; none for 0
    int length;      // with the zeros before them
    int bitsPerDigit;
    const char *digits;
};

// How many decimal digits `value` has; none for 0.
static inline int CountDecimal(uint64_t value)
{
    // clang-format off
    static constexpr uint64_t kPowersOfTen[] = {
        1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000, 10000000000,
        100000000000, 1000000000000, 10000000000000, 100000000000000, 1000000000000000,
        10000000000000000, 100000000000000000, 1000000000000000000, 10000000000000000000U,
    };
    // clang-format on
    // 1233 / 4096 is the logarithm of 2 to the base 10: the estimate is right or one too low.
    const int bits = 64 - __builtin_clzll(value | 1);
    const int estimate = bits * 1233 >> 12;
    return estimate + (value >= kPowersOfTen[estimate] ? 1 : 0);
}

static int CountDigits(uint64_t value, int bitsPerDigit)
{
    int count = 0;
    for (; value != 0; value >>= bitsPerDigit)
        count++;
    return count;
}

// The two digits of a value below 100.
static inline char *PutTwoDigits(char *to, uint32_t value)
{
    memcpy(to, kDigitPairs + size_t{value} * 2, 2);
    return to + 2;
}

// The four digits of a value below 10000.
static inline char *PutFourDigits(char *to, uint32_t value)
{
    return PutTwoDigits(PutTwoDigits(to, value / 100), value % 100);
}

// Puts the decimal digits of `value`, which are `count` (0 has none or one), and returns where they
// end. From the end on, in groups of eight whose halves do not wait for each other.
static char *PutDecimal(char *to, uint64_t value, int count)
{
    constexpr uint32_t kHalf = 10000;
    constexpr uint64_t kGroup = uint64_t{kHalf} * kHalf;
    constexpr int kGroupDigits = 8;
    char *at = to + count;
    for (; value >= kGroup; value /= kGroup) {
        const uint32_t group = static_cast<uint32_t>(value % kGroup);
        at -= kGroupDigits;
        PutFourDigits(PutFourDigits(at, group / kHalf), group % kHalf);
    }
    uint32_t rest = static_cast<uint32_t>(value);
    for (; rest >= 100; rest /= 100) {
        at -= 2;
        PutTwoDigits(at, rest % 100);
    }
    if (rest >= 10)
        PutTwoDigits(at - 2, rest);
    else if (at != to)
        *--at = static_cast<char>('0' + rest);
    return to + count;
}

static char *PutRepeated(char *to, char ch, size_t n)
{
    if (n > kSmallFill) {
        memset(to, ch, n);
    } else if (n > 0) {
        const uint64_t everyByte = UINT64_C(0x0101010101010101);
        FillSmall(reinterpret_cast<unsigned char *>(to), static_cast<unsigned char>(ch) * everyByte,
                  n);
    }
    return to + n;
}

static char *Put(char *to, NumberText number)
{
    to = PutRepeated(to, '0', static_cast<size_t>(number.length - number.digitCount));
    if (number.bitsPerDigit == kDecimal)
        return PutDecimal(to, number.value, number.digitCount);
    const unsigned mask = (1U << number.bitsPerDigit) - 1;
    for (char *at = to + number.digitCount; at != to; number.value >>= number.bitsPerDigit)
        *--at = number.digits[number.value & mask];
    return to + number.digitCount;
}

#endif
