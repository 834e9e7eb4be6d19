// waiting.cpp - see waiting.h. The lines of the last run are read in their order; each sign in the
// table below says which phase begins with it.
#include "tools/status/waiting.h"

#include <algorithm>
#include <ctime>

#include "observe/daemon.h"

namespace kstatus
{

struct Sign {
    const char *source;
    const char *begin;  // of the message
    Phase phase;
};

// clang-format off
static const Sign kSigns[] = {
    {"Kestrun:main",              "begin to run SDProgram at beginning",         Phase::Port},
    {"Kestrun:FindCommPort",      "FindCommPort success, and exit",              Phase::Volume},
    {"Kestrun:main",              "finish run SDProgram at beginning",           Phase::Modem},
    {"Kestrun:main",              "can't find /Volumes/Orvanta",                 Phase::Modem},
    {"ActiveVolumeProgram:IsKeyValueCaseEqual", "IsKeyValueCaeEqual Enter",      Phase::Modem},  // sic
    {"Kestrun:DiskPeekCallback",  "DiskPeekCallback Enter",                      Phase::Modem},
    {"Kestrun:DiskMountCallback", "DiskMountCallback Enter",                     Phase::Owner},
    {"Kestrun:DiskMountCallback", "create pipe failed!",                         Phase::Modem},
    {"Kestrun:DiskMountCallback", "are not same return",                         Phase::Modem},
    {"Kestrun:DiskMountCallback", "actvie == pname",                             Phase::Finder},  // sic
    {"Kestrun:DiskMountCallback", "have some one login succ",                    Phase::Application},
    {"Kestrun:DiskMountCallback", "Run Orvanta Program success",                 Phase::Setup},
    {"Kestrun:DiskMountCallback", "RunShellProgram failed, can't run",           Phase::Setup},
    {"Kestrun:DiskMountApproval", "finish run ",                                 Phase::Modem},
};
// clang-format on

struct RunReading {
    Waiting waiting;
    int mountsAsked = 0;   // whose completion did not come yet
    bool package = false;  // in the setup: its file was opened
};

std::optional<int64_t> TimeOf(const klog::Stamp &stamp)
{
    if (!klog::Seconds(stamp))
        return std::nullopt;
    struct tm local = {};
    local.tm_year = stamp.year - 1900;
    local.tm_mon = stamp.month - 1;
    local.tm_mday = stamp.day;
    local.tm_hour = stamp.hour;
    local.tm_min = stamp.minute;
    local.tm_sec = stamp.second;
    local.tm_isdst = -1;  // by the zone's rules
    return mktime(&local);
}

static bool Begins(const klog::Record &record, std::string_view source, std::string_view begin)
{
    return record.source == source && record.message.starts_with(begin);
}

// What stands between the last `open` and the `close` behind it; empty when one is missing.
static std::string Between(std::string_view text, std::string_view open, std::string_view close)
{
    const size_t start = text.find(open);
    if (start == std::string_view::npos)
        return "";
    const size_t from = start + open.size();
    const size_t end = text.find(close, from);
    return end == std::string_view::npos ? "" : std::string(text.substr(from, end - from));
}

static void BeginPhase(RunReading *run, Phase phase, const klog::Record &record)
{
    run->waiting = Waiting();
    run->waiting.phase = phase;
    run->waiting.since = TimeOf(record.stamp);
    if (phase == Phase::Port)
        run->waiting.limit = observe::kPortTries;
    if (phase == Phase::Volume)
        run->waiting.limit = observe::kStartWait;
    if (phase == Phase::Application)
        run->waiting.limit = observe::kOpenTries;
}

// A wait for a volume, at the start or for the setup package.
static void TakeVolumeWait(RunReading *run, const klog::Record &record)
{
    const bool setup =
        run->waiting.phase == Phase::Setup || run->waiting.phase == Phase::SetupVolume;
    if (Begins(record, "ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist Enter") && setup) {
        BeginPhase(run, Phase::SetupVolume, record);
        run->waiting.limit = run->package ? observe::kPackageWait : observe::kSetupWait;
    } else if (Begins(record, "ActiveVolumeProgram:IsVolumeExist", " ")) {
        const std::string path = Between(record.message, "open (", ") failed, open again");
        run->waiting.path = path == "(null)" ? "" : path;
    } else if (setup && record.source == "ActiveVolumeProgram:IsVolumeExist" &&
               record.message.find("IsVolumeExist exit") != std::string_view::npos) {
        BeginPhase(run, Phase::Setup, record);
    }
}

// The commands of the application and the setup package, and the looks at the ports.
static void TakeTry(RunReading *run, const klog::Record &record)
{
    Waiting &waiting = run->waiting;
    if (Begins(record, "Kestrun:FindCommPort", "FindCommPort Enter"))
        ++waiting.tries;
    if (Begins(record, "ActiveVolumeProgram:GetTempVolumeName", "GetTempVolumeName Enter"))
        run->package = true;
    const bool opens = waiting.phase == Phase::Application || waiting.phase == Phase::Setup;
    if (opens && Begins(record, "Process:RunShellProgram", "RunShellProgram Enter")) {
        waiting.tries = 0;
        waiting.limit = observe::kOpenTries;
    }
    if (opens && Begins(record, "Process:RunShellProgram", "system failed ")) {
        ++waiting.tries;
        waiting.path = Between(record.message, "]:(", "), err = (");
    }
}

static void TakeRecord(RunReading *run, const klog::Record &record)
{
    if (Begins(record, "Kestrun:DiskPeekCallback", "DiskPeekCallback Enter"))
        ++run->mountsAsked;
    if (Begins(record, "Kestrun:DiskMountCallback", "DiskMountCallback Enter")) {
        run->mountsAsked = std::max(0, run->mountsAsked - 1);
        run->package = false;
    }
    for (const Sign &sign : kSigns) {
        if (Begins(record, sign.source, sign.begin)) {
            BeginPhase(run, sign.phase, record);
            return;
        }
    }
    TakeVolumeWait(run, record);
    TakeTry(run, record);
}

// Where the last run begins: a number that is not above the one before it is a new daemon's.
static size_t LastRun(const std::vector<klog::Record> &records)
{
    size_t first = records.empty() ? 0 : records.size() - 1;
    while (first > 0 && records[first - 1].number < records[first].number)
        --first;
    return first;
}

Waiting InferWaiting(const std::vector<klog::Record> &records, const Daemon &daemon)
{
    RunReading run;
    for (size_t i = LastRun(records); i < records.size(); ++i)
        TakeRecord(&run, records[i]);
    const std::optional<int64_t> since = run.waiting.since;
    const bool loops = daemon.activity == Activity::AwaitsEvents;
    const bool atRest =
        run.waiting.phase == Phase::Modem && (loops || daemon.activity == Activity::Unknown);
    // In the run loop nothing is under way but mounts, whatever the last written line began.
    if (loops || atRest) {
        run.waiting = Waiting();
        run.waiting.phase = run.mountsAsked > 0 ? Phase::Mount : Phase::Modem;
        run.waiting.since = since;
    } else if (run.waiting.phase == Phase::Modem || run.waiting.phase == Phase::Unknown) {
        run.waiting = Waiting();
        run.waiting.phase = Phase::Busy;
    }
    return run.waiting;
}

const char *PhaseWord(Phase phase)
{
    switch (phase) {
    case Phase::Unknown: return "unknown";
    case Phase::Modem: return "modem";
    case Phase::Port: return "port";
    case Phase::Volume: return "volume";
    case Phase::Mount: return "mount";
    case Phase::Owner: return "owner";
    case Phase::Finder: return "finder";
    case Phase::Application: return "application";
    case Phase::Setup: return "setup";
    case Phase::SetupVolume: return "setup volume";
    case Phase::Busy: return "busy";
    }
    return "";
}

static std::string Named(const Waiting &waiting, const std::string &what)
{
    return waiting.path.empty() ? what : what + " " + waiting.path;
}

static std::string Tries(const Waiting &waiting)
{
    if (waiting.tries == 0)
        return "";
    return "; " + std::to_string(waiting.tries) + " of " + std::to_string(waiting.limit) +
           " tries failed" + (waiting.path.empty() ? "" : ": " + waiting.path);
}

static std::string SoFar(const Waiting &waiting, int64_t now)
{
    std::string text;
    if (waiting.since)
        text = ", for " + std::to_string(std::max<int64_t>(0, now - *waiting.since)) + " s so far";
    if (waiting.limit > 0)
        text += ", at most " + std::to_string(waiting.limit) + " s";
    return text;
}

std::string DescribeWaiting(const Waiting &waiting, int64_t now)
{
    switch (waiting.phase) {
    case Phase::Unknown: return "for what the log does not tell";
    case Phase::Modem: return "for the next modem: it has nothing to do";
    case Phase::Port:
        return "for the modem's serial port, look " + std::to_string(waiting.tries) + " of " +
               std::to_string(waiting.limit);
    case Phase::Volume: return "for the volume" + Named(waiting, "") + SoFar(waiting, now);
    case Phase::Mount: return "for the end of a mount that it asked for" + SoFar(waiting, now);
    case Phase::Owner: return "for the answer who owns the console";
    case Phase::Finder:
        return "for the Finder" + SoFar(waiting, now) + ": until then no other disk is handled";
    case Phase::Application: return "for the application to open" + Tries(waiting);
    case Phase::Setup: return "for the setup package" + Tries(waiting);
    case Phase::SetupVolume:
        return "for the setup package's volume" + Named(waiting, "") + SoFar(waiting, now);
    case Phase::Busy: return "for nothing: it works, and its next lines will tell at what";
    }
    return "";
}

}  // namespace kstatus
