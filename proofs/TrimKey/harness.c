// TrimKey cuts blanks, brackets and line ends off both ends of a text, in place.
//
// Assumes: text is null or a terminated text in a block that ends with it.
// Shows:   the length and every byte; nothing outside of the text is read or written.
//
// takes: src/ActiveVolumeProgram.cpp TrimKey
// takes: tamrik/memory.cpp IsBadSize ClearAll memmove_s
// proves: AnyText LENGTH=3 LENGTH=7: every text of up to LENGTH characters
#include "tamrik/tamrik.h"
#include "arena.h"
#include "libc.h"
#include <string.h>
#define Log(...) (void)0
#include "product.h"

static bool IsTrimmed(char ch)
{
    return ch == ' ' || ch == '[' || ch == ']' || ch == '\n' || ch == '\r';
}

void AnyText(void)
{
    char text[LENGTH + 1], before[LENGTH + 1];
    const size_t start = nondet_size();  // the text is the array's end
    ASSUME(start <= LENGTH);
    text[LENGTH] = '\0';
    size_t length = 0;
    for (size_t i = 0; i <= LENGTH; i++) {
        before[i] = text[i];
        ASSUME(i < start || i == LENGTH || text[i] != '\0');
    }
    SHOW(TrimKey(NULL) == -1, "no text has no length");
    const int64_t result = TrimKey(text + start);

    size_t first = start, end = LENGTH;
    while (first < end && IsTrimmed(before[first]))
        first++;
    while (first < end && IsTrimmed(before[end - 1]))
        end--;
    length = end - first;
    SHOW(result == (int64_t)length, "the length is that of what is left");
    for (size_t i = 0; i <= LENGTH; i++) {
        const bool isKept = i >= start && i - start < length;
        const char expected = isKept                ? before[first + (i - start)]
                              : i - start == length ? '\0'
                                                    : before[i];
        SHOW(text[i] == (i < start ? before[i] : expected) || i > start + length,
             "every byte is as promised");
    }
}
