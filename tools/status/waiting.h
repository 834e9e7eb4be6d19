// waiting.h - what the daemon waits for, inferred from its log and its process.
//
// The log's last line is still in the daemon's memory, so the log alone is one step behind; what
// the process does at the moment makes up for it where the system tells.
#ifndef TOOLS_STATUS_WAITING_H
#define TOOLS_STATUS_WAITING_H

#include <optional>
#include <string>
#include <vector>

#include "observe/log_line.h"
#include "tools/status/system.h"

namespace kstatus
{

enum class Phase {
    Unknown,  // the log does not tell
    Modem,    // in the run loop, with nothing to do
    Port,     // at the start: the modem's serial port
    Volume,   // at the start: the volume
    Mount,    // a mount that was asked for
    Owner,    // who owns the console
    Finder,
    Application,  // the command that opens it
    Setup,        // the setup package: its command, or what its file brings
    SetupVolume,  // the setup package: a volume
    Busy,         // it works, and the log does not yet say at what
};

struct Waiting {
    Phase phase = Phase::Unknown;
    std::string path;  // the volume or the command, where the log names one
    int tries = 0;     // that failed so far, or looks at the ports
    int limit = 0;     // seconds (volumes) or tries (port, commands) at most; 0: for ever
    std::optional<int64_t> since;  // as TimeOf gives it
};

// Seconds since 1970 at this local time of a log line; nothing when the daemon had no clock. The
// zone is this machine's, where the log was written too.
std::optional<int64_t> TimeOf(const observe::Stamp &stamp);

// What the last run in `records` waits for, and `daemon`, which is running.
Waiting InferWaiting(const std::vector<observe::Record> &records, const Daemon &daemon);

// What the daemon took from its configuration at its start.
struct Used {
    std::optional<std::string> name;  // the label; nothing where the log does not name it
    std::optional<bool> hidden;       // mounts "nobrowse"
};

// What the last run in `records` took, as far as it tells.
Used InferUsed(const std::vector<observe::Record> &records);

// A word for programs: "modem", "port", "volume", "mount", ...
const char *PhaseWord(Phase phase);

// "for the Finder, for 60 s so far; until it runs no other disk is handled". `now` counts
// the seconds since 1970.
std::string DescribeWaiting(const Waiting &waiting, int64_t now);

}  // namespace kstatus

#endif
