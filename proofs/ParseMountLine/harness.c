// ParseMountLine takes a line of mountinfo apart where it stands.
//
// Assumes: a terminated line in a block that ends with it; strsep ends a field anywhere in what is
//          left, or with it; strcmp and sscanf find anything. DecodeOctal is proved by itself.
// Shows:   by a loop contract: it ends, and nothing outside of the line is read or written; each
//          text of a line that is taken, and each that is decoded, lies in the line and is
//          terminated there.
//
// takes: platform/linux/MountPoints.h MountLine
// takes: platform/linux/MountPoints.cpp NextField ParseMountLine
// adds: ParseMountLine: strcmp(separator, "-") != 0) => strcmp(separator, "-") != 0) SEPARATOR_CONTRACT
// proves: AnyLine LENGTH=6 LENGTH=20: every line of up to LENGTH characters
// by: contracts
#include "arena.h"
#include <string.h>
#include <sys/types.h>

static char g_line[LENGTH + 1];

static void CheckText(const char *text)
{
    SHOW(__CPROVER_same_object(text, g_line), "the text lies in the line");
    SHOW(__CPROVER_POINTER_OFFSET(text) <= LENGTH, "the text lies in the line");
    SHOW(g_line[LENGTH] == '\0', "the line is terminated");
}

static void DecodeOctal(char *text)
{
    CheckText(text);
}

static int ReadDevice(const char *device, unsigned *majorNumber, unsigned *minorNumber)
{
    CheckText(device);
    *majorNumber = (unsigned)nondet_int();
    *minorNumber = (unsigned)nondet_int();
    return nondet_int();
}

char *strsep(char **rest, const char *set)
{
    char *const field = *rest;
    if (field == NULL)
        return NULL;
    const size_t at = __CPROVER_POINTER_OFFSET(field), length = nondet_size();
    ASSUME(length <= LENGTH - at);
    *rest = at + length < LENGTH && nondet_bool() ? field + length + 1 : NULL;
    field[length] = '\0';
    return field;
}

// What strcmp finds does not matter to where the texts lie.
static int Compare(const char *text)
{
    CheckText(text);
    return nondet_int();
}

// clang-format off
#define IN_LINE(text) \
    ((text) == NULL || \
     (__CPROVER_same_object(text, g_line) && __CPROVER_POINTER_OFFSET(text) <= LENGTH))
#define SEPARATOR_CONTRACT \
    __CPROVER_assigns(separator, rest, __CPROVER_object_whole(g_line)) \
    __CPROVER_loop_invariant(IN_LINE(separator) && IN_LINE(rest) && g_line[LENGTH] == '\0') \
    __CPROVER_decreases((separator != NULL) + (rest != NULL ? LENGTH + 1 - __CPROVER_POINTER_OFFSET(rest) : 0))
// clang-format on

#define strcmp(text, other)                 Compare(text)
#define sscanf(text, format, first, second) ReadDevice(text, first, second)
#define makedev(first, second)              (((dev_t)(first) << 32) | (second))
#include "product.h"

void AnyLine(void)
{
    __CPROVER_havoc_object(g_line);
    g_line[LENGTH] = '\0';
    const size_t start = nondet_size();
    ASSUME(start <= LENGTH);
    MountLine mount;
    if (!ParseMountLine(g_line + start, &mount))
        return;
    CheckText(mount.root);
    CheckText(mount.point);
    CheckText(mount.options);
    CheckText(mount.source);
}
