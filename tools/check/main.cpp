// main.cpp - kestrun-check: says what the daemon will make of its configuration.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/names.h"
#include "observe/program.h"
#include "tools/check/readers.h"
#include "tools/check/render.h"
#include "tools/check/rules.h"

static const char kProgram[] = "kestrun-check";

static const char kUsage[] =
    "usage: kestrun-check [--json] [--strict] [--root DIR] [CONFIG [SYSCONFIG]]\n"
    "Says for each thing that matters in Kestrun's configuration whether it is right (PASS), absent as\n"
    "it may be (NOTE), doubtful (WARN) or wrong (FAIL), and what the daemon will do. Without CONFIG the\n"
    "files of this machine are checked, with its disks, ports, volumes and folders.\n"
    "  --root DIR   checks the machine whose root is DIR\n"
    "  --json       writes JSON\n"
    "  --strict     what is absent is doubtful too\n"
    "  --help       shows this\n"
    "  --version    shows the version\n"
    "exit status: 0 nothing but PASS and NOTE, 1 some WARN or FAIL, 2 wrong arguments, or a file\n"
    "cannot be read, or nobody takes the output\n";

namespace
{

struct Arguments {
    std::optional<std::string> root;
    std::optional<std::string> config;     // else the machine's own
    std::optional<std::string> sysConfig;  // else the machine's own, or none beside a named CONFIG
    bool json = false;
    bool strict = false;
};

using Check = void (*)(kcheck::Report &, const std::string &, std::string_view);

}  // namespace

// A file of this name: "-" is one too, for standard input can be read but once.
static std::string FileAt(const std::string &path)
{
    return path == "-" ? "./-" : path;
}

// Checks the file at `path`, which may be missing when the machine is looked at. False when it had
// to be there, or cannot be read.
static bool CheckFile(kcheck::Report &report, const std::string &path, bool named, Check check)
{
    struct stat status;
    const bool stands = stat(path.c_str(), &status) == 0;
    // A pipe can be read once: the daemon's readers would find it empty.
    if (stands && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        observe::CouldNot(kProgram, path + ": Not a regular file");
        return false;
    }
    const auto content = stands ? observe::ReadWholeFile(path) : std::nullopt;
    if (!content && (named || errno != ENOENT)) {
        observe::CouldNot(kProgram, path + ": " + strerror(errno));
        return false;
    }
    if (!content) {
        const bool isConfig = check == kcheck::CheckConfig;
        report.findings.push_back(
            {isConfig ? kcheck::Verdict::Warn : kcheck::Verdict::Note, observe::Printable(path),
             "file", 0, "it is not there",
             isConfig ? "the defaults hold: Orvanta, rdonly, open -a without quotes"
                      : "no setup package is run"});
        return true;
    }
    check(report, path, *content);
    kcheck::CheckModes(report, path);
    return true;
}

static int Run(const Arguments &arguments)
{
    kcheck::Report report;
    const bool named = arguments.config.has_value();
    const std::string root = arguments.root.value_or("");
    if (!root.empty() && access((root + "/.").c_str(), F_OK) != 0)
        return observe::CouldNot(kProgram, root + ": " + strerror(errno));
    const std::string config = named ? FileAt(*arguments.config) : root + observe::kConfigFile;
    if (!kcheck::IsPathKept(config))
        return observe::CouldNot(kProgram, config + ": " + strerror(ENAMETOOLONG));
    if (!CheckFile(report, config, named, kcheck::CheckConfig))
        return observe::kExitCouldNot;
    const bool sysNamed = arguments.sysConfig.has_value();
    const std::string sysConfig =
        sysNamed ? FileAt(*arguments.sysConfig) : root + observe::kSysConfigFile;
    if ((sysNamed || !named) && !CheckFile(report, sysConfig, sysNamed, kcheck::CheckSysConfig))
        return observe::kExitCouldNot;
    if (!named)
        kcheck::CheckMachine(report, root, config);
    if (arguments.strict)
        kcheck::TakeNotesAsWarnings(report);
    const std::string text =
        arguments.json ? kcheck::RenderJson(report) : kcheck::RenderText(report);
    const bool fine = kcheck::Worst(report) == kcheck::Verdict::Pass;
    return observe::Say(kProgram, text, fine ? observe::kExitFine : observe::kExitFound);
}

// Takes the options. Returns an exit status when there is nothing more to do, else -1.
static int TakeArguments(int argc, char **argv, Arguments &arguments)
{
    static const option kOptions[] = {
        {"help", no_argument, nullptr, 'h'},       {"json", no_argument, nullptr, 'j'},
        {"root", required_argument, nullptr, 'r'}, {"strict", no_argument, nullptr, 's'},
        {"version", no_argument, nullptr, 'v'},    {nullptr, 0, nullptr, 0},
    };
    int letter = 0;
    while ((letter = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
        switch (letter) {
        case 'h': return observe::Say(kProgram, kUsage, observe::kExitFine);
        case 'j': arguments.json = true; break;
        case 'r': arguments.root = optarg; break;
        case 's': arguments.strict = true; break;
        case 'v': return observe::SayVersion(kProgram);
        default: fputs(kUsage, stderr); return observe::kExitCouldNot;
        }
    }
    if (argc - optind > 2 || (optind < argc && arguments.root)) {
        fputs(kUsage, stderr);
        return observe::kExitCouldNot;
    }
    if (optind < argc)
        arguments.config = argv[optind];
    if (optind + 1 < argc)
        arguments.sysConfig = argv[optind + 1];
    return -1;
}

int main(int argc, char **argv)
{
    Arguments arguments;
    const int status = TakeArguments(argc, argv, arguments);
    return status != -1 ? status : Run(arguments);
}
