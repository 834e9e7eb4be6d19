// What a tester may write in a scenario, and how a mistake is told.
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "modem/scenario.h"

using modem::Act;
using modem::Mistake;
using modem::Scenario;
using modem::Step;

namespace
{

Scenario Parsed(const std::string &text)
{
    Scenario scenario;
    Mistake mistake;
    const bool parsed = modem::ParseScenario(text, &scenario, &mistake);
    INFO(mistake.message);
    REQUIRE(parsed);
    return scenario;
}

// "line:column: message" of the mistake in a text; "" when there is none.
std::string MistakeIn(const std::string &text)
{
    Scenario scenario;
    Mistake mistake;
    if (modem::ParseScenario(text, &scenario, &mistake))
        return "";
    return std::to_string(mistake.place.line) + ":" + std::to_string(mistake.place.column) + ": " +
           mistake.message;
}

}  // namespace

TEST_CASE("every statement is known by its words and keeps its texts, names and numbers")
{
    struct Row {
        const char *text;
        Act act;
        std::vector<std::string> strings;
        std::string name;
        std::vector<double> numbers;
        long times;
        double within;
    };
    const Row rows[] = {
        {"no config", Act::NoConfig, {}, "", {}, -1, -1},
        {"no sysconfig", Act::NoSysConfig, {}, "", {}, -1, -1},
        {"sysconfig read-only", Act::SysConfigReadOnly, {}, "", {}, -1, -1},
        {"daemon user \"bob\"", Act::DaemonUser, {"bob"}, "", {}, -1, -1},
        {"login \"anna\"", Act::Login, {"anna"}, "", {}, -1, -1},
        {"logout", Act::Logout, {}, "", {}, -1, -1},
        {"finder starts", Act::FinderStarts, {}, "", {}, -1, -1},
        {"finder quits", Act::FinderQuits, {}, "", {}, -1, -1},
        {"open fails 9 times", Act::OpenFails, {}, "", {9}, -1, -1},
        {"open fails always", Act::OpenFailsAlways, {}, "", {}, -1, -1},
        {"open works", Act::OpenWorks, {}, "", {}, -1, -1},
        {"when opened \"/a\" make folder \"/b\"", Act::WhenOpened, {"/a", "/b"}, "", {}, -1, -1},
        {"mount refuses", Act::MountRefuses, {}, "", {}, -1, -1},
        {"mount holds", Act::MountHolds, {}, "", {}, -1, -1},
        {"mount works", Act::MountWorks, {}, "", {}, -1, -1},
        {"probe hangs", Act::ProbeHangs, {}, "", {}, -1, -1},
        {"probe works", Act::ProbeWorks, {}, "", {}, -1, -1},
        {"automount", Act::Automount, {}, "", {}, -1, -1},
        {"make folder \"/Volumes/x\"", Act::MakeFolder, {"/Volumes/x"}, "", {}, -1, -1},
        {"remove folder \"/Volumes/x\"", Act::RemoveFolder, {"/Volumes/x"}, "", {}, -1, -1},
        {"fill log 10000000 bytes", Act::FillLog, {}, "", {10000000}, -1, -1},
        {"log folder read-only", Act::LogFolderReadOnly, {}, "", {}, -1, -1},
        {"log folder writable", Act::LogFolderWritable, {}, "", {}, -1, -1},
        {"log folder 65536 bytes", Act::LogFolderSize, {}, "", {65536}, -1, -1},
        {"log folder full", Act::LogFolderFull, {}, "", {}, -1, -1},
        {"log folder has room", Act::LogFolderRoom, {}, "", {}, -1, -1},
        {"daemon memory 16 MiB", Act::DaemonMemory, {}, "", {16}, -1, -1},
        {"clock set to 0 s", Act::ClockSet, {}, "", {0}, -1, -1},
        {"clock set right", Act::ClockRight, {}, "", {}, -1, -1},
        {"label after 40 s", Act::LabelAfter, {}, "", {40}, -1, -1},
        {"plug modem", Act::PlugModem, {}, "modem", {}, -1, -1},
        {"plug modem label \"My Modem\"", Act::PlugModem, {"My Modem"}, "modem", {}, -1, -1},
        {"plug disk \"Orvanta\"", Act::PlugDisk, {"Orvanta"}, "disk", {}, -1, -1},
        {"plug disk \"Orvanta\" as second", Act::PlugDisk, {"Orvanta"}, "second", {}, -1, -1},
        {"plug disk image \"Orvanta\"", Act::PlugImage, {"Orvanta"}, "disk", {}, -1, -1},
        {"plug disk image \"O\" as other", Act::PlugImage, {"O"}, "other", {}, -1, -1},
        {"plug disk damaged \"O\"", Act::PlugBrokenImage, {"O"}, "disk", {}, -1, -1},
        {"plug disk damaged \"O\" as b", Act::PlugBrokenImage, {"O"}, "b", {}, -1, -1},
        {"plug port \"usb-x\"", Act::PlugPort, {"usb-x"}, "", {}, -1, -1},
        {"unplug port \"usb-x\"", Act::UnplugPort, {"usb-x"}, "", {}, -1, -1},
        {"reset modem", Act::Reset, {}, "modem", {}, -1, -1},
        {"suspend", Act::Suspend, {}, "", {}, -1, -1},
        {"resume", Act::Resume, {}, "", {}, -1, -1},
        {"start daemon", Act::StartDaemon, {}, "", {}, -1, -1},
        {"wait 0.5 s", Act::Wait, {}, "", {0.5}, -1, -1},
        {"wait 0 to 3 s", Act::WaitRandom, {}, "", {0, 3}, -1, -1},
        {"expect no log \"x\"", Act::ExpectNoLog, {"x"}, "", {}, -1, -1},
        {"expect log below 5000 bytes", Act::ExpectLogSize, {}, "", {5000}, -1, -1},
        {"expect mounted \"/a\"", Act::ExpectMounted, {"/a"}, "", {}, -1, -1},
        {"expect mounted \"/a\" with \"ro,nodev\" within 5 s",
         Act::ExpectMounted,
         {"/a", "ro,nodev"},
         "",
         {},
         -1,
         5},
        {"expect not mounted \"/a\"", Act::ExpectNotMounted, {"/a"}, "", {}, -1, -1},
        {"expect nothing mounted within 60 s", Act::ExpectNothingMounted, {}, "", {}, -1, 60},
        {"expect opened \"/a\" 2 times", Act::ExpectOpened, {"/a"}, "", {}, 2, -1},
        {"expect nothing opened", Act::ExpectNothingOpened, {}, "", {}, -1, -1},
        {"expect folder \"/a\"", Act::ExpectFolder, {"/a"}, "", {}, -1, -1},
        {"expect no folder \"/a\" within 1 s", Act::ExpectNoFolder, {"/a"}, "", {}, -1, 1},
        {"expect file \"/a\" holds \"x\"", Act::ExpectFile, {"/a", "x"}, "", {}, -1, -1},
    };
    for (const Row &row : rows) {
        CAPTURE(row.text);
        const Scenario scenario = Parsed(row.text);
        REQUIRE(scenario.steps.size() == 1);
        const Step &step = scenario.steps[0];
        CHECK(step.act == row.act);
        CHECK(step.text == row.text);
        CHECK(step.strings == row.strings);
        CHECK(step.name == row.name);
        CHECK(step.numbers == row.numbers);
        CHECK(step.times == row.times);
        CHECK(step.within == row.within);
        CHECK(modem::StepMeaning(step) != "");
    }
}

