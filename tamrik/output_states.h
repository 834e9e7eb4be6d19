// The state machine that reads an output format: its states, and its step by the packed table.
#ifndef TAMRIK_OUTPUT_STATES_H
#define TAMRIK_OUTPUT_STATES_H

#include "tamrik/tamrik.h"

enum class State { Normal, Percent, Flag, Width, Dot, Precision, Size, Type, Invalid };

static constexpr int kStates = 9;
static constexpr unsigned kFirstChar = ' ';
static constexpr unsigned kTableSize = 'z' - kFirstChar + 1;

// The state after a character. A character outside of the table is of the class Other, 0.
template <class Char>
static inline State NextState(Char ch, State state)
{
    const unsigned index = static_cast<unsigned>(ch) - kFirstChar;
    const int charClass = index < kTableSize ? tamrik__lookuptable_s[index] & 0xF : 0;
    const int cell = charClass * kStates + static_cast<int>(state);
    return static_cast<State>(tamrik__lookuptable_s[cell] >> 4);
}

#endif
