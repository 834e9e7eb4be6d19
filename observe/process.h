// process.h - a running daemon, looked at from outside, by its process id.
#ifndef OBSERVE_PROCESS_H
#define OBSERVE_PROCESS_H

#include <optional>
#include <string>
#include <vector>

namespace observe
{

// A process that bears the daemon's name.
struct NamedProcess {
    long pid = 0;
    long parent = -1;  // 0: it is in another namespace of processes; -1: the process has ended
    unsigned long long started = 0;  // ticks of the clock since the machine's start
};

// What of the process with this id is known; `parent` stays -1 where it has ended, though its own
// parent may not have asked for its end yet.
NamedProcess LookAtNamed(long pid);

// The daemons among them, the oldest first: a child of the daemon bears its name until it becomes
// another program, and one that has ended meanwhile was such a child or is no daemon any more.
std::vector<long> DaemonsAmong(std::vector<NamedProcess> named);

// The daemons that run on this system, by their process ids, the oldest first. One in another mount
// namespace belongs to another system, a container's or the bench's.
std::vector<long> FindDaemons();

enum class Sleep {
    Unknown,  // it cannot be looked at: it is gone, or belongs to somebody else
    Awake,    // it computes, or waits for a child or a device
    Timed,    // for a time
    Endless,  // in its run loop, until something happens
};

Sleep SleepOf(long pid);

// True when it sleeps without a limit in its run loop and has no child: it has nothing to do.
bool IsIdle(long pid);

// True when it sleeps at all, in its run loop or for a time.
bool IsAsleep(long pid);

std::vector<long> ChildrenOf(long pid);

// The name of its program; empty when it is gone.
std::string NameOf(long pid);

// Seconds since it was started; nothing when it is gone.
std::optional<long> AgeOf(long pid);

int CountDescriptors(long pid);
long ResidentKiB(long pid);  // -1 when that cannot be read

// How often it was woken or put to sleep so far; -1 when that cannot be read.
long CountSwitches(long pid);

// The log keeps its last record in the stream's memory until the next one follows. Finds the record
// with this number there: the text up to its first line end, that included, or an empty one when it
// cannot be found. `begun` is what of it the file holds already, after the last line end of its
// `fileSize` bytes: where a record crosses from one block of the file into the next, its first part
// is written. `page` is the address where it stood last, 0 at first. Makes sense while the daemon
// sleeps.
std::string UnwrittenLine(long pid, unsigned long *page, long number, const std::string &begun,
                          long fileSize);

}  // namespace observe

#endif
