/* The shared object that holds libsafec for the benchmarks. Loaded with RTLD_LOCAL. */
#include "benchmarks/peers/safec.h"

#include <safeclib/safe_mem_lib.h>
#include <safeclib/safe_str_lib.h>

__attribute__((visibility("default"))) extern const SafecTable kSafecTable;

const SafecTable kSafecTable = {
    .fill = _memset_s_chk,
    .copy = _memcpy_s_chk,
    .strcpy = _strcpy_s_chk,
    .strncpy = _strncpy_s_chk,
    .strncat = _strncat_s_chk,
    .snprintf = _snprintf_s_chk,
};
