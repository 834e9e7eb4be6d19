// libsafec, whose names are ours too: reached through a table that a shared object of its own
// holds.
#ifndef BENCHMARKS_PEERS_SAFEC_H
#define BENCHMARKS_PEERS_SAFEC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// The functions as they are, each with the sizes of the objects behind the pointers where the
// compiler knows them: kSafecUnknown here, which leaves them out of the checks.
typedef struct SafecTable {
    int (*fill)(void *dest, size_t destMax, int c, size_t count, size_t destSize);
    int (*copy)(void *dest, size_t destMax, const void *src, size_t count, size_t destSize,
                size_t srcSize);
    int (*strcpy)(char *dest, size_t destMax, const char *src, size_t destSize);
    int (*strncpy)(char *dest, size_t destMax, const char *src, size_t count, size_t destSize,
                   size_t srcSize);
    int (*strncat)(char *dest, size_t destMax, const char *src, size_t count, size_t destSize,
                   size_t srcSize);
    int (*snprintf)(char *dest, size_t destMax, size_t destSize, const char *format, ...);
} SafecTable;

#ifdef __cplusplus
}

constexpr size_t kSafecUnknown = static_cast<size_t>(-1);

// The table, or null where libsafec is not installed.
const SafecTable *Safec();
#endif

#endif
