// Children.cpp - programs that run beside the loop.
//
// A child is followed through its pidfd, which can be read once the child has ended: SIGCHLD and
// its action stay as they are, and waitpid(2) is called for that one process, so system(3) and
// popen(3) go on working.

#include "Children.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
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
static void ResetSignals()
{
    for (int number = 1; number < NSIG; number++)
        signal(number, SIG_DFL);  // fails for the two that have no other action
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// What a program does after the daemon's end would come in the way of the next daemon.
[[noreturn]] static void Run(const char *const argv[], int output, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(kNotRunStatus);
    ResetSignals();
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (output < 0)
        output = null;
    dup2(output, STDOUT_FILENO);
    dup2(null, STDIN_FILENO);
    execvp(argv[0], const_cast<char *const *>(argv));
    _exit(kNotRunStatus);
}

bool StartChild(Child *child, const char *const argv[], int output,
                void (*ended)(Child *child, int status), void *owner)
{
    child->source = {-1, false, 0, HasEnded, child, false, nullptr};
    child->ended = ended;
    child->owner = owner;
    if (!RunLoopAddSource(&child->source))
        return false;
    const pid_t parent = getpid();
    child->pid = fork();
    if (child->pid == 0)
        Run(argv, output, parent);
    if (child->pid < 0) {
        RunLoopRemoveSource(&child->source);
        return false;
    }
    // The pidfd is close-on-exec by itself. Without one (no descriptor is free) the loop waits for
    // the child in its next step.
    child->source.fd = static_cast<int>(syscall(SYS_pidfd_open, child->pid, 0));
    child->source.signalled = child->source.fd < 0;
    return true;
}
