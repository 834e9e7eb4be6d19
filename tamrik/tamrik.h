/*
 * tamrik.h - bounds-checked memory, string and formatted input and output functions.
 *
 * Every function that writes takes the size of its destination, checks all that it is given and
 * reports what it found through its result alone: nothing here logs, aborts or keeps state, and
 * indirectSprintf alone may change errno. The header serves C and C++ alike and needs nothing
 * included before it.
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
 * caller's. Sizes and counts are in bytes. The checks are made in the order in which they stand
 * here, and the first that fails decides. Nothing is ever written outside of the first destMax
 * bytes of dest.
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
 *   ERANGE_CLEARED      count is above destMax                         all destMax bytes filled
 *
 * memset_sOptAsm is the same and fills up to 32 bytes without calling the C library. memset_sOptTc
 * is memset_sOptAsm without the upper limit of destMax in the first row: any size that holds count
 * is taken. A call that fails reports ERANGE for such a size all the same.
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
 * memcpy_sOptAsm is the same and copies up to 64 bytes without calling the C library. memcpy_sOptTc
 * is memcpy_sOptAsm without the upper limit of destMax for a copy that is otherwise good and
 * not empty. A call that fails, copies nothing or has dest equal to src reports ERANGE for such a
 * size all the same.
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
 * dest is the caller's buffer of destMax bytes, src a zero-terminated string; both stay the
 * caller's. Sizes and counts are in bytes. The checks are made in the order in which they stand
 * here, and the first that fails decides. "Empty" means that dest[0] became zero and nothing else
 * was written. After success the bytes after the terminator are what they were. src is never read
 * past its terminator.
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
 * strncpy_s copies src, cut after count characters when it is longer, and terminates it. It reads
 * at most the smaller of count and destMax characters of src.
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
 * included: when one of the errors is found, dest[0] is zero and the characters appended so far
 * stand where they were put. dest equal to src is no overlap: the string is appended to itself, and
 * as its end moves away while it is copied, only count or the size ends the copy.
 */
int strncat_s(char *dest, size_t destMax, const char *src, size_t count);

/* ---- Formatted output ---- */

/*
 * The format language is the library's own:  % flags width .precision size conversion
 *
 *   flags       ' ' '#' '+' '-' '0', also after the width ("%5-d")
 *   width       digits or '*'; a negative '*' left-justifies (but not a floating conversion)
 *   precision   '.' and digits, '*' or nothing (0); a negative '*' is none at all
 *   size        h hh l ll j t z w L q I I32 I64, N and Z (which say nothing), any number of them
 *   conversion  d i u o x X p c C s S e E f F g G, and "%%" for a percent sign
 *
 * Digits after a '*' continue its number. A width or precision above 21474836 takes no more
 * digits. An integer has the size that comes first among I or I64 or p, ll or L or q, l, hh, h, t,
 * z, j; 32 bits without one. It is filled with zeros up to a precision of 512. A null pointer
 * prints "(nil)" and a null string "(null)". With 'l' or 'w' strings and characters are wide; 'S'
 * and 'C' are wide unless 'h' is given. Widths and precisions of strings count the units of the
 * argument's own text. An 'I' that is no size drops its directive: it and what follows are text.
 *
 * "%n", 'a', 'A' and every other character or order make the format invalid; nothing is ever stored
 * through an argument.
 *
 * A string is read no further than its terminating zero or its precision. What is printed for an
 * 'e', 'f' or 'g' is the text of the value passed, a double or with L or q a long double, whatever
 * other size letters stand there. A floating conversion prints nothing, and the rest goes on, when
 * there is no memory for it, when the precision is too large to compute a buffer size from (above
 * 2147483298 for double, 2147478675 for long double) or when the platform's text is longer than
 * computed; its argument is taken all the same. So does a single wide character that the locale
 * does not have; in a wide string it fails the call.
 *
 * Only floating conversions allocate: those with a width or a precision of a few hundred (a long
 * double always) and those that are written with more than 15 characters; freed before the next
 * character of the format. No argument may overlap the destination. The functions of this section
 * may be called from several threads at once as far as the platform's wctomb, mbtowc and vsprintf
 * may, which they call for text of the other width and for floating conversions.
 */

