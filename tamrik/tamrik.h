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

/* The largest destination size, and the largest count where one is limited, in bytes. */
#define MAX_BUFFER_SIZE 0x7FFFFFFFUL

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Memory ----
 *
 * dest is the caller's memory of destMax bytes, src memory of at least count bytes; both stay the
 * caller's. Sizes and counts are in bytes. The checks are made in the order in which they stand here,
 * and the first that fails decides. Nothing is ever written outside of the first destMax bytes of dest.
 */

/*
 * memset_s fills the first count bytes of dest with the low byte of c.
 *
 *   result              when                                           dest afterwards
 *   RESULT_OK           dest is not null, destMax at most              count bytes filled
 *                       MAX_BUFFER_SIZE and count at most destMax
 *                       (both may be 0)
 *   ERANGE              destMax is 0 or above MAX_BUFFER_SIZE          not written
 *   EINVAL              dest is null
 *   ERANGE_CLEARED      count is above destMax                         all destMax bytes filled with c
 *
 * memset_sOptAsm is the same and fills up to 32 bytes without calling the C library.
 * memset_sOptTc is memset_sOptAsm without the upper limit of destMax in the first row: any size that
 * holds count is taken. A call that fails reports ERANGE for such a size all the same.
 */
int memset_s(void *dest, size_t destMax, int c, size_t count);
int memset_sOptAsm(void *dest, size_t destMax, int c, size_t count);
int memset_sOptTc(void *dest, size_t destMax, int c, size_t count);

/*
 * memcpy_s copies count bytes between regions that must not overlap. A region that would pass the
 * end of the address space overlaps all that stands above it.
 *
 *   result              when                                           dest afterwards
 *   ERANGE              destMax is 0 or above MAX_BUFFER_SIZE          not written
 *   EINVAL              dest is null
 *   EINVAL_CLEARED      src is null, even with a count of 0            all destMax bytes zero
 *   ERANGE_CLEARED      count is above destMax                         all destMax bytes zero
 *   RESULT_OK           dest equals src                                not written
 *   OVERLAP_CLEARED     the count bytes at src and at dest overlap     all destMax bytes zero
 *   RESULT_OK           else                                           count bytes copied
 *
 * memcpy_sOptAsm is the same and copies up to 64 bytes without calling the C library.
 * memcpy_sOptTc is memcpy_sOptAsm without the upper limit of destMax for a copy that is otherwise in
 * order and not empty. A call that fails, copies nothing or has dest equal to src reports ERANGE for
 * such a size all the same.
 */
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int memcpy_sOptAsm(void *dest, size_t destMax, const void *src, size_t count);
int memcpy_sOptTc(void *dest, size_t destMax, const void *src, size_t count);

/*
 * memmove_s copies count bytes between regions that may overlap: dest receives what src held.
 * ERANGE, EINVAL, EINVAL_CLEARED and ERANGE_CLEARED as for memcpy_s, in that order; else RESULT_OK.
 */
int memmove_s(void *dest, size_t destMax, const void *src, size_t count);

/*
 * Moves count bytes between regions that may overlap and checks nothing. With a count of 0 neither
 * pointer is looked at.
 */
void util_memmove(void *dest, const void *src, size_t count);

/*
 * Stores the library's name and version as text in the bufSize bytes at verStr, and its number in
 * *verNumber. The text takes 36 bytes with its terminator; a smaller buffer gets an empty string. A
 * null verStr or a bufSize of 0 or less leaves out the text, a null verNumber the number.
 */
void getQvTamrikVersion(char *verStr, int bufSize, unsigned short *verNumber);

/* 32 bytes of 0xFF, read-only. */
extern const unsigned char myStrAllFF[32];

/* ---- Strings ----
 *
 * dest is the caller's buffer of destMax bytes, src a zero-terminated string; both stay the caller's.
 * Sizes and counts are in bytes. The checks are made in the order in which they stand here, and the
 * first that fails decides. "Empty" means that dest[0] became zero and nothing else was written. After
 * success the bytes behind the terminator are what they were. src is never read past its terminator.
 */

/*
 * strcpy_s copies the whole of src. It reads at most destMax characters of it.
 *
 *   result              when                                           dest afterwards
 *   ERANGE              destMax is 0 or above MAX_BUFFER_SIZE          not written
 *   EINVAL              dest is null
 *   EINVAL_CLEARED      src is null                                    empty
 *   ERANGE_CLEARED      src and its terminator take more than destMax  empty
 *   RESULT_OK           dest equals src                                not written
 *   OVERLAP_CLEARED     the bytes to copy and their place overlap      empty
 *   RESULT_OK           else                                           the string
 *
 * strcpy_error is what a call that cannot be made ends in: its first four rows, then RESULT_OK with
 * nothing written. It copies nothing and does not look for overlap.
 */
int strcpy_s(char *dest, size_t destMax, const char *src);
int strcpy_error(char *dest, size_t destMax, const char *src);

/*
 * strncpy_s copies src, cut after count characters when it is longer, and terminates it. It reads at
 * most the smaller of count and destMax characters of src.
 *
 *   result              when                                           dest afterwards
 *   ERANGE              destMax is 0 or above MAX_BUFFER_SIZE          not written
 *   EINVAL              dest is null
 *   EINVAL_CLEARED      src is null, even with a count of 0            empty
 *   ERANGE_CLEARED      count is above MAX_BUFFER_SIZE                 empty
 *   RESULT_OK           count is 0                                     empty
 *   ERANGE_CLEARED      count and the length of src are both at        empty
 *                       least destMax
 *   OVERLAP_CLEARED     the bytes that dest takes, or as many at src,  empty
 *                       overlap the other's; dest equal to src does
 *                       not count
 *   RESULT_OK           else                                           the string, cut or whole
 *
 * strncpy_error is what a call that cannot be made ends in: its first six rows, then RESULT_OK with
 * nothing written. It copies nothing and does not look for overlap.
 */
int strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
int strncpy_error(char *dest, size_t destMax, const char *src, size_t count);

/*
 * strncat_s appends src, cut after count characters when it is longer, to the string in dest, and
 * terminates it. The end of that string is searched in destMax bytes, and not past src.
 *
 *   result              when                                           dest afterwards
 *   ERANGE              destMax is 0 or above MAX_BUFFER_SIZE          not written
 *   EINVAL              dest is null
 *   EINVAL_CLEARED      src is null, even with a count of 0            empty
 *   ERANGE_CLEARED      count is above MAX_BUFFER_SIZE                 empty
 *   EINVAL_CLEARED      no terminator in dest                          empty
 *   OVERLAP_CLEARED     src stands above dest and before or at the     empty
 *                       terminator of dest
 *   ERANGE_CLEARED      the last byte of dest received a character     see below
 *   OVERLAP_CLEARED     the next byte to write would be the first of   see below
 *                       src, or the next to read the first of dest
 *   RESULT_OK           src ended, or count characters were appended   both strings, terminated
 *
 * The last three are judged after each character that is not the terminator, the last of count
 * included: when one of the errors is found, dest[0] is zero and the characters appended so far stand
 * where they were put. dest equal to src is no overlap: the string is appended to itself, and as its
 * end moves away while it is copied, only count or the size ends the copy.
 */
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
