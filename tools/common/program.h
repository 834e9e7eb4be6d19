// program.h - what the programs of this folder have in common: exit status, version, whole files.
#ifndef TOOLS_COMMON_PROGRAM_H
#define TOOLS_COMMON_PROGRAM_H

#include <optional>
#include <string>
#include <string_view>

namespace tools
{

enum ExitStatus {
    kExitFine = 0,
    kExitFound = 1,     // the tool found something that somebody should look at
    kExitCouldNot = 2,  // wrong arguments, or a file that cannot be read or written
};

// Prints "<program>: <message>" to standard error and returns kExitCouldNot.
int CouldNot(const char *program, const std::string &message);

// Writes `text` to standard output. Returns `status`; when the text could not be written, that is told
// and kExitCouldNot returned. That nobody reads it is no signal from then on, but such a failure.
int Say(const char *program, std::string_view text, int status);

// Says "<program> <version of this release>". Returns an exit status.
int SayVersion(const char *program);

// The whole of the file at `path` ("-" is standard input), or nothing when it cannot be opened or
// read, with errno telling why.
std::optional<std::string> ReadWholeFile(const std::string &path);

// Writes `content` to the file at `path`, which is made or replaced. False, with errno telling why,
// when that did not work.
bool WriteWholeFile(const std::string &path, std::string_view content);

// `bytes` as a person can read them on one line: line feeds as \n; other bytes that are no character, or
// one without a picture (it steers a terminal, or reorders the line), as \xNN. Other UTF-8 stays.
std::string Printable(std::string_view bytes);

// The same in double quotes.
std::string Quoted(std::string_view bytes);

// How many bytes at the start of `bytes` make one character of UTF-8; 0 when they make none.
size_t Utf8Length(std::string_view bytes);

}  // namespace tools

#endif
