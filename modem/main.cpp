// main.cpp - kestrun-bench: plays scenarios against the real daemon.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <getopt.h>
#include <unistd.h>

#include "modem/children.h"
#include "modem/player.h"
#include "modem/scenario.h"
#include "observe/files.h"
#include "observe/json.h"
#include "observe/program.h"

namespace
{

namespace fs = std::filesystem;

const int kExitPassed = 0;
const int kExitFailed = 1;
const int kExitMistake = 2;
const int kExitNotPlayable = 77;  // what ctest and automake take for "skipped"

const double kMostSpeed = 1000;

const char kUsage[] =
    "usage: kestrun-bench run FILE... [options]   plays scenarios, one after the other\n"
    "       kestrun-bench record FILE             records this system as a scenario until SIGINT\n"
    "       kestrun-bench words                   lists the statements of a scenario\n"
    "options:\n"
    "  --speed N         the daemon sleeps N times shorter (1 to 1000, may be fractional)\n"
    "  --dry-run         checks the scenario and prints what would be done\n"
    "  --daemon PATH     the daemon (else the one built beside this program, or the installed one)\n"
    "  --keep            keeps the log and the world's other files in /tmp\n"
    "  --seed N          the random numbers' start (else 1)\n"
    "  --world KIND      root, user or real (else the first that this machine allows)\n"
    "  --update-golden   writes the scenario's golden log anew\n"
    "  --record FILE     writes what happens as a scenario, names and serial numbers masked\n"
    "  --json            prints a JSON object on each line, for programs\n"
    "  --help            prints this\n"
    "  --version         prints the version\n"
    "exit status: 0 all came true, 1 something did not, 2 a mistake in a scenario or in these\n"
    "arguments, 77 this machine cannot play one of them\n";

struct Arguments {
    modem::PlayOptions play;
    bool dryRun = false;
};

void PrintPlanInJson(const std::vector<modem::Step> &steps)
{
    for (const modem::Step &step : steps) {
        std::cout << observe::JsonLine({{"line", step.place.line},
                                        {"statement", step.text},
                                        {"meaning", modem::StepMeaning(step)}});
    }
}

// Every statement and what it means, those that are repeated set in.
void PrintPlan(const std::vector<modem::Step> &steps)
{
    std::string indent = "  ";
    for (const modem::Step &step : steps) {
        if (step.act == modem::Act::End)
            indent.resize(indent.size() - 4);
        std::cout << indent << "line " << step.place.line << ": " << step.text << "\n"
                  << indent << "    " << modem::StepMeaning(step) << "\n";
        if (step.act == modem::Act::Repeat)
            indent += "    ";
    }
}

bool TakeNumber(const char *text, double least, double most, double *number)
{
    char *end = nullptr;
    *number = strtod(text, &end);
    return end != text && *end == '\0' && *number >= least && *number <= most;
}

bool TakeWorld(const std::string &text, modem::WorldKind *kind)
{
    if (text == "root") {
        *kind = modem::WorldKind::Root;
    } else if (text == "user") {
        *kind = modem::WorldKind::User;
    } else if (text == "real") {
        *kind = modem::WorldKind::Real;
    } else {
        return false;
    }
    return true;
}

enum Option {
    kSpeed = 1,
    kDryRun,
    kDaemon,
    kKeep,
    kSeed,
    kWorld,
    kUpdateGolden,
    kRecord,
    kJson,
    kHelp,
    kVersion
};

const struct option kOptions[] = {
    {"speed", required_argument, nullptr, kSpeed},
    {"dry-run", no_argument, nullptr, kDryRun},
    {"daemon", required_argument, nullptr, kDaemon},
    {"keep", no_argument, nullptr, kKeep},
    {"seed", required_argument, nullptr, kSeed},
    {"world", required_argument, nullptr, kWorld},
    {"update-golden", no_argument, nullptr, kUpdateGolden},
    {"record", required_argument, nullptr, kRecord},
    {"json", no_argument, nullptr, kJson},
    {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},
    {nullptr, 0, nullptr, 0},
};

bool TakeOption(int option, Arguments *arguments)
{
    double number = 0;
    switch (option) {
    case kSpeed: return TakeNumber(optarg, 1, kMostSpeed, &arguments->play.speed);
    case kDryRun: arguments->dryRun = true; return true;
    case kDaemon: arguments->play.daemonProgram = fs::absolute(optarg); return true;
    case kKeep: arguments->play.keep = true; return true;
    case kSeed:
        if (!TakeNumber(optarg, 0, static_cast<double>(LONG_MAX), &number))
            return false;
        arguments->play.seed = static_cast<unsigned long>(number);
        return true;
    case kWorld: return TakeWorld(optarg, &arguments->play.world);
    case kRecord: arguments->play.recordFile = fs::absolute(optarg); return true;
    case kUpdateGolden: arguments->play.updateGolden = true; return true;
    case kJson: arguments->play.json = true; return true;
    default: return false;
    }
}

// What the values are that TakeOption takes; null for an option that takes any, or that there is
// not.
const char *ValuesOf(int option)
{
    switch (option) {
    case kSpeed: return "--speed takes a number from 1 to 1000";
    case kSeed: return "--seed takes a number from 0 on";
    case kWorld: return "--world takes root, user or real";
    default: return nullptr;
    }
}

// What was built, or installed, beside this program.
void FindBuild(modem::PlayOptions *play)
{
    std::error_code ignored;
    const fs::path self = fs::read_symlink("/proc/self/exe", ignored);
    const fs::path folder = self.parent_path();
    play->toolsDir = folder / "bin";
    play->programsDir = folder.parent_path() / "tools";
    play->speedLibrary = folder / "libkestrun-speed.so";
    play->daemonProgram = folder.parent_path() / "src" / "Kestrun";
    if (!fs::exists(play->daemonProgram, ignored))
        play->daemonProgram = "/usr/sbin/kestrun";
}

bool ReadScenario(const std::string &path, modem::Scenario *scenario)
{
    const auto text = observe::ReadWholeFile(path);
    if (!text) {
        std::cerr << "kestrun-bench: " << path << ": " << strerror(errno) << "\n";
        return false;
    }
    modem::Mistake mistake;
    if (!modem::ParseScenario(*text, scenario, &mistake)) {
        std::cerr << path << ":" << mistake.place.line << ":" << mistake.place.column << ": "
                  << mistake.message << "\n";
        return false;
    }
    return true;
}

// Whether the recording can be written when it is done.
bool CanRecordTo(const std::string &file)
{
    const std::string folder = fs::path(file).parent_path();
    if (access(folder.c_str(), W_OK | X_OK) == 0 || access(file.c_str(), W_OK) == 0)
        return true;
    std::cerr << "kestrun-bench: " << file << ": " << strerror(errno)
              << ": a recording needs a folder that can be written to\n";
    return false;
}

// The world and the daemon are seen through /proc.
bool HasProc()
{
    if (access("/proc/self/exe", F_OK) == 0)
        return true;
    std::cerr << "kestrun-bench: there is no /proc: mount -t proc proc /proc\n";
    return false;
}

bool HasNeeded(const modem::PlayOptions &play)
{
    for (const std::string &needed :
         {play.daemonProgram, play.speedLibrary, play.toolsDir + "/open"}) {
        if (access(needed.c_str(), needed == play.speedLibrary ? R_OK : R_OK | X_OK) != 0) {
            std::cerr << "kestrun-bench: " << needed << ": " << strerror(errno) << "\n";
            return false;
        }
    }
    return true;
}

int PlayOne(const modem::Scenario &scenario, const modem::PlayOptions &play)
{
    switch (modem::Play(scenario, play)) {
    case modem::Result::Passed: return kExitPassed;
    case modem::Result::Failed: return kExitFailed;
    case modem::Result::NotPlayable: break;
    }
    return kExitNotPlayable;
}

// In a process of its own: who has played lives in another world.
int PlayApart(const modem::Scenario &scenario, const modem::PlayOptions &play)
{
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        const int result = PlayOne(scenario, play);
        std::cout.flush();
        (void)fflush(stdout);
        _exit(result);
    }
    const int status = modem::ExitStatusOf(child);
    return status != -1 ? status : kExitFailed;
}

