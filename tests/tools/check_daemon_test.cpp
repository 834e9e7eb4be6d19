// kestrun-check beside the daemon's own functions, over files made at random: the value it reports
// is the value that the reader returns, the commands and the change that it announces are those of
// a run. The shell, the pauses and the folders are this program's.
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "Common/INI.h"
#include "observe/files.h"
#include "observe/names.h"
#include "src/ActiveVolumeProgram.h"
#include "tests/support/random.h"
#include "tests/tools/check_support.h"
#include "tools/check/readers.h"

namespace
{

#if defined(__SANITIZE_ADDRESS__)
const int kFiles = 1000;
#else
const int kFiles = 20000;
#endif

std::vector<std::string> g_commands;  // that the shell was given

const char *const kPieces[] = {
    "[Volumes]",
    "name",
    "path1",
    "disable_cdrom",
    "=",
    "true",
    "Orvanta",
    "/Volumes/A.app/",
    "[SD_THIRDPARTY_SETUP]",
    "SD_THIRD_SETUP",
    "SD_THIRD_FILE_PATH",
    "SD_THIRD_FILE_NAME",
    "SD_RUN_THIRD_FILE_ONCE",
    "yes",
    "No",
    "ThirdPartySetup.dmg",
    "a.b.c",
    " ",
    "\t",
    "\r",
    "[",
    "]",
    "%",
    "%%",
    "\"",
    "#",
    ";",
    "\xFF",
    "\xC3\xA4",
    "\n",
    "\n",
    "\n",
    "x",
};

// A file of pieces that matter, mostly in lines that make sense.
std::string RandomFile(Random &random, const std::vector<std::string> &lines)
{
    std::string content;
    for (const std::string &line : lines) {
        const size_t chance = random.Below(20);
        if (chance == 0)
            continue;
        std::string text = line;
        if (chance == 1)
            text.insert(random.Below(text.size() + 1), kPieces[random.Below(std::size(kPieces))]);
        if (chance == 2)
            text.insert(random.Below(text.size() + 1), 1, '\0');
        if (chance == 3)
            text = std::string(1000 + random.Below(60), 'l') + text;
        if (chance == 4) {
            for (size_t i = random.Below(8); i > 0; i--)
                text += kPieces[random.Below(std::size(kPieces))];
        }
        if (chance == 5)
            text = text.substr(0, random.Below(text.size() + 1));
        content += text + (random.Below(30) == 0 ? "" : random.Below(8) == 0 ? "\r\n" : "\n");
    }
    return content;
}

std::string ValueOf(const kcheck::Report &report, const std::string &key)
{
    for (const kcheck::Setting &setting : report.settings) {
        if (setting.key == key)
            return setting.value.value_or("(none)");
    }
    return "(none)";
}

bool Says(const kcheck::Report &report, const std::string &about, const std::string &effect)
{
    for (const kcheck::Finding &finding : report.findings) {
        if (finding.about == about && finding.effect.find(effect) != std::string::npos)
            return true;
    }
    return false;
}

}  // namespace

// ---- What takes the place of the C library's ----

extern "C" int system(const char *command)
{
    g_commands.emplace_back(command);
    return 0;
}

extern "C" unsigned sleep(unsigned)
{
    return 0;
}

// Every folder is there but for the numbered duplicates: "Name 1".
extern "C" DIR *opendir(const char *path)
{
    const size_t length = strlen(path);
    if (length > 1 && path[length - 2] == ' ' &&
        isdigit(static_cast<unsigned char>(path[length - 1])))
        return nullptr;
    return fdopendir(open("/", O_RDONLY | O_DIRECTORY));
}

TEST_CASE("the values of a configuration are those that the daemon reads")
{
    Random random;
    random.state += 1;
    const std::vector<std::string> lines = {"[Other]",  "x = 1",          "[Volumes]",
                                            "name = A", "path1 = /b c/d", "disable_cdrom = TRUE",
                                            "name=B",   "[End]",          "name=C"};
    int found = 0;
    for (int i = 0; i < kFiles; i++) {
        const std::string content = RandomFile(random, lines);
        const TemporaryFile file(content);
        kcheck::Report report;
        CheckConfig(report, file.path, content);

        REQUIRE(SetIniFileName(file.path.c_str()));
        for (const char *key : {"name", "path1"}) {
            const std::string value = ReadString("Volumes", key, "(none)");
            found += value != "(none)";
            if (ValueOf(report, key) != value) {
                INFO(observe::Printable(content));
                REQUIRE(ValueOf(report, key) == value);
            }
        }
        const bool on = IsKeyValueCaseEqual(file.path.c_str(), "Volumes", "disable_cdrom", "true");
        if (Says(report, "disable_cdrom", "nobrowse") != on) {
            INFO(observe::Printable(content));
            REQUIRE(Says(report, "disable_cdrom", "nobrowse") == on);
        }
    }
    CHECK(found > kFiles / 2);
}

TEST_CASE("a run gives the commands that were announced and changes the bytes that were announced")
{
    Random random;
    random.state += 2;
    const std::vector<std::string> lines = {"[A]",
                                            "[SD_THIRDPARTY_SETUP]",
                                            "SD_THIRD_SETUP = yes",
                                            "SD_THIRD_FILE_PATH=Orvanta",
                                            "SD_THIRD_FILE_NAME=ThirdParty Setup.dmg",
                                            "SD_RUN_THIRD_FILE_ONCE=Yes",
                                            "[B]"};
    int runs = 0;
    for (int i = 0; i < kFiles; i++) {
        std::string content = RandomFile(random, lines);
        const TemporaryFile file(content);
        const kcheck::SetupRequest request = kcheck::ReadSetup(file.path);
        kcheck::Report report;
        CheckSysConfig(report, file.path, content);
        g_commands.clear();
        const bool ran = RunSDProgram(file.path.c_str(), "open \"", "/Volumes/");
        runs += ran;

        std::vector<std::string> commands;
        const bool asked = request.run && strcasecmp(request.run->value.c_str(), "yes") == 0;
        if (asked && request.name) {
            const std::string package = kcheck::PackageName(request.name->value);
            commands.push_back("open \"/Volumes/" + request.path->value + "/" +
                               request.name->value + "\"");
            if (!package.empty())
                commands.push_back("open \"/Volumes/" + kcheck::PackageVolume(package) + "/" +
                                   package + ".pkg\"");
        }
        const bool change = asked && request.once && Says(report, "rewrite", "become 4E 6F 00");
        if (change)
            content.replace(request.run->offset, 3, std::string("No\0", 3));
        const std::string after = observe::ReadWholeFile(file.path).value();
        if (g_commands != commands || after != content) {
            INFO(observe::Printable(content));
            REQUIRE(g_commands == commands);
            REQUIRE(after == content);
        }
        const bool complete = asked && request.once && !request.name->value.empty();
        if (ran != complete) {
            INFO(observe::Printable(content));
            REQUIRE(ran == complete);
        }
    }
    CHECK(runs > kFiles / 10);
}

TEST_CASE("the volume of a package is the one that the daemon looks for")
{
    Random random;
    random.state += 3;
    for (int i = 0; i < kFiles; i++) {
        std::string name;
        for (size_t length = 1 + random.Below(12); length > 0; length--)
            name += "aBC D.x"[random.Below(7)];
        char volume[1024];
        snprintf(volume, sizeof volume, "%s", name.c_str());
        int64_t capacity = sizeof volume;
        REQUIRE(GetTempVolumeName(volume, sizeof volume, &capacity, "/Volumes/", 30));
        REQUIRE(volume == "/Volumes/" + kcheck::PackageVolume(name));
    }
}
