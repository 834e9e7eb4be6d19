// journey.h - where the daemon is, as its log tells: at rest, or at which step
// of what it does for a modem.
//
// The one machine that takes the events of one run of the daemon in their
// order. Where lines are missing, a later one says what is over.
#ifndef OBSERVE_JOURNEY_H
#define OBSERVE_JOURNEY_H

#include <string>

#include "observe/log_events.h"

namespace observe
{

// In the order in which the daemon comes to them.
enum class Stage {
    Unknown,  // nothing was said yet
    Rest,     // in the run loop, or about to enter it
    Port,     // at the start: looks for the modem's serial port
    Volume,   // at the start: waits for the volume
    Owner,    // asks whose the console is
    Finder,   // waits for the Finder
    Application,
    Setup,        // the setup package
    SetupVolume,  // waits for one of its volumes
    Leaving,      // all was tried
};

// The command that is tried.
struct Tries {
    std::string command = {};
    int failed = 0;
    long status = 0;   // of the last one that failed, as system() gave it; -1: no process
    size_t first = 0;  // the record with which it began
    Stage stage = Stage::Unknown;  // in which it is tried
};

struct Journey {
    Stage stage = Stage::Unknown;
    size_t since = 0;                               // the record that the stage began with
    int pending = 0;                                // mounts that were asked for and did not end
    int portLooks = 0;                              // at the start
    bool starting = false;                          // the start-up pass is under way
    bool noOwnUser = false, noConsoleUser = false;  // could not be read
    bool package = false;     // the setup file was opened: what it brings is waited for
    std::string volume = {};  // the path that is waited for, where the log names it
    Tries shell = {};
};

// Takes the record `index`, which `found` was recognised as. Returns the stage
// that it belongs to: the journey may have gone on to another one.
Stage Follow(Journey &journey, size_t index, const Found &found);

// Whether the daemon is busy with a modem.
bool IsBusy(Stage stage);

}  // namespace observe

#endif
