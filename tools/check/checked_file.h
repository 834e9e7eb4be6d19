// checked_file.h - a file while it is checked.
#ifndef TOOLS_CHECK_CHECKED_FILE_H
#define TOOLS_CHECK_CHECKED_FILE_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/check/lines.h"
#include "tools/check/report.h"

namespace kcheck
{

struct CheckedFile {
    Report &report;
    const std::string &path;
    std::string_view content;
    std::vector<Line> lines;
    bool isConfig;  // read by both readers
};

// Adds a finding about the file to its report. `line` is 0 when it is about all of it.
void Add(CheckedFile &file, Verdict verdict, const std::string &about, size_t line,
         const std::string &found, const std::string &effect);

// Adds that nothing reads `text`, a key or a header, with the name among `known` that was probably
// meant.
void AddUnknown(CheckedFile &file, const std::string &about, size_t line, std::string_view text,
                const std::vector<std::string> &known);

// What both files can have: byte-order marks, line ends, zero bytes, long lines.
void CheckBytes(CheckedFile &file);

}  // namespace kcheck

#endif
