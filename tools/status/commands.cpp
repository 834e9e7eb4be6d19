// commands.cpp - see commands.h.
#include "tools/status/commands.h"

#include <cstdio>

namespace kstatus
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

}  // namespace kstatus
