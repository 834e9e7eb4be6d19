// Children.h - programs that run beside the loop.
#ifndef PLATFORM_LINUX_CHILDREN_H
#define PLATFORM_LINUX_CHILDREN_H

#include "Runtime.h"

#include <sys/types.h>

// The status of a child that somebody else waited for.
constexpr int kStatusUnknown = -1;

// What a shell says of a program that it cannot run.
constexpr int kNotRunStatus = 127;

// A program that runs. The memory is the owner's until `ended` was called.
struct Child {
    LoopSource source;  // becomes readable when the program has ended
    pid_t pid;
    void *owner;  // for `ended`
    void (*ended)(Child *child,
                  int status);  // the exit status, 128 + the signal, or kStatusUnknown
};

// Starts the program argv[0], found on PATH, with the arguments of argv (ended by null), nothing on
// its standard input, and `output` for what it prints: a descriptor, or -1 for nothing. `ended` is
// called by the run loop, once; a program that cannot be found or run ends with 127. It is killed
// when this process ends. False, and nothing was started, when no process can be made.
bool StartChild(Child *child, const char *const argv[], int output,
                void (*ended)(Child *child, int status), void *owner);

#endif
