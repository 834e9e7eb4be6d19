// InterpretLine makes of a finished line of the log what printing it as a format gives.
//
// Assumes: a line of the given length, terminated, in a block that ends with it; it may hold no
// other zero.
// Shows:   the line never grows, and nothing beyond its end is read or written; its length and
//          every byte are those of the rule: doubled percent signs become one, up to the first that
//          is not doubled.
//
// takes: Common/Log.cpp InterpretLine
// takes: tamrik/memory.cpp IsBadSize ClearAll memmove_s
// proves: AnyLine LENGTH=3 LENGTH=7: every line of up to LENGTH characters
#include "tamrik/tamrik.h"
#include "arena.h"
#include "libc.h"
#include <string.h>
#include "product.h"

void AnyLine(void)
{
    char line[LENGTH + 1], before[LENGTH + 1];
    const size_t start = nondet_size();
    ASSUME(start <= LENGTH);
    line[LENGTH] = '\0';
    for (size_t i = 0; i <= LENGTH; i++) {
        ASSUME(i < start || i == LENGTH || line[i] != '\0');
        before[i] = line[i];
    }
    const size_t length = InterpretLine(line + start, LENGTH - start);
    SHOW(length <= LENGTH - start, "the line never grows");

    size_t to = start;
    bool isLiteral = false;  // behind a sign that is not doubled
    for (size_t at = start; at < LENGTH; at++, to++) {
        const bool isDoubled = before[at] == '%' && at + 1 < LENGTH && before[at + 1] == '%';
        SHOW(line[to] == before[at], "every byte is as promised");
        isLiteral = isLiteral || (before[at] == '%' && !isDoubled);
        at += isDoubled && !isLiteral ? 1 : 0;
    }
    SHOW(length == to - start && line[to] == '\0', "the line ends where its last byte is");
    for (size_t i = 0; i < start; i++)
        SHOW(line[i] == before[i], "nothing before the line is written");
}
