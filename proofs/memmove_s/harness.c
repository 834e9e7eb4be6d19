// memmove_s does what the table of tamrik.h says: its result, and every byte of the destination.
//
// Assumes: dest is null or memory of destMax bytes; src is null or memory of count bytes where it
// is read. Shows:   Apart, for two blocks; Anywhere, for two regions of one arena. Nothing else is
// read or written.
//
// takes: tamrik/memory.cpp
// proves: Apart: every count, blocks up to 2 GiB, any content
// proves: Anywhere ARENA=4 ARENA=14: any place and overlap within ARENA bytes, any size and count
#define FUNCTION    memmove_s
#define LARGE       memmove_s
#define HAS_LIMIT   1
#define MAY_OVERLAP 1
#include "product.h"
#include "copy.h"
