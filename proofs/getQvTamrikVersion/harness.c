// getQvTamrikVersion stores the library's text and number where there is a place for them.
//
// Assumes: verStr is null or memory of bufSize bytes, verNumber null or a number. strcpy_s is
//          proved by itself.
// Shows:   the text is copied once, with the buffer's size, if there is a buffer; the number is
//          stored if there is a place; nothing else is written.
//
// takes: tamrik/memory.cpp kVersionBanner kVersionNumber getQvTamrikVersion
// proves: Any: every bufSize
#include "tamrik/tamrik.h"
#include "arena.h"
#include <string.h>

static char *g_text;
static int g_size, g_copies;

int strcpy_s(char *dest, size_t destMax, const char *src)
{
    SHOW(dest == g_text && dest != NULL, "into the caller's buffer");
    SHOW(g_size > 0 && destMax == (size_t)g_size, "with its size");
    SHOW(strcmp(src, "Qarvel Tamrik V100R001C01SCP004B001") == 0, "the text is as promised");
    g_copies++;
    return nondet_int();
}

#include "product.h"

void Any(void)
{
    g_size = nondet_int();
    g_text = nondet_bool() ? Block(g_size > 0 ? (size_t)g_size : 0) : NULL;
    const unsigned short before = (unsigned short)nondet_int();
    unsigned short number = before;
    const bool hasNumber = nondet_bool();
    getQvTamrikVersion(g_text, g_size, hasNumber ? &number : NULL);
    SHOW(g_copies == (g_text != NULL && g_size > 0), "once, or not at all");
    SHOW(number == (hasNumber ? 0x0504 : before), "the number is as promised");
}
