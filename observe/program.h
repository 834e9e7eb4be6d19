// program.h - what the programs have in common: exit status, messages, version.
#ifndef OBSERVE_PROGRAM_H
#define OBSERVE_PROGRAM_H

#include <string>
#include <string_view>

namespace observe
{

enum ExitStatus {
    kExitFine = 0,
    kExitFound = 1,     // the tool found something that somebody should look at
    kExitCouldNot = 2,  // wrong arguments, or a file that cannot be read or written
};

// Prints "<program>: <message>" to standard error and returns kExitCouldNot.
int CouldNot(const char *program, const std::string &message);

// Writes `text` to standard output. Returns `status`; when the text could not be written, that is
// told and kExitCouldNot returned. That nobody reads it is no signal from then on, but such a
// failure.
int Say(const char *program, std::string_view text, int status);

// Says "<program> <version of this release>". Returns an exit status.
int SayVersion(const char *program);

}  // namespace observe

#endif
