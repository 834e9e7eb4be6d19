// memcpy_sOptTc does what the table of tamrik.h says: its result, and every byte of the
// destination.
//
// Assumes: dest is null or memory of destMax bytes; src is null or memory of count bytes where it
//          is read. Where destMax above MAX_BUFFER_SIZE is taken, dest is memory of count bytes.
// Shows:   Apart, for two blocks; Anywhere, for two regions of one arena. Nothing else is read or
// written.
//
// takes: tamrik/memory.cpp
// proves: Apart: what is not small (CopyOther): every count, blocks up to 2 GiB, any content
// proves: Anywhere ARENA=3 ARENA=10: any place and overlap within ARENA bytes, any size and count
#define FUNCTION    memcpy_sOptTc
#define LARGE       CopyOther_false
#define HAS_LIMIT   0
#define MAY_OVERLAP 0
#include "product.h"
#include "copy.h"
