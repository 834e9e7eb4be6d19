// tamrik__lookuptable_s, the packed table of the output's state machine, is the printed one.
//
// Assumes: nothing.
// Shows:   for every character and state the step through the packed bytes ends in the state that
//          the printed table has for the character's class; no step leaves the table.
//
// takes: tamrik/output_states.cpp State kClasses kStates kReadStates kFirstChar kTableSize
// takes: tamrik/output_states.cpp kClassMembers NextStateAsPrinted NextState<char> PackedByte
// proves: EachStep: all 256 characters, all states
// with: --unwind 93
#include "tamrik/tamrik.h"
#include "arena.h"

#define tamrik__lookuptable_s g_packed
static unsigned char g_packed[91];

#include "product.h"

static int PrintedClass(char ch)
{
    for (int row = 1; row < kClasses; row++)
        for (const char *member = kClassMembers[row]; *member != '\0'; member++)
            if (*member == ch)
                return row;
    return 0;
}

void EachStep(void)
{
    SHOW(kTableSize == sizeof g_packed, "the table's size is the header's");
    for (int i = 0; i < (int)kTableSize; i++)
        g_packed[i] = PackedByte(i);
    const char ch = (char)nondet_int();
    const int from = nondet_int();
    ASSUME(from >= State_Normal && from <= State_Type);
    SHOW(NextState(ch, (State)from) == NextStateAsPrinted(PrintedClass(ch), from),
         "the step is the printed one");
}
