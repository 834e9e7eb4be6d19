// judge.h - whether what was observed so far is what a statement expects.
#ifndef MODEM_JUDGE_H
#define MODEM_JUDGE_H

#include <string>
#include <vector>

#include "modem/logbook.h"
#include "modem/scenario.h"
#include "modem/world.h"
#include "observe/mounts.h"

namespace modem
{

// One call of a program of modem/bin.
struct Call {
    std::string program;  // "open", "mount", "umount"
    int status = 0;
    std::vector<std::string> arguments;
};

struct Observed {
    LogBook log;
    size_t logFrom = 0;  // expected lines of the log stand at or behind this one
    std::vector<Call> calls;
    std::vector<observe::Mounted> mounts;  // under /Volumes
};

enum class Verdict {
    True,
    NotYet,  // it may still come true
    Never,   // it cannot any more
};

struct Finding {
    Verdict verdict = Verdict::NotYet;
    std::string came;   // what came instead, in plain words
    long logLine = -1;  // the line of the log that made it true
};

// True for expectations that cannot come true later when they are not true now: they claim that
// something is not there, and waiting for that would only hide it.
bool IsJudgedAtOnce(Act act);

Finding Judge(const Step &step, const Observed &observed);

// Takes the calls that modem/bin recorded out of `text`, from `*offset` on, and moves it behind the
// last whole record.
std::vector<Call> TakeCalls(const std::string &text, size_t *offset);

// The words behind -o of a call of mount, joined by commas.
std::string MountOptions(const Call &call);

// "open -a /Volumes/Orvanta/Orvanta.app/", for people.
std::string CallText(const Call &call);

}  // namespace modem

#endif