TEST_CASE("what holds from the daemon's start on must stand before it")
{
    CHECK(MistakeIn("start daemon\ndaemon memory 16 MiB") ==
          "2:1: this must stand before \"start daemon\": it holds from the start on");
}

TEST_CASE("statements about the daemon are known once it was started")
{
    struct Row {
        const char *text;
        Act act;
    };
    const Row rows[] = {
        {"kill daemon", Act::KillDaemon},     {"wait until idle", Act::WaitIdle},
        {"storm 1000 events", Act::Storm},    {"expect no wake-up for 5 s", Act::ExpectNoWakeUp},
        {"expect log \"x\"", Act::ExpectLog}, {"golden", Act::Golden},
    };
    for (const Row &row : rows) {
        CAPTURE(row.text);
        CHECK(Parsed("start daemon\n" + std::string(row.text)).steps.back().act == row.act);
        CHECK(MistakeIn(row.text) ==
              "1:1: this needs the daemon, and no \"start daemon\" stands before it");
    }
}

TEST_CASE("times and within of an expected line are kept apart from each other")
{
    const Step step = Parsed("start daemon\nexpect log \"a\" 10 times within 2.5 s").steps[1];
    CHECK(step.times == 10);
    CHECK(step.within == 2.5);
    CHECK(step.numbers.empty());
}

