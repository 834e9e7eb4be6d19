// bytes_rules.cpp - what does not depend on sections and keys.
#include "tools/check/lines.h"
#include "tools/check/rules.h"

namespace kcheck
{

static const size_t kLineMax = 1023;  // bytes that either reader takes as one line

static void CheckMarks(Report &report, const std::string &file, std::string_view content)
{
    if (content.starts_with("\xEF\xBB\xBF")) {
        report.findings.push_back(
            {Verdict::Warn, file, "bom", 1, "a byte-order mark of UTF-8",
             "it is text before the first line's own: a header still counts, a key there does not"});
    }
    if (content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF")) {
        report.findings.push_back({Verdict::Fail, file, "utf-16", 1, "the file is UTF-16",
                                   "nothing in it is found: the defaults hold"});
    }
}

static void CheckLineEnds(Report &report, const std::string &file, const std::vector<Line> &lines)
{
    size_t crlf = 0;
    for (const Line &line : lines) {
        const bool ends = line.text.ends_with('\r');
        crlf += ends;
        const size_t lone = line.text.substr(0, line.text.size() - ends).find('\r');
        if (lone != std::string_view::npos) {
            report.findings.push_back({Verdict::Fail, file, "carriage-return", line.number,
                                       "a carriage return that ends no line",
                                       "for the daemon the line goes on behind it"});
        }
    }
    if (crlf > 0) {
        report.findings.push_back({Verdict::Pass, file, "line-ends", 0,
                                   std::to_string(crlf) + " lines end in CR LF",
                                   "they are read as if they ended in LF"});
    }
}

void CheckBytes(Report &report, const std::string &file, std::string_view content)
{
    const std::vector<Line> lines = SplitLines(content);
    CheckMarks(report, file, content);
    CheckLineEnds(report, file, lines);
    for (const Line &line : lines) {
        if (line.text.size() > kLineMax) {
            report.findings.push_back(
                {Verdict::Warn, file, "long-line", line.number,
                 std::to_string(line.text.size()) + " bytes in one line",
                 file == "config"
                     ? "name and path1: what is behind byte 1023 is dropped; disable_cdrom: it is a line of its own"
                     : "what is behind byte 1023 is a line of its own"});
        }
        const size_t zero = line.text.find('\0');
        if (zero != std::string_view::npos && file == "config") {
            report.findings.push_back({Verdict::Fail, file, "zero-byte", line.number, "a zero byte",
                                       "the line ends there; at its start it even ends the file"});
        } else if (zero != std::string_view::npos) {
            report.findings.push_back(
                {Verdict::Pass, file, "zero-byte", line.number, "a zero byte",
                 "the line ends there; the daemon leaves one when it switches a setup off"});
        }
    }
}

}  // namespace kcheck
