// facts.h - all that kestrun-status finds out, and what of it is wrong.
#ifndef TOOLS_STATUS_FACTS_H
#define TOOLS_STATUS_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "observe/disks.h"
#include "tools/status/system.h"
#include "tools/status/waiting.h"

namespace kstatus
{

struct LogFacts {
    std::string problem;         // why it cannot be read; empty when it was
    bool missing = false;        // there is no such file
    long number = 0;             // of the last record in the file; 0 when there is none
    std::string text;            // "Kestrun:main --- ..." of it, its first line
    std::optional<int64_t> age;  // its seconds; below 0 when it is ahead of the clock
    bool stale = false;          // it is older than the daemon that runs
};

struct Facts {
    std::vector<Daemon> daemons;
    // Of all of them, as the daemon itself is told; empty when nobody knows, or they run as
    // several.
    std::string daemonUser;
    std::string consoleUser;             // the same
    std::optional<bool> finder = false;  // whether it runs; nothing when nobody knows
    bool configured = false;             // there is a configuration file
    std::string configProblem;          // why it cannot be read; then name and option are not known
    std::string volumeName;             // as the daemon reads it
    bool hidden = false;                // mounted "nobrowse", as the daemon reads it
    std::optional<int64_t> configTime;  // when the file was changed last, in seconds since 1970
    std::optional<Used> used;           // by the daemon, if it started before that
    std::string port;                   // the modem's serial port; empty when there is none
    std::vector<std::string> ports;     // all serial ports
    std::optional<std::vector<observe::Disk>>
        disks;                    // that have a label; nothing when nobody knows
    std::vector<Volume> volumes;  // those of that name, numbered ones included
    LogFacts log;
    Waiting waiting;
    int64_t now = 0;                   // seconds since 1970
    std::vector<std::string> unknown;  // what could not be found out, in plain words
};

// Looks at everything once.
Facts GatherFacts();

// Takes from the configuration at `path` what the daemon would.
void ReadConfiguration(Facts *facts, const char *path);

// The log at `path`; nothing where it cannot be read, with the reason in `facts`.
std::optional<std::string> ReadLog(Facts *facts, const char *path);

// What is wrong, in plain words; nothing when all is as it should be.
std::vector<std::string> FindWrongs(const Facts &facts);

}  // namespace kstatus

#endif
