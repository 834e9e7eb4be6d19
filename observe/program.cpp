// program.cpp - see program.h.
#include "observe/program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace observe
{

int CouldNot(const char *program, const std::string &message)
{
    fprintf(stderr, "%s: %s\n", program, message.c_str());
    return kExitCouldNot;
}

int Say(const char *program, std::string_view text, int status)
{
    (void)signal(SIGPIPE, SIG_IGN);  // else it ends the program without a word
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
        return CouldNot(program, std::string("standard output: ") + strerror(errno));
    return status;
}

int SayVersion(const char *program)
{
    return Say(program, std::string(program) + " " + KESTRUN_VERSION + "\n", kExitFine);
}

}  // namespace observe
