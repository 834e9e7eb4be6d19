// Whole outputs for real logs: the text, the JSON and the picture. KESTRUN_UPDATE_GOLDEN=1 writes
// what the tool says now.
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/files.h"
#include "tests/observe/log_builder.h"
#include "tools/log/follow.h"
#include "tools/log/render.h"

namespace fs = std::filesystem;

namespace
{

const fs::path kFolder = KESTRUN_ROOT "/tests/tools/logs";

void CheckGolden(const fs::path &path, const std::string &text)
{
    CAPTURE(path.filename().string());
    if (getenv("KESTRUN_UPDATE_GOLDEN"))
        REQUIRE(observe::WriteFile(path.string(), text));
    CHECK(observe::ReadWholeFile(path.string()).value_or("no such file") == text);
}

struct Told {
    std::string content;
    klog::LogText log;
    klog::Story story;
};

void Tell(const fs::path &path, Told &told)
{
    told.content = observe::ReadWholeFile(path.string()).value();
    told.log = klog::ParseLog(told.content);
    told.story = klog::TellStory(told.log);
}

std::vector<fs::path> Logs()
{
    std::vector<fs::path> logs;
    for (const fs::directory_entry &entry : fs::directory_iterator(kFolder)) {
        if (entry.path().extension() == ".log")
            logs.push_back(entry.path());
    }
    return logs;
}

}  // namespace

TEST_CASE("the text for each log")
{
    REQUIRE(Logs().size() >= 8);
    for (fs::path path : Logs()) {
        Told told;
        Tell(path, told);
        CHECK(told.story.unknown.empty());
        CheckGolden(path.replace_extension(".txt"), klog::RenderText(told.log, told.story, {}));
    }
}

TEST_CASE("every call, the JSON and the picture of a log")
{
    Told told;
    Tell(kFolder / "setup-once.log", told);
    CheckGolden(kFolder / "setup-once.calls.txt",
                klog::RenderText(told.log, told.story, {.calls = true}));
    CheckGolden(kFolder / "setup-once.json", klog::RenderJson(told.log, told.story));
    CheckGolden(kFolder / "setup-once.svg", klog::RenderSvg(told.log, told.story));
}

TEST_CASE("a file without a line of the daemon's, an unknown text, bytes that are no text")
{
    const auto text = [](const std::string &content) {
        const klog::LogText log = klog::ParseLog(content);
        return klog::RenderText(log, klog::TellStory(log), {});
    };
    CHECK(text("") == "no line of the daemon in this file\n");
    CHECK(text("abc\n") ==
          "no line of the daemon in this file\n4 bytes before the first line belong to no line\n");
    CHECK(text("line 1===2026-11-20 9:0:0   Kestrun:main --- \xFF\x01<&>\n") ==
          "Run 1: 2026-11-20 09:00:00 to 2026-11-20 09:00:00, line 1, version not in the log\n"
          "  no modem came\n"
          "  calls: 0 entered, 0 with their exit, 0 ended without one, as the texts go\n\n"
          "unknown text, line 1: Kestrun:main --- \\xFF\\x01<&>\n"
          "the newest line is not in the file yet: the daemon writes a line when it logs the next "
          "one, so after line 1 one more may have been logged\n");
}

TEST_CASE("a log that grows is shown record by record, each outcome once, and anew when emptied")
{
    klog::Shown shown;
    LogBuilder log;
    log.Start().Inserted().MountEnds();
    const std::string half = log.text;
    CHECK(klog::ShowNews(shown, half.substr(0, half.size() - 4)).find("line 8") ==
          std::string::npos);
    const std::string rest = klog::ShowNews(shown, half);
    CHECK(rest ==
          "2026-11-20 09:00:00  8      DiskMountCallback    ps aux | awk -v PID=4711 '$2 == "
          "PID { print $1 }'\n    The command that asks for the daemon's own user.\n");
    CHECK(klog::ShowNews(shown, half).empty());
    log.Mount("are not same return.....");
    const std::string outcome = klog::ShowNews(shown, log.text);
    CHECK(outcome.find(
              "    => Not opened: another user than the daemon's owned the console (line 9).\n") !=
          std::string::npos);
    log.Peek("DiskPeekCallback Enter");
    CHECK(klog::ShowNews(shown, log.text).find("=>") == std::string::npos);
    LogBuilder fresh;
    fresh.Main("TOOL-BrelmarkV100R001B035");
    CHECK(klog::ShowNews(shown, fresh.text).starts_with("2026-11-20 09:00:00  1      main"));
}

// Under the sanitizers, and unoptimised, time says nothing.
#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__)
TEST_CASE("10 MB are explained in less than a second of processor time")
{
    std::string one;
    for (const fs::path &path : Logs())
        one += observe::ReadWholeFile(path.string()).value();
    std::string all;
    while (all.size() < 10000000)
        all += one;
    const clock_t start = clock();
    const klog::LogText log = klog::ParseLog(all);
    const klog::Story story = klog::TellStory(log);
    const std::string text = klog::RenderText(log, story, {});
    CHECK(text.size() > 100000);
    CHECK(clock() - start < CLOCKS_PER_SEC);
}
#endif
