// What a log tells: each way an arrival can end, and what the numbers say.
#include <regex>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "tests/observe/log_builder.h"
#include "tools/log/render.h"
#include "tools/log/story.h"

using klog::LogText;
using klog::Outcome;
using klog::Story;

namespace
{

// Outcome and sentence of every arrival, "; " between those of one run, a row a run.
std::vector<std::string> Sentences(const std::string &text)
{
    const LogText log = klog::ParseLog(text);
    const Story story = klog::TellStory(log);
    std::vector<std::string> runs;
    for (const klog::Run &run : story.runs) {
        std::string sentences;
        for (const klog::Arrival &arrival : run.arrivals) {
            sentences += sentences.empty() ? "" : "; ";
            sentences += std::string(klog::OutcomeName(arrival.outcome)) + " " + arrival.sentence;
        }
        runs.push_back(sentences);
    }
    return runs;
}

std::string OnlySentence(const LogBuilder &log)
{
    const std::vector<std::string> runs = Sentences(log.text);
    REQUIRE(runs.size() == 1);
    return runs[0];
}

// The first halves of all sentences: what is told of a line that is missing depends on that line
// alone.
std::string Firsts(const std::string &text)
{
    std::string firsts;
    for (const std::string &sentences : Sentences(text))
        firsts += sentences.substr(0, sentences.find("; if nothing has followed")) + "\n";
    return firsts;
}

LogBuilder UpToConsole()
{
    LogBuilder log;
    log.Start().Inserted().MountEnds();
    return log;
}

LogBuilder UpToOpening()
{
    LogBuilder log = UpToConsole();
    log.Mount("actvie == pname.....").Look().Mount("have some one login succ");
    log.Mount("Current Mac OS version is newer than Mac OS X 10.4\n");
    return log;
}

}  // namespace

TEST_CASE("an application that was opened: who, where and by which command")
{
    LogBuilder log = UpToOpening();
    log.Opens("open -a \"/Volumes/A/B.app/\"").Mount("Run Orvanta Program success");
    CHECK(OnlySentence(log) ==
          "opened Opened: the daemon's user owned the console (line 9), the Finder ran (line 11) "
          "and `open -a \"/Volumes/A/B.app/\"` succeeded at try 1 (line 14).");
}

TEST_CASE("the command's own line is enough: the one that says it worked may still be unwritten")
{
    LogBuilder log = UpToOpening();
    log.Opens("open -a x");
    CHECK(OnlySentence(log).starts_with("opened Opened:"));
}

TEST_CASE("another user, or an unknown one, at the console")
{
    LogBuilder other = UpToConsole();
    other.Mount("are not same return.....");
    CHECK(OnlySentence(other) ==
          "other-user Not opened: another user than the daemon's owned the console (line 9).");
    LogBuilder unread = UpToConsole();
    unread.Mount("fgets active failed!").Mount("are not same return.....");
    CHECK(OnlySentence(unread) ==
          "other-user Not opened: who owns the console could not be read (line 10).");
    LogBuilder own = UpToConsole();
    own.Mount("fgets pname failed!").Mount("are not same return.....");
    CHECK(OnlySentence(own) ==
          "other-user Not opened: the daemon's own user could not be read (line 10).");
    LogBuilder pipe = UpToConsole();
    pipe.Mount("create pipe failed!");
    CHECK(OnlySentence(pipe) == "no-pipe Not opened: the command that asks for the daemon's user "
                                "could not be started (line 9).");
}

