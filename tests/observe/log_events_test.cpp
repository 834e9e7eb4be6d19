// kestrun-log knows every text that the daemon can write.
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/log_events.h"

namespace fs = std::filesystem;

namespace
{

struct Call {
    std::string source;
    std::string text;  // as it stands in the source; "<name>" for text that is put
                       // together
};

// Every call of Log in the daemon's sources.
std::vector<Call> CallsInSources()
{
    static const std::regex kCall(
        R"re(\bLog\(\s*kSourceFile\s*,\s*"(\w+)"\s*,\s*(?:"((?:\\.|[^"\\])*)"|(\w+))\s*[,)])re");
    std::vector<Call> calls;
    for (const char *folder : {KESTRUN_ROOT "/src", KESTRUN_ROOT "/Common"}) {
        for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != ".cpp")
                continue;
            std::ifstream file(entry.path());
            std::stringstream content;
            content << file.rdbuf();
            const std::string code = content.str();
            for (std::sregex_iterator it(code.begin(), code.end(), kCall), end; it != end; ++it) {
                const std::string text =
                    (*it)[3].matched ? "<" + (*it)[3].str() + ">" : (*it)[2].str();
                calls.push_back({entry.path().stem().string() + ":" + (*it)[1].str(), text});
            }
        }
    }
    return calls;
}

size_t CountLogCalls()
{
    static const std::regex kAny(R"re(\bLog\(\s*kSourceFile\b)re");
    size_t count = 0;
    for (const char *folder : {KESTRUN_ROOT "/src", KESTRUN_ROOT "/Common"}) {
        for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
            std::ifstream file(entry.path());
            std::stringstream content;
            content << file.rdbuf();
            const std::string code = content.str();
            count += static_cast<size_t>(
                std::distance(std::sregex_iterator(code.begin(), code.end(), kAny), {}));
        }
    }
    return count;
}

// The text with something filled in where it has conversions, as the log shows it.
std::string Filled(const std::string &text)
{
    std::string filled = std::regex_replace(text, std::regex("%d"), "17");
    filled = std::regex_replace(filled, std::regex("%s"), "some (text), [or] other");
    return std::regex_replace(filled, std::regex(R"(\\n)"), "\n");
}

}  // namespace

TEST_CASE("every text of the daemon's sources is known, by its source and in its own words")
{
    const std::vector<Call> calls = CallsInSources();
    REQUIRE(calls.size() > 100);
    CHECK(calls.size() == CountLogCalls());
    std::set<std::pair<std::string, std::string>> known;
    for (const observe::Message &message : observe::KnownMessages())
        known.insert({message.source, message.text});
    for (const Call &call : calls) {
        CAPTURE(call.source);
        CAPTURE(call.text);
        CHECK(known.count({call.source, call.text}) == 1);
    }
}

TEST_CASE("every text is recognised when it is met in a log, and taken for no other")
{
    for (const observe::Message &message : observe::KnownMessages()) {
        if (message.assembled)
            continue;
        CAPTURE(message.source);
        CAPTURE(message.text);
        const observe::Found found =
            observe::FindMessage(message.source, Filled(message.text), false);
        REQUIRE(found.message != nullptr);
        CHECK(found.message->text == message.text);
        CHECK(found.filled.size() == message.conversions.size());
        CHECK_FALSE(message.meaning.empty());
    }
}

TEST_CASE("the texts that tell the story are all among the known ones")
{
    CHECK(observe::MissingTexts() == std::vector<std::string>{});
}

TEST_CASE("what is filled in comes out again")
{
    const observe::Found found = observe::FindMessage(
        "Process:RunShellProgram",
        "system failed 3 time, return 256[Unknown error 256]:(open \"a\"), err = (Success)", false);
    REQUIRE(found.message != nullptr);
    CHECK(found.message->event == observe::Event::ShellStatus);
    const std::vector<std::string_view> filled = {"3", "256", "Unknown error 256", "open \"a\"",
                                                  "Success"};
    CHECK(found.filled == filled);
}

TEST_CASE("of a cut message as much as there is must agree")
{
    const auto event = [](const char *message, bool cut) {
        const observe::Found found = observe::FindMessage("Process:RunShellProgram", message, cut);
        return found.message ? found.message->event : observe::Event::None;
    };
    CHECK(event("RunShellProgram exit true.(abc", true) == observe::Event::ShellTrue);
    CHECK(event("RunShellProgram exit true.(abc", false) == observe::Event::None);
    CHECK(event("system failed 3 time, return 256[Unk", true) == observe::Event::ShellStatus);
    CHECK(event("something else", true) == observe::Event::None);
    CHECK(event("system failed 3 time, ret", true) == observe::Event::ShellStatus);
    CHECK(event("system failed 3 times", true) == observe::Event::None);
    const auto volume = [](const char *message) {
        const observe::Found found =
            observe::FindMessage("ActiveVolumeProgram:IsVolumeExist", message, true);
        return found.message ? found.message->event : observe::Event::None;
    };
    CHECK(volume("opertor 12 time, IsVol") == observe::Event::VolumeThere);
    CHECK(volume("opertor 12") == observe::Event::VolumeThere);
    CHECK(volume("opertor ") == observe::Event::VolumeThere);
    CHECK(volume("opertor x") == observe::Event::None);
    CHECK(volume("opertor 12 times") == observe::Event::None);
}

TEST_CASE("a text that is all there is not taken for the beginning of a longer one")
{
    const auto text = [](const char *source, const char *message) {
        const observe::Found found = observe::FindMessage(source, message, true);
        return found.message ? found.message->text : std::string();
    };
    CHECK(text("ActiveVolumeProgram:ReadKeyValue", "ftell error") == "ftell error");
    CHECK(text("ActiveVolumeProgram:ReadKeyValue", "ftell error in") == "ftell error in while");
    CHECK(text("Kestrun:DiskMountCallback", "ps aux | aw").starts_with("<"));
    CHECK(text("ActiveVolumeProgram:RunSDProgram", "ope").starts_with("open file ["));
}

TEST_CASE("a text, a function or a module that the daemon does not have is not known")
{
    CHECK(observe::FindMessage("Kestrun:main", "hello", false).message == nullptr);
    CHECK(observe::FindMessage("Kestrun:main", "", false).message == nullptr);
    CHECK(observe::FindMessage("Kestrun:other", "DiskPeekCallback Enter", false).message ==
          nullptr);
    CHECK(observe::FindMessage("Kestrun:DiskMountCallback", "rm -rf /", false).message == nullptr);
    CHECK(observe::FindMessage("ActiveVolumeProgram:RunSDProgram", "opened", false).message ==
          nullptr);
    CHECK(observe::FindMessage("Process:RunShellProgram",
                               "system failed x time because shell failed. (a)", false)
              .message == nullptr);
}

TEST_CASE("texts that the daemon puts together are known by how they begin, or are empty")
{
    struct Row {
        const char *source, *text;
    };
    const Row rows[] = {
        {"Kestrun:DiskMountCallback", "ps aux | awk -v PID=1 '$2 == PID { print $1 }'"},
        {"ActiveVolumeProgram:RunSDProgram", "open \"/Volumes/Orvanta/Setup.dmg\""},
        {"ActiveVolumeProgram:RunSDProgram", ""},
        {"Kestrun:FindCommPort", "/dev/cu.anything"},
    };
    for (const Row &row : rows) {
        const observe::Found found = observe::FindMessage(row.source, row.text, false);
        REQUIRE(found.message != nullptr);
        CHECK(found.message->assembled);
        CHECK(found.filled.empty());
    }
}
