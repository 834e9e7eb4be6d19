// CollectLine reads one line of a file, however long the line and the file are.
//
// Assumes: a file of any bytes, up to the largest offset there is, or a stream that has none.
// Shows:   by a loop contract: it ends; no byte outside of g_linetext is written; no counter
//          overflows; the position moves by just what was read; the line ends within g_linetext,
//          before its last byte.
//
// takes: Common/INI.cpp g_linetext Scan CollectLine
// adds: CollectLine: for (;;) { => for (;;) LINE_CONTRACT {
// proves: AnyFile: files of any length, any content
// by: contracts
#include "arena.h"
#include <limits.h>
#include <stdio.h>

static long g_left;   // bytes that the file still has
static long g_given;  // bytes that it has given
static bool g_isAtEnd, g_hasFailed;

// How far the line has got: counted, since a pointer of which nothing is known may not be compared.
#define STORED ((long)__CPROVER_POINTER_OFFSET(to))
// clang-format off
#define LINE_CONTRACT \
    __CPROVER_assigns(to, ch, dropped, g_left, g_given, __CPROVER_object_whole(g_linetext)) \
    __CPROVER_loop_invariant(__CPROVER_same_object(to, g_linetext)) \
    __CPROVER_loop_invariant(STORED >= 0 && STORED < (long)sizeof g_linetext) \
    __CPROVER_loop_invariant(g_left >= 0 && g_given >= 0 && g_given <= LONG_MAX - g_left) \
    __CPROVER_loop_invariant(scan->position < 0 || g_given + g_left <= LONG_MAX - scan->position) \
    __CPROVER_loop_invariant(dropped >= 0 && dropped == g_given - STORED) \
    __CPROVER_decreases(g_left)
// clang-format on

static int Next(void)
{
    if (g_left == 0)
        return EOF;
    g_left--;
    g_given++;
    return (unsigned char)nondet_int();
}

#undef getc_unlocked
#define getc_unlocked(file) Next()
#define feof(file)          g_isAtEnd
#define ferror(file)        g_hasFailed
#include "product.h"

void AnyFile(void)
{
    Scan scan;
    g_left = (long)nondet_size();
    g_given = 0;
    g_isAtEnd = nondet_bool();
    g_hasFailed = nondet_bool();
    const long before = scan.position;
    ASSUME(g_left >= 0 && before >= -1 && g_left <= LONG_MAX - (before > 0 ? before : 0));
    const char *const end = CollectLine(&scan);
    SHOW(end >= g_linetext && end <= g_linetext + sizeof g_linetext - 1,
         "the line ends within its buffer");
    SHOW(scan.position == (before < 0 ? before : before + g_given), "the position is the file's");
}