TEST_CASE("a log that ends at the question who owns the console: what its missing line says")
{
    LogBuilder log;
    log.Start().Inserted().Mount("DiskMountCallback Enter");
    CHECK(OnlySentence(log) ==
          "unfinished Not opened yet: the log ends while the daemon is comparing the console's "
          "owner with its own user since 2026-11-20 09:00:00 (line 7).");
    log = UpToConsole();
    CHECK(OnlySentence(log) ==
          "unfinished Not opened yet: the log ends while the daemon is comparing the console's "
          "owner with its own user since 2026-11-20 09:00:00 (line 7); if nothing has followed, "
          "another user than the daemon's most likely owned the console, for then the line that "
          "says so is the last one and not written yet.");
    CHECK(Sentences(log.text + "line 9===").at(0).ends_with("(line 7)."));
    log.text += LogBuilder().Start().text;
    CHECK(Sentences(log.text).at(0) ==
          "unfinished Not opened: the daemon ended while it was comparing the console's owner with "
          "its own user since 2026-11-20 09:00:00 (line 7).");
}

TEST_CASE("two users that could not be read count as the same")
{
    LogBuilder log = UpToConsole();
    log.Mount("fgets pname failed!").Mount("fgets active failed!").Mount("actvie == pname.....");
    log.Look().Mount("have some one login succ").Opens("open -a x");
    CHECK(OnlySentence(log) ==
          "opened Opened: neither the daemon's user nor the console's owner could be read, which "
          "counts as the same (line 11), the Finder ran (line 13) and `open -a x` succeeded at try "
          "1 (line 15).");
}

TEST_CASE("no Finder: since when, how often it was looked for, and whether that can be believed")
{
    LogBuilder log = UpToConsole();
    log.Mount("actvie == pname.....").LookFails().LookFails();
    CHECK(OnlySentence(log) ==
          "no-finder Not opened: Finder absent since 2026-11-20 09:00:00 (lines 10 to 39; 2 looks "
          "found none, the last began at 2026-11-20 09:00:15), and the daemon goes on waiting.");
    LogBuilder odd = UpToConsole();
    odd.Mount("actvie == pname.....").LookFails(512);
    CHECK(OnlySentence(odd) ==
          "no-finder Not opened: Finder absent since 2026-11-20 09:00:00 (lines 10 to 24; one look "
          "found none, the last began at 2026-11-20 09:00:00; it may run, for the search itself "
          "failed (line 21, exit code 2)), and the daemon goes on waiting.");
    LogBuilder unread = UpToConsole();
    unread.Mount("actvie == pname.....").Look().Shell("RunShellProgram Enter");
    unread.Shell("RunShellProgram exit true.(ps)").Capture("fopen failed for [Permission denied]");
    unread.Mount("send cmd failed, not run board app");
    CHECK(OnlySentence(unread) ==
          "no-finder Not opened: Finder absent since 2026-11-20 09:00:00 (lines 10 to 14; one look "
          "found none, the last began at 2026-11-20 09:00:00; it may run, for what the search "
          "printed could not be read (line 13)), and the daemon goes on waiting.");
}

TEST_CASE("no Finder, by a daemon without a clock: since when is not made up")
{
    LogBuilder log = UpToConsole();
    log.Mount("actvie == pname.....").LookFails();
    std::string text =
        std::regex_replace(log.text, std::regex("===[-0-9]+ [0-9:]+"), "===1900-1-0 0:0:0");
    CHECK(Sentences(text).at(0) ==
          "no-finder Not opened: Finder absent since a time that the daemon's clock did not tell "
          "(lines 10 to 24; one look found none, the last began at a time that the daemon's clock "
          "did not tell), and the daemon goes on waiting.");
}

TEST_CASE("a first look that has no result yet says nothing about the Finder")
{
    LogBuilder log = UpToConsole();
    log.Mount("actvie == pname.....").Look();
    CHECK(OnlySentence(log) ==
          "unfinished Not opened yet: the log ends while the daemon is looking for the Finder for "
          "the first time since 2026-11-20 09:00:00 (line 9).");
}

TEST_CASE("a volume that did not come within the start's 300 seconds")
{
    LogBuilder log;
    log.Start().Say("Kestrun:FindCommPort", "FindCommPort Enter");
    log.Say("Kestrun:FindCommPort", "FindCommPort success, and exit");
    log.Say("ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist Enter");
    for (int attempt = 0; attempt < 150; attempt++) {
        log.Say("ActiveVolumeProgram:IsVolumeExist",
                " " + std::to_string(attempt) +
                    " time, open (/Volumes/Orvanta) failed, open again");
        log.Pass(2);
    }
    log.Say("ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist exit false");
    log.Main("can't find /Volumes/Orvanta, can't run firmware program and SDProgram");
    CHECK(OnlySentence(log) ==
          "no-volume Not opened: the volume was absent for 300 s (lines 6 to 157).");
}

