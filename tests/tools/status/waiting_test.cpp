// waiting_test.cpp - what the daemon waits for, inferred from logs that the bench knows as golden,
// cut behind a line; and what counts as wrong.
#include <doctest/doctest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "observe/daemon.h"
#include "observe/files.h"
#include "tools/status/facts.h"
#include "tools/status/report.h"

using kstatus::Activity;
using kstatus::Facts;

static std::string ReadFile(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    REQUIRE_FALSE(text.str().empty());
    return text.str();
}

// The golden log up to and with the first line that holds `last`, its times 1 s apart.
static std::string GoldenLog(const std::string &name, const std::string &last)
{
    const std::string log = ReadFile(std::string(KESTRUN_SCENARIOS) + "/golden/" + name + ".log");
    std::istringstream lines(log);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (const size_t time = line.find("<time>"); time != std::string::npos)
            line.replace(time, strlen("<time>"), "2026-11-20 9:5:3");
        text += line + "\n";
        if (line.find(last) != std::string::npos)
            return text;
    }
    FAIL("no such line: " << last);
    return text;
}

static std::string Waits(const std::string &log, Activity activity)
{
    kstatus::Daemon daemon;
    daemon.activity = activity;
    const observe::LogText parsed = observe::ParseLog(log);
    const kstatus::Waiting waiting = kstatus::InferWaiting(parsed.records, daemon);
    const int64_t now = *kstatus::TimeOf({2026, 11, 20, 9, 5, 8});
    return std::string(kstatus::PhaseWord(waiting.phase)) + ": " +
           kstatus::DescribeWaiting(waiting, now);
}

TEST_CASE("the log's last written line and the process tell what is waited for")
{
    const char kIdle[] = "modem: for the next modem: it has nothing to do";
    const char kBusy[] = "busy: for nothing: it works, and its next lines will tell at what";
    struct Row {
        const char *log;
        const char *last;
        Activity activity;
        const char *waits;
    };
    // clang-format off
    const Row rows[] = {
        {"login-late", "TOOL-",                   Activity::Works,        kBusy},
        {"login-late", "begin to run SDProgram",  Activity::Works,        "port: for the modem's serial port, look 0 of 10"},
        {"replugged",  "findCommPort failed",     Activity::Pauses,       "port: for the modem's serial port, look 1 of 10"},
        {"login-late", "FindCommPort success",    Activity::Pauses,       "volume: for the volume, for 5 s so far, at most 300 s"},
        {"login-late", "IsVolumeExist Enter",     Activity::Unknown,      "volume: for the volume, for 5 s so far, at most 300 s"},
        {"login-late", "DiskMountCallback Enter", Activity::Works,        "owner: for the answer who owns the console"},
        {"login-late", "ps aux",                  Activity::AwaitsEvents, kIdle},
        {"login-late", "are not same return",     Activity::Unknown,      kIdle},
        {"login-late", "are not same return",     Activity::Works,        kBusy},
        {"login-late", "value of disable_cdrom",  Activity::AwaitsEvents, kIdle},
        {"login-late", "Device inserted",         Activity::AwaitsEvents, "mount: for the end of a mount that it asked for, for 5 s so far"},
        {"login-late", "Device inserted",         Activity::Unknown,      "mount: for the end of a mount that it asked for, for 5 s so far"},
        {"login-late", "actvie == pname",         Activity::Pauses,       "finder: for the Finder, for 5 s so far: until then no other disk is handled"},
        {"login-late", "recv [",                  Activity::Unknown,      "finder: for the Finder, for 5 s so far: until then no other disk is handled"},
        {"login-late", "have some one login",     Activity::Works,        "application: for the application to open"},
        {"login-late", "Run Orvanta Program",     Activity::Works,        "setup: for the setup package"},
        {"login-late", "finish run program",      Activity::AwaitsEvents, kIdle},
        {"login-late", "finish run program",      Activity::Unknown,      kIdle},
        {"application-fails-nine-times", "system failed 6 time", Activity::Pauses, "application: for the application to open; 7 of 10 tries failed: open -a \"/Volumes/Orvanta/Orvanta.app/\""},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.log);
        CAPTURE(row.last);
        CHECK(Waits(GoldenLog(row.log, row.last), row.activity) == row.waits);
    }
}

