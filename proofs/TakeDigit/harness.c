// TakeDigit appends a digit to a width or precision, and stops at the limit before it could
// overflow.
//
// Assumes: the number is any, the digit 0 to 9.
// Shows:   false just above kNumberLimit, with the number as it was; else the number with the digit
//          behind it, or, if it was negative, as it was. No arithmetic overflows.
//
// takes: tamrik/output_machine.cpp kNumberLimit TakeDigit
// proves: AnyNumber: every number of 32 bits
#include "arena.h"
#include "product.h"

void AnyNumber(void)
{
    const int before = nondet_int(), digit = nondet_int();
    ASSUME(digit >= 0 && digit <= 9);
    int number = before;
    const bool isTaken = TakeDigit(&number, digit);
    SHOW(isTaken == (before <= 21474836), "a number above the limit takes no more digits");
    const long long expected = !isTaken || before < 0 ? before : before * 10LL + digit;
    SHOW(number == expected, "the number is as promised");
}
