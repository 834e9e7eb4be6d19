// story.h - what a log tells: the runs of the daemon, each modem that came, and what became of it.
#ifndef TOOLS_LOG_STORY_H
#define TOOLS_LOG_STORY_H

#include <optional>
#include <string>
#include <vector>

#include "observe/log_events.h"
#include "observe/log_line.h"
#include "tools/log/calls.h"

namespace klog
{

enum class Outcome {
    Opened,
    OtherUser,      // not opened: another user owns the console, or who does is unknown
    NoPipe,         // not opened: the daemon's user could not be asked for
    NoFinder,       // not opened: no Finder yet
    NoVolume,       // not opened: no volume within 300 seconds
    CommandFailed,  // not opened: the command failed ten times
    NoCompletion,   // not opened: the mount was asked for, nothing followed
    Unfinished,     // the log ends, or the daemon did, before it was known
};

// One step of an arrival. The indices are those of the log's records.
struct Step {
    std::string name;    // "mount", the same for every log
    std::string detail;  // what came of it, a few words
    size_t first;
    size_t last;
    bool ended;
    bool inner;  // a step of the step before it: of the setup package
};

struct Arrival {
    bool atStart = false;  // the modem was there when the daemon started
    std::vector<Step> steps;
    Outcome outcome = Outcome::Unfinished;
    std::string sentence;            // the outcome, in one sentence
    std::vector<std::string> notes;  // what else a reader should know
    bool setupFailed = false;        // a setup package was asked for and did not run
    bool decided = false;            // nothing that follows changes the outcome
};

// Lines that were counted and are not in the file.
struct Gap {
    long from, to;  // numbers that are missing
    bool atStart;   // of the file: what was before is gone, for whatever reason
};

struct Run {
    size_t first, last;  // records
    bool whole;          // its start is in the file
    std::string version;
    std::vector<Arrival> arrivals;
    std::vector<Gap> gaps;
    std::vector<std::string> notes;
    CallTracker calls;
    bool isLast;  // none began behind its last record
};

// The first lines that are missing behind the one of this number; null when none are.
const Gap *GapBehind(const Run &run, long number);

// A text that the daemon of this release does not write.
struct Unknown {
    size_t record;
};

struct Story {
    std::vector<Run> runs;
    std::vector<Unknown> unknown;
    std::vector<std::string> notes;  // about the file
    bool several = false;            // several daemons wrote at once
};

// Tells what `log` says, of which the lines of several daemons were put together. The story points
// into the text that the log points into.
Story TellStory(const LogText &log);

// Whether somebody should look at something: an arrival that was not opened, a setup that failed,
// lost lines, an unknown text, several daemons.
bool HasFindings(const Story &story);

}  // namespace klog

#endif
