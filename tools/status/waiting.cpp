// waiting.cpp - see waiting.h.
#include "tools/status/waiting.h"

#include <algorithm>
#include <ctime>

#include "observe/daemon.h"
#include "observe/journey.h"

namespace kstatus
{

std::optional<int64_t> TimeOf(const observe::Stamp &stamp)
{
    if (!observe::Seconds(stamp))
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

// Where the last run begins: a number that is not above the one before it is a new daemon's.
static size_t LastRun(const std::vector<observe::Record> &records)
{
    size_t first = records.empty() ? 0 : records.size() - 1;
    while (first > 0 && records[first - 1].number < records[first].number)
        --first;
    return first;
}

static Phase PhaseOf(observe::Stage stage)
{
    using observe::Stage;
    switch (stage) {
    case Stage::Unknown: return Phase::Unknown;
    case Stage::Rest:
    case Stage::Leaving: return Phase::Modem;
    case Stage::Port: return Phase::Port;
    case Stage::Volume: return Phase::Volume;
    case Stage::Owner: return Phase::Owner;
    case Stage::Finder: return Phase::Finder;
    case Stage::Application: return Phase::Application;
    case Stage::Setup: return Phase::Setup;
    case Stage::SetupVolume: return Phase::SetupVolume;
    }
    return Phase::Unknown;
}

static int LimitOf(const observe::Journey &journey, Phase phase)
{
    switch (phase) {
    case Phase::Port: return observe::kPortTries;
    case Phase::Volume: return observe::kStartWait;
    case Phase::SetupVolume: return journey.package ? observe::kPackageWait : observe::kSetupWait;
    case Phase::Application: return observe::kOpenTries;
    case Phase::Setup: return journey.shell.stage == journey.stage ? observe::kOpenTries : 0;
    default: return 0;
    }
}

static Waiting WaitingOf(const observe::Journey &journey)
{
    Waiting waiting;
    waiting.phase = PhaseOf(journey.stage);
    waiting.limit = LimitOf(journey, waiting.phase);
    waiting.path = journey.volume;
    const bool opens = waiting.phase == Phase::Application || waiting.phase == Phase::Setup;
    if (waiting.phase == Phase::Port)
        waiting.tries = journey.portLooks;
    if (opens && journey.shell.stage == journey.stage) {
        waiting.tries = journey.shell.failed;
        waiting.path = waiting.tries > 0 ? journey.shell.command : "";
    }
    return waiting;
}

Waiting InferWaiting(const std::vector<observe::Record> &records, const Daemon &daemon)
{
    observe::Journey journey;
    for (size_t i = LastRun(records); i < records.size(); ++i) {
        const observe::Record &record = records[i];
        (void)Follow(journey, i, observe::FindMessage(record.source, record.message, record.cut));
    }
    Waiting waiting = WaitingOf(journey);
    const bool known = waiting.phase != Phase::Unknown;
    const bool loops = daemon.activity == Activity::AwaitsEvents;
    const bool atRest =
        waiting.phase == Phase::Modem && (loops || daemon.activity == Activity::Unknown);
    // In the run loop nothing is under way but mounts, whatever the last written line began.
    if (loops || atRest) {
        waiting = Waiting();
        waiting.phase = journey.pending > 0 ? Phase::Mount : Phase::Modem;
    } else if (waiting.phase == Phase::Modem || !known) {
        waiting = Waiting();
        waiting.phase = Phase::Busy;
        return waiting;
    }
    if (known)
        waiting.since = TimeOf(records[journey.since].stamp);
    return waiting;
}

// The label in the path of a volume that is waited for.
static std::string LabelIn(std::string_view path)
{
    const std::string_view folder = observe::kVolumesDir;
    return std::string(path.starts_with(folder) ? path.substr(folder.size()) : path);
}

Used InferUsed(const std::vector<observe::Record> &records)
{
    using observe::Event;
    Used used;
    for (size_t i = LastRun(records); i < records.size() && !used.hidden; ++i) {
        const observe::Record &record = records[i];
        const observe::Found found =
            observe::FindMessage(record.source, record.message, record.cut);
        const Event event = found.message == nullptr ? Event::None : found.message->event;
        const auto filled = [&](size_t at) {
            return at < found.filled.size() ? found.filled[at] : std::string_view();
        };
        if (event == Event::ConfigUnreadable || event == Event::DefaultUsed)
            used.name = observe::kDefaultVolumeName;
        if (event == Event::VolumeTry)
            used.name = LabelIn(filled(1));
        if (event == Event::OptionNobrowse || event == Event::OptionRdonly)
            used.hidden = event == Event::OptionNobrowse;
        if (event == Event::MountEnter)  // what follows reads the configuration anew
            return used;
    }
    return used;
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
