// The run loop: when it ends, and that it sleeps.
#include "World.h"

#include "platform/linux/Runtime.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

// A source that counts its calls; with a pipe as its descriptor if it was made with one.
struct TestSource {
    LoopSource source = {-1, false, 0, Perform, nullptr, false, nullptr};
    int pipe[2] = {-1, -1};
    int calls = 0;

    static void Perform(LoopSource *source)
    {
        TestSource *self = reinterpret_cast<TestSource *>(source);
        self->calls++;
        char byte;
        if (self->pipe[0] >= 0)
            CHECK(read(self->pipe[0], &byte, 1) == 1);
        self->source.deadline = 0;
        CFRunLoopStop(CFRunLoopGetCurrent());
    }
    void OpenPipe()
    {
        REQUIRE(::pipe(pipe) == 0);
        source.fd = pipe[0];
    }
};

static const CFRunLoopMode kMode = kCFRunLoopDefaultMode;

TEST_CASE("a loop with nothing on it is finished at once")
{
    CFRunLoopRun();
    CHECK(CFRunLoopRunInMode(kMode, 10, false) == kCFRunLoopRunFinished);
    CHECK(CFRunLoopRunInMode(CFSTR("another mode"), 10, false) == kCFRunLoopRunFinished);
    CHECK(CFRunLoopRunInMode(nullptr, 10, false) == kCFRunLoopRunFinished);
    CFRunLoopStop(nullptr);
}

TEST_CASE("a run ends for its time, for the first source, and for a stop")
{
    TestSource test;
    test.OpenPipe();
    REQUIRE(RunLoopAddSource(&test.source));
    const int64_t begin = MonotonicTime();
    CHECK(CFRunLoopRunInMode(kMode, 0.1, false) == kCFRunLoopRunTimedOut);
    CHECK(MonotonicTime() - begin >= 100);
    CHECK(CFRunLoopRunInMode(kMode, 0, false) == kCFRunLoopRunTimedOut);
    CHECK(CFRunLoopRunInMode(kMode, -1, false) == kCFRunLoopRunTimedOut);
    CHECK(CFRunLoopRunInMode(CFSTR("another mode"), 10, false) == kCFRunLoopRunFinished);
    REQUIRE(write(test.pipe[1], "x", 1) == 1);
    CHECK(CFRunLoopRunInMode(kMode, 10, false) == kCFRunLoopRunStopped);
    CHECK(test.calls == 1);
    REQUIRE(write(test.pipe[1], "x", 1) == 1);
    CFRunLoopRun();
    CHECK(test.calls == 2);
    RunLoopRemoveSource(&test.source);
    RunLoopRemoveSource(&test.source);
    close(test.pipe[0]);
    close(test.pipe[1]);
}

TEST_CASE("a deadline wakes the loop when it is there, not before")
{
    TestSource test;
    REQUIRE(RunLoopAddSource(&test.source));
    const int64_t begin = MonotonicTime();
    test.source.deadline = begin + 80;
    CFRunLoopRun();
    CHECK(test.calls == 1);
    CHECK(MonotonicTime() - begin >= 80);
    RunLoopRemoveSource(&test.source);
}

TEST_CASE("a descriptor that is always ready does not keep a signalled source waiting")
{
    TestSource test;
    test.OpenPipe();
    LoopSource noisy = {-1, false, 0, [](LoopSource *) {}, nullptr, false, nullptr};
    noisy.fd = test.pipe[0];
    test.source.fd = -1;
    test.pipe[0] = -1;
    REQUIRE(write(test.pipe[1], "x", 1) == 1);
    REQUIRE(RunLoopAddSource(&noisy));
    REQUIRE(RunLoopAddSource(&test.source));
    test.source.signalled = true;
    CHECK(CFRunLoopRunInMode(kMode, 5, false) == kCFRunLoopRunStopped);
    CHECK(test.calls == 1);
    CHECK(!test.source.signalled);
    RunLoopRemoveSource(&noisy);
    RunLoopRemoveSource(&test.source);
    close(noisy.fd);
    close(test.pipe[1]);
}

TEST_CASE("more sources than the loop began with are all heard")
{
    constexpr int kCount = 50;
    TestSource tests[kCount];
    for (TestSource &test : tests) {
        test.OpenPipe();
        REQUIRE(RunLoopAddSource(&test.source));
        REQUIRE(write(test.pipe[1], "x", 1) == 1);
    }
    CFRunLoopRun();
    for (TestSource &test : tests) {
        CHECK(test.calls == 1);
        RunLoopRemoveSource(&test.source);
        close(test.pipe[0]);
        close(test.pipe[1]);
    }
    CHECK(CFRunLoopRunInMode(kMode, 1, false) == kCFRunLoopRunFinished);
}

// The number behind a name in /proc/<pid>/status.
static long StatusOf(pid_t pid, const std::string &name)
{
    std::istringstream lines(ReadFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(name + ":", 0) == 0)
            return std::atol(line.c_str() + name.size() + 1);
    }
    return -1;
}

TEST_CASE("an idle loop does not wake up once in five seconds")
{
    if (!EnterWorld())
        return;
    for (const bool isPlugged : {false, true}) {
        CAPTURE(isPlugged);
        if (isPlugged)
            Plug("there", NewFolder());
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            Watch("Orvanta", RecordAndMount);
            CFRunLoopRun();
            _exit(1);
        }
        usleep(300000);
        const long before = StatusOf(child, "voluntary_ctxt_switches");
        const long forced = StatusOf(child, "nonvoluntary_ctxt_switches");
        REQUIRE(before > 0);
        usleep(5000000);
        // Each sleep is a voluntary switch: no more of them means that it has not woken.
        CHECK(StatusOf(child, "voluntary_ctxt_switches") == before);
        CHECK(StatusOf(child, "nonvoluntary_ctxt_switches") == forced);
        MESSAGE("resident memory: " << StatusOf(child, "VmRSS") << " kB");
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}
