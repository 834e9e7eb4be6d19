// kestrun_seams.cpp - the world that a test of src/Kestrun.cpp sees, and the calls it answers.
#include "tests/src/kestrun_seams.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>

#include "Common/Log.h"
#include "src/ActiveVolumeProgram.h"
#include "src/Kestrun.h"
#include "src/Process.h"

static World *world;

static constexpr char kLogFile[] = "/usr/local/Tarnwell/Kestrun.log";
static constexpr char kConfigFile[] = "/Library/StartupItems/QVKestrun/config";

// A text as it is shown in the list of calls.
static std::string Quoted(const char *text)
{
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

World::World()
{
    folder = std::filesystem::temp_directory_path() / "kestrun-world-XXXXXX";
    REQUIRE(mkdtemp(folder.data()) != nullptr);
    world = this;
    ResetFrameworks();
    gMountArgs[0] = nullptr;
    InitLogSystem(kLogFile);
}

World::~World()
{
    CloseLogSystem();
    world = nullptr;
    std::filesystem::remove_all(folder);
}

void World::Configure(const std::string &text) const
{
    const int fd = open((folder + "/config").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    REQUIRE(fd >= 0);
    REQUIRE(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    close(fd);
}

Lines World::TakeLog() const
{
    CloseLogSystem();
    return LogRecords(FileContent(folder + "/log"));
}

// A pipe that gives what the query for the daemon's user prints, and then an error.
static FILE *BrokenPipe()
{
    static bool isRead;
    isRead = false;
    cookie_io_functions_t functions = {};
    functions.read = [](void *, char *buffer, size_t size) -> ssize_t {
        if (isRead) {
            errno = EIO;
            return -1;
        }
        isRead = true;
        return static_cast<ssize_t>(world->owner->copy(buffer, size));
    };
    FILE *pipe = fopencookie(nullptr, "r", functions);
    REQUIRE(pipe != nullptr);
    return pipe;
}

// ---- The C library ----

extern "C" {

FILE *fopen(const char *path, const char *mode)
{
    using Open = FILE *(*)(const char *, const char *);
    static const Open open = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "fopen"));
    if (world != nullptr && std::string(path) == kLogFile)
        return open((world->folder + "/log").c_str(), mode);
    if (world != nullptr && std::string(path) == kConfigFile)
        return open((world->folder + "/config").c_str(), mode);
    return open(path, mode);
}

unsigned sleep(unsigned seconds)
{
    Note("sleep(" + std::to_string(seconds) + ")");
    return 0;
}

pid_t getpid()
{
    return world == nullptr ? 1 : world->pid;
}

FILE *popen(const char *command, const char *mode)
{
    Note("popen(" + Quoted(command) + ", " + Quoted(mode) + ")");
    const bool console = std::string(command).find("/dev/console") != std::string::npos;
    const std::optional<std::string> &output = console ? world->console : world->owner;
    if (!output)
        return nullptr;
    if (!console && world->ownerBreaks)
        return BrokenPipe();
    FILE *pipe = tmpfile();
    REQUIRE(pipe != nullptr);
    fputs(output->c_str(), pipe);
    rewind(pipe);
    return pipe;
}

int pclose(FILE *pipe)
{
    Note("pclose()");
    return fclose(pipe);
}

}  // extern "C"

// ---- The daemon's other modules ----

bool RunShellProgram(const char *command, int tries)
{
    Note("RunShellProgram(" + Quoted(command) + ", " + std::to_string(tries) + ")");
    return world->commandsSucceed;
}

bool RunShellCmd(const char *command, char *output, int outputSize)
{
    Note("RunShellCmd(" + Quoted(command) + ", buffer, " + std::to_string(outputSize) + ")");
    for (int i = 0; i < outputSize; i++)
        if (output[i] != '\0')
            Note("WRONG: the buffer is not cleared");
    Probe probe = {true, "  300 ??         0:01.00 /System/Library/CoreServices/Finder.app\n"};
    if (!world->finder.empty()) {
        probe = world->finder.front();
        world->finder.pop_front();
    }
    output[probe.output.copy(output, static_cast<size_t>(outputSize) - 1)] = '\0';
    return probe.ran;
}

bool RunSDProgram(const char *sysConfigPath, const char *openPrefix, const char *volumesDir)
{
    Note("RunSDProgram(" + Quoted(sysConfigPath) + ", " + Quoted(openPrefix) + ", " +
         Quoted(volumesDir) + ")");
    return world->setupSucceeds;
}

bool IsVolumeExist(const char *name, const char *directory, int testTime)
{
    Note("IsVolumeExist(" + Quoted(name) + ", " + Quoted(directory) + ", " +
         std::to_string(testTime) + ")");
    return world->volumeExists;
}

bool IsKeyValueCaseEqual(const char *path, const char *section, const char *key,
                         const char *expected)
{
    Note("IsKeyValueCaseEqual(" + Quoted(path) + ", " + Quoted(section) + ", " + Quoted(key) +
         ", " + Quoted(expected) + ")");
    return world->disableCdrom;
}
