// wakeups.cpp - the claim that the daemon sleeps without waking. Two witnesses: the kernel's count
// of context switches, and strace, where there is one, which sees every system call. strace itself
// interrupts the call that the daemon sleeps in when it comes, so it is given time to settle first.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

#include "modem/children.h"
#include "modem/player.h"
#include "observe/files.h"
#include "observe/process.h"

namespace modem
{
namespace
{

const useconds_t kSettle = 500000;  // microseconds

pid_t StartStrace(const Player &player, const std::string &output)
{
    const std::string pid = std::to_string(player.daemon.pid);
    const pid_t child = fork();
    if (child == 0) {
        Silence();
        (void)execlp("strace", "strace", "-f", "-o", output.c_str(), "-p", pid.c_str(),
                     static_cast<char *>(nullptr));
        _exit(127);
    }
    return child;
}

void StopStrace(pid_t strace)
{
    (void)kill(strace, SIGINT);
    (void)WaitForEnd(strace);
}

// The system calls that strace saw, but for the one that the daemon slept in when strace came and
// still sleeps in when it goes.
std::string CallsSeen(const std::string &output)
{
    std::istringstream lines(observe::ReadFile(output));
    std::string seen;
    bool first = true;
    for (std::string line; std::getline(lines, line); first = false) {
        const bool slept = first && (line.find("<detached ...>") != std::string::npos ||
                                     line.find("<unfinished ...>") != std::string::npos);
        const bool gone = line.find("<detached ...>") == line.find_first_not_of("0123456789 ");
        if (!slept && !gone)
            seen += "\n    " + line;
    }
    return seen;
}

}  // namespace

void ExpectNoWakeUp(Player *player, double seconds)
{
    const std::string output = player->world.stateDir + "/strace";
    const pid_t strace = StartStrace(*player, output);
    (void)usleep(kSettle);
    const bool traced = waitpid(strace, nullptr, WNOHANG) == 0;
    const long before = observe::CountSwitches(player->daemon.pid);
    (void)usleep(static_cast<useconds_t>(seconds * 1e6));
    const long after = observe::CountSwitches(player->daemon.pid);
    const bool idle = observe::IsIdle(player->daemon.pid) || traced;
    if (traced)
        StopStrace(strace);
    const std::string seen = traced ? CallsSeen(output) : "";
    if (before < 0 || after != before || !seen.empty() || !idle) {
        FailScenario(player, "the daemon woke " + std::to_string(after - before) + " times in " +
                                 std::to_string(seconds) + " s; strace saw:" + seen);
        return;
    }
    ++player->expectations;
    char text[128];
    (void)snprintf(text, sizeof text, "no wake-up in %g s (%s), %ld KiB resident", seconds,
                   traced ? "context switches and strace" : "context switches; no strace here",
                   observe::ResidentKiB(player->daemon.pid));
    Say(&player->timeLine, Kind::Good, text);
}

}  // namespace modem
