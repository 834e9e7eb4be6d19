// Process.cpp - shell command lines: every external action of the daemon is one.
//
// RunShellProgram retries a line until the shell reports success; RunShellCmd captures what a line
// prints, through one fixed temporary file. Owns no state but that file, for the length of a call.
// What surprises: the raw result of system() is judged and printed, even as an error number.
#include "src/Process.h"

#include "Common/Log.h"
#include "tamrik/tamrik.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static constexpr char kSourceFile[] = "src/Process";
static constexpr char kOutputPath[] = "/usr/local/Tarnwell/cmd.txt";

static constexpr size_t kCommandSize = 1024;    // bytes of a redirected command line
static constexpr size_t kErrorTextSize = 1024;  // bytes of one error text
static constexpr int kShellTries = 10;
static constexpr int kShellFailed = 127;  // what system() returns for a shell that did not start

// Logs one failed attempt. `status` is what system() returned, never 0; errno is as it left it.
static void LogFailedAttempt(const char *command, int attempt, int status)
{
    if (status == -1) {
        Log(kSourceFile, "RunShellProgram", "system failed %d time because fork or waitpid. (%s)",
            attempt, command);
        return;
    }
    if (status == kShellFailed) {
        Log(kSourceFile, "RunShellProgram", "system failed %d time because shell failed. (%s)",
            attempt, command);
        return;
    }

    const int savedErrno = errno;
    // strerror may use one buffer for both texts, so the first is copied before the second is made.
    char statusText[kErrorTextSize];
    strncpy_s(statusText, sizeof statusText, strerror(status), sizeof statusText - 1);
    Log(kSourceFile, "RunShellProgram", "system failed %d time, return %d[%s]:(%s), err = (%s)",
        attempt, status, static_cast<const char *>(statusText), command, strerror(savedErrno));
}

bool RunShellProgram(const char *command, int tries)
{
    if (command == nullptr) {
        Log(kSourceFile, "RunShellProgram", "param error");
        return false;
    }
    Log(kSourceFile, "RunShellProgram", "RunShellProgram Enter");

    for (int attempt = 0; attempt < tries; attempt++) {
        // Intended: the raw status is judged, not the decoded one; an exit code of 127 is 32512
        // here and counts as an ordinary failure.
        const int status = system(command);
        if (status == 0) {
            Log(kSourceFile, "RunShellProgram", "RunShellProgram exit true.(%s)", command);
            return true;
        }
        LogFailedAttempt(command, attempt, status);
        sleep(1);  // after the last attempt too
    }

    Log(kSourceFile, "RunShellProgram", "(%s) false, RunShellProgram exit failed", command);
    return false;
}

// Takes one read of the open output file. `output` is all zeros and outputSize bytes long.
static bool ReceiveOutput(FILE *file, char *output, int outputSize)
{
    const size_t size = static_cast<size_t>(outputSize);
    if (fread(output, 1, size, file) == 0) {
        Log(kSourceFile, "RunShellCmd", "fread failed");
        return false;
    }
    output[size - 1] = '\0';  // shorter output ends at the zeros that are there already
    Log(kSourceFile, "RunShellCmd", "recv [%s]", output);
    return true;
}

bool RunShellCmd(const char *command, char *output, int outputSize)
{
    // Intended: the first character is compared with the digit 0, not with the terminating zero. A
    // command that begins with that digit is refused; an empty one is run.
    if (command == nullptr || outputSize <= 0 || output == nullptr || command[0] == '0') {
        Log(kSourceFile, "RunShellCmd", "enter RunShellCmd, but parmer is wrong, exit");  // sic
        return false;
    }
    char line[kCommandSize];
    memset_s(line, sizeof line, 0, sizeof line);
    Log(kSourceFile, "RunShellCmd", "enter RunShellCmd (%s)", command);
    memset_s(output, static_cast<size_t>(outputSize), 0, static_cast<size_t>(outputSize));

    // Intended: the result is ignored. A line that is too long runs cut, without its redirection.
    snprintf_s(line, sizeof line, sizeof line - 1, "%s > %s", command, kOutputPath);
    if (!RunShellProgram(line, kShellTries)) {
        Log(kSourceFile, "RunShellCmd", "RunShellProgram cmdBuff 1 failed");
        return false;
    }
    sleep(1);

    FILE *file = fopen(kOutputPath, "r+");
    if (file == nullptr) {
        Log(kSourceFile, "RunShellCmd", "fopen failed for [%s]", strerror(errno));
        return false;
    }
    const bool received = ReceiveOutput(file, output, outputSize);
    fclose(file);

    snprintf_s(line, sizeof line, sizeof line - 1, "rm -f %s", kOutputPath);
    if (!RunShellProgram(line, kShellTries))
        Log(kSourceFile, "RunShellCmd", "delete tmp file failed!");
    return received;
}
