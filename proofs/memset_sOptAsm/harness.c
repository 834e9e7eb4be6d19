// memset_sOptAsm does what the table of tamrik.h says: its result, and every byte of the
// destination.
//
// Assumes: dest is null or memory of destMax bytes.
// Shows:   that for a block of just that size; nothing else is read or written.
//
// takes: tamrik/memory.cpp
// proves: Apart: what is not small (FillOther): every value, count and size, blocks up to 2 GiB of any content
#define FUNCTION  memset_sOptAsm
#define LARGE     FillOther_true
#define HAS_LIMIT 1
#include "product.h"
#include "fill.h"
