// A copy of an argument list that costs no wait.
//
// Where a list is an array of one struct, its bytes are all that it is. va_copy takes them in pieces
// larger than the words that va_start writes; such a read waits until those words have reached the
// cache, an eighth of a short scan's time. Word by word there is no wait.
#ifndef TAMRIK_ARGUMENTS_H
#define TAMRIK_ARGUMENTS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

// Makes to, of the type va_list, a copy of the caller's list from; va_end ends it. Volatile, so that the
// compiler reads no two words at once.
template <typename Element>
static inline void CopyArguments(Element (&to)[1], const Element *from)
{
    typedef uintptr_t Word __attribute__((may_alias));
    static_assert(sizeof(Element) % sizeof(Word) == 0);
    Word *target = reinterpret_cast<Word *>(to);
    const volatile Word *source = reinterpret_cast<const volatile Word *>(from);
    for (size_t i = 0; i < sizeof(Element) / sizeof(Word); ++i)
        target[i] = source[i];
}

// The same where a list is no array.
template <typename List>
static inline void CopyArguments(List &to, List from)
{
    va_copy(to, from);
}

#endif
