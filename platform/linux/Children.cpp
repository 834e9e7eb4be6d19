// Children.cpp - programs that run beside the loop.
//
// A child is followed through its pidfd, which can be read once the child has ended: SIGCHLD and its
// action stay as they are, and waitpid(2) is called for that one process, so system(3) and popen(3)
// go on working.

#include "Children.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr int kSignalStatus = 128;

static int WaitFor(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return kStatusUnknown;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalStatus + WTERMSIG(status);
}

static void HasEnded(LoopSource *source)
{
    Child *child = static_cast<Child *>(source->owner);
    RunLoopRemoveSource(source);
    if (source->fd >= 0)
        close(source->fd);
    child->ended(child, WaitFor(child->pid));
}

// The child's signals are as in a fresh process, whatever the daemon's are.
static bool SetAttributes(posix_spawnattr_t *attributes)
{
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    return posix_spawnattr_setsigmask(attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(attributes, &all) == 0 &&
           posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) ==
               0;
}

static bool SetFiles(posix_spawn_file_actions_t *files)
{
    return posix_spawn_file_actions_addopen(files, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
           posix_spawn_file_actions_addopen(files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) == 0;
}

static bool Spawn(pid_t *pid, const char *const argv[])
{
    posix_spawn_file_actions_t files;
    if (posix_spawn_file_actions_init(&files) != 0)
        return false;
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&files);
        return false;
    }
    const bool spawned = SetFiles(&files) && SetAttributes(&attributes) &&
                         posix_spawnp(pid, argv[0], &files, &attributes,
                                      const_cast<char *const *>(argv), environ) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return spawned;
}

bool StartChild(Child *child, const char *const argv[], void (*ended)(Child *child, int status),
                void *owner)
{
    child->source = {-1, false, 0, HasEnded, child, false, nullptr};
    child->ended = ended;
    child->owner = owner;
    if (!RunLoopAddSource(&child->source))
        return false;
    if (!Spawn(&child->pid, argv)) {
        RunLoopRemoveSource(&child->source);
        return false;
    }
    // The pidfd is close-on-exec by itself. Without one (no descriptor is free) the loop waits for
    // the child in its next step.
    child->source.fd = static_cast<int>(syscall(SYS_pidfd_open, child->pid, 0));
    child->source.signalled = child->source.fd < 0;
    return true;
}