int Run(Arguments arguments, const std::vector<std::string> &files)
{
    std::vector<modem::Scenario> scenarios(files.size());
    bool good = true;
    for (size_t i = 0; i < files.size(); ++i)
        good = ReadScenario(files[i], &scenarios[i]) && good;
    if (!good)
        return kExitMistake;
    modem::PlayOptions &play = arguments.play;
    if (!arguments.dryRun && (!HasProc() || !HasNeeded(play) ||
                              (!play.recordFile.empty() && !CanRecordTo(play.recordFile))))
        return kExitMistake;
    int worst = kExitPassed;
    for (size_t i = 0; i < files.size(); ++i) {
        play.scenarioFile = files[i];
        if (!scenarios[i].title.empty() && !play.json)
            std::cout << scenarios[i].title << std::endl;
        if (arguments.dryRun) {
            (play.json ? PrintPlanInJson : PrintPlan)(scenarios[i].steps);
            continue;
        }
        const int result =
            files.size() == 1 ? PlayOne(scenarios[i], play) : PlayApart(scenarios[i], play);
        worst = worst == kExitFailed || result == kExitPassed ? worst : result;
    }
    return worst;
}

int Usage(int status)
{
    (status == kExitPassed ? std::cout : std::cerr) << kUsage;
    return status;
}

}  // namespace

int main(int argc, char **argv)
{
    Arguments arguments;
    FindBuild(&arguments.play);
    int option = 0;
    while ((option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
        if (option == kHelp)
            return Usage(kExitPassed);
        if (option == kVersion)
            return observe::SayVersion("kestrun-bench");
        if (!TakeOption(option, &arguments)) {
            const char *values = ValuesOf(option);
            if (values == nullptr)
                return Usage(kExitMistake);
            std::cerr << "kestrun-bench: " << values << ", not \"" << optarg << "\"\n";
            return kExitMistake;
        }
    }
    const std::string command = optind < argc ? argv[optind] : "";
    if (command == "words" && optind + 1 == argc) {
        std::cout << modem::StatementList();
        return kExitPassed;
    }
    if (command == "record" && optind + 2 == argc) {
        const std::string file = fs::absolute(argv[optind + 1]);
        return HasProc() && CanRecordTo(file) && modem::RecordThisSystem(file, arguments.play.json)
                   ? kExitPassed
                   : kExitMistake;
    }
    if (command != "run" || optind + 2 > argc)
        return Usage(kExitMistake);
    std::vector<std::string> files;
    for (int i = optind + 1; i < argc; ++i)
        files.push_back(fs::absolute(argv[i]));
    if (files.size() > 1 && !arguments.play.recordFile.empty()) {
        std::cerr << "kestrun-bench: --record takes the recording of one scenario, not of "
                  << files.size() << "\n";
        return kExitMistake;
    }
    return Run(arguments, files);
}
