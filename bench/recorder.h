// recorder.h - turns what can be seen from outside (arrivals, ports, mounts, users, files, the log)
// into the text of a scenario that plays the same again.
//
// What happens is taken in episodes: the outside changes, then the daemon says or mounts something,
// until the outside changes again. Within an episode what changes is told in a fixed order, for nobody
// can see the order of what happens between two looks. Of the log those lines are kept that show how
// far the daemon came; how often it tried, and when, differs from one time to the next. Whether the
// scenario waits for the daemon to come to rest behind an episode is judged by the log as well.
#ifndef BENCH_RECORDER_H
#define BENCH_RECORDER_H

#include <map>
#include <string>
#include <vector>

#include "bench/logbook.h"
#include "bench/privacy.h"
#include "bench/sighting.h"

namespace bench
{

// A change outside, as a statement. Those of one episode are told in the order of their ranks.
struct Change {
    int rank = 0;
    std::string text;
    std::string device;  // of a disk that is plugged in
};

// How far the log says that the daemon is.
struct Progress {
    bool starting = false;      // the start-up pass is under way
    bool inside = false;        // what follows a mount is under way
    int pending = 0;            // mounts that were asked for and did not end
    bool finderMissed = false;  // the line that says so came since the Finder is looked for
};

struct Episode {
    std::vector<Change> outside;
    std::vector<std::string> log;                // what to expect of it
    std::map<std::string, std::string> mounted;  // places that came, with their options
    std::vector<std::string> unmounted;          // places that went
    bool active = false;   // the daemon said something that is kept, or mounted
    int arrivals = 0;      // disks that it took
    int callbacks = 0;     // mounts that ended, well or not
    int openFailures = 0;  // of the application
    bool openGaveUp = false;
    bool opened = false;
    std::vector<std::string> setupOpened;  // what the setup package's commands opened
};

struct KnownDisk {
    std::string name;  // in the scenario
    std::string label;
    std::string identity;
};

struct Recorder {
    std::string text;  // the scenario so far, without the episode under way
    Privacy privacy;
    Sighting last;
    Progress progress;
    Episode episode;
    std::map<std::string, KnownDisk> disks;  // by device
    size_t linesTaken = 0;                   // of the log
    int disksNamed = 0;
    std::set<std::string> setups;  // what opening a setup file brings forth, told already
    bool mountRefuses = false;     // as the scenario says it at this point
    bool openFails = false;
    bool midway = false;  // to be set at first: a daemon that runs already is at rest
};

// Takes in what changed since the last call; for the first one everything is new. Where `midway` is
// set, lines that `log` holds then are passed over.
void Record(Recorder *recorder, const Sighting &sighting, const LogBook &log);

// Ends the episode under way. The whole scenario is in `text` then.
void FinishRecording(Recorder *recorder);

// The parts that a recording is made of:

// record_outside.cpp: the changes from `recorder->last` to `now`.
std::vector<Change> ChangesOutside(Recorder *recorder, const Sighting &now);

// record_log.cpp: takes one line of the log into the episode and the progress.
void RecordLine(Recorder *recorder, const std::string &line);

// record_log.cpp: whether the daemon has come to rest, as far as the log says.
bool IsAtRest(const Progress &progress);

}  // namespace bench

#endif
