// stb_sprintf, compiled apart from everything that warns.
#ifndef BENCHMARKS_PEERS_STB_H
#define BENCHMARKS_PEERS_STB_H

extern "C" int stbsp_snprintf(char *dest, int size, char const *format, ...);

#endif
