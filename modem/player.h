// player.h - plays a scenario against the real daemon.
#ifndef MODEM_PLAYER_H
#define MODEM_PLAYER_H

#include <functional>
#include <random>
#include <string>

#include "modem/daemon.h"
#include "modem/hardware.h"
#include "modem/judge.h"
#include "modem/recorder.h"
#include "modem/scenario.h"
#include "modem/timeline.h"
#include "modem/world.h"

namespace modem
{

struct PlayOptions {
    std::string scenarioFile;   // absolute
    std::string daemonProgram;  // absolute
    std::string toolsDir;       // modem/bin
    std::string programsDir;    // the tools that a scenario may run
    std::string speedLibrary;
    double speed = 1;
    unsigned long seed = 1;
    WorldKind world = WorldKind::Automatic;
    bool keep = false;
    bool updateGolden = false;
    bool json = false;       // the time line is written in JSON
    std::string recordFile;  // absolute; what happens is recorded there. Empty: it is not
};

enum class Result {
    Passed,
    Failed,
    NotPlayable,  // this machine cannot play it
};

// The random numbers are predictable on purpose: --seed plays the same again.
struct Player {  // NOLINT(cert-msc32-c,cert-msc51-cpp)
    const PlayOptions *options = nullptr;
    World world;
    Hardware hardware;
    Process daemon;
    bool suspended = false;  // the daemon stands still
    double labelAfter = 0;   // of the next disk, in seconds of the daemon
    Recorder recorder;
    Sighting sighting;  // the newest one, for the recorder
    Observed observed;
    TimeLine timeLine;
    std::mt19937_64 random;
    size_t callsRead = 0;  // how much of the record of calls was taken
    Result result = Result::Passed;
    std::string problem;   // why it failed
    int expectations = 0;  // how many came true
};

// Plays the whole scenario in the calling process, which moves into a new world for it.
Result Play(const Scenario &scenario, const PlayOptions &options);

// For the parts that the player is made of:

// Looks at everything once and shows what is new.
void LookAround(Player *player);

// Looks around until `done` says true (then true), the daemon ends by itself, or `within` seconds
// of the daemon and a grace for slow machines are over. Where `stopWhenIdle`, a daemon that has had
// nothing to do for a while ends the wait too: nothing more will come.
bool WaitFor(Player *player, const std::string &what, double within, bool stopWhenIdle,
             const std::function<bool()> &done);

// Ends the scenario as failed, and says why.
void FailScenario(Player *player, const std::string &why);

// Tells what the outside does.
void Outside(Player *player, const std::string &text);

// A daemon that ends by itself ends the scenario, and shows what it said.
bool DaemonIsWell(Player *player);

// Ends the scenario as one that this machine cannot play, and says why.
void GiveUp(Player *player, const std::string &why);

// The lines of the log around the place where an expected one is looked for,
// set in.
std::string LogAround(const Player &player);

// actions.cpp: one statement, other than those that repeat others.
void PlayStep(Player *player, const Step &step);

// storm.cpp: random plugs and pulls, and the claims about what they leave.
void PlayStorm(Player *player, long events);

// wakeups.cpp: the claim that the daemon sleeps without waking.
void ExpectNoWakeUp(Player *player, double seconds);

// commands.cpp: the claim that a command, run in the world, ends and prints as the step says within
// so many seconds of the daemon.
void ExpectRun(Player *player, const Step &step, double within);

// Whether `output` is what `pattern` says, in which <number> stands for digits and <any> for
// anything within the line.
bool OutputMatches(const std::string &pattern, const std::string &output);

}  // namespace modem

#endif
