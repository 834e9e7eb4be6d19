// recorder.h - turns what can be seen from outside (arrivals, ports, mounts, users, files, the log)
// into the text of a scenario that plays the same again.
//
// What happens is taken in episodes: the outside changes, then the daemon says or mounts something,
// until the outside changes again. What is told of an episode is the difference between how the
// outside stood before it and how it stands at its end, in a fixed order: so it does not matter in
// which order, in how many looks and how late the changes were seen. Of the log those lines are
// kept that show how far the daemon came; how often it tried, and when, differs from one time to
// the next. Whether the scenario waits for the daemon to come to rest behind an episode is judged
// by the log. While that has no room, how many lines fit in depends on how long the time of day is:
// none is kept.
#ifndef MODEM_RECORDER_H
#define MODEM_RECORDER_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "modem/logbook.h"
#include "modem/privacy.h"
#include "modem/sighting.h"
#include "observe/journey.h"

namespace modem
{

// What can change outside the daemon, in the order in which an episode tells it: what goes before
// what comes, and the daemon starts when all is in its place.
enum class Happened {
    Kill,
    RemoveLogFolder,
    MakeLogFolder,
    LogDisk,
    LogRoom,
    LogWritable,
    Config,
    NoConfig,
    FillLog,
    LogFull,
    LogReadOnly,
    MakeFolder,
    SysConfig,
    NoSysConfig,
    ReadOnly,
    DaemonUser,
    Console,
    FinderStarts,
    FinderQuits,
    UnplugPort,
    Unplug,
    MountWorks,
    Change,
    Touch,
    PlugPort,
    Plug,
    PlugImage,
    PlugModem,
    SystemMounts,
    Start,
};

// One change outside. Which members mean something depends on `what`.
struct Change {
    Happened what = Happened::Kill;
    std::string text;    // a label, a port, a user, a folder, a file's content, a number
    std::string device;  // of the disk
};

// How far the log says that the daemon is.
struct Progress {
    observe::Journey journey;
    bool abandoned = false;  // a daemon was killed with mounts under way: they may come yet
    // The line that says so may have come since the Finder is looked for.
    bool finderMissed = false;
    bool waits = false;  // it was seen to sleep for a time, and not to have nothing to do since
};

struct Episode {
    std::vector<std::string> log;  // what to expect of it
    bool active = false;           // the daemon said something that is kept, or mounted
    bool startPass = false;        // the start-up pass said something
    bool mountSeen = false;        // of the daemon's own, whether it stands still or not
    bool mountHeld = false;        // a disk goes, at the end, while it is being mounted
    bool mountFreed = false;       // it went at the beginning
    double changedAt = 0;          // when the outside changed last
    int arrivals = 0;              // disks that it took
    int callbacks = 0;             // mounts that ended, well or not
    int openFailures = 0;          // of the application
    bool openGaveUp = false;
    bool opened = false;
    bool readOnly = false;                 // SysConfig.dat could not be opened for writing
    std::vector<std::string> setupOpened;  // what the setup package's commands opened
};

// One look: what was read of the log, and what was seen after that.
struct Look {
    std::vector<std::string> lines;
    Sighting sighting;
};

struct Recorder {
    std::string text;  // the scenario so far, without the episode under way
    Privacy privacy;
    Sighting told;             // the outside as `text` has it
    Sighting now;              // as it is
    std::optional<Look> held;  // the newest look, until the next one says what it meant
    Progress progress;
    Episode episode;
    std::map<std::string, std::string> names;  // of the disks told, by device
    size_t linesTaken = 0;                     // of the log
    int disksNamed = 0;
    std::set<std::string> setups;  // what opening a setup file brings forth, told already
    bool mountRefuses = false;     // as the scenario says it at this point
    bool openFails = false;
    bool readOnly = false;
    std::string sysConfigMade;  // SysConfig.dat as the outside made it last
    long passedOver = 0;   // the line of the log up to which the first daemon had spoken before
    long firstDaemon = 0;  // its process id
    bool begun = false;    // a look was taken in
    bool midway = false;   // to be set at first: a daemon that runs already is at rest
};

// Takes in a look: `log` must have been read before `sighting` was gathered. For the first one
// everything is new. Where `midway` is set, lines that `log` holds then are passed over.
void Record(Recorder *recorder, const Sighting &sighting, const LogBook &log);

// Ends the episode under way. The whole scenario is in `text` then. Of the last look a mount that
// may be a stranger's is not told: only a further look could say whose it is.
void FinishRecording(Recorder *recorder);

// record_live.cpp: records what happens on this system, without a world and
// without changing anything, until SIGINT or SIGTERM; then `recordFile`, an
// absolute path, is written. `json`: the time line is in JSON. False, with the
// reason told, when the file cannot be written.
bool RecordThisSystem(const std::string &recordFile, bool json);

// The parts that a recording is made of:

enum class Owner { Daemon, System, Unknown };

// record_outside.cpp: whose mount has these options. mount(8) makes a mount first and gives it its
// options then: without the daemon's options it is the system's only if none of the daemon's own
// was under way when it was seen.
Owner OwnerOf(const std::string &options, bool underWay);

// record_outside.cpp: how the outside differs between two sightings, in the order in which it is
// told but for disks and ports, whose order is that of their names.
std::vector<Change> ChangesBetween(const Sighting &before, const Sighting &now);

// record_outside.cpp: the same as statements, each with its line end. The modem's port and its disk
// are one statement; disks get their names.
std::string TellChanges(Recorder *recorder, std::vector<Change> changes);

// record_outside.cpp: whether these changes hold the other half of a plugging or unplugging of the
// modem, of which the changes since `recorder->told` hold the one.
bool IsOtherHalf(const Recorder &recorder, const Sighting &now);

// record_log.cpp: what a line of the log says of where the daemon is.
void FollowProgress(Progress *progress, const std::string &line);

// record_log.cpp: takes one line of the log into the episode and the progress.
void RecordLine(Recorder *recorder, const std::string &line);

// record_log.cpp: whether this is the line with which the daemon takes a disk.
bool IsArrival(const std::string &line);

// record_log.cpp: whether what the daemon logs is lost.
bool IsUnheard(const Sighting &sighting);

// record_log.cpp: what a sighting says of where the daemon is, which is asked while the log cannot.
void FollowSleep(Progress *progress, const Sighting &sighting);

// record_log.cpp: whether the daemon has come to rest or soon will, as far as the log says; while
// its lines are lost, as far as its sleep does.
bool IsAtRest(const Progress &progress, bool unheard);

}  // namespace modem

#endif
