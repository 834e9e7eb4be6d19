// daemon.h - the real daemon as a child of the bench: started, killed, and its end learned.
#ifndef MODEM_DAEMON_H
#define MODEM_DAEMON_H

#include <string>

#include <sys/types.h>

#include "modem/world.h"

namespace modem
{

struct Process {
    pid_t pid = 0;                 // 0: none runs
    bool ended = false;            // it ended by itself
    int status = 0;                // its wait status, when it ended
    std::string errorFile;         // what it wrote to stdout and stderr
    unsigned long bufferPage = 0;  // where its unwritten log line was found last
};

// Starts the daemon in the world of the calling process, its sleeps `speed` times shorter. False
// with the reason in `why`.
bool StartProcess(const World &world, const std::string &program, double speed, Process *process,
                  std::string *why);

// Gives the calling process the environment in which the programs of modem/bin answer, and in which
// they and `programsDir` come first on PATH.
void SetWorldEnvironment(const World &world);

// Kills it with SIGKILL and waits for its end.
void KillProcess(Process *process);

// Learns whether it ended meanwhile.
void CheckProcess(Process *process);

// How it ended, in plain words.
std::string EndOf(const Process &process);

}  // namespace modem

#endif
