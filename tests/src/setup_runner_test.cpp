// The setup runner: what it runs, what it changes in the file, and what each failure leaves.
#include "src/ActiveVolumeProgram.h"

#include "tests/src/launcher_seam.h"
#include "tests/support/descriptors.h"
#include "tests/support/guarded.h"
#include "tests/support/log_capture.h"

#include <algorithm>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

static constexpr char kSection[] = "[SD_THIRDPARTY_SETUP]\n";
static constexpr char kKeys[] = "SD_THIRD_SETUP=yes\n"
                                "SD_THIRD_FILE_PATH=Orvanta\n"
                                "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\n"
                                "SD_RUN_THIRD_FILE_ONCE=yes\n";

static constexpr char kOpenFile[] = "open \"/Volumes/Orvanta/ThirdPartySetup.dmg\"";
static constexpr char kOpenPackage[] = "open \"/Volumes/Third Party Setup/ThirdPartySetup.pkg\"";

static std::string Usual()
{
    return std::string(kSection) + kKeys;
}

// A file on disk that holds `bytes`, for as long as it is in scope.
struct ConfigFile {
    std::string path = "/tmp/kestrun-sysconfig-XXXXXX";

    explicit ConfigFile(const std::string &bytes)
    {
        const int fd = mkstemp(path.data());
        REQUIRE(fd >= 0);
        REQUIRE(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
        close(fd);
    }
    ~ConfigFile()
    {
        unlink(path.c_str());
    }
    ConfigFile(const ConfigFile &) = delete;
    ConfigFile &operator=(const ConfigFile &) = delete;

    std::string Bytes() const
    {
        return FileContent(path);
    }
};

// A seam in which both volumes of the usual file stand ready.
static Seam &VolumesReady()
{
    Seam &seam = FreshSeam();
    seam.directories = {{"/Volumes/Orvanta", 0}, {"/Volumes/Third Party Setup", 0}};
    return seam;
}

static bool Run(const ConfigFile &config)
{
    return RunSDProgram(config.path.c_str(), "open \"", "/Volumes/");
}

static std::string Say(const std::string &text)
{
    return "ActiveVolumeProgram:RunSDProgram --- " + text;
}

static Lines Then(Lines lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// Of the log, what the runner itself says.
static Lines Said(const Lines &lines)
{
    Lines said;
    for (const std::string &line : lines)
        if (line.rfind(Say(""), 0) == 0)
            said.push_back(line.substr(Say("").size()));
    return said;
}

// The lines of a key that is found at once.
static Lines KeyRead(const std::string &key, int offset)
{
    const std::string reader = "ActiveVolumeProgram:ReadKeyValue --- ";
    const std::string trim = "ActiveVolumeProgram:TrimKey --- TrimKey Enter";
    return {reader + "ReadKeyValue Enter", reader + "pKeyIOValue=" + key, trim, trim,
            reader + "lPos == " + std::to_string(offset) + ", ReadKeyValue exit true"};
}

static Lines CommandRun(const std::string &command)
{
    return {Say(command), "Process:RunShellProgram --- RunShellProgram Enter",
            "Process:RunShellProgram --- RunShellProgram exit true.(" + command + ")"};
}

static const Lines kVolumeFound{
    "ActiveVolumeProgram:IsVolumeExist --- IsVolumeExist Enter",
    "ActiveVolumeProgram:IsVolumeExist --- opertor 0 time, IsVolumeExist exit true"};

// The whole log of the usual file's run.
static Lines WholeRun()
{
    Lines lines{
        Say("RunSDProgram Enter"),
        "ActiveVolumeProgram:ReadKeyValue --- ReadKeyValue Enter",
        "ActiveVolumeProgram:ReadKeyValue --- pKeyIOValue=[SD_THIRDPARTY_SETUP]",
        "ActiveVolumeProgram:TrimKey --- TrimKey Enter",
        "ActiveVolumeProgram:IsPrimaryKey --- IsPrimaryKey Enter",
        "ActiveVolumeProgram:IsPrimaryKey --- IsPrimaryKey exit true",
        "ActiveVolumeProgram:ReadKeyValue --- find szTmp=[SD_THIRDPARTY_SETUP]\n is key and "
        "pPos=SD_THIRDPARTY_SETUP]\n, and ReadKeyValue exit"};
    lines = Then(lines, KeyRead("SD_THIRD_SETUP", 37));
    lines = Then(lines, KeyRead("SD_THIRD_FILE_PATH", 60));
    lines = Then(lines, kVolumeFound);
    lines = Then(lines, KeyRead("SD_THIRD_FILE_NAME", 87));
    lines = Then(lines, CommandRun(kOpenFile));
    lines = Then(lines, {"ActiveVolumeProgram:GetTempVolumeName --- GetTempVolumeName Enter"});
    lines = Then(lines, kVolumeFound);
    lines = Then(lines, {"ActiveVolumeProgram:GetTempVolumeName --- volumeName is /Volumes/Third "
                         "Party Setup, GetTempVolumeName exit success"});
    lines = Then(lines, CommandRun(kOpenPackage));
    lines = Then(lines, KeyRead("SD_RUN_THIRD_FILE_ONCE", 130));
    return Then(lines, {Say("Have change value of SD_THIRD_SETUP to No, next time will not run "
                            "SDProgram"),
                        Say("run SDProgram success, RunSDProgram exit")});
}

TEST_CASE("the setup is run, line by line, and its switch turned to No")
{
    VolumesReady();
    const ConfigFile config(Usual());
    LogCapture log;
    CHECK(Run(config));
    CHECK(log.Take() == WholeRun());
    CHECK(g_seam.commands == std::vector<std::string>{kOpenFile, kOpenPackage});
    CHECK(g_seam.sleeps.empty());
    std::string expected = Usual();
    expected.replace(37, 3, std::string("No\0", 3));
    CHECK(config.Bytes() == expected);
    CHECK_FALSE(g_seam.Leaks());

    // The next call stops at the switch.
    CHECK_FALSE(Run(config));
    CHECK(Said(log.Take()) ==
          Lines{"RunSDProgram Enter",
                "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit"});
    CHECK(g_seam.commands.size() == 2);
    CHECK(config.Bytes() == expected);
    CHECK_FALSE(g_seam.Leaks());
}

// ---- The rewrite ----

// Releases what a failed rewrite leaks on purpose, and says how much that was.
static std::string TakeBackLeak()
{
    const std::string leak = std::to_string(g_seam.streams.size()) + " stream, " +
                             std::to_string(g_seam.blocks.size()) + " block, " +
                             std::to_string(g_seam.folders.size()) + " folder";
    g_seam.function.clear();
    while (!g_seam.streams.empty())
        fclose(*g_seam.streams.begin());
    while (!g_seam.blocks.empty())
        __wrap_free(*g_seam.blocks.begin());
    return leak;
}

TEST_CASE("the run takes the room that it needs and clears what it will write to")
{
    VolumesReady();
    const ConfigFile config(Usual());
    LogCapture log;
    bool done = false;
    const std::vector<size_t> cleared = ClearedBy([&] { done = Run(config); }, kLogLineSize);
    CHECK(done);
    const size_t joined = sizeof "/Volumes/Orvanta";
    const size_t command = strlen("open \"") + 2048;
    const size_t work = strlen("/Volumes/") + 2 * strlen("ThirdPartySetup") + 9;
    CHECK(g_seam.sizes == std::vector<size_t>{joined, command, work});
    CHECK(cleared == std::vector<size_t>{1024, 512, joined, command, work});
}

TEST_CASE("the rewrite changes three bytes and keeps every other, and the run is not repeated")
{
    const std::string setup = "SD_THIRD_SETUP=";
    const std::string rest =
        std::string(kKeys).substr(std::string(kKeys).find("SD_THIRD_FILE_PATH"));
    std::string crlf;
    for (const char c : Usual())
        crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    std::string noise;
    while (noise.size() < 1 << 19)
        noise += "some other line = with a value\n";
    const std::string rows[] = {
        Usual(),
        kSection + setup + "YES\n" + rest,
        kSection + setup + "yes   \n" + rest,
        kSection + setup + " yes\n" + rest,  // the change eats the space and "ye"
        kSection + setup + "  yes\n" + rest,
        kSection + setup + "   yes\n" + rest,
        kSection + setup + "        yes\n" + rest,
        kSection + ("SD_THIRD_SETUP  = yes\n" + rest),
        kSection + ("# old SD_THIRD_SETUP = yes\n" + rest),
        crlf,
        Usual().substr(0, Usual().size() - 1),  // no line feed at the end
        "\xEF\xBB\xBF" + Usual(),
        "[OTHER]\nSD_THIRD_SETUP=no\n" + Usual() + "[MORE]\nSD_THIRD_SETUP=no\n",
        std::string(kSection) + "a=1\n\n\t\n" + kKeys + "trailing",
        std::string(5000, 'x') + "\n" + Usual(),
        noise + Usual() + noise,  // 1 MiB
        std::string(1 << 20, '\0') + "\n" + Usual(),
    };
    for (const std::string &before : rows) {
        const size_t header = before.find("[SD_THIRDPARTY_SETUP]");
        const size_t offset = before.find('=', before.find("SD_THIRD_SETUP", header)) + 1;
        CAPTURE(before.substr(header, 60));
        VolumesReady();
        const ConfigFile config(before);
        CHECK(Run(config));
        const std::string after = config.Bytes();
        CHECK(after.size() == before.size());
        CHECK(after.substr(0, offset) == before.substr(0, offset));
        CHECK(after.substr(offset, 3) == std::string("No\0", 3));
        CHECK(after.substr(offset + 3) == before.substr(offset + 3));
        CHECK_FALSE(g_seam.Leaks());

        LogCapture log;
        CHECK_FALSE(Run(config));
        CHECK(Said(log.Take()).back() ==
              "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit");
        CHECK(config.Bytes() == after);
    }
}

TEST_CASE("the rewrite is whole wherever it falls in the stream's blocks")
{
    for (const size_t block : {size_t{512}, size_t{1024}, size_t{4096}, size_t{8192}}) {
        for (size_t offset = block - 4; offset <= block + 2; offset++) {
            CAPTURE(offset);
            const std::string head = std::string(kSection) + "SD_THIRD_SETUP=";
            std::string before(offset - head.size() - 1, 'x');
            before += "\n" + Usual();
            REQUIRE(before.substr(offset, 3) == "yes");
            VolumesReady();
            const ConfigFile config(before);
            CHECK(Run(config));
            CHECK(config.Bytes() == before.replace(offset, 3, std::string("No\0", 3)));
        }
    }
}

// What a disk holds, and held after each write that reached it.
struct Disk {
    std::string bytes;
    size_t at = 0;
    std::vector<std::string> states;
};

static ssize_t ReadDisk(void *cookie, char *to, size_t size)
{
    Disk *disk = static_cast<Disk *>(cookie);
    const size_t got = disk->bytes.copy(to, size, std::min(disk->at, disk->bytes.size()));
    disk->at += got;
    return static_cast<ssize_t>(got);
}

static ssize_t WriteDisk(void *cookie, const char *from, size_t size)
{
    Disk *disk = static_cast<Disk *>(cookie);
    disk->bytes.replace(disk->at, size, from, size);
    disk->at += size;
    disk->states.push_back(disk->bytes);
    return static_cast<ssize_t>(size);
}

static int SeekDisk(void *cookie, off64_t *offset, int whence)
{
    Disk *disk = static_cast<Disk *>(cookie);
    const size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? disk->at : disk->bytes.size();
    disk->at = base + static_cast<size_t>(*offset);
    *offset = static_cast<off64_t>(disk->at);
    return 0;
}

TEST_CASE("the change reaches the disk in a single write wherever it falls in the stream's blocks")
{
    const std::string head = std::string(kSection) + "SD_THIRD_SETUP=";
    for (const size_t block : {size_t{512}, size_t{1024}, size_t{4096}, size_t{8192}}) {
        for (size_t offset = 2 * block - 4; offset <= 2 * block + 2; offset++) {
            for (const size_t tail : {size_t{0}, size_t{3} * block}) {
                CAPTURE(block);
                CAPTURE(offset);
                CAPTURE(tail);
                std::string before(offset - head.size() - 1, 'x');
                before += "\n" + Usual() + std::string(tail, 'y');
                std::string after = before;
                after.replace(offset, 3, std::string("No\0", 3));
                Disk disk{before, 0, {}};
                std::vector<char> buffer(block);
                VolumesReady();
                g_seam.open = [&](const std::string &) {
                    FILE *file = fopencookie(&disk, "r+", {ReadDisk, WriteDisk, SeekDisk, nullptr});
                    REQUIRE(setvbuf(file, buffer.data(), _IOFBF, block) == 0);
                    return file;
                };
                CHECK(RunSDProgram("/config", "open \"", "/Volumes/"));
                CHECK(disk.states == std::vector<std::string>{after});
                CHECK_FALSE(g_seam.Leaks());
            }
        }
    }
}

TEST_CASE("a second seek that fails is told like the first, and the file stays as it was")
{
    const std::string head = std::string(kSection) + "SD_THIRD_SETUP=";
    const std::string before = std::string(4095 - head.size() - 1, 'x') + "\n" + Usual();
    for (const int number : {1, 2}) {
        CAPTURE(number);
        VolumesReady().Fail("fseek", number);
        const ConfigFile config(before);
        LogCapture log;
        CHECK_FALSE(Run(config));
        CHECK(Said(log.Take()).back() == "fseek error.");
        fflush(nullptr);
        CHECK(TakeBackLeak() == "1 stream, 1 block, 0 folder");
        CHECK(config.Bytes() == before);
    }
}

TEST_CASE("without a wish for a single run nothing is changed and the run is repeated")
{
    for (const char *once : {"no", "", "y", "yess", "true"}) {
        CAPTURE(once);
        VolumesReady();
        std::string bytes = Usual();
        bytes.replace(130, 3, once);
        const ConfigFile config(bytes);
        for (int call = 0; call < 2; call++) {
            LogCapture log;
            CHECK(Run(config));
            CHECK(Said(log.Take()) == Lines{"RunSDProgram Enter", kOpenFile, kOpenPackage,
                                            "run SDProgram success, RunSDProgram exit"});
            CHECK(config.Bytes() == bytes);
            CHECK(g_seam.calls["fputs"] + g_seam.calls["fputc"] + g_seam.calls["fseek"] == 0);
        }
        CHECK(g_seam.commands.size() == 4);
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("yes counts in any letter case")
{
    VolumesReady();
    const ConfigFile config(
        "[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP=yEs\nSD_THIRD_FILE_PATH=Orvanta\n"
        "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\nSD_RUN_THIRD_FILE_ONCE=YeS\n");
    LogCapture log;
    CHECK(Run(config));
    CHECK(Said(log.Take()).at(3) ==
          "Have change value of SD_THIRD_SETUP to No, next time will not run SDProgram");
}

// ---- Failures ----

TEST_CASE("a missing or empty argument is refused before the file is opened")
{
    for (int missing = 0; missing < 3; missing++) {
        for (const char *value : {static_cast<const char *>(nullptr), ""}) {
            FreshSeam();
            LogCapture log;
            const char *texts[] = {"/config", "open \"", "/Volumes/"};
            texts[missing] = value;
            CHECK_FALSE(RunSDProgram(texts[0], texts[1], texts[2]));
            CHECK(log.Take() == Lines{Say("RunSDProgram Enter"),
                                      Say("cmd is 0, can't run cmd, RunSDProgram exit false")});
            CHECK(g_seam.calls["fopen"] == 0);
        }
    }
}

TEST_CASE("a file that is not there is named")
{
    FreshSeam();
    LogCapture log;
    CHECK_FALSE(RunSDProgram("/no/such/file", "open \"", "/Volumes/"));
    CHECK(log.Take() == Lines{Say("RunSDProgram Enter"),
                              Say("open file [/no/such/file] failed, RunSDProgram exit false")});
}

TEST_CASE("a file that may not be written fails, even with the switch at No")
{
    VolumesReady();
    std::string bytes = Usual();
    bytes.replace(37, 3, "No ");
    const ConfigFile config(bytes);
    REQUIRE(chmod(config.path.c_str(), 0444) == 0);
    LogCapture log;
    const bool asRoot = geteuid() == 0;
    if (asRoot)
        REQUIRE(seteuid(65534) == 0);  // root may write everything
    const bool result = Run(config);
    if (asRoot)
        REQUIRE(seteuid(0) == 0);
    CHECK_FALSE(result);
    CHECK(log.Take() == Lines{Say("RunSDProgram Enter"), Say("open file [" + config.path +
                                                             "] failed, RunSDProgram exit false")});
    CHECK(config.Bytes() == bytes);
}

TEST_CASE("what the file lacks ends the run, and the file stays as it was")
{
    const std::string path = "SD_THIRD_FILE_PATH=Orvanta\n";
    const std::string name = "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\n";
    const std::string once = "SD_RUN_THIRD_FILE_ONCE=yes\n";
    const std::string setup = "SD_THIRD_SETUP=yes\n";
    const std::string noSection =
        "szKeyOrValue=[SD_THIRDPARTY_SETUP], ReadKeyValue false, RunSDProgram exit false";
    const std::string noSetup =
        "szKeyOrValue=SD_THIRD_SETUP, ReadKeyValue false, RunSDProgram exit false";
    const std::string notYes = "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit";
    struct Row {
        std::string file;
        std::string message;
        size_t commands;
    };
    const Row rows[] = {
        {" ", noSection, 0},
        {setup + path + name + once, noSection, 0},
        {"[sd_thirdparty_setup]\n" + setup, noSection, 0},
        {kSection + path + name + once, noSetup, 0},
        {kSection + ("[x]\n" + setup) + path + name + once, noSetup, 0},
        {setup + kSection + path + name + once, noSetup, 0},
        {kSection + ("SD_THIRD_SETUP=No\n" + path) + name + once, notYes, 0},
        {kSection + ("SD_THIRD_SETUP=\tyes\n" + path) + name + once, notYes, 0},
        {kSection + ("SD_THIRD_SETUP=\"yes\"\n" + path) + name + once, notYes, 0},
        {kSection + setup + name + once, "SD_THIRD_FILE_PATH read false, RunSDProgram exit", 0},
        {kSection + path + setup + name + once, "SD_THIRD_FILE_PATH read false, RunSDProgram exit",
         0},
        {kSection + setup + path + once, "SD_THIRD_FILE_NAME read false, RunSDProgram exit false",
         0},
        {kSection + setup + name + path + once,
         "SD_THIRD_FILE_NAME read false, RunSDProgram exit false", 0},
        {kSection + setup + path + name,
         "SD_RUN_THIRD_FILE_ONCE read false, RunSDProgram exit false", 2},
        {kSection + setup + path + name + "[x]\n" + once,
         "SD_RUN_THIRD_FILE_ONCE read false, RunSDProgram exit false", 2},
    };
    for (const Row &row : rows) {
        CAPTURE(row.file);
        VolumesReady();
        const ConfigFile config(row.file);
        LogCapture log;
        CHECK_FALSE(Run(config));
        Lines said{"RunSDProgram Enter"};
        if (row.commands == 2)
            said = {"RunSDProgram Enter", kOpenFile, kOpenPackage};
        said.push_back(row.message);
        CHECK(Said(log.Take()) == said);
        CHECK(g_seam.commands.size() == row.commands);
        CHECK(config.Bytes() == row.file);
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a volume that never comes ends the run after its budget")
{
    const ConfigFile config(Usual());
    LogCapture log;
    FreshSeam();
    CHECK_FALSE(Run(config));
    CHECK(Said(log.Take()) ==
          Lines{"RunSDProgram Enter", "Orvanta is not exist, RunSDProgram exit"});
    CHECK(g_seam.sleeps == std::vector<unsigned>(90, 2));
    CHECK_FALSE(g_seam.Leaks());

    FreshSeam().directories = {{"/Volumes/Orvanta", 178}};
    CHECK_FALSE(Run(config));
    CHECK(Said(log.Take()) == Lines{"RunSDProgram Enter", kOpenFile,
                                    "GetTempVolumeName failed,  RunSDProgram exit false"});
    CHECK(g_seam.sleeps == std::vector<unsigned>(89 + 15, 2));
    CHECK(config.Bytes() == Usual());
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("a command that fails ten times ends the run")
{
    struct Row {
        int from;
        Lines said;
        size_t commands;
    };
    const Row rows[] = {
        {1,
         {"RunSDProgram Enter", kOpenFile, "first RunShellProgram failed, RunSDProgram exit fals "},
         10},
        {2,
         {"RunSDProgram Enter", kOpenFile, kOpenPackage,
          "second RunShellProgram failed,  RunSDProgram exit false"},
         11},
    };
    for (const Row &row : rows) {
        VolumesReady().Fail("system", row.from, kForEver);
        const ConfigFile config(Usual());
        LogCapture log;
        CHECK_FALSE(Run(config));
        CHECK(Said(log.Take()) == row.said);
        CHECK(g_seam.commands.size() == row.commands);
        CHECK(g_seam.sleeps == std::vector<unsigned>(10, 1));
        CHECK(config.Bytes() == Usual());
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("whichever call fails, the file is untouched or carries the whole change")
{
    // The section's first line is not the switch, so that each search takes a second step once.
    const std::string before = std::string(kSection) + "other=1\n" + kKeys;
    std::string changed = before;
    changed.replace(before.find("=yes") + 1, 3, std::string("No\0", 3));

    VolumesReady();
    {
        const ConfigFile config(before);
        REQUIRE(Run(config));
        REQUIRE(config.Bytes() == changed);
    }
    const std::map<std::string, int> expectedCalls{
        {"fopen", 1}, {"fgets", 6},  {"ftell", 6},  {"fseek", 1},   {"fputs", 1},
        {"fputc", 1}, {"fclose", 1}, {"malloc", 3}, {"opendir", 3}, {"system", 2},
    };
    REQUIRE(g_seam.calls == expectedCalls);

    // What the runner says last when call `number` of `function` fails, once.
    struct Row {
        const char *function;
        int number;
        const char *last;
    };
    const char *const success = "run SDProgram success, RunSDProgram exit";
    const char *const noSetup =
        "szKeyOrValue=SD_THIRD_SETUP, ReadKeyValue false, RunSDProgram exit false";
    const char *const noSection =
        "szKeyOrValue=[SD_THIRDPARTY_SETUP], ReadKeyValue false, RunSDProgram exit false";
    const char *const noOnce = "SD_RUN_THIRD_FILE_ONCE read false, RunSDProgram exit false";
    const char *const noName = "SD_THIRD_FILE_NAME read false, RunSDProgram exit false";
    const char *const noPath = "SD_THIRD_FILE_PATH read false, RunSDProgram exit";
    const Row rows[] = {
        {"fopen", 1, nullptr},
        {"fgets", 1, noSection},
        {"fgets", 2, noSetup},
        {"fgets", 3, noSetup},
        {"fgets", 4, noPath},
        {"fgets", 5, noName},
        {"fgets", 6, noOnce},
        {"ftell", 1, noSection},
        {"ftell", 2, noSetup},
        {"ftell", 3, noSetup},
        {"ftell", 4, noPath},
        {"ftell", 5, noName},
        {"ftell", 6, noOnce},
        {"fseek", 1, "fseek error."},
        {"fputs", 1, "fputc error."},
        {"fputc", 1, "fputc error."},
        {"fclose", 1, success},
        {"malloc", 1, "Orvanta is not exist, RunSDProgram exit"},
        {"malloc", 2, "malloc failed, RunSDProgram exit false"},
        {"malloc", 3, "GetTempVolumeName failed,  RunSDProgram exit false"},
        {"opendir", 1, success},  // tried again
        {"opendir", 2, success},
        {"opendir", 3, success},  // the duplicate that does not exist anyway
        {"system", 1, success},   // tried again
        {"system", 2, success},
    };
    int rowsLeft = 0;
    for (const auto &[function, count] : expectedCalls)
        rowsLeft += count;
    REQUIRE(static_cast<size_t>(rowsLeft) == std::size(rows));

    for (const Row &row : rows) {
        CAPTURE(row.function);
        CAPTURE(row.number);
        VolumesReady().Fail(row.function, row.number);
        const ConfigFile config(before);
        LogCapture log;
        const bool result = Run(config);
        const bool success2 = row.last == success;
        const std::string last =
            row.last != nullptr ? row.last
                                : "open file [" + config.path + "] failed, RunSDProgram exit false";
        CHECK(result == success2);
        CHECK(Said(log.Take()).back() == last);
        const bool leaks = last == "fseek error." || last == "fputc error.";
        // What a leaked stream still holds is written out here, as at the end of the process.
        fflush(nullptr);
        CHECK(config.Bytes() == (success2 ? changed : before));
        CHECK(TakeBackLeak() ==
              (leaks ? "1 stream, 1 block, 0 folder" : "0 stream, 0 block, 0 folder"));
        CHECK(config.Bytes() == (success2 ? changed : before));
    }
}

TEST_CASE("the whole log of a rewrite that fails")
{
    for (const char *function : {"fseek", "fputs", "fputc"}) {
        VolumesReady().Fail(function, 1);
        const ConfigFile config(Usual());
        LogCapture log;
        const int descriptor = NextDescriptor();
        CHECK_FALSE(Run(config));
        Lines expected = WholeRun();
        expected.resize(expected.size() - 2);
        expected.push_back(Say(std::string(function) == "fseek" ? "fseek error." : "fputc error."));
        CHECK(log.Take() == expected);
        CHECK(NextDescriptor() == descriptor + 1);  // the stream's own stays open
        TakeBackLeak();
        CHECK(config.Bytes() == Usual());
    }
}

TEST_CASE("half of a change does not reach the file when the process ends")
{
    const ConfigFile config(Usual());
    fflush(nullptr);
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        VolumesReady().Fail("fputc", 1);
        const bool result = Run(config);
        fflush(nullptr);  // as exit does
        // The stream's descriptor still leads somewhere: to nowhere.
        const bool isOpen = fcntl(fileno(*g_seam.streams.begin()), F_GETFD) != -1;
        _exit(!result && isOpen ? 0 : 1);
    }
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
    CHECK(config.Bytes() == Usual());
}

TEST_CASE("half of a change does not reach the file without a free descriptor either")
{
    rlimit limit{};
    REQUIRE(getrlimit(RLIMIT_NOFILE, &limit) == 0);
    // All are taken, or none can be made at all.
    for (const rlim_t most : {rlim_t{64}, rlim_t{0}}) {
        CAPTURE(most);
        VolumesReady().Fail("fputc", 1);
        const ConfigFile config(Usual());
        std::vector<int> taken;
        taken.reserve(64);
        g_seam.shell = [&](const std::string &) {
            // The folders of the volumes are opened before the second command, and nothing is
            // opened after it.
            const rlimit few{most, limit.rlim_max};
            if (g_seam.commands.size() < 2 || setrlimit(RLIMIT_NOFILE, &few) != 0)
                return 0;
            for (int fd = dup(STDIN_FILENO); fd != -1; fd = dup(STDIN_FILENO))
                taken.push_back(fd);
            return 0;
        };
        const bool result = Run(config);
        const bool isOpen = fcntl(fileno(*g_seam.streams.begin()), F_GETFD) != -1;
        for (const int fd : taken)
            close(fd);
        REQUIRE(setrlimit(RLIMIT_NOFILE, &limit) == 0);
        CHECK_FALSE(result);
        CHECK(taken.empty() == (most == 0));
        CHECK(isOpen == (most != 0));
        fflush(nullptr);  // as exit does
        CHECK(config.Bytes() == Usual());
        CHECK(TakeBackLeak() == "1 stream, 1 block, 0 folder");
        CHECK(config.Bytes() == Usual());
    }
}

TEST_CASE(
    "half of a change does not reach the file whichever descriptor is free, the first ones too")
{
    VolumesReady().Fail("fputc", 1);
    const ConfigFile config(Usual());
    const int output = dup(STDOUT_FILENO);
    REQUIRE(output != -1);
    g_seam.shell = [](const std::string &) {
        if (g_seam.commands.size() == 2)  // the stream is open, and is diverted next
            close(STDOUT_FILENO);
        return 0;
    };
    const bool result = Run(config);
    const bool isFree = fcntl(STDOUT_FILENO, F_GETFD) == -1;
    REQUIRE(dup2(output, STDOUT_FILENO) == STDOUT_FILENO);
    close(output);
    CHECK_FALSE(result);
    CHECK(isFree);
    fflush(nullptr);  // as exit does
    CHECK(config.Bytes() == Usual());
    CHECK(TakeBackLeak() == "1 stream, 1 block, 0 folder");
    CHECK(config.Bytes() == Usual());
}

TEST_CASE("a disk that takes no byte leaves the file as it was, even when it recovers later")
{
    // Wherever the switch stands in the stream's blocks, only the closing of the file has to write,
    // and whether it could is not asked.
    struct sigaction ignore = {};
    struct sigaction old = {};
    ignore.sa_handler = SIG_IGN;
    REQUIRE(sigaction(SIGXFSZ, &ignore, &old) == 0);
    rlimit limit{};
    REQUIRE(getrlimit(RLIMIT_FSIZE, &limit) == 0);
    const std::string head = std::string(kSection) + "SD_THIRD_SETUP=";
    for (size_t offset = 4090; offset <= 4097; offset++) {
        CAPTURE(offset);
        const std::string before = std::string(offset - head.size() - 1, 'x') + "\n" + Usual();
        CloseLogSystem();
        VolumesReady();
        const ConfigFile config(before);
        g_seam.shell = [&limit](const std::string &) {
            const rlimit none{0, limit.rlim_max};
            return g_seam.commands.size() == 2 ? setrlimit(RLIMIT_FSIZE, &none) : 0;
        };
        CHECK(Run(config));
        REQUIRE(setrlimit(RLIMIT_FSIZE, &limit) == 0);
        fflush(nullptr);
        CHECK(config.Bytes() == before);
        CHECK_FALSE(g_seam.Leaks());
    }
    REQUIRE(sigaction(SIGXFSZ, &old, nullptr) == 0);
}

// ---- Names and sizes ----

// A file whose volume and name are these.
static std::string Naming(const std::string &path, const std::string &name)
{
    return std::string(kSection) + "SD_THIRD_SETUP=yes\nSD_THIRD_FILE_PATH=" + path +
           "\nSD_THIRD_FILE_NAME=" + name + "\nSD_RUN_THIRD_FILE_ONCE=no\n";
}

TEST_CASE("the last extension is cut off the name, never its first character")
{
    struct Row {
        const char *name;
        const char *stripped;
        const char *volume;
    };
    const Row rows[] = {
        {"Setup.dmg", "Setup", "Setup"},
        {".pkg", ".pkg", ".pkg"},
        {"a.b.c", "a.b", "a.b"},
        {"..x", ".", "."},
        {"a.", "a", "a"},
        {".", ".", "."},
        {"ThirdPartySetup", "ThirdPartySetup", "Third Party Setup"},
        {"My Setup.pkg", "My Setup", "My Setup"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.name);
        const std::string volume = std::string("/Volumes/") + row.volume;
        FreshSeam().directories = {{"/Volumes/v", 0}, {volume, 0}};
        const ConfigFile config(Naming("v", row.name));
        CHECK(Run(config));
        CHECK(g_seam.commands ==
              std::vector<std::string>{std::string("open \"/Volumes/v/") + row.name + "\"",
                                       "open \"" + volume + "/" + row.stripped + ".pkg\""});
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("an empty name opens the volume itself and finds no package")
{
    FreshSeam().directories = {{"/Volumes/v", 0}, {"/Volumes/", 0}};
    const ConfigFile config(Naming("v", ""));
    LogCapture log;
    CHECK_FALSE(Run(config));
    CHECK(Said(log.Take()) == Lines{"RunSDProgram Enter", "open \"/Volumes/v/\"",
                                    "GetTempVolumeName failed,  RunSDProgram exit false"});
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("the newest duplicate of the package's volume is used")
{
    VolumesReady().directories["/Volumes/Third Party Setup 1"] = 0;
    const ConfigFile config(Usual());
    CHECK(Run(config));
    CHECK(g_seam.commands.at(1) == "open \"/Volumes/Third Party Setup 1/ThirdPartySetup.pkg\"");
}

TEST_CASE("a long name is kept up to 511 characters")
{
    const std::string longName(600, 'n');
    const std::string kept = longName.substr(0, 511);
    FreshSeam().directories = {{"/Volumes/v", 0}, {"/Volumes/" + kept, 0}};
    const ConfigFile config(Naming("v", longName));
    CHECK(Run(config));
    CHECK(g_seam.commands ==
          std::vector<std::string>{"open \"/Volumes/v/" + kept + "\"",
                                   "open \"/Volumes/" + kept + "/" + kept + ".pkg\""});
}

TEST_CASE("a first command that cannot fit is not run")
{
    // prefix + directory + path + name + 2 must stay below prefix + 2048.
    const std::string path(1000, 'p');
    const std::string name(500, 'n');
    for (const size_t length : {size_t{545}, size_t{546}, size_t{2000}}) {
        CAPTURE(length);
        const std::string directory = std::string(length - 1, 'd') + "/";
        FreshSeam().directories = {{directory + path, 0}};
        const ConfigFile config(Naming(path, name));
        LogCapture log;
        CHECK_FALSE(RunSDProgram(config.path.c_str(), "open \"", directory.c_str()));
        const bool fits = length == 545;
        CHECK(g_seam.commands.size() == (fits ? 1 : 0));
        if (fits)
            CHECK(g_seam.commands[0] == "open \"" + directory + path + "/" + name + "\"");
        CHECK(Said(log.Take()).back() ==
              (fits ? "GetTempVolumeName failed,  RunSDProgram exit false"
                    : "filename or path is too long to can't open, RunSDProgram exit false"));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a package's volume must fit what the open prefix leaves of 1024 bytes")
{
    for (const size_t length : {size_t{1024 - 7}, size_t{1024 - 6}, size_t{1024}, size_t{4000}}) {
        CAPTURE(length);
        const std::string prefix(length, 'o');
        FreshSeam().directories = {{"/v", 0}, {"/setup", 0}};
        const ConfigFile config(Naming("v", "setup.dmg"));
        LogCapture log;
        const bool fits = length == 1024 - 7;  // "/setup" is 6 bytes long
        CHECK(RunSDProgram(config.path.c_str(), prefix.c_str(), "/") == fits);
        const Lines lines = log.Take();
        CHECK(Said(lines).back() == (fits ? "run SDProgram success, RunSDProgram exit"
                                          : "GetTempVolumeName failed,  RunSDProgram exit false"));
        CHECK(g_seam.commands.at(0) == prefix + "/v/setup.dmg\"");
        if (fits)
            CHECK(g_seam.commands.at(1) == prefix + "/setup/setup.pkg\"");
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("percent signs in a name reach the shell whole, and the log reads no memory")
{
    const std::string name = "%s%n%99999999d%ls%.dmg";
    FreshSeam().directories = {{"/Volumes/50%d", 0}, {"/Volumes/%s%n%99999999d%ls%", 0}};
    const ConfigFile config(Naming("50%d", name));
    LogCapture log;
    CHECK(Run(config));
    CHECK(g_seam.commands ==
          std::vector<std::string>{"open \"/Volumes/50%d/" + name + "\"",
                                   "open \"/Volumes/%s%n%99999999d%ls%/%s%n%99999999d%ls%.pkg\""});
    // The command is a format without arguments: from its first conversion on it stays as it is.
    CHECK(Said(log.Take()).at(1) == "open \"/Volumes/50%d/" + name + "\"");
}

TEST_CASE("a doubled percent sign in a command is logged as one")
{
    FreshSeam().directories = {{"/Volumes/a%%b", 0}, {"/Volumes/c", 0}};
    const ConfigFile config(Naming("a%%b", "c.dmg"));
    LogCapture log;
    CHECK(Run(config));
    CHECK(g_seam.commands.at(0) == "open \"/Volumes/a%%b/c.dmg\"");
    CHECK(Said(log.Take()).at(1) == "open \"/Volumes/a%b/c.dmg\"");
}

TEST_CASE("the real shell and real folders: the package is run once")
{
    FreshSeam();
    g_seam.realShell = true;
    g_seam.realDirectories = true;
    std::string root = "/tmp/kestrun-volumes-XXXXXX";
    REQUIRE(mkdtemp(root.data()) != nullptr);
    const std::string volumes = root + "/";
    const std::string made = volumes + "Third Party Setup";
    REQUIRE(mkdir((volumes + "Orvanta").c_str(), 0700) == 0);
    REQUIRE(mkdir(made.c_str(), 0700) == 0);
    const std::string ran = root + "/ran";
    const ConfigFile config(Usual());
    const std::string prefix = "echo >>" + ran + " \"";
    CHECK(RunSDProgram(config.path.c_str(), prefix.c_str(), volumes.c_str()));
    CHECK(FileContent(ran) ==
          volumes + "Orvanta/ThirdPartySetup.dmg\n" + made + "/ThirdPartySetup.pkg\n");
    CHECK_FALSE(RunSDProgram(config.path.c_str(), prefix.c_str(), volumes.c_str()));
    CHECK_FALSE(g_seam.Leaks());
    unlink(ran.c_str());
    rmdir(made.c_str());
    rmdir((volumes + "Orvanta").c_str());
    rmdir(root.c_str());
}
