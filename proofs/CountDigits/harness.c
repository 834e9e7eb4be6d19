// CountDecimal and CountDigits say how many digits a value has: decimal, octal, hexadecimal.
//
// Assumes: nothing.
// Shows:   the value has that many digits and no more; 0 has none.
//
// takes: tamrik/output_conversions.cpp kOctal kHexadecimal CountDecimal CountDigits
// proves: Decimal: every value of 64 bits
// proves: OctalAndHexadecimal: every value of 64 bits
// with: --unwind 23
#include "arena.h"
#include "product.h"

void Decimal(void)
{
    const uint64_t value = nondet_size();
    const int count = CountDecimal(value);
    SHOW(count >= 0 && count <= 20, "no value has more digits");
    uint64_t least = 1;  // with so many digits; for 0, 0
    for (int i = 1; i < count; i++)
        least *= 10;
    SHOW(count == 0 ? value == 0 : value >= least, "no digit too many");
    SHOW(count == 20 || value < (count == 0 ? 1 : least * 10), "no digit too few");
}

void OctalAndHexadecimal(void)
{
    const uint64_t value = nondet_size();
    const int bits = nondet_bool() ? kOctal : kHexadecimal;
    const int count = CountDigits(value, bits);
    SHOW(count >= 0 && count <= 22, "no value has more digits");
    SHOW(count == 0 ? value == 0 : value >> (count - 1) * bits != 0, "no digit too many");
    SHOW(count * bits >= 64 || value >> count * bits == 0, "no digit too few");
}