TEST_CASE("only the last run counts")
{
    const std::string first = GoldenLog("login-late", "Device inserted");
    const std::string second = GoldenLog("login-late", "begin to run SDProgram");
    CHECK(Waits(first + second, Activity::Unknown) ==
          "port: for the modem's serial port, look 0 of 10");
    CHECK(Waits("", Activity::Unknown) ==
          "busy: for nothing: it works, and its next lines will tell at what");
}

TEST_CASE("an arrival knows nothing of the setup package of the one before it")
{
    const std::string first = GoldenLog("setup-once", "finish run sd program");
    const size_t arrival = first.find("\nline 47===");
    const size_t wait = first.find('\n', first.find("IsVolumeExist Enter", arrival));
    REQUIRE(wait != std::string::npos);
    std::string second = first.substr(arrival + 1, wait - arrival);
    for (size_t at = 0; at < second.size(); at = second.find('\n', at) + 1)
        second.insert(at + strlen("line "), "10");  // the numbers go on rising
    const char kWaits[] =
        "setup volume: for the setup package's volume, for 5 s so far, at most 180 s";
    CHECK(Waits(second, Activity::Pauses) == kWaits);
    CHECK(Waits(first + second, Activity::Pauses) == kWaits);
}

// A system in which all is well: the modem is plugged in, mounted and opened.
static Facts Well()
{
    Facts facts;
    facts.daemons = {{1, Activity::AwaitsEvents, {}, 100}};
    facts.daemonUser = "anna";
    facts.consoleUser = "anna";
    facts.finder = true;
    facts.volumeName = "Orvanta";
    facts.port = "/dev/port";
    facts.volumes = {{"/Volumes/Orvanta", "/dev/sr0", "Kestrun", {"ro", "nosuid", "nodev"}}};
    facts.waiting.phase = kstatus::Phase::Modem;
    return facts;
}

TEST_CASE("each thing that is wrong is told, and nothing when all is well")
{
    using Texts = std::vector<std::string>;
    CHECK(kstatus::FindWrongs(Well()).empty());

    Facts facts = Well();
    facts.daemons.push_back(facts.daemons[0]);
    CHECK(kstatus::FindWrongs(facts) == Texts{"the daemon runs 2 times"});

    facts = Well();
    facts.log.missing = true;
    CHECK(kstatus::FindWrongs(facts) == Texts{"the daemon runs, and it has no log"});

    facts = Well();
    facts.log.stale = true;
    CHECK(kstatus::FindWrongs(facts) ==
          Texts{"the log is older than the daemon: it cannot write there, or the clock was set"});

    facts = Well();
    facts.hidden = true;
    CHECK(
        kstatus::FindWrongs(facts) ==
        Texts{"/Volumes/Orvanta is mounted without x-gvfs-hide, which the configuration asks for"});

    facts = Well();
    facts.daemonUser = "";
    CHECK(kstatus::FindWrongs(facts) == Texts{"the modem is there, and nothing is opened: the "
                                              "console is anna's, the daemon runs as nobody"});
    facts.port = "";
    facts.volumes.clear();
    CHECK(kstatus::FindWrongs(facts).empty());
}

TEST_CASE(
    "a configuration that was changed under the daemon is told with what the daemon still uses")
{
    using Texts = std::vector<std::string>;
    Facts facts = Well();
    facts.now = *kstatus::TimeOf({2026, 11, 20, 12, 0, 0});
    facts.configTime = *kstatus::TimeOf({2026, 11, 20, 10, 42, 30});
    facts.volumes.clear();
    facts.port = "";
    facts.volumeName = "Foo";
    facts.used = kstatus::Used{"Orvanta", true};
    CHECK(
        kstatus::FindWrongs(facts) ==
        Texts{"name = Foo since 10:42, the daemon started before and still waits for "
              "\"Orvanta\": restart it",
              "disable_cdrom = false since 10:42, the daemon started before and still mounts with "
              "nobrowse: restart it"});
    facts.used = kstatus::Used{"Foo", false};
    CHECK(kstatus::FindWrongs(facts).empty());
    facts.used = kstatus::Used{std::nullopt, false};
    facts.configTime = *kstatus::TimeOf({2026, 11, 19, 10, 42, 30});
    CHECK(
        kstatus::FindWrongs(facts) ==
        Texts{"the configuration is another since 2026-11-19 10:42, the daemon started before and "
              "still uses the name and disable_cdrom of then: restart it"});
}

