// commands.cpp - see commands.h.
#include "observe/commands.h"

#include <cstdio>

#include "observe/daemon.h"
#include "observe/names.h"

namespace observe
{

std::string CommandOutput(const std::string &command)
{
    std::string output;
    FILE *pipe = popen(("{ " + command + "; } 2>/dev/null").c_str(), "r");
    if (pipe == nullptr)
        return output;
    char buffer[4096];
    for (size_t got = 0; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, got);
    (void)pclose(pipe);
    return output;
}

std::string OwnerOfProcess(long pid)
{
    return FirstLine(
        CommandOutput(kOwnerCommand + std::to_string(pid) + " '$2 == PID { print $1 }'"));
}

std::string OwnerOfConsole()
{
    return FirstLine(CommandOutput(kConsoleCommand));
}

bool FinderRuns()
{
    return !CommandOutput(kFinderCommand).empty();
}

}  // namespace observe
