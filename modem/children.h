// children.h - child processes of the bench.
#ifndef MODEM_CHILDREN_H
#define MODEM_CHILDREN_H

#include <sys/types.h>

namespace modem
{

// For a child that is to become another program: it reads nothing, and writes to the descriptor
// `output` alone.
void Redirect(int output);

// The same for one whose output nobody wants.
void Silence();

// Waits for the end of a child, whatever interrupts that. Its wait status; -1 where there is no
// such child.
int WaitForEnd(pid_t child);

// Its exit status; -1 when it did not end by itself.
int ExitStatusOf(pid_t child);

}  // namespace modem

#endif
