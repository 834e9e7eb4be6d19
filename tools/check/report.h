// report.h - what a check found.
#ifndef TOOLS_CHECK_REPORT_H
#define TOOLS_CHECK_REPORT_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kcheck
{

enum class Verdict {
    Pass,
    Note,  // something is absent, as it is on a healthy machine
    Warn,  // works, but perhaps not as it was meant
    Fail,  // does not do what it was meant for
};

struct Finding {
    Verdict verdict;
    std::string file;    // its path, or "machine"
    std::string about;   // a word for programs: "name", "final-line-feed"
    size_t line;         // of the file, from 1; 0 when it is about all of it
    std::string found;   // what is there
    std::string effect;  // what the daemon will do
};

// A value as the daemon's own reader returns it.
struct Setting {
    std::string file;
    std::string key;
    std::optional<std::string> value;  // none: the reader does not find it
    size_t line;                       // where it stands; 0 without a value
};

struct Report {
    std::vector<Finding> findings;
    std::vector<Setting> settings;
};

// The worst verdict of all findings. What is absent and need not be there does no harm.
Verdict Worst(const Report &report);

// Makes of what is absent something that somebody should look at.
void TakeNotesAsWarnings(Report &report);

const char *VerdictName(Verdict verdict);

}  // namespace kcheck

#endif