/*
 * Formats into strDest, a buffer of destMax bytes, and returns how many characters were written,
 * the terminating zero not counted, or -1.
 *
 * Checked in this order: destMax in 1 to MAX_BUFFER_SIZE, strDest and format not null; count below
 * MAX_BUFFER_SIZE, or SIZE_MAX for "no limit". A failed check gives -1, with strDest[0] cleared
 * where strDest is not null and destMax is not 0, a destMax above the limit included.
 *
 * With count below destMax the output is cut: what is longer than count characters gives -1 and
 * leaves the first count characters and a zero. Otherwise output that does not fit destMax bytes
 * with its zero gives -1 and an empty string, and strDest[destMax - 1] is cleared in every case. A
 * format that is invalid or ends inside a directive, or a wide string that cannot be converted,
 * gives -1 and an empty string, unless the output was cut before that point. vsnprintf_s leaves the
 * caller's argList as it was.
 */
int snprintf_s(char *strDest, size_t destMax, size_t count, const char *format, ...);
int vsnprintf_s(char *strDest, size_t destMax, size_t count, const char *format, va_list argList);

/*
 * Formats as much of a format as needs no arguments: all up to the first directive that takes
 * one, a '*' included. The text goes into strDest, a buffer of destMax bytes, cut at destMax - 1
 * characters; the result, and what strDest holds afterwards, is that of snprintf_s with a count of
 * destMax - 1. *rest becomes the '%' of that directive, or the end of the format where there is
 * none; null when the result is -1. The format after *rest is not read. rest is not null.
 */
int snprintf_text(char *strDest, size_t destMax, const char *format, const char **rest);

/* Where an engine writes to. */
typedef struct OutputStream {
    int count; /* bytes that may still be written, the terminating zero included; every attempt to
                  write lowers it, so that it is negative once something found no room */
    char *cur; /* where the next byte goes */
} OutputStream;

/*
 * Formats into dest, a buffer of size bytes (above MAX_BUFFER_SIZE as of MAX_BUFFER_SIZE), and ends
 * the text with a zero. Returns the number of characters; -1 for an invalid format or a failed
 * conversion; -2 when the output did not fit, which output of exactly size characters does not.
 * After a failure dest[size - 1] is zero and what stands before it is what was written so far. A
 * null dest or a size of 0 has no room: nothing is stored, and every good format gives -2.
 */
int vsnprintf_helper(char *dest, size_t size, const char *format, va_list argList);

/*
 * The engine: formats to the stream, without a terminating zero, and returns the number of
 * characters or a negative number: the format is invalid, a conversion failed or the room ran out
 * (then stream->count is below 0 and all that fitted is written). stream and format are not null.
 * What the platform returns for a floating conversion counts as it is: a negative result lowers the
 * number of characters, fails the call where that falls below 0, and gives no room back.
 */
int tamrik_output_s(OutputStream *stream, const char *format, va_list argList);

/*
 * Its twin for wide formats and wide output. count is in bytes, sizeof(wchar_t) for each character
 * written, cur needs no alignment; the result counts characters. Narrow strings and characters go
 * through mbtowc, and 'S' and 'C' without a size are narrow, as 's' and 'c' are.
 */
int tamrik_woutput_s(OutputStream *stream, const wchar_t *format, va_list argList);

/* The platform's vsprintf: no limit of size, its result as it is. It alone may change errno. */
int indirectSprintf(char *buffer, const char *format, ...);

/*
 * The checked writers: one character, n copies of one, n bytes of a string; below 1 nothing
 * happens. Before each byte the room is lowered by one; where there was none left, *charsOut
 * becomes -1 and the writer stops, else the byte is stored and *charsOut grows by one.
 */
void write_char_a(char ch, OutputStream *stream, int *charsOut);
void write_multi_char_a(char ch, int n, OutputStream *stream, int *charsOut);
void write_string_a(const char *str, int n, OutputStream *stream, int *charsOut);

/* Writes n zero bytes as far as there is room. 1 when all were written (n of 0 too), else 0. */
int putWcharStrEndingZero(OutputStream *stream, int n);

/*
 * The engines' state machine, packed. For the character ' ' + i the low nibble of byte i is its
 * class: 0 other, 1 percent, 2 dot, 3 star, 4 zero, 5 digit, 6 flag, 7 size, 8 type. The high
 * nibble of byte class * 9 + state is the next state: 0 normal, 1 percent, 2 flag, 3 width, 4 dot,
 * 5 precision, 6 size, 7 type, 8 invalid (from which nothing follows).
 */
extern const unsigned char tamrik__lookuptable_s[91];