TEST_CASE("the lines behind a bar are the file, escapes resolved, each with its line end")
{
    const Scenario scenario = Parsed("config\n"
                                     "  | [Volumes]\n"
                                     "  |   name = Orv\\x8anta # no comment\n"
                                     "  |\n"
                                     "  |x\n"
                                     "start daemon\n");
    REQUIRE(scenario.steps.size() == 2);
    CHECK(scenario.steps[0].block == "[Volumes]\n  name = Orv\x8anta # no comment\n\nx\n");
}

TEST_CASE("escapes, comments, blank lines and carriage returns")
{
    const Scenario scenario =
        Parsed("# a comment\r\n"
               "\r\n"
               "title \"a \\\"b\\\" \\\\ \\x41\\n\\t # not a comment\" # one\r\n"
               "   \tplug port \"x\"\t\r\n");
    CHECK(scenario.title == "a \"b\" \\ A\n\t # not a comment");
    REQUIRE(scenario.steps.size() == 1);
    CHECK(scenario.steps[0].text == "plug port \"x\"");
    CHECK(scenario.steps[0].place.line == 4);
    CHECK(scenario.steps[0].place.column == 5);
}

TEST_CASE("repeat and end know each other, one inside another too")
{
    const Scenario scenario = Parsed("repeat 2 times\n"
                                     "  wait 1 s\n"
                                     "  repeat 3 times\n"
                                     "    wait 2 s\n"
                                     "  end\n"
                                     "end\n"
                                     "wait 3 s\n");
    REQUIRE(scenario.steps.size() == 7);
    CHECK(scenario.steps[0].numbers == std::vector<double>{2});
    CHECK(scenario.steps[0].partner == 5);
    CHECK(scenario.steps[2].partner == 4);
    CHECK(scenario.steps[4].partner == 2);
    CHECK(scenario.steps[5].partner == 0);
}