TEST_CASE("what the daemon took from its configuration is read in the last run's start")
{
    const auto used = [](const std::string &messages) {
        std::string log;
        int number = 0;
        std::istringstream lines(messages);
        for (std::string line; std::getline(lines, line, '|');)
            log += "line " + std::to_string(++number) + "===2026-11-20 9:5:3   " + line + "\n";
        const kstatus::Used found = kstatus::InferUsed(observe::ParseLog(log).records);
        return found.name.value_or("-") + (!found.hidden ? " -" : *found.hidden ? " yes" : " no");
    };
    CHECK(used("") == "- -");
    CHECK(used("INI:ReadString --- cfg key [name] not exists...|") == "Orvanta -");
    CHECK(used("INI:SetIniFileName --- open file: /x failed, please check...\n|"
               "Kestrun:main --- value of disable_cdrom is false|") == "Orvanta no");
    CHECK(used("ActiveVolumeProgram:IsVolumeExist ---  0 time, open (/Volumes/Foo) failed, open "
               "again|Kestrun:main --- value of disable_cdrom is true|"
               "INI:ReadString --- cfg key [path1] not exists...|") == "Foo yes");
    CHECK(used("Kestrun:DiskMountCallback --- DiskMountCallback Enter|"
               "INI:ReadString --- cfg key [path1] not exists...|"
               "Kestrun:main --- value of disable_cdrom is true|") == "- -");
}

TEST_CASE("two daemons: each with its user, and what they wait for is not made up")
{
    Facts facts = Well();
    facts.daemons = {{1, Activity::AwaitsEvents, {}, 100, "anna"},
                     {2, Activity::AwaitsEvents, {}, 50, "root"}};
    facts.daemonUser = "";
    CHECK(kstatus::FindWrongs(facts) == std::vector<std::string>{"the daemon runs 2 times"});
    CHECK(kstatus::ReportText(facts).starts_with(
        "daemon   runs as anna, process 1\ndaemon   runs as root, process 2\n"));
}

