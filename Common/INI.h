// INI.h - string values by section and key from the daemon's configuration file.
//
// Every lookup opens the file afresh, scans it from the top and closes it. A value that is returned
// points into g_linetext and holds until the next call of ReadString, ReadStringEx, GetInitKey,
// SectionExists, KeyExists or ReadLine: copy it at once. Nothing here is safe to call from two
// threads at once.
//
// The format, lenient as it is, is kept exactly:
//
//   - A line ends at a line feed. Carriage returns are dropped wherever they stand, lines without a
//     character are skipped, and of a line over 1023 characters the rest is dropped.
//   - A section begins after the first line that contains "[name]" anywhere, and ends at the next
//     line that contains both a '[' and a ']' and is not itself the key line sought.
//   - A line belongs to a key when, without its leading and trailing blanks, it contains the key
//     anywhere and has '=' or its end at the position that equals the key's length, blanks before
//     that allowed. The first such line counts.
//   - The value is what follows the first '=' of the line; a key line without one has an empty
//     value. Only the space character is a blank, and there are no comments.
//   - A last line without a line feed has the byte 0xFF at its end, and a file that ends with a
//     line feed has one more line, of that byte alone: the end-of-file mark is read as a character.
//
// Failures are reported in the log, with the function's name, and through the result.
#ifndef COMMON_INI_H
#define COMMON_INI_H

#include <stdio.h>

extern char g_filename[1024];      // the configuration file's path
extern char g_linetext[1024];      // the line read last, zero-filled after its end
extern int g_current_line_offset;  // file position after that line; -1 when the file has none
extern int g_last_line_offset;     // file position before it
extern int g_filesize;             // reserved: neither written nor read

// Names the file of all later lookups. False when `path` is null or cannot be opened for reading;
// the name that was set before then stays. Of a path over 1023 characters the first 1023 are
// stored, although the whole path is opened here. `path` may be g_filename itself.
bool SetIniFileName(const char *path);

// The value of `key` in `section`, leading and trailing blanks cut, inside g_linetext. Without the
// file, the section or the key, or with any argument null: `defaultValue` itself, not copied.
const char *ReadString(const char *section, const char *key, const char *defaultValue);

// The same with the value's leading blanks kept, a null default allowed, and no message of its own
// about a missing section or key.
const char *ReadStringEx(const char *section, const char *key, const char *defaultValue);

// Intended: there are no integer settings. Reads nothing and returns `defaultValue`.
int ReadInteger(const char *section, const char *key, int defaultValue);

// ReadString with an empty default; null when `section` or `key` is null. `reserved` is ignored.
const char *GetInitKey(void *reserved, const char *section, const char *key);

// Reads on in `file`, which stays the caller's, until after the first line that opens `section`.
// False at the end of the file, and when an argument is null.
bool SectionExists(FILE *file, const char *section);

// Reads on in `file`, which stays the caller's, until after the first line of `key`; true leaves
// that line in g_linetext, without its trailing blanks. False when the section or the file ends
// before one, and when an argument is null.
bool KeyExists(FILE *file, const char *key);

// The character after the first '=' of `line`; null when there is none or `line` is null.
char *GetKeyValue(char *line);

// Cuts the trailing blanks of `text` in place and returns its first character that is no blank: its
// terminating zero when it is all blanks, which then stay. Null when `text` is null.
char *Trim(char *text);

// Reads the next line that is not empty into g_linetext, without its line feed, and moves both
// offsets on. Returns g_linetext, or null at the end of the file, which leaves it all zeros; a line
// that begins with a zero byte is taken for the end too, but stands in g_linetext. Of a line over
// 1023 characters the rest is read and dropped. A read error ends the line as the end of the file
// does, and the next call reads on; if that meets an error again before any character, it returns
// null as at the end. A null `file` gives null and changes nothing.
char *ReadLine(FILE *file);

// Whether `line`, whose trailing blanks are cut in place, belongs to `key`. False when an argument
// is null.
bool KeyExistsInLine(char *line, const char *key);

// Whether `line` contains "[section]", of which the first 127 characters count. False when an
// argument is null.
bool SectionExistsInLine(const char *line, const char *section);

#endif
