// The daemon with all its modules, over frameworks that write down each call and a C library that
// leads into a scratch folder: whole logs, and what the shell was asked to do.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "src/Kestrun.h"
#include "tests/src/frameworks_stand_in.h"

int KestrunMain();  // what main is called here

static std::string root;  // what the daemon takes for the root folder; none: the real one
static bool finderRuns;   // whether a search for the Finder finds it
static Lines commands;    // what the shell was asked to do, and how long the daemon slept

// A path of the daemon's as it is in the scratch folder.
static std::string Inside(const char *path)
{
    for (const char *prefix : {"/usr/local/Tarnwell", "/Library", "/Applications", "/Volumes"})
        if (!root.empty() && std::string(path).rfind(prefix, 0) == 0)
            return root + path;
    return path;
}

// The C function of that name that this program's own one stands before.
template <class Function>
static Function *Real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

extern "C" {

FILE *fopen(const char *path, const char *mode)
{
    return Real<FILE *(const char *, const char *)>("fopen")(Inside(path).c_str(), mode);
}

DIR *opendir(const char *path)
{
    return Real<DIR *(const char *)>("opendir")(Inside(path).c_str());
}

unsigned sleep(unsigned seconds)
{
    commands.push_back("sleep " + std::to_string(seconds));
    finderRuns = finderRuns || seconds == 5;  // the user logs in during the long pause
    return 0;
}

pid_t getpid()
{
    return 4711;
}

FILE *popen(const char *command, const char * /*mode*/)
{
    commands.push_back(command);
    FILE *pipe = tmpfile();
    fputs("ada\n", pipe);
    rewind(pipe);
    return pipe;
}

int pclose(FILE *pipe)
{
    return fclose(pipe);
}

int system(const char *command)
{
    commands.push_back(command);
    const std::string line = command;
    if (line == "rm -f /usr/local/Tarnwell/cmd.txt")
        unlink(Inside("/usr/local/Tarnwell/cmd.txt").c_str());
    if (line == "ps -A | grep 'Finder[.]' > /usr/local/Tarnwell/cmd.txt") {
        std::ofstream(Inside("/usr/local/Tarnwell/cmd.txt")) << (finderRuns ? "Finder.app\n" : "");
        errno = ENOENT;  // the log says what it was
        return finderRuns ? 0 : 256;
    }
    if (line == "open \"/Volumes/Orvanta/ThirdPartySetup.dmg\"")
        std::filesystem::create_directory(Inside("/Volumes/Third Party Setup"));
    return 0;
}

}  // extern "C"

static constexpr char kConfig[] = "/Library/StartupItems/QVKestrun/config";
static constexpr char kSysConfig[] = "/Applications/Orvanta.app/Contents/Resources/SysConfig.dat";

// A machine on which everything that the daemon expects is in place, and nothing is plugged in.
struct Machine {
    Machine()
    {
        std::string folder = std::filesystem::temp_directory_path() / "kestrun-root-XXXXXX";
        REQUIRE(mkdtemp(folder.data()) != nullptr);
        for (const char *path : {"/usr/local/Tarnwell", "/Library/StartupItems/QVKestrun",
                                 "/Applications/Orvanta.app/Contents/Resources", "/Volumes"})
            std::filesystem::create_directories(folder + path);
        root = folder;
        finderRuns = true;
        commands.clear();
        ResetFrameworks();
        gMountArgs[0] = nullptr;
    }
    ~Machine()
    {
        std::filesystem::remove_all(root);
        root.clear();
    }
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    static void Write(const char *path, const std::string &text)
    {
        std::ofstream(root + path, std::ios::binary) << text;
    }
    static Lines Log()
    {
        return LogRecords(FileContent(root + "/usr/local/Tarnwell/Kestrun.log"));
    }
    // The log's lines, their times masked, their numbers as if the process had started with it.
    static Lines WholeLog()
    {
        std::istringstream text(MaskTimes(FileContent(root + "/usr/local/Tarnwell/Kestrun.log")));
        Lines lines;
        int first = 0;
        for (std::string line; std::getline(text, line);) {
            int number = 0;
            int digitsEnd = 0;
            if (sscanf(line.c_str(), "line %d%n===TIME   ", &number, &digitsEnd) == 1) {
                first = lines.empty() ? number : first;
                line.replace(0, static_cast<size_t>(digitsEnd),
                             "line " + std::to_string(number - first + 1));
            }
            lines.push_back(line);
        }
        return lines;
    }
};

