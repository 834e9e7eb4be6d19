// commands.h - what shell commands print, those among them with which the daemon asks.
#ifndef OBSERVE_COMMANDS_H
#define OBSERVE_COMMANDS_H

#include <string>

namespace observe
{

// All that `command` prints to standard output; what it prints to standard error is dropped. Empty
// when it prints nothing or cannot be run.
std::string CommandOutput(const std::string &command);

// Whose process it is and whose the console is, as the daemon is told; empty where nobody knows.
std::string OwnerOfProcess(long pid);
std::string OwnerOfConsole();

bool FinderRuns();

}  // namespace observe

#endif
