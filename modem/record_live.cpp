// record_live.cpp - the recording of a system as it is. It looks ten times in a second; who sits at
// the console is asked less often, for that starts programs.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "modem/player.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/process.h"

namespace modem
{
namespace
{

const useconds_t kLookEvery = 100000;  // microseconds
const int kAskEvery = 10;              // looks

volatile sig_atomic_t g_ended = 0;

void End(int /*signal*/)
{
    g_ended = 1;
}

// The number of the last record that the file holds.
long LastNumber(const std::string &log)
{
    for (size_t at = log.rfind("\nline "); at != std::string::npos && at > 0;
         at = log.rfind("\nline ", at - 1)) {
        const long number = RecordNumber(log.substr(at + 1, log.find('\n', at + 1) - at - 1));
        if (number > 0)
            return number;
    }
    return 0;
}

// What was logged before is not recorded. The line that the daemon still keeps in memory is sought
// now, so that it does not pass for a new one later.
void PassOverLog(Player *player)
{
    SkipLog(&player->observed.log);
    player->observed.log.lastNumber = LastNumber(observe::ReadFile(observe::kLogFile));
}

void FollowDaemon(Player *player)
{
    const std::vector<long> daemons = observe::FindDaemons();
    const long pid = daemons.empty() ? 0 : daemons.front();
    if (pid == player->daemon.pid)
        return;
    if (player->daemon.pid != 0)
        RestartLog(&player->observed.log);
    player->daemon = Process();
    player->daemon.pid = static_cast<pid_t>(pid);
}

// The log was read before. Whenever something else is new, who sits at the console is asked too, so
// that a login is not told behind what followed it.
void LookOnce(Player *player, bool ask)
{
    Sighting *sighting = &player->sighting;
    const Sighting before = *sighting;
    sighting->at = SecondsSince(player->timeLine);
    LookAtHardware(player->world, sighting);
    LookAtDaemon(player->daemon, sighting);
    const bool news = player->observed.log.lines.size() != player->recorder.linesTaken ||
                      !ChangesBetween(before, *sighting).empty();
    if (ask || news)
        AskForPeople(player->daemon.pid, sighting);
    Record(&player->recorder, *sighting, player->observed.log);
}

}  // namespace

bool RecordThisSystem(const PlayOptions &options)
{
    Player player;
    PlayOptions quiet = options;
    quiet.recordFile.clear();  // this loop records, with what it asks for
    player.options = &quiet;
    player.timeLine = MakeTimeLine(options.json);
    player.world.kind = WorldKind::Root;
    (void)signal(SIGINT, End);
    (void)signal(SIGTERM, End);
    PassOverLog(&player);
    player.recorder.midway = true;
    // What was there when the signal came is seen, and at the look after it what that meant.
    for (int look = 0, last = 0; last < 2; ++look) {
        last += g_ended;
        FollowDaemon(&player);
        LookAround(&player);
        LookOnce(&player, look % kAskEvery == 0);
        if (look == 0)
            (void)fprintf(stderr, "kestrun-bench: recording; Ctrl-C ends it\n");
        (void)usleep(kLookEvery);
    }
    FinishRecording(&player.recorder);
    if (observe::WriteFile(options.recordFile, player.recorder.text))
        return true;
    (void)fprintf(stderr, "kestrun-bench: %s: %s\n", options.recordFile.c_str(), strerror(errno));
    return false;
}

}  // namespace modem
