// kestrun_seams.h - what src/Kestrun.cpp calls beside the frameworks, its log and its configuration
// reader: a test says what it answers, and each call is written down in one list with those of the
// frameworks. The log and the configuration are real files in a scratch folder: fopen leads there.
#ifndef TESTS_SRC_KESTRUN_SEAMS_H
#define TESTS_SRC_KESTRUN_SEAMS_H

#include <deque>
#include <map>
#include <optional>
#include <string>

#include "tests/src/frameworks_stand_in.h"
#include "tests/support/bounded_calls.h"
#include "tests/support/log_capture.h"

// What a search for the Finder answers.
struct Probe {
    bool ran;
    std::string output;
};

// A pipe that cannot be opened, and one that prints nothing.
inline const std::optional<std::string> kNoPipe = std::nullopt;
inline const std::optional<std::string> kNothing = "";

// A fresh world around the daemon: its user is at the console, the Finder runs, every command and
// the setup package succeed, the volume is there, no configuration file is. At most one at a time.
struct World {
    World();
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    int pid = 4711;
    std::optional<std::string> owner = "ada\n";    // what the query for the daemon's user prints
    std::optional<std::string> console = "ada\n";  // and that for the console's owner
    bool ownerBreaks = false;                      // that query's pipe fails after what it prints
    std::deque<Probe> finder;                      // probe by probe; then the Finder runs
    bool commandsSucceed = true;                   // RunShellProgram
    bool setupSucceeds = true;                     // RunSDProgram
    bool volumeExists = true;                      // IsVolumeExist
    bool disableCdrom = false;                     // IsKeyValueCaseEqual

    // Writes the configuration file.
    void Configure(const std::string &text) const;

    // The records of the log so far, without numbers and times. Ends the log.
    Lines TakeLog() const;

    std::string folder;  // the scratch folder
};

inline Lines operator+(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// What the configuration reader logs in a world without a configuration.
inline const Lines kNoConfig = {
    "INI:SetIniFileName --- open file: /Library/StartupItems/QVKestrun/config failed, please check...\n",
};

#endif
