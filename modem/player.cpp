// player.cpp - what every statement leans on: one loop (LookAround) follows the
// log, the calls of modem/bin and the daemon's process.
#include "modem/player.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modem/children.h"
#include "modem/masking.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"
#include "observe/process.h"

namespace modem
{
namespace
{

const useconds_t kLookEvery = 2000;  // microseconds
const double kGrace = 20;            // real seconds that a slow machine may need on top
const double kIdleFor = 0.4;         // real seconds without work until nothing more is waited for
const size_t kLinesBefore = 3;       // lines of the log shown at a failure: passed already,
const size_t kLinesAround = 10;      // next, and last

void ShowCall(Player *player, const Call &call)
{
    const std::string text = CallText(call) + (call.status == 0 ? "" : "  (failed)");
    if (call.program == "open") {
        Say(&player->timeLine, Kind::Open, text);
        return;
    }
    Say(&player->timeLine, Kind::Mount, text);
    if (call.program != "mount" || call.status != 0)
        return;
    for (const observe::Mounted &mounted : player->observed.mounts) {
        if (!call.arguments.empty() && mounted.place == call.arguments.back() &&
            !mounted.options.empty()) {
            Say(&player->timeLine, Kind::Mount,
                "  the kernel shows " + mounted.place + " as " + mounted.options);
        }
    }
}

void TakeNewCalls(Player *player)
{
    const std::string record = observe::ReadFile(player->world.stateDir + "/calls");
    for (const Call &call : TakeCalls(record, &player->callsRead)) {
        player->observed.calls.push_back(call);
        ShowCall(player, call);
    }
}

// The recorder sees what anybody could see who looks at the world from outside.
void RecordNow(Player *player)
{
    Sighting *sighting = &player->sighting;
    sighting->at = SecondsSince(player->timeLine) * player->options->speed;
    LookAtHardware(player->world, sighting);
    LookAtPeople(player->world, sighting);
    LookAtDaemon(player->daemon, sighting);
    Record(&player->recorder, *sighting, player->observed.log);
}

}  // namespace

void LookAround(Player *player)
{
    // The calls first: the log speaks of them when they are over.
    player->observed.mounts = MountsUnder(player->world, observe::kVolumesDir);
    TakeNewCalls(player);
    (void)FollowLog(&player->observed.log);
    CheckProcess(&player->daemon);
    SeekUnwrittenLine(&player->observed.log, &player->daemon);
    ShowNewLines(&player->observed.log, &player->timeLine);
    if (!player->options->recordFile.empty())
        RecordNow(player);
}

bool WaitFor(Player *player, const std::string &what, double within, bool stopWhenIdle,
             const std::function<bool()> &done)
{
    const double start = SecondsSince(player->timeLine);
    double idleSince = -1;  // below 0: it has something to do
    while (true) {
        LookAround(player);
        if (done())
            return true;
        const double now = SecondsSince(player->timeLine);
        if (player->daemon.ended || now - start > within / player->options->speed + kGrace)
            return false;
        if (!stopWhenIdle || !observe::IsIdle(player->daemon.pid))
            idleSince = -1;
        else if (idleSince < 0)
            idleSince = now;
        if (idleSince >= 0 && now - idleSince > kIdleFor) {
            LookAround(player);  // what came just before the daemon came to rest
            return done();
        }
        ShowClock(&player->timeLine, what);
        (void)usleep(kLookEvery);
    }
}

void FailScenario(Player *player, const std::string &why)
{
    if (player->result == Result::Passed) {
        player->result = Result::Failed;
        player->problem = why;
        Say(&player->timeLine, Kind::Bad, why);
    }
}

void Outside(Player *player, const std::string &text)
{
    Say(&player->timeLine, Kind::Outside, text);
}

bool DaemonIsWell(Player *player)
{
    CheckProcess(&player->daemon);
    if (!player->daemon.ended)
        return true;
    FailScenario(player, "the daemon " + EndOf(player->daemon) + "; its last words:\n" +
                             observe::ReadFile(player->daemon.errorFile));
    return false;
}

void GiveUp(Player *player, const std::string &why)
{
    player->result = Result::NotPlayable;
    player->problem = why;
}

// Lines of the log from `first` to before `last`, those that were passed already set apart.
static std::string LogLines(const Player &player, size_t first, size_t last)
{
    std::string text;
    for (size_t i = first; i < last; ++i) {
        const LogLine &line = player.observed.log.lines[i];
        text += "\n" + std::string(i < player.observed.logFrom ? "    " : "  > ") +
                observe::Printable(line.text) + (line.unwritten ? "   (not in the file yet)" : "");
    }
    return text;
}

std::string LogAround(const Player &player)
{
    const size_t all = player.observed.log.lines.size();
    const size_t from = std::min(player.observed.logFrom, all);
    const size_t first = from > kLinesBefore ? from - kLinesBefore : 0;
    if (all == 0)
        return "\n    (empty)";
    if (all - first <= 2 * kLinesAround)
        return LogLines(player, first, all);
    return LogLines(player, first, first + kLinesAround) + "\n    ... " +
           std::to_string(all - first - 2 * kLinesAround) + " more ..." +
           LogLines(player, all - kLinesAround, all);
}

}  // namespace modem