TEST_CASE("times of log lines are those of the zone, summer time included")
{
    const char *old = getenv("TZ");
    const std::string before = old ? old : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    // The clocks went from 2 to 3 in between: ten hours, not eleven.
    CHECK(*kstatus::TimeOf({2026, 3, 29, 9, 0, 0}) - *kstatus::TimeOf({2026, 3, 28, 22, 0, 0}) ==
          10 * 3600);
    CHECK(kstatus::TimeOf({1970, 1, 1, 1, 0, 0}) == 0);
    CHECK_FALSE(kstatus::TimeOf({1900, 1, 0, 0, 0, 0}));
    if (old)
        setenv("TZ", before.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

TEST_CASE("a log line that is ahead of the clock is no age below zero")
{
    Facts facts = Well();
    facts.log.number = 7;
    facts.log.text = "Kestrun:main --- x";
    facts.log.age = 3;
    CHECK(kstatus::ReportText(facts).find("line 7, 3 s old: Kestrun:main --- x\n") !=
          std::string::npos);
    facts.log.age = -3600;
    CHECK(kstatus::ReportText(facts).find(
              "line 7, 3600 s ahead of the clock: Kestrun:main --- x\n") != std::string::npos);
}

TEST_CASE("a configuration that cannot be read is not taken for none")
{
    using Texts = std::vector<std::string>;
    char folder[] = "/tmp/kestrun-status-XXXXXX";
    REQUIRE(mkdtemp(folder) != nullptr);
    const std::string path = std::string(folder) + "/config";

    Facts none;
    kstatus::ReadConfiguration(&none, path.c_str());
    CHECK(none.volumeName == "Orvanta");
    CHECK_FALSE(none.configured);
    CHECK(none.unknown.empty());

    const auto problem = [&] {
        Facts facts = Well();
        kstatus::ReadConfiguration(&facts, path.c_str());
        CHECK(kstatus::FindWrongs(facts).empty());
        const std::string line =
            "config   " + std::string(observe::kConfigFile) + ": " + facts.configProblem + "\n";
        CHECK(kstatus::ReportText(facts).find(line) != std::string::npos);
        CHECK(kstatus::ReportJson(facts).find("\"name\": null") != std::string::npos);
        CHECK(facts.unknown == Texts{"what the configuration says: " + facts.configProblem});
        return facts.configProblem;
    };
    REQUIRE(symlink("config", path.c_str()) == 0);
    CHECK(problem() == "Too many levels of symbolic links");
    unlink(path.c_str());
    REQUIRE(mkfifo(path.c_str(), 0600) == 0);
    CHECK(problem() == "Not a regular file");
    unlink(path.c_str());
    rmdir(folder);
}

TEST_CASE("a log that cannot be read is told with the reason, one that is not there as missing")
{
    char folder[] = "/tmp/waiting_test.XXXXXX";
    REQUIRE(mkdtemp(folder) != nullptr);
    const std::string path = std::string(folder) + "/log";
    const auto read = [&](kstatus::Facts *facts) { return kstatus::ReadLog(facts, path.c_str()); };
    kstatus::Facts absent;
    CHECK_FALSE(read(&absent));
    CHECK(absent.log.missing);
    CHECK(absent.unknown.empty());
    REQUIRE(mkfifo(path.c_str(), 0600) == 0);
    kstatus::Facts pipe;
    CHECK_FALSE(read(&pipe));
    CHECK_FALSE(pipe.log.missing);
    CHECK(pipe.log.problem == "Not a regular file");
    CHECK(pipe.unknown == std::vector<std::string>{"what the log says: Not a regular file"});
    unlink(path.c_str());
    REQUIRE(observe::WriteFile(path, "line 1===x"));
    kstatus::Facts there;
    CHECK(read(&there) == "line 1===x");
    CHECK_FALSE(there.log.missing);
    CHECK(there.log.problem.empty());
    unlink(path.c_str());
    rmdir(folder);
}

TEST_CASE("a daemon that has ended, and whose end nobody asked for yet, does not run")
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        prctl(PR_SET_NAME, "Kestrun");
        _exit(0);
    }
    siginfo_t info = {};
    REQUIRE(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) == 0);
    std::vector<kstatus::Daemon> daemons;
    CHECK(kstatus::FindDaemons(&daemons));
    CHECK(std::ranges::find(daemons, child, &kstatus::Daemon::pid) == daemons.end());
    waitpid(child, nullptr, 0);
}

TEST_CASE("the names that the tool goes by are those of the daemon's source")
{
    const std::string source = ReadFile(std::string(KESTRUN_SOURCES) + "/Kestrun.cpp");
    for (const char *name : {observe::kLogFile, observe::kConfigFile, observe::kConfigSection,
                             observe::kVolumesDir, observe::kDefaultVolumeName, observe::kPortName,
                             observe::kConsoleCommand, observe::kFinderCommand}) {
        CAPTURE(name);
        CHECK(source.find("\"" + std::string(name) + "\"") != std::string::npos);
    }
    const std::string setup = ReadFile(std::string(KESTRUN_SOURCES) + "/ActiveVolumeProgram.cpp");
    const auto says = [](const std::string &text, const std::string &name, long value) {
        return text.find(name + " = " + std::to_string(value) + ";") != std::string::npos;
    };
    CHECK(says(source, "kPortTries", observe::kPortTries));
    CHECK(says(source, "kOpenTries", observe::kOpenTries));
    CHECK(says(source, "kVolumeBudget", observe::kStartWait));
    CHECK(says(source, "kVolumeNameSize", observe::kVolumeNameSize));
    CHECK(says(setup, "kFileVolumeWait", observe::kSetupWait));
    CHECK(says(setup, "kPackageWait", observe::kPackageWait));
}