TEST_CASE("a command that failed ten times, with what its status means")
{
    struct Row {
        const char *failure, *meaning;
    };
    const Row rows[] = {
        {" time, return 256[x]:(open -a x), err = (y)", "exit code 1"},
        {" time, return 32512[x]:(open -a x), err = (y)", "exit code 127"},
        {" time, return 9[x]:(open -a x), err = (y)", "ended by signal 9"},
        {" time because fork or waitpid. (open -a x)", "no process could be made for it"},
        {" time because shell failed. (open -a x)", "the shell did not start"},
    };
    for (const Row &row : rows) {
        LogBuilder log = UpToOpening();
        log.Shell("RunShellProgram Enter");
        for (int attempt = 0; attempt < 10; attempt++)
            log.Shell("system failed " + std::to_string(attempt) + row.failure);
        log.Shell("(open -a x) false, RunShellProgram exit failed");
        log.Mount("RunShellProgram failed, can't run Orvanta Program");
        CHECK(OnlySentence(log) ==
              std::string("command-failed Not opened: `open -a x` failed ten times, ") +
                  row.meaning +
                  " (lines 13 to 24); whether the volume was mounted is not in the log.");
    }
}

TEST_CASE("a mount that was asked for and has no completion")
{
    LogBuilder log;
    log.Start().Inserted();
    CHECK(OnlySentence(log) == "no-completion Not opened: the mount was asked for (line 6) and no "
                               "completion has come.");
    log.Start();
    CHECK(Sentences(log.text)[0] ==
          "no-completion Not opened: the mount was asked for (line 6) and "
          "no completion has come before the daemon ended.");
}

TEST_CASE("mounts end in the order in which they were asked for")
{
    LogBuilder log;
    log.Start().Inserted().Inserted().MountEnds().Mount("are not same return.....");
    CHECK(OnlySentence(log) ==
          "other-user Not opened: another user than the daemon's owned the console (line 12).; "
          "no-completion Not opened: the mount was asked for (line 9) and no completion has come.");
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    using Texts = std::vector<std::string>;
    CHECK(
        story.runs.at(0).arrivals.at(0).notes ==
        Texts{"2 mounts were under way: which of them ended (line 10) is taken from their order"});
    CHECK(story.runs.at(0).arrivals.at(1).notes == Texts{});
}

TEST_CASE(
    "a setup package that was not run: whether one was asked for is told where the log says it")
{
    struct Row {
        const char *reason, *detail;
    };
    const Row rows[] = {
        {"SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit",
         "not asked for (line 18)"},
        {"szKeyOrValue=[SD_THIRDPARTY_SETUP], ReadKeyValue false, RunSDProgram exit false",
         "not asked for (line 18)"},
        {"open file [/a] failed, RunSDProgram exit false",
         "not run: SysConfig.dat did not open (line 18)"},
        {"SD_THIRD_FILE_PATH read false, RunSDProgram exit", "failed (line 18)"},
        {nullptr, "not run, for a reason that is not in the log"},
    };
    for (const Row &row : rows) {
        LogBuilder log = UpToOpening();
        log.Opens("open -a x").Mount("Run Orvanta Program success");
        log.Say("Kestrun:DiskMountApproval", "DiskMountApproval Enter");
        if (row.reason) {
            log.Say("ActiveVolumeProgram:RunSDProgram", "RunSDProgram Enter");
            log.Say("ActiveVolumeProgram:RunSDProgram", row.reason);
        } else {
            log.Say("ActiveVolumeProgram:RunSDProgram", "RunSDProgram Enter").number++;
        }
        log.Say("Kestrun:DiskMountApproval",
                "finish run program, and error, DiskMountApproval exit ");
        const LogText parsed = klog::ParseLog(log.text);
        const Story story = klog::TellStory(parsed);
        const klog::Arrival &arrival = story.runs.at(0).arrivals.at(0);
        CHECK(arrival.steps.back().detail == row.detail);
        CHECK(arrival.setupFailed == std::string(row.detail).starts_with("failed"));
    }
}

