// RunLoop.cpp - CoreFoundation's run loop: one poll(2) over the descriptors of all sources.
//
// It wakes for a descriptor and for a source's deadline; nothing has a deadline while nothing
// happens, so an idle process sleeps without end. What the outside did is looked at before what
// waits inside: one signalled source is performed at a time, behind all descriptors that are ready,
// so each callback sees the newest state of things.

#include "Runtime.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <time.h>

struct __CFRunLoop {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    LoopSource *sources;
    size_t count;
    pollfd *polls;  // room for `capacity` sources, so that the loop itself needs no memory
    size_t capacity;
    bool stopped;
};

static constexpr int kNoLimit = -1;

// How long to wait before poll is called again when the kernel had no memory for it.
static constexpr int kPollRetryMs = 100;

static constexpr ObjectType kRunLoopType = {nullptr, nullptr, nullptr};
static constexpr __CFString kDefaultModeText = {
    {&kStringType, kImmortal}, sizeof "kCFRunLoopDefaultMode" - 1, "kCFRunLoopDefaultMode"};

const CFRunLoopMode kCFRunLoopDefaultMode = &kDefaultModeText;

static __CFRunLoop g_loop = {{&kRunLoopType, kImmortal}, nullptr, 0, nullptr, 0, false};

int64_t MonotonicTime()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool RunLoopAddSource(LoopSource *source)
{
    if (g_loop.count == g_loop.capacity) {
        const size_t capacity = g_loop.capacity + 8;
        pollfd *polls = static_cast<pollfd *>(reallocarray(g_loop.polls, capacity, sizeof(pollfd)));
        if (polls == nullptr)
            return false;
        g_loop.polls = polls;
        g_loop.capacity = capacity;
    }
    source->due = false;
    source->next = g_loop.sources;
    g_loop.sources = source;
    g_loop.count++;
    return true;
}

void RunLoopRemoveSource(LoopSource *source)
{
    for (LoopSource **at = &g_loop.sources; *at != nullptr; at = &(*at)->next) {
        if (*at != source)
            continue;
        *at = source->next;
        g_loop.count--;
        return;
    }
}

// The earlier of two times, of which 0 is none.
static int64_t Earlier(int64_t one, int64_t other)
{
    if (one == 0 || (other != 0 && other < one))
        return other;
    return one;
}

// How long poll may sleep, in milliseconds: until `end` (0: no end) or the first deadline.
static int SleepTime(int64_t end)
{
    for (const LoopSource *source = g_loop.sources; source != nullptr; source = source->next) {
        if (source->signalled)
            return 0;
        end = Earlier(end, source->deadline);
    }
    if (end == 0)
        return kNoLimit;
    const int64_t left = end - MonotonicTime();
    if (left <= 0)
        return 0;
    return left > INT_MAX ? INT_MAX : static_cast<int>(left);
}

// Sleeps until `end` at the latest, and marks the sources that are due.
static void Wait(int64_t end)
{
    nfds_t count = 0;
    for (const LoopSource *source = g_loop.sources; source != nullptr; source = source->next)
        g_loop.polls[count++] = {source->fd, POLLIN, 0};
    const int ready = poll(g_loop.polls, count, SleepTime(end));
    if (ready < 0 && errno != EINTR)
        poll(nullptr, 0, kPollRetryMs);
    const int64_t now = MonotonicTime();
    const pollfd *answer = g_loop.polls;
    for (LoopSource *source = g_loop.sources; source != nullptr; source = source->next, answer++) {
        source->due = (ready > 0 && answer->revents != 0) ||
                      (source->deadline != 0 && source->deadline <= now);
    }
}

static LoopSource *NextDue()
{
    for (LoopSource *source = g_loop.sources; source != nullptr; source = source->next) {
        if (source->due)
            return source;
    }
    return nullptr;
}

static LoopSource *NextSignalled()
{
    for (LoopSource *source = g_loop.sources; source != nullptr; source = source->next) {
        if (source->signalled)
            return source;
    }
    return nullptr;
}

// Performs what Wait found to be due, and then one source that is signalled: neither keeps the
// other waiting. True if anything was.
static bool Perform()
{
    bool performed = false;
    for (LoopSource *source = NextDue(); source != nullptr; source = NextDue()) {
        source->due = false;
        source->perform(source);
        performed = true;
    }
    LoopSource *signalled = g_loop.stopped ? nullptr : NextSignalled();
    if (signalled == nullptr)
        return performed;
    signalled->signalled = false;
    signalled->perform(signalled);
    return true;
}

// Runs until `end` (MonotonicTime; 0: no end).
static CFRunLoopRunResult Run(int64_t end, bool oneSource)
{
    while (g_loop.sources != nullptr) {
        Wait(end);
        const bool performed = Perform();
        if (g_loop.stopped)
            return kCFRunLoopRunStopped;
        if (performed && oneSource)
            return kCFRunLoopRunHandledSource;
        if (end != 0 && !performed && MonotonicTime() >= end)
            return kCFRunLoopRunTimedOut;
    }
    return kCFRunLoopRunFinished;
}

CFRunLoopRef CFRunLoopGetCurrent()
{
    return &g_loop;
}

// A stop ends the innermost run alone, so each run has a mark of its own.
static CFRunLoopRunResult RunInside(int64_t end, bool oneSource)
{
    const bool outerStopped = g_loop.stopped;
    g_loop.stopped = false;
    const CFRunLoopRunResult result = Run(end, oneSource);
    g_loop.stopped = outerStopped;
    return result;
}

void CFRunLoopRun()
{
    RunInside(0, false);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled)
{
    if (mode == nullptr || !CFEqual(mode, kCFRunLoopDefaultMode))
        return kCFRunLoopRunFinished;
    constexpr CFTimeInterval kLongest = 1e9;
    if (!(seconds > 0))
        seconds = 0;
    if (seconds > kLongest)
        seconds = kLongest;
    return RunInside(MonotonicTime() + static_cast<int64_t>(seconds * 1000),
                     returnAfterSourceHandled);
}

void CFRunLoopStop(CFRunLoopRef rl)
{
    if (rl == nullptr)
        HaltAtNull("CFRunLoopStop");
    rl->stopped = true;
}
