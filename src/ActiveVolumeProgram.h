// ActiveVolumeProgram.h - the reader of "SysConfig.dat", the volume lookup and the setup runner.
//
// A file is a sequence of lines: section headers in square brackets and KEY=VALUE lines, read
// forward from the stream's position and never from its start. Lines are bytes; a line of more than
// 1023 bytes counts as several. Everything here blocks the calling thread and writes to the log
// under the file name ActiveVolumeProgram. Nothing keeps state between calls.
#ifndef SRC_ACTIVEVOLUMEPROGRAM_H
#define SRC_ACTIVEVOLUMEPROGRAM_H

#include <stdint.h>
#include <stdio.h>

// ---- Key file reader ----

// Cuts spaces, square brackets, line feeds and carriage returns off both ends of `text`, in place;
// what remains moves to the start of the buffer. Returns the new length in bytes, or -1 for null.
int64_t TrimKey(char *text);

// Whether the name of `keyLength` bytes at `found`, a position inside `line`, is a section header:
// a "[" before it and a "]" after it with nothing but spaces between. False for null pointers, a
// negative length and a length that goes past the end of the line.
bool IsPrimaryKey(const char *line, const char *found, int64_t keyLength);

// Reads on in `file` until a section (`sectionMode`) or a key is found. `keyIO`, a buffer of
// `keyIOSize` bytes, holds its name, which is trimmed there as TrimKey does.
//
// Section mode returns the file offset, in bytes, of the header line; the stream is then after that
// line. `capacity` is not used and may be null.
//
// Key mode takes the first line that contains the name anywhere and a "=" somewhere after it, puts
// the trimmed value into `keyIO` (cut to keyIOSize - 1 bytes) and returns the file offset of the
// byte after the "="; the stream is then after that line. A line that contains "[" or "]" ends the
// search: the stream is then at the start of that line. A value of *capacity or more bytes is not
// accepted: `keyIO` becomes empty, *capacity the size needed (its length plus one), and the stream
// is at the start of its line.
//
// Returns -1 for these failures, at the end of the file, when the stream cannot tell or change its
// position, and for wrong arguments: null `file`, `keyIO` or (key mode) `capacity`, a `keyIOSize`
// below 1, an empty name.
int64_t ReadKeyValue(FILE *file, char *keyIO, int keyIOSize, int64_t *capacity, bool sectionMode);

// Whether `key` in `section` of the file at `path` has the value `expected`, letter case ignored.
// The section may be given with or without its brackets. False also when an argument is null, the
// file cannot be opened, section or key is not found, or a name is longer than 1023 bytes.
bool IsKeyValueCaseEqual(const char *path, const char *section, const char *key,
                         const char *expected);

// ---- Volume lookup ----

// Waits until a directory can be opened, trying every 2 seconds within `testTime` seconds: the
// directory `directory` followed by `name` (no "/" is put between them), or `name` itself when
// `directory` is null or empty. An odd budget gives one attempt more than half of it. Returns false
// when the budget is spent, when `name` is null, when the path is empty, when `testTime` is below 1
// and when there is no memory.
bool IsVolumeExist(const char *name, const char *directory, int testTime);

// Finds the volume that belongs to a package. `pVPStr`, a buffer of `size` bytes, holds the base
// name of the package (ThirdPartySetup); the volume is that name split before its capital letters
// (Third Party Setup) under `directory`, which ends in "/" and may be null or empty. Waits for it
// as IsVolumeExist does with `testTime` seconds, then takes the highest of its duplicates "Name 1",
// "Name 2", ... that exist without a gap.
//
// On success `pVPStr` holds the path of the volume, cut to size - 1 bytes (a `size` of 0 or less
// leaves it unchanged). On failure it is unchanged: the volume did not appear, the name is null or
// empty, there is no memory, `capacity` is null, or the path has *capacity or more bytes, which
// sets *capacity to the size needed (its length plus one).
bool GetTempVolumeName(char *pVPStr, int size, int64_t *capacity, const char *directory,
                       int testTime);

// Writes `name` with a space before each capital letter that is neither its first character nor
// after a space: the name of the volume that a package brings. `split` has room for twice the name
// and a zero. Returns the length in bytes.
size_t SplitIntoWords(char *split, const char *name);

// Cuts `name` in place at its last "." that is not its first character; it stays where there is
// none.
void StripExtension(char *name);

// ---- Setup runner ----

// Runs the setup package that the section [SD_THIRDPARTY_SETUP] of the file `sysConfigPath` asks
// for: opens the named file on its volume under `volumesDir` (which ends in "/"), waits for the
// volume that this produces, opens the package on it and, where the file asks for a single run,
// overwrites the three bytes after "SD_THIRD_SETUP=" with "No" and a zero byte. `openPrefix` is the
// beginning of both command lines up to and including the opening double quote.
//
// Returns true when both commands ran. Any failure returns false and leaves the file unchanged. Can
// block for minutes: 180 s for the first volume, 30 s for the second, 10 tries of each command.
// When the file cannot be repositioned or written for the change, its stream stays open and the
// buffer of the command allocated; nothing that is pending in that stream reaches the file.
bool RunSDProgram(const char *sysConfigPath, const char *openPrefix, const char *volumesDir);

#endif
