// The text of a floating-point field, in a buffer that grows on the heap and is wiped at the end.
//
// A header, since every character of a field is appended and every scan wipes the buffer.
#ifndef TAMRIK_INPUT_FLOAT_TEXT_H
#define TAMRIK_INPUT_FLOAT_TEXT_H

#include "tamrik/tamrik.h"

#include <stdlib.h>
#include <string.h>

static constexpr size_t kFloatTextSize = 350;
static constexpr size_t kCacheLineSize = 64;

// Through a volatile pointer the compiler cannot know that this is a store nobody reads.
static inline void Wipe(char *text, size_t size)
{
    void *(*const volatile fill)(void *, int, size_t) = memset;
    fill(text, 0, size);
}

struct FloatText {
    // At the start of a cache line it is wiped faster than across.
    alignas(kCacheLineSize) char local[kFloatTextSize];
    int onHeap;
    char *text;
    size_t used;
    size_t size;
};

// There is always room for one character more; false when there could not be made any.
static inline bool Append(FloatText *number, char ch)
{
    number->text[number->used++] = ch;
    return number->used != number->size ||
           __check_float_string(number->used, &number->size, &number->text, number->local,
                                &number->onHeap);
}

// Begins a field's text, in the buffer on the heap if one before has needed it.
static inline void Restart(FloatText *number)
{
    number->used = 0;
    if (number->onHeap)
        return;
    number->text = number->local;
    number->size = sizeof number->local;
}

static inline void WipeFloatText(FloatText *number)
{
    Wipe(number->local, sizeof number->local);
    if (number->onHeap) {
        Wipe(number->text, number->size);
        free(number->text);
    }
}

#endif
