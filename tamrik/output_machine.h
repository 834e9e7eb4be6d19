// The state machine that reads an output format, as its printed table, and the step of the packed one.
//
// Part of output.cpp alone, which packs the table at compile time.
#ifndef TAMRIK_OUTPUT_MACHINE_H
#define TAMRIK_OUTPUT_MACHINE_H

#include "tamrik/tamrik.h"

enum class CharClass { Other, Percent, Dot, Star, Zero, Digit, FlagChar, SizeChar, TypeChar };
enum class State { Normal, Percent, Flag, Width, Dot, Precision, Size, Type, Invalid };

constexpr int kClasses = 9;
constexpr int kStates = 9;
constexpr int kReadStates = 7 + 1;  // all but Invalid, which nothing follows
constexpr unsigned kFirstChar = ' ';
constexpr unsigned kTableSize = 'z' - kFirstChar + 1;

// The members of each class. Every character outside ' ' to 'z' is Other too.
constexpr const char *kClassMembers[kClasses] = {
    "",                   // Other: whatever no other class has
    "%",                  // Percent
    ".",                  // Dot
    "*",                  // Star
    "0",                  // Zero
    "123456789",          // Digit
    " #+-",               // FlagChar
    "ILNZhjlqtwz",        // SizeChar
    "CEFGSXcdefgiopsux",  // TypeChar: neither 'a' nor 'A' nor 'n'
};

static constexpr State NextStateAsPrinted(int charClass, int from)
{
    using enum State;
    // clang-format off
    constexpr State next[kClasses][kReadStates] = {
        /* from state:    Normal   Percent  Flag     Width    Dot        Precision  Size     Type     */
        /* Other    */  { Normal,  Invalid, Invalid, Invalid, Invalid,   Invalid,   Invalid, Normal  },
        /* Percent  */  { Percent, Normal,  Invalid, Invalid, Invalid,   Invalid,   Invalid, Percent },
        /* Dot      */  { Normal,  Dot,     Dot,     Dot,     Invalid,   Invalid,   Invalid, Normal  },
        /* Star     */  { Normal,  Width,   Width,   Invalid, Precision, Invalid,   Invalid, Normal  },
        /* Zero     */  { Normal,  Flag,    Flag,    Width,   Precision, Precision, Invalid, Normal  },
        /* Digit    */  { Normal,  Width,   Width,   Width,   Precision, Precision, Invalid, Normal  },
        /* FlagChar */  { Normal,  Flag,    Flag,    Flag,    Invalid,   Invalid,   Invalid, Normal  },
        /* SizeChar */  { Normal,  Size,    Size,    Size,    Size,      Size,      Size,    Normal  },
        /* TypeChar */  { Normal,  Type,    Type,    Type,    Type,      Type,      Type,    Normal  },
    };
    // clang-format on
    return next[charClass][from];
}

template <class Char>
static inline State NextState(Char ch, State state)
{
    const unsigned index = static_cast<unsigned>(ch) - kFirstChar;
    const int charClass = index < kTableSize ? tamrik__lookuptable_s[index] & 0xF : 0;
    const int cell = charClass * kStates + static_cast<int>(state);
    return static_cast<State>(tamrik__lookuptable_s[cell] >> 4);
}

#endif
