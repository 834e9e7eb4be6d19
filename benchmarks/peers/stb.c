#define STB_SPRINTF_IMPLEMENTATION
#include <stb/stb_sprintf.h>
