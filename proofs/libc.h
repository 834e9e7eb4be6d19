// What the C library promises of functions that cbmc does not know.
#ifndef PROOFS_LIBC_H
#define PROOFS_LIBC_H

#include <stdbool.h>
#include <stddef.h>

size_t strnlen(const char *text, size_t most)
{
    size_t length = 0;
    while (length < most && text[length] != '\0')
        length++;
    return length;
}

static bool IsAmong(char ch, const char *set)
{
    while (*set != '\0' && *set != ch)
        set++;
    return *set != '\0';
}

size_t strspn(const char *text, const char *set)
{
    size_t length = 0;
    while (text[length] != '\0' && IsAmong(text[length], set))
        length++;
    return length;
}

size_t strcspn(const char *text, const char *set)
{
    size_t length = 0;
    while (text[length] != '\0' && !IsAmong(text[length], set))
        length++;
    return length;
}

char *strsep(char **rest, const char *set)
{
    char *const field = *rest;
    if (field == NULL)
        return NULL;
    char *const end = field + strcspn(field, set);
    *rest = *end != '\0' ? end + 1 : NULL;
    *end = '\0';
    return field;
}

void *memchr(const void *block, int ch, size_t size)
{
    const unsigned char *const bytes = block;
    for (size_t i = 0; i < size; i++)
        if (bytes[i] == (unsigned char)ch)
            return (void *)(bytes + i);
    return NULL;
}

#endif
