// kestrun-check on any bytes, as the configuration and as SysConfig.dat: each value that it reports
// is the one that the daemon's reader returns, and each line that it names is in the file.
#include "fuzz/check.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "Common/INI.h"
#include "src/ActiveVolumeProgram.h"
#include "tools/check/readers.h"
#include "tools/check/render.h"
#include "tools/check/rules.h"

static const char kNone[] = "(none)";

// A file in memory that can be opened by its path.
struct MemoryFile {
    int file = memfd_create("kestrun-check", 0);
    std::string path = "/proc/self/fd/" + std::to_string(file);

    explicit MemoryFile(const std::string &content)
    {
        FUZZ_CHECK(write(file, content.data(), content.size()) ==
                   static_cast<ssize_t>(content.size()));
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile()
    {
        close(file);
    }
};

static std::string ValueOf(const kcheck::Report &report, const std::string &key)
{
    for (const kcheck::Setting &setting : report.settings) {
        if (setting.key == key)
            return setting.value.value_or(kNone);
    }
    return kNone;
}

static void CheckLines(const kcheck::Report &report, const std::string &content)
{
    const auto lines = static_cast<size_t>(std::count(content.begin(), content.end(), '\n')) + 1;
    for (const kcheck::Finding &finding : report.findings)
        FUZZ_CHECK(finding.line <= lines);
    for (const kcheck::Setting &setting : report.settings)
        FUZZ_CHECK(setting.value.has_value() == (setting.line > 0) && setting.line <= lines);
    FUZZ_CHECK(!kcheck::RenderText(report).empty() && !kcheck::RenderJson(report).empty());
}

static void CheckAsConfig(const std::string &content, const std::string &path)
{
    kcheck::Report report;
    kcheck::CheckConfig(report, path, content);
    CheckLines(report, content);
    FUZZ_CHECK(SetIniFileName(path.c_str()));
    FUZZ_CHECK(ValueOf(report, "name") == ReadString("Volumes", "name", kNone));
    FUZZ_CHECK(ValueOf(report, "path1") == ReadString("Volumes", "path1", kNone));
    const bool on = IsKeyValueCaseEqual(path.c_str(), "Volumes", "disable_cdrom", "true");
    FUZZ_CHECK(std::any_of(report.findings.begin(), report.findings.end(), [](const auto &finding) {
                   return finding.effect.ends_with("nobrowse");
               }) == on);
}

static void CheckAsSysConfig(const std::string &content, const std::string &path)
{
    kcheck::Report report;
    kcheck::CheckSysConfig(report, path, content);
    CheckLines(report, content);
    const bool on =
        IsKeyValueCaseEqual(path.c_str(), "[SD_THIRDPARTY_SETUP]", "SD_THIRD_SETUP", "yes");
    std::string value = ValueOf(report, "SD_THIRD_SETUP");
    std::transform(value.begin(), value.end(), value.begin(), [](char ch) {
        return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch;
    });
    FUZZ_CHECK((value == "yes") == on);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string content(reinterpret_cast<const char *>(data), size);
    const MemoryFile file(content);
    CheckAsConfig(content, file.path);
    CheckAsSysConfig(content, file.path);
    return 0;
}
