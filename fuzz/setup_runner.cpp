// Any "SysConfig.dat" through a whole run of the setup, with a shell that only records: the
// commands are those that a plain reading of the rules gives and no others, and the file is old or
// has its three bytes changed. The first three bytes say which volumes exist and which commands
// fail.
#include "Common/Log.h"
#include "fuzz/check.h"
#include "src/ActiveVolumeProgram.h"
#include "tests/support/key_model.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vector>

static const char kConfigPath[] = "/memory/SysConfig.dat";
static const std::string kPrefix = "open \"";
static const std::string kVolumes = "/Volumes/";
static const std::size_t kHead = 3;
static const std::size_t kMostTries = 10;

// ---- The outside, as it is while a run lasts ----

struct Outside {
    std::string config;
    std::vector<std::string> commands;
    std::size_t failures = 0;  // so many commands fail before each that works
    std::size_t failed = 0;
    bool noVolumes = false;
    unsigned long duplicates = 0;  // numbered volumes up to this one exist
};

static thread_local Outside
    *t_outside;  // null while nothing runs: the fuzzer has threads of its own

template <class Function>
static Function *Next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

static bool Exists(const Outside &outside, const std::string &path)
{
    const std::size_t blank = path.find_last_of(' ');
    if (outside.noVolumes)
        return false;
    if (blank == std::string::npos)
        return true;
    const std::string number = path.substr(blank + 1);
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
        return true;
    return strtoul(number.c_str(), nullptr, 10) <= outside.duplicates;
}

extern "C" {

unsigned sleep(unsigned seconds)
{
    static auto *const next = Next<unsigned(unsigned)>("sleep");
    return t_outside == nullptr ? next(seconds) : 0;
}

int system(const char *command)
{
    static auto *const next = Next<int(const char *)>("system");
    if (t_outside == nullptr)
        return next(command);
    t_outside->commands.push_back(command);
    if (t_outside->failed == t_outside->failures) {
        t_outside->failed = 0;
        return 0;
    }
    t_outside->failed++;
    return 256;
}

DIR *opendir(const char *path)
{
    static auto *const next = Next<DIR *(const char *)>("opendir");
    if (t_outside == nullptr)
        return next(path);
    errno = ENOENT;
    return Exists(*t_outside, path) ? next("/") : nullptr;
}

FILE *fopen(const char *path, const char *mode)
{
    static auto *const next = Next<FILE *(const char *, const char *)>("fopen");
    if (t_outside == nullptr || strcmp(path, kConfigPath) != 0)
        return next(path, mode);
    return fmemopen(t_outside->config.data(), t_outside->config.size(), mode);
}

}  // extern "C"

// ---- A plain reading of the rules ----

struct Outcome {
    std::vector<std::string> commands;
    std::string config;
    bool result = false;
};

// Adds the command as often as it is tried; whether it worked.
static bool RunCommand(Outcome *outcome, const Outside &outside, const std::string &command)
{
    const bool works = outside.failures < kMostTries;
    outcome->commands.insert(outcome->commands.end(), works ? outside.failures + 1 : kMostTries,
                             command);
    return works;
}

static std::string WithoutExtension(const std::string &name)
{
    const std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

static std::string InWords(const std::string &name)
{
    std::string words;
    for (std::size_t i = 0; i < name.size(); i++) {
        if (i > 0 && name[i] >= 'A' && name[i] <= 'Z' && name[i - 1] != ' ')
            words += ' ';
        words += name[i];
    }
    return words;
}

static Outcome ModelOf(const Outside &outside)
{
    Outcome outcome{{}, outside.config, false};
    KeyModel model{outside.config};
    int64_t capacity = 1024;
    std::string setup = "SD_THIRD_SETUP";
    std::string path = "SD_THIRD_FILE_PATH";
    std::string name = "SD_THIRD_FILE_NAME";
    std::string once = "SD_RUN_THIRD_FILE_ONCE";
    if (model.Section("[SD_THIRDPARTY_SETUP]") == -1)
        return outcome;
    const int64_t place = model.Key(setup, 1024, capacity);
    if (place == -1 || !SameLetters(setup, "yes") || model.Key(path, 1024, capacity) == -1 ||
        !Exists(outside, kVolumes + path) || model.Key(name, 512, capacity) == -1)
        return outcome;
    if (!RunCommand(&outcome, outside, kPrefix + kVolumes + path + "/" + name + "\""))
        return outcome;
    name = WithoutExtension(name);
    const std::string base = kVolumes + InWords(name);
    if (name.empty() || !Exists(outside, base))
        return outcome;
    unsigned long number = 1;
    while (Exists(outside, base + " " + std::to_string(number)))
        number++;
    const std::string volume = number == 1 ? base : base + " " + std::to_string(number - 1);
    capacity = 1024 - static_cast<int64_t>(kPrefix.size());
    if (static_cast<int64_t>(volume.size()) >= capacity)
        return outcome;
    if (!RunCommand(&outcome, outside, kPrefix + volume + "/" + name + ".pkg\"") ||
        model.Key(once, 1024, capacity) == -1)
        return outcome;
    outcome.result = true;
    if (SameLetters(once, "yes"))
        outcome.config.replace(static_cast<std::size_t>(place), 3, std::string("No\0", 3));
    return outcome;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size <= kHead)
        return 0;
    Outside outside;
    outside.config.assign(reinterpret_cast<const char *>(data) + kHead, size - kHead);
    outside.noVolumes = data[0] % 8 == 7;
    outside.failures = data[1] % 8 == 7 ? data[1] / 8 % 12 : 0;
    outside.duplicates = data[2] % 4;
    const Outcome expected = ModelOf(outside);

    t_outside = &outside;
    InitLogSystem("/dev/null");
    const bool result = RunSDProgram(kConfigPath, kPrefix.c_str(), kVolumes.c_str());
    CloseLogSystem();
    t_outside = nullptr;
    FUZZ_CHECK(result == expected.result);
    FUZZ_CHECK(outside.commands == expected.commands);
    FUZZ_CHECK(outside.config == expected.config);
    return 0;
}
