// process.cpp - see process.h. Whether a process has nothing to do is read from /proc: its state
// and the system call that it sleeps in. The kernel makes a process runnable in the very call that
// gives it an event, so "asleep without a limit" is the truth at the moment of reading.
#include "observe/process.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "observe/files.h"
#include "observe/names.h"

namespace observe
{
namespace
{

// A region of memory above this is no stdio buffer (a sanitizer reserves terabytes).
const unsigned long kLargestRegion = 64UL << 20;
const size_t kPageSize = 4096;
const size_t kBufferSize = 4096;  // of a stdio stream: a block of the file

std::string ProcFile(long pid, const std::string &name)
{
    return "/proc/" + std::to_string(pid) + "/" + name;
}

// What /proc says of a process behind its name, which may hold anything: its state, its parent,
// ...; empty when it is gone.
std::string StatBehindName(long pid)
{
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t name = stat.rfind(") ");
    return name == std::string::npos ? "" : stat.substr(name + 2);
}

// The letter of the process' state: R, S, D, Z, ...
char StateOf(long pid)
{
    const std::string stat = StatBehindName(pid);
    return stat.empty() ? '?' : stat[0];
}

struct SystemCall {
    long number = -1;
    unsigned long arguments[6] = {};
};

bool ReadSystemCall(long pid, SystemCall *call)
{
    const std::string text = ReadFile(ProcFile(pid, "syscall"));
    return sscanf(text.c_str(), "%ld %lx %lx %lx %lx %lx %lx", &call->number, &call->arguments[0],
                  &call->arguments[1], &call->arguments[2], &call->arguments[3],
                  &call->arguments[4], &call->arguments[5]) == 7;
}

bool IsEndless(const SystemCall &call)
{
    const bool minusOne = static_cast<int>(call.arguments[2]) == -1;
#ifdef SYS_poll
    // Poll has another number, and its own arguments, after the process was stopped or the machine
    // slept.
    if (call.number == SYS_poll || call.number == SYS_restart_syscall)
        return minusOne;
#endif
#ifdef SYS_epoll_wait
    if (call.number == SYS_epoll_wait)
        return static_cast<int>(call.arguments[3]) == -1;
#endif
    if (call.number == SYS_epoll_pwait)
        return static_cast<int>(call.arguments[3]) == -1;
    return call.number == SYS_ppoll && call.arguments[2] == 0;
}

struct Region {
    unsigned long start = 0;
    unsigned long end = 0;
};

// The writable regions of memory that no file stands behind, without the stack: on it stand remains
// of records, overwritten in part.
std::vector<Region> OwnMemory(long pid)
{
    std::vector<Region> regions;
    std::istringstream maps(ReadFile(ProcFile(pid, "maps")));
    for (std::string line; std::getline(maps, line);) {
        Region region;
        char access[8];
        char offset[32];
        char device[16];
        unsigned long inode = 0;
        if (sscanf(line.c_str(), "%lx-%lx %7s %31s %15s %lu", &region.start, &region.end, access,
                   offset, device, &inode) == 6 &&
            inode == 0 && strncmp(access, "rw", 2) == 0 && !line.ends_with("[stack]") &&
            region.end - region.start <= kLargestRegion) {
            regions.push_back(region);
        }
    }
    return regions;
}

// The bytes of a region, as far as they can be read.
std::string ReadRegion(long pid, const Region &region)
{
    std::string bytes(region.end - region.start, '\0');
    struct iovec local = {bytes.data(), bytes.size()};
    // An address of another process: no object of this one stands there.
    void *there = reinterpret_cast<void *>(region.start);  // NOLINT(performance-no-int-to-ptr)
    struct iovec remote = {there, bytes.size()};
    const ssize_t got = process_vm_readv(static_cast<pid_t>(pid), &local, 1, &remote, 1, 0);
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
}

// A record that is sought in memory. The stream's buffer mirrors one block of the file: what does
// not fit into it was written, and the rest stands at the buffer's start.
struct Sought {
    std::string begin;  // what it begins with: its number
    // What of it is looked for: its beginning, or as much of it as the file holds.
    std::string anchor;
    bool wraps = false;  // the anchor stands at the buffer's end
};

Sought SoughtRecord(long number, const std::string &begun, long fileSize)
{
    Sought sought;
    sought.begin = "line " + std::to_string(number) + "===";
    sought.anchor = begun.empty() ? sought.begin : begun;
    sought.wraps = !begun.empty() && fileSize % static_cast<long>(kBufferSize) == 0;
    return sought;
}

// The record's first line, with its line end, in a region; empty when it is not there whole.
// `address` is that of the anchor.
std::string FindLine(long pid, const Region &region, const Sought &sought, unsigned long *address)
{
    const std::string bytes = ReadRegion(pid, region);
    for (size_t at = bytes.find(sought.anchor); at != std::string::npos;
         at = bytes.find(sought.anchor, at + 1)) {
        size_t rest = at + sought.anchor.size();
        if (sought.wraps && rest < kBufferSize)
            continue;
        rest -= sought.wraps ? kBufferSize : 0;
        const size_t end = bytes.find_first_of(std::string("\n\0", 2), rest);
        if (end == std::string::npos || bytes[end] != '\n')
            continue;
        std::string line = sought.anchor + bytes.substr(rest, end - rest + 1);
        if (line.starts_with(sought.begin) && line.find(" --- ") != std::string::npos) {
            *address = region.start + at;
            return line;
        }
    }
    return "";
}

// The sum of the numbers behind `name` in /proc's status of the process; -1 when there are none.
long SumOfStatus(long pid, const std::string &name)
{
    long sum = -1;
    for (const std::string &line : Split(ReadFile(ProcFile(pid, "status")), '\n')) {
        const size_t at = line.find(name);
        if (at != std::string::npos)
            sum = std::max(sum, 0L) + strtol(line.c_str() + at + name.size(), nullptr, 10);
    }
    return sum;
}

// Where the namespace cannot be read, the process counts as one of this system.
bool IsOfThisSystem(const std::string &folder)
{
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/ns/mnt", error);
    const auto its = std::filesystem::read_symlink(folder + "/ns/mnt", error);
    return error || own == its;
}

}  // namespace

NamedProcess LookAtNamed(long pid)
{
    NamedProcess process;
    process.pid = pid;
    std::istringstream fields(StatBehindName(pid));
    std::string state;
    std::string passedOver;
    long parent = -1;
    if (!(fields >> state >> parent))
        return process;
    process.parent = state == "Z" ? -1 : parent;
    const int fieldsBetween = 17;
    for (int i = 0; i < fieldsBetween; ++i)
        fields >> passedOver;
    fields >> process.started;
    return process;
}

std::vector<long> DaemonsAmong(std::vector<NamedProcess> named)
{
    std::ranges::sort(named, {}, [](const NamedProcess &process) {
        return std::tie(process.started, process.pid);
    });
    std::vector<long> daemons;
    for (const NamedProcess &process : named) {
        const bool child = std::ranges::any_of(
            named, [&](const NamedProcess &other) { return other.pid == process.parent; });
        if (process.parent >= 0 && !child)
            daemons.push_back(process.pid);
    }
    return daemons;
}

std::vector<long> FindDaemons()
{
    std::vector<NamedProcess> named;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string folder = entry.path();
        const long pid = strtol(entry.path().filename().c_str(), nullptr, 10);
        const std::string name = pid > 0 ? NameOf(pid) : "";
        if ((name == "Kestrun" || name == "kestrun") && IsOfThisSystem(folder))
            named.push_back(LookAtNamed(pid));
    }
    return DaemonsAmong(std::move(named));
}

