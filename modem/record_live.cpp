// record_live.cpp - the recording of a system as it is. It looks ten times in a second; who sits at
// the console is asked less often, for that starts programs.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "modem/recorder.h"
#include "modem/timeline.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/log_line.h"
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
        const long number =
            observe::RecordNumber(log.substr(at + 1, log.find('\n', at + 1) - at - 1));
        if (number > 0)
            return number;
    }
    return 0;
}

// What looks at this system, and has seen of it.
struct Watch {
    World world;
    TimeLine timeLine;
    Process daemon;
    LogBook log;
    Sighting sighting;
    Recorder recorder;
};

// What was logged before is not recorded. The line that the daemon still keeps in memory is sought
// now, so that it does not pass for a new one later.
void PassOverLog(LogBook *log)
{
    SkipLog(log);
    log->lastNumber = LastNumber(observe::ReadFile(observe::kLogFile));
}

void FollowDaemon(Watch *watch)
{
    const std::vector<long> daemons = observe::FindDaemons();
    const long pid = daemons.empty() ? 0 : daemons.front();
    if (pid == watch->daemon.pid)
        return;
    if (watch->daemon.pid != 0)
        RestartLog(&watch->log);
    watch->daemon = Process();
    watch->daemon.pid = static_cast<pid_t>(pid);
}

// The log is read first. Whenever something else is new, who sits at the
// console is asked too, so that a login is not told behind what followed it.
void LookOnce(Watch *watch, bool ask)
{
    (void)FollowLog(&watch->log);
    SeekUnwrittenLine(&watch->log, &watch->daemon);
    ShowNewLines(&watch->log, &watch->timeLine);
    Sighting *sighting = &watch->sighting;
    const Sighting before = *sighting;
    sighting->at = SecondsSince(watch->timeLine);
    LookAtHardware(watch->world, sighting);
    LookAtDaemon(watch->daemon, sighting);
    const bool news = watch->log.lines.size() != watch->recorder.linesTaken ||
                      !ChangesBetween(before, *sighting).empty();
    if (ask || news)
        AskForPeople(watch->daemon.pid, sighting);
    Record(&watch->recorder, *sighting, watch->log);
}

}  // namespace

bool RecordThisSystem(const std::string &recordFile, bool json)
{
    Watch watch;
    watch.timeLine = MakeTimeLine(json);
    watch.world.kind = WorldKind::Root;
    watch.recorder.midway = true;
    (void)signal(SIGINT, End);
    (void)signal(SIGTERM, End);
    PassOverLog(&watch.log);
    // What was there when the signal came is seen, and at the look after it what that meant.
    for (int look = 0, last = 0; last < 2; ++look) {
        last += g_ended;
        FollowDaemon(&watch);
        LookOnce(&watch, look % kAskEvery == 0);
        if (look == 0)
            (void)fprintf(stderr, "kestrun-bench: recording; Ctrl-C ends it\n");
        (void)usleep(kLookEvery);
    }
    FinishRecording(&watch.recorder);
    if (observe::WriteFile(recordFile, watch.recorder.text))
        return true;
    (void)fprintf(stderr, "kestrun-bench: %s: %s\n", recordFile.c_str(), strerror(errno));
    return false;
}

}  // namespace modem