/* ---- Formatted input ----
 *
 * A source of input. It is the caller's: set kind and what that kind needs, and all else to zero.
 * The same source can be scanned again and again; each scan goes on where the one before ended.
 *
 *   kind  what is read                             what the caller sets
 *   ----  ---------------------------------------  -----------------------------------------------
 *   0x1   a string, which is never written; a      cur: its first character; count: its length in
 *         zero in it is a character like others    bytes (for tamrik_winput_s, whose strings are of
 *                                                  wchar_t, sizeof(wchar_t) times the characters)
 *   0x2   a file, in blocks of 1024 bytes          stream: open for reading, at any position
 *   0x4   standard input, by single characters     nothing
 *
 * Files and standard input stay the caller's and open. When a scan from a file ends, what was read
 * ahead is given back: the file stands just past the last character used. A UTF-8 byte-order mark
 * at the beginning of a file (position 0) is passed over; further on it is text, also where a scan
 * begins with it. A stream that has no position (a pipe, a terminal) begins where the source first
 * reads it. It is read by single characters, and the one read too far goes back by ungetc, as on
 * standard input: nothing is lost there either. The string of a source is never read past count
 * bytes; a file or stream that ends, that fails and for which no memory is left all look like the
 * end of the input.
 *
 * tamrik_winput_s too reads bytes from a file, and so leaves the stream byte-oriented: a later
 * fgetwc of the caller fails.
 */
typedef struct InputSource {
    int count;       /* bytes still to be read from cur on; 0 or less at the end of a string */
    const char *cur; /* the next byte */
    char *base;      /* the block of a file, 1025 bytes of the library's; null between scans */
    int kind;     /* 0x1, 0x2 or 0x4; while a file is being read also 0x8, and 0x10 with a mark */
    FILE *stream; /* the file of kind 0x2 */
    int consumed; /* bytes of a file used since startOffset, a mark not counted: what was given back
                     is not in it, so that it tells the same as the file's position */
    long startOffset;  /* where the file stood when its first block was read; -1: it cannot tell */
    int pushback;      /* standard input: the last character read or given back */
    int pushbackValid; /* whether that is to be read next; a scan leaves it 0, with the character in
                          the stream */
} InputSource;

