/*
 * tamrik.h - bounds-checked memory, string and formatted input and output functions.
 *
 * Every function that writes takes the size of its destination, checks all that it is given and
 * reports what it found through its result alone: nothing here logs, aborts, keeps state or changes
 * errno. The header serves C and C++ alike and needs nothing included before it.
 *
 * Result codes:
 *
 *   code  name              meaning                                   the destination afterwards
 *   ----  ----------------  ----------------------------------------  --------------------------
 *      0  RESULT_OK         success                                   holds the result
 *     22  EINVAL            null destination                          not written
 *     34  ERANGE            destination size 0 or above               not written
 *                           MAX_BUFFER_SIZE
 *    150  EINVAL_CLEARED    null source, or no string in the          cleared
 *                           destination to append to
 *    162  ERANGE_CLEARED    the data does not fit, or a count is      cleared (memset_s: filled)
 *                           above MAX_BUFFER_SIZE
 *    182  OVERLAP_CLEARED   source and destination overlap            cleared
 *
 * A code of 128 or more is the error of that code less 128, with the destination reset. The memory
 * functions clear all destMax bytes, the string functions write one zero byte at dest[0].
 */
#ifndef TAMRIK_H
#define TAMRIK_H

#include <errno.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <wchar.h>

/* The two codes that <errno.h> names must have the values of the table. */
#if EINVAL != 22 || ERANGE != 34
#error "the result codes need EINVAL 22 and ERANGE 34"
#endif

enum { RESULT_OK = 0, EINVAL_CLEARED = 150, ERANGE_CLEARED = 162, OVERLAP_CLEARED = 182 };

/* The largest destination size, in bytes, that any function takes. */
#define MAX_BUFFER_SIZE ((size_t)0x7FFFFFFF)

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Memory ---- */

int memset_s(void *dest, size_t destMax, int c, size_t count);
int memset_sOptAsm(void *dest, size_t destMax, int c, size_t count);
int memset_sOptTc(void *dest, size_t destMax, int c, size_t count);
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int memcpy_sOptAsm(void *dest, size_t destMax, const void *src, size_t count);
int memcpy_sOptTc(void *dest, size_t destMax, const void *src, size_t count);
int memmove_s(void *dest, size_t destMax, const void *src, size_t count);
void util_memmove(void *dest, const void *src, size_t count);
void getQvTamrikVersion(char *verStr, int bufSize, unsigned short *verNumber);
extern const unsigned char myStrAllFF[32];

/* ---- Strings ---- */

int strcpy_s(char *dest, size_t destMax, const char *src);
int strcpy_error(char *dest, size_t destMax, const char *src);
int strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
int strncpy_error(char *dest, size_t destMax, const char *src, size_t count);
int strncat_s(char *dest, size_t destMax, const char *src, size_t count);

/* ---- Formatted output ---- */

typedef struct OutputStream {
    int count; /* bytes that may still be written, the terminating zero included */
    char *cur; /* where the next byte goes */
} OutputStream;

int snprintf_s(char *strDest, size_t destMax, size_t count, const char *format, ...);
int vsnprintf_s(char *strDest, size_t destMax, size_t count, const char *format, va_list argList);
int vsnprintf_helper(char *dest, size_t size, const char *format, va_list argList);
int tamrik_output_s(OutputStream *stream, const char *format, va_list argList);
int tamrik_woutput_s(OutputStream *stream, const wchar_t *format, va_list argList);
int indirectSprintf(char *buffer, const char *format, ...);
void write_char_a(char ch, OutputStream *stream, int *charsOut);
void write_multi_char_a(char ch, int n, OutputStream *stream, int *charsOut);
void write_string_a(const char *str, int n, OutputStream *stream, int *charsOut);
int putWcharStrEndingZero(OutputStream *stream, int n);
extern const unsigned char tamrik__lookuptable_s[91];

/* ---- Formatted input ---- */

typedef struct InputSource {
    int count;
    const char *cur;
    char *base;
    int kind;
    FILE *stream;
    int consumed;
    long startOffset;
    int pushback;
    int pushbackValid;
} InputSource;

int tamrik_input_s(InputSource *source, const char *format, va_list argList);
int tamrik_winput_s(InputSource *source, const wchar_t *format, va_list argList);
int _inc(InputSource *source);
void _un_inc(int ch, InputSource *source);
int _whiteout(int *counter, InputSource *source);
int __check_float_string(size_t used, size_t *size, char **buffer, char *localBuffer, int *onHeap);
void clearDestBuf(const char *input, const char *format, va_list argList);
void clearwDestBuf(const wchar_t *input, const wchar_t *format, va_list argList);

#ifdef __cplusplus
}
#endif

#endif
