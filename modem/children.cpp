// children.cpp - see children.h.
#include "modem/children.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace modem
{

void Redirect(int output)
{
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)dup2(in, STDIN_FILENO);
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
}

void Silence()
{
    Redirect(open("/dev/null", O_RDWR | O_CLOEXEC));
}

int WaitForEnd(pid_t child)
{
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

int ExitStatusOf(pid_t child)
{
    const int status = WaitForEnd(child);
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace modem
