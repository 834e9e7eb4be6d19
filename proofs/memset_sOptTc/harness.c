// memset_sOptTc does what the table of tamrik.h says: its result, and every byte of the
// destination.
//
// Assumes: dest is null or memory of destMax bytes; of count bytes, where it is taken with a
//          destMax above MAX_BUFFER_SIZE.
// Shows:   that for a block of just that size; nothing else is read or written.
//
// takes: tamrik/memory.cpp
// proves: Apart: what is not small (FillOther): every value, count and size, blocks up to 2 GiB of any content
#define FUNCTION  memset_sOptTc
#define LARGE     FillOther_false
#define HAS_LIMIT 0
#include "product.h"
#include "fill.h"
