// facts.cpp - see facts.h. The configuration and the serial port are read by the daemon's own code,
// whose log stays switched off here; users and Finder are asked for with the daemon's own commands.
#include "tools/status/facts.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

#include "Common/INI.h"
#include "observe/commands.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/names.h"
#include "observe/system.h"
#include "src/ActiveVolumeProgram.h"
#include "src/Kestrun.h"
#include "tamrik/tamrik.h"

namespace kstatus
{

static const size_t kPathSize = 1024;
static const long kStartGrace = 2;  // seconds that a daemon may take to its first lines

// Why the file at `path` cannot be read here; empty when it can, or is not there. The daemon may be
// allowed what this user is not.
static std::string ProblemOf(const char *path)
{
    struct stat info = {};
    if (stat(path, &info) == 0) {
        if (S_ISFIFO(info.st_mode))  // whoever opens it waits for a writer
            return "Not a regular file";
        if (access(path, R_OK) == 0)
            return "";
    }
    return errno == ENOENT || errno == ENOTDIR ? "" : strerror(errno);
}

void ReadConfiguration(Facts *facts, const char *path)
{
    char name[observe::kVolumeNameSize] = "";
    const char *configured = observe::kDefaultVolumeName;
    facts->configProblem = ProblemOf(path);
    if (!facts->configProblem.empty()) {
        facts->unknown.push_back("what the configuration says: " + facts->configProblem);
        return;
    }
    facts->configured = SetIniFileName(path);
    struct stat info = {};
    if (facts->configured && stat(path, &info) == 0)
        facts->configTime = info.st_mtime;
    if (facts->configured)
        configured = ReadString(observe::kConfigSection, "name", observe::kDefaultVolumeName);
    strncpy_s(name, sizeof name, configured, sizeof name - 1);
    facts->volumeName = name;
    facts->hidden = IsKeyValueCaseEqual(path, observe::kConfigSection, "disable_cdrom", "true");
}

static void GatherPort(Facts *facts)
{
    char path[kPathSize] = "";
    if (FindCommPort(observe::kPortName, path, sizeof path) == 0)
        facts->port = path;
    facts->ports = observe::ListPorts("");
}

static void GatherDisks(Facts *facts)
{
    facts->disks = observe::ListDisks("");
    if (!facts->disks)
        facts->unknown.emplace_back("which disks are there");
}

static void GatherPeople(Facts *facts)
{
    for (Daemon &daemon : facts->daemons) {
        daemon.user = observe::OwnerOfProcess(daemon.pid);
        if (daemon.user.empty())
            facts->unknown.emplace_back("the daemon's user");
    }
    const bool same = std::ranges::all_of(facts->daemons, [&](const Daemon &daemon) {
        return daemon.user == facts->daemons[0].user;
    });
    if (same && !facts->daemons.empty())
        facts->daemonUser = facts->daemons[0].user;
    facts->consoleUser = observe::OwnerOfConsole();
    if (facts->consoleUser.empty())
        facts->unknown.emplace_back("the console's owner");
    facts->finder = observe::FinderRuns();
    if (!*facts->finder && observe::CommandOutput("ps -A").empty()) {
        facts->finder.reset();
        facts->unknown.emplace_back("whether the Finder runs");
    }
}

// Whether `place` is that of the volume or of a duplicate of it ("Orvanta 1").
static bool IsPlaceOf(const std::string &place, const std::string &name)
{
    std::string path = observe::kVolumesDir + name;
    for (size_t at = strlen(observe::kVolumesDir); at < path.size(); ++at)
        path[at] = path[at] == '/' ? ':' : path[at];
    if (place == path)
        return true;
    return place.compare(0, path.size() + 1, path + " ") == 0 &&
           place.find_first_not_of("0123456789", path.size() + 1) == std::string::npos;
}

static void GatherVolumes(Facts *facts)
{
    std::vector<Volume> all;
    if (!ListVolumes(&all))
        facts->unknown.emplace_back("what is mounted");
    for (const Volume &volume : all) {
        if (IsPlaceOf(volume.place, facts->volumeName))
            facts->volumes.push_back(volume);
    }
}

std::optional<std::string> ReadLog(Facts *facts, const char *path)
{
    LogFacts &log = facts->log;
    log.problem = ProblemOf(path);
    std::optional<std::string> text;
    if (log.problem.empty()) {
        text = observe::ReadWholeFile(path);
        log.missing = !text && errno == ENOENT;
        if (!text)
            log.problem = strerror(errno);
    }
    if (!text && !log.missing)
        facts->unknown.emplace_back("what the log says: " + log.problem);
    return text;
}

static void GatherLog(Facts *facts)
{
    LogFacts &log = facts->log;
    const std::optional<std::string> text = ReadLog(facts, observe::kLogFile);
    const observe::LogText parsed = observe::ParseLog(text ? std::string_view(*text) : "");
    if (!parsed.records.empty()) {
        const observe::Record &last = parsed.records.back();
        log.number = last.number;
        log.text =
            observe::FirstLine(std::string(last.source) + " --- " + std::string(last.message));
        const std::optional<int64_t> at = TimeOf(last.stamp);
        if (at)
            log.age = facts->now - *at;
    }
    if (facts->daemons.empty())
        return;
    const Daemon &daemon = facts->daemons[0];
    log.stale =
        daemon.age && log.age && *daemon.age > kStartGrace && *log.age > *daemon.age + kStartGrace;
    if (facts->daemons.size() > 1)
        return;  // whose lines are whose the log does not tell
    facts->used = InferUsed(log.stale ? std::vector<observe::Record>() : parsed.records);
    facts->waiting =
        InferWaiting(log.stale ? std::vector<observe::Record>() : parsed.records, daemon);
    if (facts->waiting.since && *facts->waiting.since > facts->now)
        facts->waiting.since.reset();  // the clock was set back meanwhile
}

// What the daemon uses is what the file says, unless the file was changed after the daemon's start.
static void ForgetUsed(Facts *facts)
{
    const std::optional<long> age =
        facts->daemons.size() == 1 ? facts->daemons[0].age : std::nullopt;
    if (!age || !facts->configTime || *facts->configTime <= facts->now - *age + kStartGrace)
        facts->used.reset();
}

Facts GatherFacts()
{
    Facts facts;
    facts.now = time(nullptr);
    observe::PrepareCommands();
    if (!FindDaemons(&facts.daemons))
        facts.unknown.emplace_back("the processes");
    GatherLog(&facts);
    GatherPeople(&facts);
    ReadConfiguration(&facts, observe::kConfigFile);
    ForgetUsed(&facts);
    GatherPort(&facts);
    GatherDisks(&facts);
    GatherVolumes(&facts);
    return facts;
}

static bool HasOption(const Volume &volume, const std::string &option)
{
    return std::ranges::find(volume.options, option) != volume.options.end();
}

static void FindWrongMounts(const Facts &facts, std::vector<std::string> *wrongs)
{
    const std::string option = ShownOption(facts.hidden);
    if (!facts.configProblem.empty())
        return;
    if (!facts.port.empty() && facts.volumes.empty())
        wrongs->push_back("the modem's port is there, and its volume \"" + facts.volumeName +
                          "\" is not mounted");
    for (const Volume &volume : facts.volumes) {
        if (!HasOption(volume, option))
            wrongs->push_back(volume.place + " is mounted without " + option +
                              ", which the configuration asks for");
    }
}

// A time of day, with its date unless it is today's.
static std::string TimeText(int64_t time, int64_t now)
{
    const auto text = [](int64_t seconds, const char *format) {
        const time_t at = seconds;
        struct tm local = {};
        char written[32] = "";
        if (localtime_r(&at, &local) != nullptr)
            (void)strftime(written, sizeof written, format, &local);
        return std::string(written);
    };
    const char kDay[] = "%Y-%m-%d";
    const bool today = text(time, kDay) == text(now, kDay);
    return text(time, today ? "%H:%M" : "%Y-%m-%d %H:%M");
}

// A configuration that was changed under the daemon, which reads name and disable_cdrom once.
static void FindWrongConfiguration(const Facts &facts, std::vector<std::string> *wrongs)
{
    if (!facts.used)
        return;
    const std::string since = " since " + TimeText(*facts.configTime, facts.now) +
                              ", the daemon started before and still ";
    const Used &used = *facts.used;
    const size_t before = wrongs->size();
    if (used.name && *used.name != facts.volumeName)
        wrongs->push_back("name = " + facts.volumeName + since + "waits for \"" + *used.name +
                          "\": restart it");
    if (used.hidden && *used.hidden != facts.hidden)
        wrongs->push_back(std::string("disable_cdrom = ") + (facts.hidden ? "true" : "false") +
                          since + "mounts with " + (*used.hidden ? "nobrowse" : "rdonly") +
                          ": restart it");
    if (wrongs->size() == before && (!used.name || !used.hidden))
        wrongs->push_back("the configuration is another" + since +
                          "uses the name and disable_cdrom of then: restart it");
}

// A disk that is there under another label than the one that the daemon waits for.
static void FindWrongDisks(const Facts &facts, std::vector<std::string> *wrongs)
{
    if (!facts.configProblem.empty() || !facts.disks || !facts.volumes.empty())
        return;
    for (const std::string &sentence :
         LikelyMeant(*facts.disks, facts.volumeName, !facts.port.empty()))
        wrongs->push_back(sentence);
}

static void FindWrongPeople(const Facts &facts, std::vector<std::string> *wrongs)
{
    const bool modem = !facts.port.empty() || !facts.volumes.empty();
    const bool several = facts.daemons.size() > 1 && facts.daemonUser.empty();
    if (modem && !facts.daemons.empty() && !several && facts.daemonUser != facts.consoleUser)
        wrongs->push_back("the modem is there, and nothing is opened: the console is " +
                          (facts.consoleUser.empty() ? "nobody" : facts.consoleUser) +
                          "'s, the daemon runs as " +
                          (facts.daemonUser.empty() ? "nobody" : facts.daemonUser));
    if (facts.waiting.phase == Phase::Finder && facts.finder == false)
        wrongs->push_back(std::string("the daemon waits for the Finder, which does not run: ") +
                          observe::FinderAbsence());
}

static void FindWrongTries(const Facts &facts, std::vector<std::string> *wrongs)
{
    const Waiting &waiting = facts.waiting;
    if (waiting.phase == Phase::Application && waiting.tries > 0)
        wrongs->emplace_back("the application cannot be opened");
    if (waiting.phase == Phase::Setup && waiting.tries > 0)
        wrongs->emplace_back("the setup package cannot be opened");
    if (waiting.phase == Phase::SetupVolume)
        wrongs->emplace_back("a volume of the setup package is not there");
}

std::vector<std::string> FindWrongs(const Facts &facts)
{
    std::vector<std::string> wrongs;
    if (facts.daemons.empty())
        wrongs.emplace_back("the daemon does not run");
    if (facts.daemons.size() > 1)
        wrongs.push_back("the daemon runs " + std::to_string(facts.daemons.size()) + " times");
    if (!facts.daemons.empty() && facts.log.missing)
        wrongs.emplace_back("the daemon runs, and it has no log");
    if (facts.log.stale)
        wrongs.emplace_back(
            "the log is older than the daemon: it cannot write there, or the clock was set");
    FindWrongConfiguration(facts, &wrongs);
    FindWrongDisks(facts, &wrongs);
    FindWrongMounts(facts, &wrongs);
    FindWrongPeople(facts, &wrongs);
    FindWrongTries(facts, &wrongs);
    return wrongs;
}

}  // namespace kstatus