/*
 * tamrik_input_s reads fields from source as format says and stores them through the pointers in
 * argList, by the rules of the platform's sscanf but for what follows; tamrik_winput_s is the same
 * with a wide format. Neither changes errno or keeps state; the arguments stay the caller's.
 *
 *   result           when
 *   0 or more        the fields stored ("%*" and "%n" are none). The scan ends at the end of the
 *                    format; at the first conversion or literal that the input does not match;
 *                    after a conversion that met the end of the input, unless "%n" follows it
 *                    directly; at a field that does not fit; at bytes that are no character of the
 *                    locale; and at a directive that makes no sense: an unknown conversion, an 'I'
 *                    that is no size, "%{", a "%[" without its ']', a width of 0
 *   EOF (-1)         the input ended before the first conversion, a suppressed one included, was
 *                    done
 *   -2               a parameter is wrong: source or format is null; the source is of no kind, a
 *                    file without stream, or a string without cur; the pointer to a destination is
 *                    null; the size of a destination is 0 (a terminator is stored all the same) or
 *                    too large (nothing is stored): above 0x7FFFFFFF, for wide text above
 *                    0x1FFFFFFF. Fields before it have been stored
 *
 * Destinations. "%s", "%c" and "%[" take two arguments: the pointer and, as unsigned int, the size
 * of the destination in its own characters (char or wchar_t), the terminator included. Nothing is
 * written past it. A field that is missing, since the input has ended or its first character does
 * not belong to it, leaves the destination as it was. One that does not fit with its terminator or
 * has no form in the destination's encoding leaves an empty string (the text read of it is used up,
 * the character that did not fit is not). "%c" stores as many characters as its width says, else 1,
 * and no terminator; when the input ends before, what there is counts as the field and is
 * terminated, for which there must be room. Whether a destination is wide is decided alike in both
 * functions: "%s", "%c" and "%[" are narrow, "%S" and "%C" are wide, 'l' and 'w' make any of them
 * wide and 'h' narrow.
 *
 * Units. tamrik_input_s reads bytes, and widths and "%n" count bytes; but for wide text it reads
 * whole characters of the locale's encoding, and its width counts those. tamrik_winput_s reads and
 * counts wide characters; it finds them as they are in a string, by fgetwc on standard input, and
 * as the locale's multibyte text in a file. A literal of several bytes matches or is given back as
 * a whole.
 *
 * Sizes of numbers: 'h' short, "hh" char, 'l' long, or double for a float; "ll", 'j', 'q', 'L',
 * 't', 'z', "I64" and 'I' before one of d i o x X 64 bits, which for a float is double; "I32" 32
 * bits. 'L' and 'q' make a float a long double. 'F' and 'N' are passed over, so that there is no
 * "%F". Width, '*' and size letters may stand in any order.
 *
 * Numbers: "%d" and "%u" are decimal, "%i" takes its base from the digits ("0x", "0", else 10),
 * "%o" octal, "%x" and "%X" hexadecimal with or without "0x"; "%p" is "%x" for a pointer and knows
 * "(nil)". A value beyond 64 bits becomes the nearest that they hold, and what is stored is its low
 * part. The floats ("%a", "%e", "%f", "%g", or their capitals but 'F') are read as strtod reads
 * them, long doubles as strtold; a float is the double made smaller. A text that only begins like a
 * number ("0x", "1e", "infin") does not match.
 *
 * Sets: a ']' that comes first, after '^' if there is one, is a member. "a-z" is a range; a '-'
 * that stands first, last or before a smaller character is a member. In tamrik_input_s a set holds
 * bytes; of wide text all bytes of a character must be in it, and a byte that is not ends the
 * field, also where no character begins.
 *
 * Where this differs from the C library's scanf:
 *
 *   scan                         here                              the C library
 *   ---------------------------  --------------------------------  -------------------------------
 *   "%d %n" of "12"              stores no position: the number    stores the position 2
 *                                met the end, which ends the scan
 *   "%x" of "0x", "%f" of "1e"   does not match: 0                 often takes a 0 and a 1
 *   "%*d%d" of "5"               0: a conversion has been done     EOF: nothing has been stored
 *   "%5c" of "abc"               1, abc with a terminator, or 0    1, abc without a terminator
 *                                if that has no room
 *   "%0d" of "5"                 0: a width of 0 ends the scan     undefined, or 1
 *   "%llf"                       a double                          undefined, or a long double
 *   "%lf" of "nan(1)"            uses all of it                    may leave "(1)"
 *   a null pointer, a size of 0  -2                                undefined; there are no sizes
 *   "%s" of a wide character     ends the scan, the text empty     ends the scan, the text cut and
 *   without a narrow form                                          without a terminator
 */
int tamrik_input_s(InputSource *source, const char *format, va_list argList);
int tamrik_winput_s(InputSource *source, const wchar_t *format, va_list argList);

/*
 * The next byte of the source, 0 to 255, or EOF. At the end of a string count and cur go on all the
 * same. The block of a file that _inc has read is freed by the next scan from the source alone.
 */
int _inc(InputSource *source);

/*
 * Gives back ch, the last character read, one at a time: it is what _inc returns next. EOF is
 * ignored.
 */
void _un_inc(int ch, InputSource *source);

/*
 * Reads up to the first character that is no white space in the current locale, and returns that,
 * or EOF. *counter grows by one for every character read, the returned one included.
 */
int _whiteout(int *counter, InputSource *source);

/*
 * Makes room in the text buffer of a floating-point field: *buffer has *size bytes of which used
 * are taken. Returns 1 when there is room, at once if used is not *size. Else the buffer is
 * replaced by one of twice the size, the new half zero: the first time (*onHeap 0, then 1) it takes
 * the content of localBuffer; later the old one is zeroed and freed. The new one is the caller's to
 * free. Returns 0, with nothing changed, when no memory is left or a later growth would pass
 * 0x7FFFFFFF bytes.
 */
int __check_float_string(size_t used, size_t *size, char **buffer, char *localBuffer, int *onHeap);

/*
 * For callers of the engines: empties the destination of the first conversion after a failed scan.
 * That is done when the first '%' of the format, but for width digits and the letters 'l', 'w' and
 * 'h', is a "%s", "%c" or "%[" (with its ']'), in either case of the letter, the first two
 * arguments are a pointer that is not null and a size from 1 to 0x7FFFFFFF, and input is null or
 * empty; with other input only "%s" and "%S" are emptied. The destination gets one zero byte, or a
 * wide zero if it is wide and the size is 4 or more: the size may be meant in bytes.
 */
void clearDestBuf(const char *input, const char *format, va_list argList);
void clearwDestBuf(const wchar_t *input, const wchar_t *format, va_list argList);

#ifdef __cplusplus
}
#endif

#endif
