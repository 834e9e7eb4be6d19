// The conversions of formatted output: what the machine has read of a directive, and what converts
// it.
//
// Functions that another source of the library calls have C linkage and the library's prefix: so no
// name of a program that links it can meet theirs, and the objects need nothing of C++.
#ifndef TAMRIK_OUTPUT_CONVERSIONS_H
#define TAMRIK_OUTPUT_CONVERSIONS_H

#include "tamrik/output_writing.h"

enum : unsigned {
    kForceSign = 0x1,        // '+'
    kSpaceForSign = 0x2,     // ' '
    kLeftJustify = 0x4,      // '-', or a negative '*' width
    kZeroPad = 0x8,          // '0' as a flag
    kLong = 0x10,            // "l"
    kShort = 0x20,           // "h"
    kSigned = 0x40,          // 'd', 'i'
    kAlternate = 0x80,       // '#', forced by 'p'
    kNegative = 0x100,       // the value is below zero
    kOctalZero = 0x200,      // 'o' with '#'
    kLongDouble = 0x400,     // 'L', 'q'
    kWide = 0x800,           // 'w'; what 'S' and 'C' mean in the narrow engine
    kLongLong = 0x1000,      // "ll", 'L', 'q'
    kCharSized = 0x2000,     // "hh"
    kPointer = 0x4000,       // 'p'
    kPointerSized = 0x8000,  // "I", "I64", 'p'
    kPtrDiff = 0x10000,      // 't'
    kSizeT = 0x20000,        // 'z'
    kIntMax = 0x40000,       // 'j'
};

static constexpr int kNoPrecision = -1;

// What the machine has read since a '%'.
template <class Char>
struct Directive {
    const Char *start = nullptr;  // its '%'
    unsigned flags = 0;
    int width = 0;
    int precision = kNoPrecision;
};

// Takes the argument of a directive that ends with the conversion `ch`, just before call->next, and
// writes it. A call that fails has a negative charsOut afterwards.
extern "C" void tamrik_convert(Call<char> *call, const Directive<char> &directive, char ch);
extern "C" void tamrik_wconvert(Call<wchar_t> *call, const Directive<wchar_t> &directive,
                                wchar_t ch);

static inline void Convert(Call<char> *call, const Directive<char> &directive, char ch)
{
    tamrik_convert(call, directive, ch);
}

static inline void Convert(Call<wchar_t> *call, const Directive<wchar_t> &directive, wchar_t ch)
{
    tamrik_wconvert(call, directive, ch);
}

#endif