// The lines of a golden log.
static Lines Golden(const char *name)
{
    std::istringstream text(FileContent(KESTRUN_GOLDEN_FOLDER "/" + std::string(name) + ".log"));
    Lines lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

TEST_CASE("disable_cdrom is true in any case of letters, and anything else is not")
{
    struct {
        const char *config;
        const char *option;
    } const rows[] = {
        {"[Volumes]\ndisable_cdrom=true\n", "nobrowse"},
        {"[Volumes]\ndisable_cdrom=TRUE\n", "nobrowse"},
        {"[Volumes]\r\nname=Orvanta\r\ndisable_cdrom = TrUe \r\n", "nobrowse"},
        {"[Volumes]\ndisable_cdrom=false\n", "rdonly"},
        {"[Volumes]\ndisable_cdrom=yes\n", "rdonly"},
        {"[Volumes]\ndisable_cdrom=1\n", "rdonly"},
        {"[Volumes]\ndisable_cdrom=truely\n", "rdonly"},
        {"[Volumes]\ndisable_cdrom=\n", "rdonly"},
        {"[Volumes]\n[Other]\ndisable_cdrom=true\n", "rdonly"},
        {"disable_cdrom=true\n[Volumes]\n", "rdonly"},
        {"[Volumes]\nname=Orvanta\n", "rdonly"},
        {"", "rdonly"},
        {nullptr, "rdonly"},
    };
    for (const auto &row : rows) {
        CAPTURE(row.config);
        const Machine machine;
        if (row.config != nullptr)
            Machine::Write(kConfig, row.config);
        CHECK(KestrunMain() == 0);
        CHECK(TextOf(gMountArgs[0]) == '"' + std::string(row.option) + '"');
        CHECK(gMountArgs[1] == nullptr);
        CHECK(Machine::Log().back() == (row.option == std::string("nobrowse")
                                            ? "Kestrun:main --- value of disable_cdrom is true"
                                            : "Kestrun:main --- value of disable_cdrom is false"));
    }
}

TEST_CASE(
    "a modem that is there at start-up: the application and its setup package are opened once")
{
    const Machine machine;
    frameworks.ports = {{{"/dev/cu.Bluetooth-Incoming-Port"}, {"/dev/cu.QARVELMobile-Pcui"}}};
    std::filesystem::create_directory(root + "/Volumes/Orvanta");
    Machine::Write(kConfig, "[Volumes]\nname=Orvanta\npath1=/Volumes/Orvanta/My App.app/\n");
    const std::string before = "[SD_THIRDPARTY_SETUP]\n"
                               "SD_THIRD_SETUP=yes\n"
                               "SD_THIRD_FILE_PATH=Orvanta\n"
                               "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\n"
                               "SD_RUN_THIRD_FILE_ONCE=yes\n";
    Machine::Write(kSysConfig, before);
    CHECK(KestrunMain() == 0);

    const Lines asked = {
        "ps aux | awk -v PID=4711 '$2 == PID { print $1 }'",
        "stat -f%Su /dev/console",
        "ps -A | grep 'Finder[.]' > /usr/local/Tarnwell/cmd.txt",
        "sleep 1",
        "rm -f /usr/local/Tarnwell/cmd.txt",
        R"(open -a "/Volumes/Orvanta/My App.app/")",
        R"(open "/Volumes/Orvanta/ThirdPartySetup.dmg")",
        R"(open "/Volumes/Third Party Setup/ThirdPartySetup.pkg")",
    };
    CHECK(commands == asked);
    std::string after = before;
    after.replace(after.find("yes"), 3, std::string("No\0", 3));
    CHECK(FileContent(root + kSysConfig) == after);

    CHECK(Machine::WholeLog() == Golden("modem_at_start"));
}

TEST_CASE("a modem that is plugged in later: mounted by the daemon, opened when the Finder runs")
{
    const Machine machine;
    frameworks.whileRunning = [] {
        DADiskRef disk = MakeDisk("disk");
        DiskPeekCallback(disk, nullptr);
        std::filesystem::create_directory(root + "/Volumes/Orvanta");
        finderRuns = false;
        DiskMountCallback(disk, nullptr, nullptr);
    };
    CHECK(KestrunMain() == 0);

    Lines asked = Lines(10, "sleep 1");
    asked.push_back("ps aux | awk -v PID=4711 '$2 == PID { print $1 }'");
    asked.push_back("stat -f%Su /dev/console");
    for (int i = 0; i < 10; i++) {
        asked.push_back("ps -A | grep 'Finder[.]' > /usr/local/Tarnwell/cmd.txt");
        asked.push_back("sleep 1");
    }
    for (const char *command : {
             "sleep 5",
             "ps -A | grep 'Finder[.]' > /usr/local/Tarnwell/cmd.txt",
             "sleep 1",
             "rm -f /usr/local/Tarnwell/cmd.txt",
             "open -a /Volumes/Orvanta/Orvanta.app/",
         })
        asked.push_back(command);
    CHECK(commands == asked);
    CHECK(Machine::WholeLog() == Golden("modem_plugged_in"));
}
