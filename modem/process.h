// process.h - the daemon as a process: started, killed, and looked at from outside.
#ifndef MODEM_PROCESS_H
#define MODEM_PROCESS_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "modem/world.h"

namespace modem
{

struct Process {
    pid_t pid = 0;          // 0: none runs
    bool ended = false;     // it ended by itself
    int status = 0;         // its wait status, when it ended
    bool killed = false;    // the scenario killed it
    std::string errorFile;  // what it wrote to stdout and stderr
    long bufferPage = 0;    // where its unwritten log line was found last
};

// Starts the daemon in the world of the calling process, its sleeps `speed` times shorter. False
// with the reason in `why`.
bool StartProcess(const World &world, const std::string &program, double speed, Process *process,
                  std::string *why);

// Gives the calling process the environment in which the programs of modem/bin answer, and in which
// they and `programsDir` come first on PATH.
void SetWorldEnvironment(const World &world);

// A process that bears the daemon's name.
struct NamedProcess {
    long pid = 0;
    long parent = -1;  // 0: it is in another namespace of processes; -1: the process has ended
    unsigned long long started = 0;  // ticks of the clock since the machine's start
};

// What of the process with this id is known; `parent` stays -1 where it has ended, though its own parent may
// not have asked for its end yet.
NamedProcess LookAtNamed(long pid);

// The daemons among them, the oldest first: a child of the daemon bears its name until it becomes another
// program, and one that has ended meanwhile was such a child or is no daemon any more.
std::vector<long> DaemonsAmong(std::vector<NamedProcess> named);

// The daemons that run on this system, by their process ids, the oldest first. One in another mount
// namespace belongs to another system, a container's or the bench's.
std::vector<long> FindDaemons();

// Kills it with SIGKILL and waits for its end.
void KillProcess(Process *process);

// Learns whether it ended meanwhile.
void CheckProcess(Process *process);

enum class Sleep {
    Unknown,  // it cannot be looked at: it is gone, or belongs to somebody else
    Awake,    // it computes, or waits for a child or a device
    Timed,    // for a time
    Endless,  // in its run loop, until something happens
};

Sleep SleepOf(const Process &process);

// True when it sleeps without a limit in its run loop and has no child: it has nothing to do.
bool IsIdle(const Process &process);

// True when it sleeps at all, in its run loop or for a time.
bool IsAsleep(const Process &process);

int CountDescriptors(const Process &process);
int CountChildren(const Process &process);
long ResidentKiB(const Process &process);

// How often it was woken or put to sleep so far; -1 when that cannot be read.
long CountSwitches(const Process &process);

// The log keeps its last record in the stream's memory until the next one follows. Finds the record with
// this number there: the text up to its first line end, that included, or an empty one when it cannot be
// found. `begun` is what of it the file holds already, behind the last line end of its `fileSize` bytes: where
// a record crosses from one block of the file into the next, its first part is written. Makes sense while
// the daemon sleeps.
std::string UnwrittenLine(Process *process, long number, const std::string &begun, long fileSize);

// How it ended, in plain words.
std::string EndOf(const Process &process);

}  // namespace modem

#endif
