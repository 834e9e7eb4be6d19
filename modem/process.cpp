// process.cpp - the daemon as a process. Whether it has nothing to do is read from /proc: its state
// and the system call that it sleeps in. The kernel makes a process runnable in the very call that
// gives it an event, so "asleep without a limit" is the truth at the moment of reading.
#include "modem/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace modem
{
namespace
{

// A region of memory above this is no stdio buffer (a sanitizer reserves terabytes).
const unsigned long kLargestRegion = 64UL << 20;
const size_t kPageSize = 4096;
const size_t kBufferSize = 4096;  // of a stdio stream: a block of the file

std::string ProcFile(const Process &process, const std::string &name)
{
    return "/proc/" + std::to_string(process.pid) + "/" + name;
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
char StateOf(const Process &process)
{
    const std::string stat = StatBehindName(process.pid);
    return stat.empty() ? '?' : stat[0];
}

struct SystemCall {
    long number = -1;
    unsigned long arguments[6] = {};
};

bool ReadSystemCall(const Process &process, SystemCall *call)
{
    const std::string text = ReadFile(ProcFile(process, "syscall"));
    return sscanf(text.c_str(), "%ld %lx %lx %lx %lx %lx %lx", &call->number, &call->arguments[0],
                  &call->arguments[1], &call->arguments[2], &call->arguments[3],
                  &call->arguments[4], &call->arguments[5]) == 7;
}

bool IsEndless(const SystemCall &call)
{
    const bool minusOne = static_cast<int>(call.arguments[2]) == -1;
#ifdef SYS_poll
    if (call.number == SYS_poll)
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

void Preload(const World &world, double speed)
{
    char text[32];
    (void)snprintf(text, sizeof text, "%g", speed);
    (void)setenv("KESTRUN_BENCH_SPEED", text, 1);
    (void)setenv("LD_PRELOAD", world.speedLibrary.c_str(), 1);
    // A daemon built with AddressSanitizer objects to a library loaded before its own.
    const char *options = getenv("ASAN_OPTIONS");
    const std::string more = std::string(options != nullptr ? options : "");
    (void)setenv("ASAN_OPTIONS", (more + ":verify_asan_link_order=0").c_str(), 1);
}

// The child's side of StartProcess.
[[noreturn]] void Become(const World &world, const std::string &program, double speed,
                         const std::string &errorFile)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int out = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    (void)dup2(in, STDIN_FILENO);
    (void)dup2(out, STDOUT_FILENO);
    (void)dup2(out, STDERR_FILENO);
    (void)WriteFile(world.stateDir + "/daemon-pid", std::to_string(getpid()));
    SetWorldEnvironment(world);
    Preload(world, speed);
    if (world.daemonMemory > 0) {
        const rlimit limit = {world.daemonMemory, world.daemonMemory};
        (void)setrlimit(RLIMIT_AS, &limit);
    }
    (void)execl(program.c_str(), program.c_str(), static_cast<char *>(nullptr));
    (void)dprintf(STDERR_FILENO, "%s: %s\n", program.c_str(), strerror(errno));
    _exit(127);
}

struct Region {
    unsigned long start = 0;
    unsigned long end = 0;
};

// The writable regions of memory that no file stands behind, without the stack: on it stand remains
// of records, overwritten in part.
std::vector<Region> OwnMemory(const Process &process)
{
    std::vector<Region> regions;
    std::istringstream maps(ReadFile(ProcFile(process, "maps")));
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
std::string ReadRegion(const Process &process, const Region &region)
{
    std::string bytes(region.end - region.start, '\0');
    struct iovec local = {bytes.data(), bytes.size()};
    // An address of another process: no object of this one stands there.
    void *there = reinterpret_cast<void *>(region.start);  // NOLINT(performance-no-int-to-ptr)
    struct iovec remote = {there, bytes.size()};
    const ssize_t got = process_vm_readv(process.pid, &local, 1, &remote, 1, 0);
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
std::string FindLine(const Process &process, const Region &region, const Sought &sought,
                     unsigned long *address)
{
    const std::string bytes = ReadRegion(process, region);
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

bool IsDaemonName(const std::string &name)
{
    return name == "Kestrun\n" || name == "kestrun\n";
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

void SetWorldEnvironment(const World &world)
{
    const std::string path = world.toolsDir + ":" + world.programsDir + ":" + world.systemPath;
    (void)setenv("PATH", path.c_str(), 1);
    (void)setenv("KESTRUN_BENCH_PATH", world.systemPath.c_str(), 1);
    (void)setenv("KESTRUN_BENCH_STATE", world.stateDir.c_str(), 1);
    (void)setenv("LC_ALL", "C", 1);
    if (world.kind == WorldKind::Real)
        (void)setenv("KESTRUN_BENCH_NO_MOUNT", "1", 1);
}

bool StartProcess(const World &world, const std::string &program, double speed, Process *process,
                  std::string *why)
{
    *process = Process();
    process->errorFile = world.stateDir + "/daemon-errors";
    const pid_t pid = fork();
    if (pid < 0) {
        *why = std::string("could not start the daemon: ") + strerror(errno);
        return false;
    }
    if (pid == 0)
        Become(world, program, speed, process->errorFile);
    process->pid = pid;
    return true;
}

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
        if (pid > 0 && IsDaemonName(ReadFile(folder + "/comm")) && IsOfThisSystem(folder))
            named.push_back(LookAtNamed(pid));
    }
    return DaemonsAmong(std::move(named));
}

void KillProcess(Process *process)
{
    if (process->pid > 0 && !process->ended) {
        (void)kill(process->pid, SIGKILL);
        while (waitpid(process->pid, &process->status, 0) < 0 && errno == EINTR) {
        }
        process->killed = true;
    }
    process->pid = 0;
}

void CheckProcess(Process *process)
{
    if (process->pid > 0 && !process->ended &&
        waitpid(process->pid, &process->status, WNOHANG) == process->pid) {
        process->ended = true;
    }
}

Sleep SleepOf(const Process &process)
{
    SystemCall call;
    const char state = process.pid <= 0 || process.ended ? '?' : StateOf(process);
    if (state == 'R' || state == 'D')
        return Sleep::Awake;
    if (state != 'S' || !ReadSystemCall(process, &call))
        return Sleep::Unknown;
    const bool timed = call.number == SYS_clock_nanosleep || call.number == SYS_nanosleep;
    return timed ? Sleep::Timed : IsEndless(call) ? Sleep::Endless : Sleep::Awake;
}

bool IsIdle(const Process &process)
{
    // The answers are read one after the other, and on a busy machine much can happen between them:
    // they belong together only if the daemon did not run meanwhile.
    const long before = CountSwitches(process);
    const bool sleeps = SleepOf(process) == Sleep::Endless && CountChildren(process) == 0 &&
                        StateOf(process) == 'S';
    return sleeps && CountSwitches(process) == before;
}

bool IsAsleep(const Process &process)
{
    const Sleep sleep = SleepOf(process);
    return sleep == Sleep::Timed || sleep == Sleep::Endless;
}

int CountDescriptors(const Process &process)
{
    std::error_code error;
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(ProcFile(process, "fd"), error)) {
        (void)entry;
        ++count;
    }
    return count;
}

int CountChildren(const Process &process)
{
    const std::string file = "task/" + std::to_string(process.pid) + "/children";
    std::istringstream children(ReadFile(ProcFile(process, file)));
    int count = 0;
    for (long child = 0; children >> child;)
        ++count;
    return count;
}

long ResidentKiB(const Process &process)
{
    std::istringstream status(ReadFile(ProcFile(process, "status")));
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0)
            return strtol(line.c_str() + 6, nullptr, 10);
    }
    return -1;
}

long CountSwitches(const Process &process)
{
    std::istringstream status(ReadFile(ProcFile(process, "status")));
    long count = -1;
    for (std::string line; std::getline(status, line);) {
        const size_t at = line.find("ctxt_switches:");
        if (at != std::string::npos) {
            count = (count < 0 ? 0 : count) +
                    strtol(line.c_str() + at + strlen("ctxt_switches:"), nullptr, 10);
        }
    }
    return count;
}

std::string UnwrittenLine(Process *process, long number, const std::string &begun, long fileSize)
{
    const Sought sought = SoughtRecord(number, begun, fileSize);
    unsigned long address = 0;
    if (process->bufferPage != 0) {
        const auto page = static_cast<unsigned long>(process->bufferPage);
        std::string line = FindLine(*process, {page, page + 2 * kPageSize}, sought, &address);
        if (!line.empty())
            return line;
    }
    for (const Region &region : OwnMemory(*process)) {
        std::string line = FindLine(*process, region, sought, &address);
        if (!line.empty()) {
            process->bufferPage = static_cast<long>(address - address % kPageSize);
            return line;
        }
    }
    return "";
}

std::string EndOf(const Process &process)
{
    if (WIFSIGNALED(process.status))
        return std::string("ended by signal ") + strsignal(WTERMSIG(process.status));
    return "ended with exit status " + std::to_string(WEXITSTATUS(process.status));
}

}  // namespace modem
