// main.cpp - kestrun-status: whether the daemon fares well, and what it waits for.
#include <cstdio>
#include <cstring>
#include <string>

#include "observe/program.h"
#include "tools/status/report.h"

static const char kProgram[] = "kestrun-status";
static const char kUsage[] =
    "usage: kestrun-status [--json]\n"
    "Tells whether the modem daemon runs, for whom, what is plugged in and mounted, and what the\n"
    "daemon waits for now. It changes nothing.\n"
    "  --json     the same for programs\n"
    "  --help     this text\n"
    "  --version  the version\n"
    "exit status: 0 all is well, 1 something is wrong, 2 something could not be found out\n";

static int Tell(bool json)
{
    const kstatus::Facts facts = kstatus::GatherFacts();
    const std::string text = json ? kstatus::ReportJson(facts) : kstatus::ReportText(facts);
    const int status = !facts.unknown.empty()               ? observe::kExitCouldNot
                       : kstatus::FindWrongs(facts).empty() ? observe::kExitFine
                                                            : observe::kExitFound;
    return observe::Say(kProgram, text, status);
}

int main(int argc, char **argv)
{
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0)
            return observe::Say(kProgram, kUsage, observe::kExitFine);
        if (strcmp(argv[i], "--version") == 0)
            return observe::SayVersion(kProgram);
        if (strcmp(argv[i], "--json") != 0) {
            (void)fputs(kUsage, stderr);
            return observe::kExitCouldNot;
        }
        json = true;
    }
    return Tell(json);
}
