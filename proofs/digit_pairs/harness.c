// PutTwoDigits and PutFourDigits put the decimal digits of a value, and no byte more.
//
// Assumes: a value below 100, or below 10000, and room for its digits.
// Shows:   the digits, leading zeros among them, and where they end.
//
// takes: tamrik/output_digits.h kDigitPairs PutTwoDigits PutFourDigits
// proves: Two: every value below 100
// proves: Four: every value below 10000
#include "arena.h"
#include <string.h>
#include "product.h"

void Two(void)
{
    char *const to = Block(2);
    const uint32_t value = (uint32_t)nondet_int();
    ASSUME(value < 100);
    SHOW(PutTwoDigits(to, value) == to + 2, "where they end");
    SHOW(to[0] == '0' + (char)(value / 10) && to[1] == '0' + (char)(value % 10), "the digits");
}

void Four(void)
{
    char *const to = Block(4);
    const uint32_t value = (uint32_t)nondet_int();
    ASSUME(value < 10000);
    SHOW(PutFourDigits(to, value) == to + 4, "where they end");
    uint32_t put = 0;
    for (int i = 0; i < 4; i++) {
        SHOW(to[i] >= '0' && to[i] <= '9', "a digit");
        put = put * 10 + (uint32_t)(to[i] - '0');
    }
    SHOW(put == value, "the digits");
}
