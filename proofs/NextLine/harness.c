// NextLine reads the lines of a file as the rules for them say, one after the other.
//
// Assumes: a file of few bytes, read from its start to behind its end; a line buffer that is few
//          bytes, so that long lines come up too.
// Shows:   each call's result, every byte of the line buffer, and both offsets.
//
// takes: Common/INI.cpp g_linetext g_current_line_offset g_last_line_offset Scan CollectLine NextLine
// takes: tamrik/memory.cpp IsBadSize FillError memset_s
// adds: g_linetext: [1024] => [4]
// proves: AnyFile LENGTH=2 LENGTH=4: every file of up to LENGTH bytes, lines of up to 3
#include "tamrik/tamrik.h"
#include "arena.h"
#include <stdio.h>
#include <string.h>

static unsigned char g_bytes[LENGTH];
static long g_length, g_read;
static bool g_isAtEnd;

static int Next(void)
{
    g_isAtEnd = g_isAtEnd || g_read == g_length;
    return g_isAtEnd ? EOF : g_bytes[g_read++];
}

#undef getc_unlocked
#define getc_unlocked(file) Next()
#define feof(file)          g_isAtEnd
#define ferror(file)        false
#include "product.h"

// The next line by the rules: what the end of the file gives is a character too.
static void ReadByTheRules(char *line, long *position, bool *isAtEnd)
{
    size_t length = 0;
    for (size_t i = 0; i < sizeof g_linetext; i++)
        line[i] = '\0';
    while (!*isAtEnd) {
        *isAtEnd = *position == g_length;
        const unsigned char ch = *isAtEnd ? 0xFF : g_bytes[(*position)++];
        if (ch == '\n' && length > 0)
            return;
        if (ch != '\n' && ch != '\r' && length < sizeof g_linetext - 1)
            line[length++] = (char)ch;
    }
}

void AnyFile(void)
{
    char line[sizeof g_linetext];
    long position = 0;
    bool isAtEnd = false;
    __CPROVER_havoc_object(g_bytes);
    __CPROVER_havoc_object(g_linetext);
    g_length = (long)nondet_size();
    ASSUME(g_length >= 0 && g_length <= LENGTH);
    Scan scan = {NULL, 0, g_linetext + sizeof g_linetext};
    for (int i = 0; i < LENGTH + 2; i++) {
        const int last = g_current_line_offset;
        const char *const result = NextLine(&scan);
        ReadByTheRules(line, &position, &isAtEnd);
        for (size_t at = 0; at < sizeof line; at++)
            SHOW(g_linetext[at] == line[at], "every byte is as promised");
        SHOW(result == (line[0] != '\0' ? g_linetext : NULL),
             "the result is the line, or null at the end");
        SHOW(g_last_line_offset == last && g_current_line_offset == position,
             "the offsets are the file's");
    }
}
