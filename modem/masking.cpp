// masking.cpp - logs made comparable. A record begins "line N===Y-M-D h:m:s   ", its numbers
// without leading zeros; only that exact form is masked, so a log whose form is wrong stays visibly
// wrong.
#include "modem/masking.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "observe/daemon.h"
#include "observe/log_line.h"
#include "observe/names.h"

namespace modem
{
namespace
{

void MaskPid(std::string *line)
{
    const std::string command = observe::kOwnerCommand;
    const size_t at = line->find(command);
    if (at == std::string::npos)
        return;
    const size_t start = at + command.size();
    const size_t end = std::min(line->find_first_not_of("0123456789", start), line->size());
    if (end > start)
        line->replace(start, end - start, "<pid>");
}

void MaskErrno(std::string *line)
{
    const char kBegin[] = "), err = (";
    const size_t begin = line->rfind(kBegin);
    const bool failed = line->find(" --- system failed ") != std::string::npos;
    if (failed && begin != std::string::npos && line->ends_with(")\n")) {
        const size_t start = begin + strlen(kBegin);
        line->replace(start, line->size() - start - 2, "<errno>");
    }
}

std::vector<std::string> LinesOf(const std::string &text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        const size_t stop = end == std::string::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, stop - start));
        start = stop;
    }
    return lines;
}

std::string Shown(const std::vector<std::string> &lines, size_t which)
{
    if (which >= lines.size())
        return "(the log ends here)";
    const std::string &line = lines[which];
    if (!line.empty() && line.back() == '\n')
        return observe::Printable(line.substr(0, line.size() - 1));
    return observe::Printable(line) + " (no line end)";
}

}  // namespace

std::string MaskLog(const std::string &log)
{
    std::string masked;
    for (std::string line : LinesOf(log)) {
        observe::Head head;
        if (ReadHead(line, head))
            line.replace(head.timeStart, head.timeEnd - head.timeStart, "<time>");
        MaskPid(&line);
        MaskErrno(&line);
        masked += line;
    }
    return masked;
}

std::string DescribeDifference(const std::string &expected, const std::string &actual)
{
    if (expected == actual)
        return "";
    const std::vector<std::string> wanted = LinesOf(expected);
    const std::vector<std::string> got = LinesOf(actual);
    size_t at = 0;
    while (at < wanted.size() && at < got.size() && wanted[at] == got[at])
        ++at;
    std::string text = "they differ from line " + std::to_string(at + 1) + " on:\n";
    for (size_t i = at < 3 ? 0 : at - 3; i < at; ++i)
        text += "    both      " + Shown(wanted, i) + "\n";
    text += "    expected  " + Shown(wanted, at) + "\n";
    text += "    came      " + Shown(got, at) + "\n";
    return text;
}

}  // namespace modem
