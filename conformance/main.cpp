// main.cpp - kestrun-conformance: asks, checks claim after claim in a child process, prints TAP,
// and cleans up after the child however it ended.
#include <CoreFoundation/CoreFoundation.h>

#include "conformance/Checks.h"
#include "conformance/System.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

using namespace conformance;

namespace
{

// The exit status where this system allows no run.
constexpr int kImpossible = 77;
constexpr int kUsage = 2;

constexpr char kUsageText[] = "usage: kestrun-conformance [--yes] [--quick] [--report FILE]\n"
                              "  --yes          do not ask first\n"
                              "  --quick        without the claim that takes half a minute\n"
                              "  --report FILE  write what is printed to FILE too\n";

struct Arguments {
    bool yes = false;
    bool quick = false;
    const char *report = nullptr;
};

FILE *g_report = nullptr;    // null without --report
volatile pid_t g_child = 0;  // the process that checks

// A line to standard output and to the report.
void Print(const std::string &line)
{
    for (FILE *file : {stdout, g_report}) {
        if (file == nullptr)
            continue;
        (void)fprintf(file, "%s\n", line.c_str());
        (void)fflush(file);
    }
}

// One line on standard error.
void Complain(const std::string &what)
{
    (void)fprintf(stderr, "kestrun-conformance: %s\n", what.c_str());
}

bool ReadArguments(int argc, char **argv, Arguments *arguments)
{
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (word == "--yes") {
            arguments->yes = true;
        } else if (word == "--quick") {
            arguments->quick = true;
        } else if (word == "--report" && i + 1 < argc) {
            arguments->report = argv[++i];
        } else {
            Complain("what is " + word + "? See --help");
            return false;
        }
    }
    return true;
}

bool IsAllowed()
{
    if (isatty(STDIN_FILENO) == 0) {
        Complain("there is no terminal to ask: add --yes");
        return false;
    }
    (void)printf("%s Go on? [y/N] ", kWhatIsDone);
    (void)fflush(stdout);
    const int answer = getchar();
    return answer == 'y' || answer == 'Y';
}

// True if the claim holds or could not be looked at.
bool Report(size_t number, const Check &check)
{
    const std::string seen = check.holds();
    const bool skipped = seen.compare(0, 5, "SKIP ") == 0;
    const bool good = seen.empty() || skipped;
    Print((good ? "ok " : "not ok ") + std::to_string(number) + " - " + check.claim +
          (skipped ? " # " + seen : ""));
    if (!good)
        Print("# " + seen);
    return good;
}

int RunChecks(const std::string &folder, bool quick)
{
    std::string why;
    if (!EnterSystem(folder, &why)) {
        Complain(why);
        return kImpossible;
    }
    std::vector<Check> checks = kGeneralChecks;
    for (const Check &check : kDiskChecks) {
        if (!quick || !check.isLong)
            checks.push_back(check);
    }
    Print("TAP version 13");
    Print("# " + SystemVersion());
    Print("1.." + std::to_string(checks.size()));
    bool good = true;
    for (size_t i = 0; i < checks.size(); i++)
        good = Report(i + 1, checks[i]) && good;
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

void StopChild(int signal)
{
    if (g_child > 0)
        (void)kill(g_child, signal == SIGKILL ? SIGKILL : SIGTERM);
}

// Runs the checks in a child, so that whatever becomes of them, somebody cleans up.
int RunInChild(const std::string &folder, bool quick)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(RunChecks(folder, quick));
    if (child < 0) {
        Complain(std::string("no process: ") + strerror(errno) + "; try again later");
        return kImpossible;
    }
    g_child = child;
    (void)signal(SIGINT, StopChild);
    (void)signal(SIGTERM, StopChild);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    g_child = 0;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    Print("Bail out! the checks ended by signal " + std::to_string(WTERMSIG(status)));
    return EXIT_FAILURE;
}

}  // namespace

std::string conformance::Difference(const std::string &seen, const std::string &expected)
{
    return seen == expected ? "" : "seen: " + seen + "; expected: " + expected;
}

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        (void)fputs(kUsageText, stdout);
        return EXIT_SUCCESS;
    }
    (void)signal(SIGPIPE, SIG_IGN);
    Arguments arguments;
    if (!ReadArguments(argc, argv, &arguments) || (!arguments.yes && !IsAllowed()))
        return kUsage;
    if (arguments.report != nullptr && (g_report = fopen(arguments.report, "we")) == nullptr) {
        Complain(std::string("cannot write ") + arguments.report + ": " + strerror(errno) +
                 "; name another file after --report");
        return kUsage;
    }
    const char *temporary = getenv("TMPDIR");
    std::string folder =
        std::string(temporary == nullptr ? "/tmp" : temporary) + "/kestrun-conformance-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        Complain(folder + ": " + strerror(errno) + "; set TMPDIR to a folder with room");
        return kImpossible;
    }
    const int status = RunInChild(folder, arguments.quick);
    CleanUp(folder);
    if (g_report != nullptr)
        (void)fclose(g_report);
    return status;
}