TEST_CASE("a mount that ended among missing lines does not take the end of the next one")
{
    LogBuilder log;
    log.Start().Inserted();
    log.number += 20;
    log.Inserted().MountEnds().Mount("are not same return.....");
    CHECK(OnlySentence(log) ==
          "unfinished Whether it was opened is not in the log: lines are missing behind line 6.; "
          "other-user Not opened: another user than the daemon's owned the console (line 32).");
}

TEST_CASE("an arrival whose deciding lines are missing is left open")
{
    LogBuilder log = UpToConsole();
    log.number += 20;
    log.Mount("DiskMountCallback exit").Inserted().MountEnds().Mount("are not same return.....");
    CHECK(OnlySentence(log) ==
          "unfinished Whether it was opened is not in the log: lines are missing behind line 8.; "
          "other-user Not opened: another user than the daemon's owned the console (line 35).");
    // Its last step ends with it, as far as the log goes, and not with the log.
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    const klog::Step &open = story.runs.at(0).arrivals.at(0).steps.back();
    CHECK_FALSE(open.ended);
    CHECK(parsed.records[open.last].number == 7);
}

TEST_CASE("whichever lines are missing, what the others say is told and nothing else")
{
    LogBuilder opened = UpToConsole();
    opened.Mount("actvie == pname.....").LookFails().Look().Mount("have some one login succ");
    opened.Opens("open -a x").Mount("Run Orvanta Program success");
    LogBuilder failed = UpToOpening();
    failed.Shell("RunShellProgram Enter").Shell("(open -a x) false, RunShellProgram exit failed");
    failed.Mount("RunShellProgram failed, can't run Orvanta Program");
    LogBuilder other = UpToConsole();
    other.Mount("are not same return.....");
    struct Row {
        LogBuilder log;
        const char *outcome;
    };
    Row rows[] = {{opened, "opened "}, {failed, "command-failed "}, {other, "other-user "}};
    for (Row &row : rows) {
        row.log.Say("Kestrun:DiskMountApproval", "DiskMountApproval Enter");
        row.log.Say("ActiveVolumeProgram:RunSDProgram",
                    "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit");
        if (row.outcome == std::string("other-user "))
            row.log = other;
        const LogText all = klog::ParseLog(row.log.text);
        const size_t count = all.records.size();
        for (size_t first = 3; first + 1 < count; first++) {
            for (size_t behind = first + 1; behind < count; behind++) {
                std::string text = row.log.text;
                const size_t from = all.records[first].offset;
                text.erase(from, all.records[behind].offset - from);
                CAPTURE(text);
                const std::vector<std::string> runs = Sentences(text);
                REQUIRE(runs.size() == 1);
                const bool told = runs[0].starts_with(row.outcome);
                const bool open = runs[0].starts_with("unfinished Whether it was opened is not");
                CHECK((told || open));
                CHECK(runs[0].find("; opened") == std::string::npos);
            }
        }
    }
}

TEST_CASE("the last word on a command without its own lines")
{
    LogBuilder opened = UpToOpening();
    opened.number += 5;
    LogBuilder failed = opened;
    opened.Mount("Run Orvanta Program success");
    CHECK(OnlySentence(opened) ==
          "opened Opened: the command succeeded (line 18); the command's own lines are missing.");
    failed.Mount("RunShellProgram failed, can't run Orvanta Program");
    CHECK(OnlySentence(failed) ==
          "command-failed Not opened: the command failed ten times (line 18); the command's own "
          "lines are missing.");
}

