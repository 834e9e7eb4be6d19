// FindValue finds the text behind the first "=" of a line's rest.
//
// Assumes: a terminated text in a block that ends with it.
// Shows:   null where a line end or the text's end comes first; nothing outside of the text is
// read.
//
// takes: src/ActiveVolumeProgram.cpp FindValue
// proves: AnyRest LENGTH=4 LENGTH=32: every text of up to LENGTH characters
#include "arena.h"
#include "libc.h"
#include "product.h"

void AnyRest(void)
{
    char text[LENGTH + 1];
    const size_t start = nondet_size();
    ASSUME(start <= LENGTH);
    text[LENGTH] = '\0';
    for (size_t i = 0; i < LENGTH; i++)
        ASSUME(i < start || text[i] != '\0');
    const char *const value = FindValue(text + start);

    size_t at = start;
    while (text[at] != '\0' && text[at] != '=' && text[at] != '\n' && text[at] != '\r')
        at++;
    SHOW(value == (text[at] == '=' ? text + at + 1 : NULL),
         "the value is what is behind the first =");
}