TEST_CASE("a mistake is told with its line, its column and what could have stood there")
{
    struct Row {
        const char *text;
        const char *mistake;
    };
    const Row rows[] = {
        {"",
         "1:1: the scenario holds no statement: begin with \"start daemon\" (`kestrun-bench words` lists all)"},
        {"# nothing\n\n",
         "3:1: the scenario holds no statement: begin with \"start daemon\" (`kestrun-bench words` lists all)"},
        {"logout\n  jump high\n",
         "2:3: no statement begins so: here stands \"jump\" (`kestrun-bench words` lists all statements)"},
        {"\"text\"\n",
         "1:1: no statement begins so: here stands a text in quotes (`kestrun-bench words` lists all statements)"},
        {"plug", "1:5: expected \"disk\", \"modem\" or \"port\"; the line ends here"},
        {"plug toaster", "1:6: expected \"disk\", \"modem\" or \"port\"; here stands \"toaster\""},
        {"plug disk Orvanta",
         "1:11: expected \"damaged\", \"image\" or a text in quotes; here stands \"Orvanta\""},
        {"plug disk \"a\" like b",
         "1:15: expected \"as\" or the end of the line; here stands \"like\""},
        {"plug disk \"a\" as 7", "1:18: expected a name; here stands the number 7"},
        {"wait a minute", "1:6: expected \"until\" or a number; here stands \"a\""},
        {"wait 5", "1:7: expected \"s\" or \"to\"; the line ends here"},
        {"wait 5 minutes", "1:8: expected \"s\" or \"to\"; here stands \"minutes\""},
        {"wait 3 to 1 s",
         "1:1: the second time of a random wait must not be smaller than the first"},
        {"logout now", "1:8: expected the end of the line; here stands \"now\""},
        {"login \"anna", "1:7: this text has no closing quote"},
        {"login \"an\\na\\q\"",
         "1:13: there is no such escape; there are \\\" \\\\ \\n \\r \\t and \\x with two hex digits"},
        {"login \"\\x4\"",
         "1:8: there is no such escape; there are \\\" \\\\ \\n \\r \\t and \\x with two hex digits"},
        {"login = \"anna\"", "1:7: the character \"=\" has no meaning here"},
        {"logout\n | text\n",
         "2:2: lines behind | belong to config, sysconfig or expect run alone"},
        {"| text\n", "1:1: lines behind | belong to config, sysconfig or expect run alone"},
        {"config\n\n  | late\n",
         "3:3: lines behind | belong to config, sysconfig or expect run alone"},
        {"config\n  | a\\z\n",
         "2:6: there is no such escape; there are \\\" \\\\ \\n \\r \\t and \\x with two hex digits"},
        {"logout\nunplug disk\n", "2:8: no disk named disk was plugged in before"},
        {"plug disk \"a\" as b\nchange c\n", "2:8: no disk named c was plugged in before"},
        {"repeat 3 times\nlogout\n", "1:1: this repeat has no end"},
        {"logout\nend\n", "2:1: there is no repeat to end here"},
        {"repeat 0 times\nend\n", "1:1: repeat takes 1 to 100000"},
        {"start daemon\nexpect log \"\"\n", "2:1: the text to expect is empty"},
        {"start daemon\nexpect log \"a\" 3 time\n",
         "2:18: expected \"times\"; here stands \"time\""},
        {"expect",
         "1:7: expected \"file\", \"folder\", \"log\", \"mounted\", \"no\", \"not\", \"nothing\", \"opened\" or \"run\"; the line ends here"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.text);
        CHECK(MistakeIn(row.text) == row.mistake);
    }
}

TEST_CASE("every statement is listed with its meaning")
{
    const std::string list = modem::StatementList();
    for (const char *form : {"plug modem [label STRING]", "expect no wake-up for NUMBER s",
                             "storm NUMBER events", "golden"})
        CHECK(list.find(form) != std::string::npos);
}

TEST_CASE("a text and a file's content that are written out are read as they were")
{
    for (const char *text :
         {"", "Orvanta", "a\"b\\c", "\x01\x1b[31m\x7f", "\n\r\t|#", "\xC3\xA4"}) {
        CAPTURE(text);
        modem::Scenario scenario;
        modem::Mistake mistake;
        const std::string content = std::string(text) + "\nlast \" \\ line\r\n";
        const std::string written =
            "config\n" + modem::BlockText(content) + "login " + modem::QuotedText(text) + "\n";
        REQUIRE(modem::ParseScenario(written, &scenario, &mistake));
        REQUIRE(scenario.steps.size() == 2);
        CHECK(scenario.steps[0].block == content);
        CHECK(scenario.steps[1].strings == std::vector<std::string>{text});
    }
    CHECK(modem::BlockText("no line end") == "  | no line end\n");
    CHECK(modem::BlockText("") == "");
}
