// Process.h - shell command lines, with retries and with captured output.
#ifndef SRC_PROCESS_H
#define SRC_PROCESS_H

bool RunShellProgram(const char *command, int tries);
bool RunShellCmd(const char *command, char *output, int outputSize);

#endif