TEST_CASE("that a mount ended proves no mount: the time line says so")
{
    const LogBuilder log = UpToConsole();
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    const klog::Step &mount = story.runs.at(0).arrivals.at(0).steps.at(1);
    CHECK(mount.name == "mount");
    CHECK(mount.detail == "it ended; the log never says whether it succeeded");
}

TEST_CASE("a smaller number, or the banner, begins a new run")
{
    LogBuilder log;
    log.Start().Start();
    log.number = 99;
    log.Main(
        "\n\n====================================Kestrun started===============================");
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    REQUIRE(story.runs.size() == 3);
    CHECK(story.runs[0].last == 2);
    CHECK_FALSE(story.runs[1].isLast);
    CHECK(story.runs[1].version == "TOOL-BrelmarkV100R001B035");
    CHECK_FALSE(story.runs[2].whole);
    CHECK(story.runs[2].isLast);
}

TEST_CASE("two daemons that write at once: each has its run and its outcome, and none is made up")
{
    LogBuilder elder = UpToConsole();
    LogBuilder younger = UpToConsole();
    const std::string elderStart = elder.text;
    const std::string youngerStart = younger.text;
    elder.Mount("are not same return.....");
    younger.Mount("actvie == pname.....").Look().LookFails();
    const std::string text = elderStart + youngerStart + younger.text.substr(youngerStart.size()) +
                             elder.text.substr(elderStart.size());
    LogText log = klog::ParseLog(text);
    klog::Untangle(log);
    const Story story = klog::TellStory(log);
    REQUIRE(story.runs.size() == 2);
    CHECK(story.runs[0].isLast);
    CHECK(story.runs[1].isLast);
    CHECK(story.runs[0].gaps.empty());
    CHECK(story.runs[1].gaps.empty());
    REQUIRE(story.runs[0].arrivals.size() == 1);
    CHECK(story.runs[0].arrivals[0].outcome == Outcome::OtherUser);
    REQUIRE(story.runs[1].arrivals.size() == 1);
    CHECK(story.runs[1].arrivals[0].outcome == Outcome::NoFinder);
    CHECK(story.notes.at(0).starts_with("several daemons wrote into this file at once"));
    CHECK(klog::HasFindings(story));
    // A third one behind them: the two have ended.
    const std::string more = text + LogBuilder().Start().text;
    LogText all = klog::ParseLog(more);
    klog::Untangle(all);
    const Story later = klog::TellStory(all);
    REQUIRE(later.runs.size() == 3);
    CHECK_FALSE(later.runs[0].isLast);
    CHECK_FALSE(later.runs[1].isLast);
    CHECK(later.runs[2].isLast);
}

