// DecodeOctal takes the escapes off a path of mountinfo, in place.
//
// Assumes: a terminated text in a block that ends with it.
// Shows:   three octal digits behind a backslash, of which the first is at most 3, become one byte,
//          all else stays; nothing outside of the text is read or written.
//
// takes: platform/linux/MountPoints.cpp DecodeOctal
// proves: AnyText LENGTH=5 LENGTH=8: every text of up to LENGTH characters
#include "arena.h"
#include "product.h"

static bool IsDigit(char ch, char most)
{
    return ch >= '0' && ch <= most;
}

void AnyText(void)
{
    char text[LENGTH + 1], before[LENGTH + 4] = {0};
    const size_t start = nondet_size();
    ASSUME(start <= LENGTH);
    text[LENGTH] = '\0';
    for (size_t i = 0; i <= LENGTH; i++) {
        before[i] = text[i];
        ASSUME(i < start || i == LENGTH || text[i] != '\0');
    }
    DecodeOctal(text + start);

    size_t at = start;
    for (size_t i = 0; i <= LENGTH; i++) {
        if (i < start)
            SHOW(text[i] == before[i], "nothing before the text is written");
        if (i < start || at > LENGTH)
            continue;
        const char *const in = before + at;
        const bool isEscape =
            in[0] == '\\' && IsDigit(in[1], '3') && IsDigit(in[2], '7') && IsDigit(in[3], '7');
        const int value = (in[1] - '0') * 64 + (in[2] - '0') * 8 + (in[3] - '0');
        SHOW(text[i] == (isEscape ? (char)value : in[0]), "every byte is as promised");
        at += isEscape ? 4 : 1;
    }
}
