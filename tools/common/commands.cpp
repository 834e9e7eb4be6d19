// commands.cpp - see commands.h.
#include "tools/common/commands.h"

#include <cstdio>

namespace tools
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

std::string FirstLine(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

}  // namespace tools