TEST_CASE("another process id behind missing lines is another run, whose start is lost")
{
    const auto mountOf = [](LogBuilder &log, int pid) {
        log.Mount("DiskMountCallback Enter");
        log.Mount("ps aux | awk -v PID=" + std::to_string(pid) + " '$2 == PID { print $1 }'");
        log.Mount("are not same return.....");
    };
    const auto told = [](const LogBuilder &log) {
        const LogText parsed = klog::ParseLog(log.text);
        std::string text;
        for (const klog::Run &run : klog::TellStory(parsed).runs) {
            text += std::to_string(parsed.records[run.first].number) + " to " +
                    std::to_string(parsed.records[run.last].number) + ", ";
            text += std::to_string(run.arrivals.size()) + " arrivals, " +
                    std::to_string(run.gaps.size()) + " gaps\n";
            for (const std::string &note : run.notes)
                text += note.starts_with("the process id") ? note + "\n" : "";
        }
        return text;
    };
    LogBuilder log;
    log.Start().Inserted();
    mountOf(log, 100);
    SUBCASE("one gap: the run begins behind it")
    {
        log.number = 30;
        log.Inserted();
        mountOf(log, 200);
        CHECK(
            told(log) ==
            "1 to 9, 1 arrivals, 0 gaps\n"
            "31 to 36, 1 arrivals, 1 gaps\n"
            "the process id in line 35 is another than in line 8 of the run before: the daemon was "
            "started anew, and its first lines are lost\n");
    }
    SUBCASE("two gaps: it begins behind the second at the latest")
    {
        log.number = 30;
        log.Inserted();
        log.number = 40;
        mountOf(log, 200);
        CHECK(
            told(log) ==
            "1 to 33, 2 arrivals, 1 gaps\n"
            "41 to 43, 1 arrivals, 1 gaps\n"
            "the process id in line 42 is another than in line 8 of the run before: the daemon was "
            "started anew, and its first lines are lost; lines of it may stand in the run before\n");
    }
    SUBCASE("the same process id: lines are lost, nothing else")
    {
        log.number = 30;
        log.Inserted();
        mountOf(log, 100);
        CHECK(told(log) == "1 to 36, 2 arrivals, 1 gaps\n");
    }
    SUBCASE("no gap, or one before the first process id: nobody knows of another start")
    {
        mountOf(log, 200);
        CHECK(told(log) == "1 to 12, 2 arrivals, 0 gaps\n");
    }
    SUBCASE("a start that is in the log needs no process id")
    {
        log.Start().Inserted();
        mountOf(log, 200);
        CHECK(told(log) == "1 to 9, 1 arrivals, 0 gaps\n1 to 9, 1 arrivals, 0 gaps\n");
    }
    SUBCASE("what only looks like the line says nothing")
    {
        log.number = 30;
        log.Mount("ps aux | awk -v PID=x '$2 == PID { print $1 }'");
        log.Shell("ps aux | awk -v PID=200 '$2 == PID { print $1 }'");
        CHECK(told(log).starts_with("1 to 32, "));
    }
}

TEST_CASE("missing numbers are told, and why they can be missing")
{
    LogBuilder log;
    log.number = 40;
    log.Main("value of disable_cdrom is true");
    log.number = 60;
    log.Inserted();
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    REQUIRE(story.runs.size() == 1);
    REQUIRE(story.runs[0].gaps.size() == 2);
    CHECK(
        klog::GapText(story.runs[0].gaps[0]) ==
        "lines 1 to 40 are not in the file: it was emptied at 10,000,000 bytes, cut from outside, "
        "or could not be opened at first");
    CHECK(
        klog::GapText(story.runs[0].gaps[1]) ==
        "lines 42 to 60 are lost: the file could not be opened or written then, or was emptied in "
        "between");
    CHECK(klog::GapText({7, 7, false}).starts_with("line 7 is lost"));
}

TEST_CASE("what somebody should look at is a finding, and nothing else is")
{
    const auto findings = [](const std::string &text) {
        const LogText log = klog::ParseLog(text);
        return klog::HasFindings(klog::TellStory(log));
    };
    LogBuilder fine = UpToOpening();
    fine.Opens("open -a x").Mount("Run Orvanta Program success");
    CHECK_FALSE(findings(fine.text));
    CHECK_FALSE(findings(""));
    LogBuilder rotated = fine;
    CHECK_FALSE(findings(rotated.text.substr(rotated.text.find("line 4==="))));
    LogBuilder gap = fine;
    gap.number++;
    gap.Mount("DiskMountCallback exit");
    CHECK(findings(gap.text));
    LogBuilder unknown = fine;
    unknown.Main("never written");
    CHECK(findings(unknown.text));
    CHECK(findings(UpToConsole().text));
    LogBuilder setup = fine;
    setup.Say("Kestrun:DiskMountApproval", "DiskMountApproval Enter");
    setup.Say("ActiveVolumeProgram:RunSDProgram", "RunSDProgram Enter");
    LogBuilder quiet = setup;
    quiet.Say("ActiveVolumeProgram:RunSDProgram",
              "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit");
    quiet.Say("Kestrun:DiskMountApproval",
              "finish run program, and error, DiskMountApproval exit ");
    CHECK_FALSE(findings(quiet.text));
    setup.Say("ActiveVolumeProgram:RunSDProgram",
              "SD_THIRD_FILE_PATH read false, RunSDProgram exit");
    setup.Say("Kestrun:DiskMountApproval",
              "finish run program, and error, DiskMountApproval exit ");
    CHECK(findings(setup.text));
}

