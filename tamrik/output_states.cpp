// output_states.cpp - the state table of the output format language, as it is printed and packed.
//
// The classes and the matrix read like the printed table; the compiler packs them into the bytes of
// tamrik__lookuptable_s.
#include "tamrik/output_states.h"

static constexpr int kClasses = 9;
static constexpr int kReadStates = 7 + 1;  // all but Invalid, which nothing follows

// The members of each class. Every character outside ' ' to 'z' is Other too.
static constexpr const char *kClassMembers[kClasses] = {
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

// A byte of the packed table does two jobs: its low nibble is the class of the character
// kFirstChar + index, its high nibble the next state at index class * kStates + state.
static constexpr unsigned char PackedByte(int index)
{
    int charClass = 0;
    for (int row = 0; row < kClasses; row++) {
        for (const char *member = kClassMembers[row]; *member != '\0'; member++)
            if (*member == static_cast<int>(kFirstChar) + index)
                charClass = row;
    }
    const int row = index / kStates;
    const int from = index % kStates;
    const bool isCell = row < kClasses && from < kReadStates;
    const int next = isCell ? static_cast<int>(NextStateAsPrinted(row, from)) : 0;
    return static_cast<unsigned char>(next << 4 | charClass);
}

#define SEVEN_BYTES(i)                                                                             \
    PackedByte(i), PackedByte((i) + 1), PackedByte((i) + 2), PackedByte((i) + 3),                  \
        PackedByte((i) + 4), PackedByte((i) + 5), PackedByte((i) + 6)

constinit const unsigned char tamrik__lookuptable_s[kTableSize] = {
    SEVEN_BYTES(0),  SEVEN_BYTES(7),  SEVEN_BYTES(14), SEVEN_BYTES(21), SEVEN_BYTES(28),
    SEVEN_BYTES(35), SEVEN_BYTES(42), SEVEN_BYTES(49), SEVEN_BYTES(56), SEVEN_BYTES(63),
    SEVEN_BYTES(70), SEVEN_BYTES(77), SEVEN_BYTES(84)};
