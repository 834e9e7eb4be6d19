// commands.h - what shell commands print.
#ifndef TOOLS_COMMON_COMMANDS_H
#define TOOLS_COMMON_COMMANDS_H

#include <string>

namespace tools
{

// All that `command` prints to standard output; what it prints to standard error is dropped. Empty
// when it prints nothing or cannot be run.
std::string CommandOutput(const std::string &command);

// `text` up to its first line feed, which is left out.
std::string FirstLine(const std::string &text);

}  // namespace tools

#endif