Sleep SleepOf(long pid)
{
    SystemCall call;
    const char state = pid <= 0 ? '?' : StateOf(pid);
    if (state == 'R' || state == 'D')
        return Sleep::Awake;
    if (state != 'S' || !ReadSystemCall(pid, &call))
        return Sleep::Unknown;
    const bool timed = call.number == SYS_clock_nanosleep || call.number == SYS_nanosleep ||
                       call.number == SYS_restart_syscall;
    return IsEndless(call) ? Sleep::Endless : timed ? Sleep::Timed : Sleep::Awake;
}

bool IsIdle(long pid)
{
    // The answers are read one after the other, and on a busy machine much can happen between them:
    // they belong together only if the daemon did not run meanwhile.
    const long before = CountSwitches(pid);
    const bool sleeps =
        SleepOf(pid) == Sleep::Endless && ChildrenOf(pid).empty() && StateOf(pid) == 'S';
    return sleeps && CountSwitches(pid) == before;
}

bool IsAsleep(long pid)
{
    const Sleep sleep = SleepOf(pid);
    return sleep == Sleep::Timed || sleep == Sleep::Endless;
}

int CountDescriptors(long pid)
{
    std::error_code error;
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(ProcFile(pid, "fd"), error)) {
        (void)entry;
        ++count;
    }
    return count;
}

std::vector<long> ChildrenOf(long pid)
{
    std::istringstream text(ReadFile(ProcFile(pid, "task/" + std::to_string(pid) + "/children")));
    std::vector<long> children;
    for (long child = 0; text >> child;)
        children.push_back(child);
    return children;
}

std::string NameOf(long pid)
{
    return FirstLine(ReadFile(ProcFile(pid, "comm")));
}

std::optional<long> AgeOf(long pid)
{
    const NamedProcess process = LookAtNamed(pid);
    const std::string uptime = ReadFile("/proc/uptime");
    if (process.parent < 0 || uptime.empty())
        return std::nullopt;
    const long started = static_cast<long>(process.started) / sysconf(_SC_CLK_TCK);
    return strtol(uptime.c_str(), nullptr, 10) - started;
}

long ResidentKiB(long pid)
{
    return SumOfStatus(pid, "VmRSS:");
}

long CountSwitches(long pid)
{
    return SumOfStatus(pid, "ctxt_switches:");
}

std::string UnwrittenLine(long pid, unsigned long *page, long number, const std::string &begun,
                          long fileSize)
{
    const Sought sought = SoughtRecord(number, begun, fileSize);
    unsigned long address = 0;
    if (*page != 0) {
        std::string line = FindLine(pid, {*page, *page + 2 * kPageSize}, sought, &address);
        if (!line.empty())
            return line;
    }
    for (const Region &region : OwnMemory(pid)) {
        std::string line = FindLine(pid, region, sought, &address);
        if (!line.empty()) {
            *page = address - address % kPageSize;
            return line;
        }
    }
    return "";
}

}  // namespace observe
