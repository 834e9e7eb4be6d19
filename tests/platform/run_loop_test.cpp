// The run loop: when it ends, and that it sleeps.
#include "World.h"

#include "platform/linux/Runtime.h"

#include <doctest/doctest.h>

#include <cerrno>

#include <poll.h>
#include <sys/syscall.h>
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

static int g_sleeps = 0;     // how often the loop went to sleep for ever
static int g_pollError = 0;  // poll fails with this, once

// The end of time: a sleep that nothing ends stops the loop.
extern "C" int poll(pollfd *fds, nfds_t count, int timeout)
{
    if (g_pollError != 0) {
        errno = g_pollError;
        g_pollError = 0;
        return -1;
    }
    const bool forEver = timeout == -1;
    const timespec none = {0, 0};
    const timespec some = {timeout / 1000, timeout % 1000 * 1000000L};
    const long ready = syscall(SYS_ppoll, fds, count, forEver ? &none : &some, nullptr, 0);
    if (forEver && ready == 0) {
        g_sleeps++;
        CFRunLoopStop(CFRunLoopGetCurrent());
    }
    return static_cast<int>(ready);
}

TEST_CASE("a poll that fails is tried again")
{
    for (const int error : {EINTR, ENOMEM}) {
        TestSource test;
        test.OpenPipe();
        REQUIRE(write(test.pipe[1], "x", 1) == 1);
        REQUIRE(RunLoopAddSource(&test.source));
        g_pollError = error;
        CHECK(CFRunLoopRunInMode(kMode, 1e300, false) == kCFRunLoopRunStopped);
        CHECK(g_pollError == 0);
        CHECK(test.calls == 1);
        RunLoopRemoveSource(&test.source);
        close(test.pipe[0]);
        close(test.pipe[1]);
    }
}

TEST_CASE("an idle loop sleeps without an end, and nothing wakes it")
{
    if (!EnterWorld())
        return;
    for (const bool isPlugged : {false, true}) {
        CAPTURE(isPlugged);
        if (isPlugged)
            Plug("there", NewFolder());
        DASessionRef session = Watch("Orvanta", RecordAndMount);
        Settle();
        for (int sleeps = 1; sleeps <= 3; sleeps++) {
            g_sleeps = 0;
            CFRunLoopRun();
            CHECK(g_sleeps == 1);
        }
        Forget(session);
    }
}
