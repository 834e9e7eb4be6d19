// Process.h - shell command lines, with retries and with captured output.
//
// Both functions block the calling thread: a failed attempt takes one second more than the command
// itself. They write to the log under the file name Process. Two calls of RunShellCmd at the same
// time would share one temporary file; nothing guards against it.
#ifndef SRC_PROCESS_H
#define SRC_PROCESS_H

// Hands `command` to the shell, up to `tries` times, one second apart, until a run reports success
// (system() returns 0). The result of system() is taken raw: an exit code of 1 shows as 256 in the
// log. Returns true as soon as one run succeeds; false when all failed, when `tries` is 0 or less
// (nothing runs then) and when `command` is null.
bool RunShellProgram(const char *command, int tries);

// Runs `command` (up to 10 tries) with its standard output going to /usr/local/Tarnwell/cmd.txt,
// waits one second, reads that file into `output` and deletes it. `outputSize` is the size of
// `output` in bytes. Returns true when at least one byte was read: `output` then holds at most the
// first outputSize - 1 bytes and a terminating zero, with zeros up to its end.
// False leaves `output` filled with zeros, except for wrong arguments, which leave it unchanged:
// `command` or `output` null, `outputSize` below 1, or a command that begins with the digit 0.
// When the command failed, or its output cannot be opened, the temporary file is not deleted. A
// command line of more than 1023 characters, the redirection included, runs as its first 1023.
bool RunShellCmd(const char *command, char *output, int outputSize);

#endif