TEST_CASE("entries find their exits, also where the function logs none")
{
    LogBuilder log = UpToOpening();
    log.Opens("open -a x");
    const LogText parsed = klog::ParseLog(log.text);
    const Story story = klog::TellStory(parsed);
    std::vector<std::string> calls;
    for (const klog::Call &call : story.runs.at(0).calls.calls) {
        static const char *const kEndings[] = {"exit", "silent", "open"};
        calls.push_back(std::to_string(call.depth) + " " + std::string(call.source) + " " +
                        std::to_string(call.first + 1) + "-" + std::to_string(call.last + 1) + " " +
                        kEndings[static_cast<size_t>(call.ending)]);
    }
    const std::vector<std::string> expected = {
        "0 Kestrun:DiskPeekCallback 4-6 exit",
        "0 Kestrun:DiskMountCallback 7-7 open",
        "1 Process:RunShellCmd 10-10 silent",
        "1 Process:RunShellProgram 13-14 exit",
    };
    CHECK(calls == expected);
}

TEST_CASE(
    "a last line of which the file has the beginning is no unknown text, and makes up nothing")
{
    LogBuilder log = UpToConsole();
    log.Say("Kestrun:FindCommPort", "FindCommPort Enter");
    log.Say("Kestrun:FindCommPort", "findCommPort failed, FindCommPort exit");
    log.Mount("actvie == pname.....").Look().Opens("ps").Capture("recv [ 321 Finder.app\n]");
    log.Mount("have some one login succ").Opens("open -a \"/Volumes/A/B.app/\"");
    log.Mount("Run Orvanta Program success").Mount("DiskMountCallback exit");
    log.Inserted();
    const klog::LogText all = klog::ParseLog(log.text);
    for (size_t i = 0; i < all.records.size(); i++) {
        const size_t start = all.records[i].offset;
        const size_t end = i + 1 < all.records.size() ? all.records[i + 1].offset : log.text.size();
        const std::string without = Firsts(log.text.substr(0, start));
        const std::string with = Firsts(log.text.substr(0, end));
        for (size_t size = start + 1; size < end; size++) {
            const std::string text = log.text.substr(0, size);
            CAPTURE(text.substr(start));
            const LogText parsed = klog::ParseLog(text);
            CHECK(klog::TellStory(parsed).unknown.empty());
            const std::string told = Firsts(text);
            CHECK((told == without || told == with));
        }
    }
}

TEST_CASE("a last line without its line feed tells what it says when all of it is there")
{
    LogBuilder log = UpToConsole();
    log.Mount("are not same return.....");
    log.text.pop_back();
    CHECK(OnlySentence(log).starts_with("other-user "));
    log.text.pop_back();
    CHECK(OnlySentence(log).starts_with("unfinished "));
}

TEST_CASE("a last line that begins like none of the daemon's texts is unknown, whole or not")
{
    LogBuilder log = UpToConsole();
    log.Mount("never wri");
    log.text.pop_back();
    const LogText parsed = klog::ParseLog(log.text);
    CHECK(klog::TellStory(parsed).unknown.size() == 1);
}

TEST_CASE("a clock that was set back, cut lines and zero bytes are told")
{
    LogBuilder log;
    log.Start();
    log.text += std::string(5, '\0');
    log.Inserted();
    const std::string back =
        "line 7===2026-11-20 8:0:0   Kestrun:main --- value of disable_cdrom is true\n";
    const std::string text = log.text + back;
    const LogText parsed = klog::ParseLog(text);
    const Story story = klog::TellStory(parsed);
    const std::vector<std::string> expected = {
        "5 zero bytes before line 4: the file was truncated while the daemon had it open",
        "the clock was set back before line 7", "mounts with rdonly (line 3)",
        "mounts with nobrowse (line 7)"};
    CHECK(story.runs.at(0).notes == expected);
}
