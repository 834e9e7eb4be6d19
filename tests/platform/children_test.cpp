// Programs that run beside the loop: what becomes of them when they cannot start, and when the
// loop's process ends.
#include "World.h"

#include "platform/linux/Children.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using Events = std::vector<std::string>;

// ---- Functions of the C library that fail when they are told to ----

static int g_forksLeft = -1;     // so many calls of fork succeed; -1: all
static bool g_noPidfd = false;   // pidfd_open fails
static bool g_orphaned = false;  // a child's parent has ended before it could ask for it

extern "C" pid_t getppid() noexcept
{
    return g_orphaned ? 1 : static_cast<pid_t>(::syscall(SYS_getppid));
}

template <typename Function>
static Function Next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

extern "C" pid_t fork() noexcept
{
    if (g_forksLeft == 0) {
        errno = EAGAIN;
        return -1;
    }
    if (g_forksLeft > 0)
        g_forksLeft--;
    return Next<pid_t (*)()>("fork")();
}

extern "C" long syscall(long number, ...) noexcept
{
    if (number == SYS_pidfd_open && g_noPidfd) {
        errno = EMFILE;
        return -1;
    }
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long &argument : arguments)
        argument = va_arg(list, long);
    va_end(list);
    return Next<long (*)(long, ...)>("syscall")(number, arguments[0], arguments[1], arguments[2],
                                                arguments[3], arguments[4], arguments[5]);
}

TEST_CASE("where no process can be made a mount is refused, and leaves no folder and no descriptor")
{
    if (!EnterWorld())
        return;
    UseProgram("blkid", "#!/bin/sh\necho iso9660\n");
    UseProgram("mount", kRecordingScript);
    WriteFile("/disks/plain", "nothing");
    struct Row {
        std::string target;
        int forks;
    };
    const Row rows[] = {{NewFolder(), 0}, {"/disks/plain", 0}, {"/disks/plain", 1}};
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Settle();
    const int descriptors = CountDescriptors();
    for (const Row &row : rows) {
        CAPTURE(row.target);
        CAPTURE(row.forks);
        g_events.clear();
        g_forksLeft = row.forks;
        Plug("Orvanta", row.target);
        CHECK(Await(2) ==
              Events{"peek Orvanta", "refused Orvanta Resource temporarily unavailable"});
        CHECK(g_forksLeft == 0);
        g_forksLeft = -1;
        CHECK(NamesIn("/Volumes").empty());
        CHECK(!Exists("/run/mount-log"));
        CHECK(CountDescriptors() == descriptors);
        Unplug("Orvanta");
        Settle();
    }
    Forget(session);
}

TEST_CASE("an unmount that cannot start is tried at the next change")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    g_forksLeft = 0;
    Unplug("Orvanta");
    Settle();
    g_forksLeft = -1;
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Plug("wakes", "/nowhere");
    Settle();
    CHECK(MountPoints().empty());
    CHECK(NamesIn("/Volumes").empty());
    Forget(session);
}

TEST_CASE("a program without a descriptor to follow it by is waited for")
{
    if (!EnterWorld())
        return;
    g_noPidfd = true;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    g_noPidfd = false;
    Forget(session);
}

// The status that a program of this text ends with.
static int StatusOf(const std::string &script)
{
    static int status;
    status = -2;
    UseProgram("child", script);
    const char *const argv[] = {"child", nullptr};
    static Child child;
    REQUIRE(StartChild(
        &child, argv, -1, [](Child *, int ended) { status = ended; }, nullptr));
    CHECK(RunUntil([] { return status != -2; }));
    return status;
}

TEST_CASE("a program's end is told as a shell tells it")
{
    if (!EnterWorld())
        return;
    CHECK(StatusOf("#!/bin/sh\nexit 0\n") == 0);
    CHECK(StatusOf("#!/bin/sh\nexit 32\n") == 32);
    CHECK(StatusOf("#!/bin/sh\nkill -9 $$\n") == 128 + 9);
    CHECK(StatusOf("#!/no/such/shell\n") == 127);
    // The program does not run when the process that has made it has ended meanwhile.
    g_orphaned = true;
    CHECK(StatusOf("#!/bin/sh\n: > /run/ran\n") == 127);
    g_orphaned = false;
    CHECK(!Exists("/run/ran"));
}

// True once no process of that number runs; one that nobody has waited for yet does not run.
static bool HasEnded(const std::string &pid)
{
    const std::string stat = ReadFile("/proc/" + pid + "/stat");
    return stat.empty() || stat.find(") Z ") != std::string::npos;
}

TEST_CASE("a program that runs is killed with the process that has started it")
{
    if (!EnterWorld())
        return;
    UseProgram("mount", "#!/bin/sh\necho $$ > /run/pid.new\nmv /run/pid.new /run/pid\n" + kHold);
    const pid_t daemon = fork();
    REQUIRE(daemon >= 0);
    if (daemon == 0) {
        Watch("Orvanta", RecordAndMount);
        Plug("Orvanta", NewFolder());
        CFRunLoopRun();
        _exit(1);
    }
    CHECK(AwaitReached());
    std::string pid = ReadFile("/run/pid");
    pid.pop_back();
    CHECK(!HasEnded(pid));
    kill(daemon, SIGKILL);
    CHECK(waitpid(daemon, nullptr, 0) == daemon);
    CHECK(RunUntil([&] { return HasEnded(pid); }));
    Release();
}
