// daemon.cpp - see daemon.h.
#include "modem/daemon.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modem/children.h"
#include "observe/files.h"

namespace modem
{
namespace
{

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
    Redirect(open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    (void)observe::WriteFile(world.stateDir + "/daemon-pid", std::to_string(getpid()));
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

void KillProcess(Process *process)
{
    if (process->pid > 0 && !process->ended) {
        (void)kill(process->pid, SIGKILL);
        process->status = WaitForEnd(process->pid);
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

std::string EndOf(const Process &process)
{
    if (WIFSIGNALED(process.status))
        return std::string("ended by signal ") + strsignal(WTERMSIG(process.status));
    return "ended with exit status " + std::to_string(WEXITSTATUS(process.status));
}

}  // namespace modem
