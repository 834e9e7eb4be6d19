// The proofs of the string functions: source and destination anywhere in one arena, beside or
// across each other. A harness gives Promised, the table of tamrik.h byte by byte, and Called, the
// call.
#include "arena.h"
#include "libc.h"
#include "tamrik/tamrik.h"

// What a call is made with; addresses count from the arena's start.
typedef struct Given {
    bool hasDest, hasSrc;
    size_t to, from, destMax, count;
} Given;

// A byte as it was. What the promise reads must be the caller's: there the arena ends.
static unsigned char Byte(size_t at)
{
    ASSUME(at < ARENA);
    return g_before[at];
}

static int Emptied(const Given *given, int code)
{
    g_expected[given->to] = 0;
    return code;
}

// How many characters of the source, at most `most`, stand before its terminator.
static size_t SourceLength(const Given *given, size_t most)
{
    size_t length = 0;
    while (length < most && Byte(given->from + length) != 0)
        length++;
    return length;
}

static size_t Apart(const Given *given)
{
    return given->to > given->from ? given->to - given->from : given->from - given->to;
}

static int Promised(const Given *given);
static int Called(char *dest, const char *src, const Given *given);

void Anywhere(void)
{
    const Given given = {nondet_bool(), nondet_bool(), nondet_size(),
                         nondet_size(), nondet_size(), nondet_size()};
    ASSUME(given.to <= ARENA && given.from <= ARENA);
    ASSUME(given.destMax > MAX_BUFFER_SIZE || given.destMax <= ARENA - given.to);
    FillArena();
    const int promised = Promised(&given);
    const int result = Called(given.hasDest ? (char *)g_arena + given.to : NULL,
                              given.hasSrc ? (const char *)g_arena + given.from : NULL, &given);
    SHOW(result == promised, "the result is as promised");
    CheckArena();
}
