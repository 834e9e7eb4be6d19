// masking.cpp - logs made comparable. A record begins "line N===Y-M-D h:m:s   ", its numbers
// without leading zeros; only that exact form is masked, so a log whose form is wrong stays visibly
// wrong.
#include "modem/masking.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#include "observe/names.h"

namespace modem
{
namespace
{

bool IsDigit(char c)
{
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

// Moves `*at` behind one number without leading zeros. False when none stands there.
bool SkipNumber(const std::string &text, size_t *at)
{
    const size_t start = *at;
    while (*at < text.size() && IsDigit(text[*at]))
        ++*at;
    const size_t length = *at - start;
    return length > 0 && (length == 1 || text[start] != '0');
}

// Moves `*at` behind "Y-M-D h:m:s". False when that does not stand there.
bool SkipTime(const std::string &text, size_t *at)
{
    const std::string separators = "-- ::";
    const auto skipPart = [&](char separator) {
        return *at < text.size() && text[*at] == separator && SkipNumber(text, &++*at);
    };
    return SkipNumber(text, at) && std::all_of(separators.begin(), separators.end(), skipPart);
}

// The end of the time of a record that begins at `start`, and where the time begins.
bool FindTime(const std::string &line, size_t *timeStart, size_t *timeEnd)
{
    const char kBegin[] = "line ";
    if (line.compare(0, strlen(kBegin), kBegin) != 0)
        return false;
    size_t at = strlen(kBegin);
    if (!SkipNumber(line, &at) || line.compare(at, 3, "===") != 0)
        return false;
    at += 3;
    *timeStart = at;
    if (!SkipTime(line, &at) || line.compare(at, 3, "   ") != 0)
        return false;
    *timeEnd = at;
    return true;
}

void MaskPid(std::string *line)
{
    const char kCommand[] = "ps aux | awk -v PID=";
    const size_t command = line->find(kCommand);
    if (command == std::string::npos)
        return;
    const size_t start = command + strlen(kCommand);
    size_t end = start;
    if (SkipNumber(*line, &end))
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
        size_t timeStart = 0;
        size_t timeEnd = 0;
        if (FindTime(line, &timeStart, &timeEnd))
            line.replace(timeStart, timeEnd - timeStart, "<time>");
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
