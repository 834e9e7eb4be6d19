// IsPrimaryKey says whether a name in a line stands in brackets, with nothing but blanks between.
//
// Assumes: line is null or a terminated text in a block that ends with it; found is null or in the
// line. Shows:   the answer; nothing outside of the line is read, whatever the length of the name
// is said to be.
//
// takes: src/ActiveVolumeProgram.cpp IsOpenedBefore IsPrimaryKey
// proves: AnyLine LENGTH=3 LENGTH=14: every line of up to LENGTH characters, every place and length
#include "arena.h"
#include "libc.h"
#include <string.h>
#define Log(...) (void)0
#include "product.h"

void AnyLine(void)
{
    char line[LENGTH + 1];
    const size_t start = nondet_size(), at = nondet_size();
    const int64_t keyLength = (int64_t)nondet_size();
    ASSUME(start <= LENGTH && at >= start && at <= LENGTH);
    line[LENGTH] = '\0';
    for (size_t i = 0; i < LENGTH; i++)
        ASSUME(i < start || line[i] != '\0');
    const bool hasLine = nondet_bool(), hasFound = nondet_bool();
    const bool isKey =
        IsPrimaryKey(hasLine ? line + start : NULL, hasFound ? line + at : NULL, keyLength);

    bool expected = hasLine && hasFound && keyLength >= 0 && keyLength <= (int64_t)(LENGTH - at);
    if (expected) {
        size_t before = at;
        while (before > start && line[before - 1] == ' ')
            before--;
        size_t behind = at + (size_t)keyLength;
        while (line[behind] == ' ')
            behind++;
        expected = before > start && line[before - 1] == '[' && line[behind] == ']';
    }
    SHOW(isKey == expected, "a header is a name in brackets");
}
