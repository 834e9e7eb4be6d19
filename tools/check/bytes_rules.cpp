// bytes_rules.cpp - what does not depend on sections and keys.
#include "observe/names.h"
#include "observe/nearest.h"
#include "tools/check/checked_file.h"

namespace kcheck
{

static const size_t kLineMax = 1023;  // bytes that either reader takes as one line

void Add(CheckedFile &file, Verdict verdict, const std::string &about, size_t line,
         const std::string &found, const std::string &effect)
{
    file.report.findings.push_back(
        {verdict, observe::Printable(file.path), about, line, found, effect});
}

void AddUnknown(CheckedFile &file, const std::string &about, size_t line, std::string_view text,
                const std::vector<std::string> &known)
{
    const std::string meant = observe::Nearest(text, known);
    Add(file, Verdict::Warn, about, line,
        observe::Quoted(text) + (meant.empty() ? "" : ": did you mean " + meant + "?"),
        "nothing reads it");
}

static void CheckMarks(CheckedFile &file)
{
    if (file.content.starts_with("\xEF\xBB\xBF")) {
        Add(file, Verdict::Warn, "bom", 1, "a byte-order mark of UTF-8",
            "it is text before the first line's own: a header still counts, a key there does not");
    }
    if (file.content.starts_with("\xFF\xFE") || file.content.starts_with("\xFE\xFF")) {
        Add(file, Verdict::Fail, "utf-16", 1, "the file is UTF-16",
            "nothing in it is found: the defaults hold");
    }
}

static void CheckLineEnds(CheckedFile &file)
{
    size_t crlf = 0;
    for (const Line &line : file.lines) {
        const bool ends = line.text.ends_with('\r');
        crlf += ends;
        const size_t lone = line.text.substr(0, line.text.size() - ends).find('\r');
        if (lone != std::string_view::npos) {
            Add(file, Verdict::Fail, "carriage-return", line.number,
                "a carriage return that ends no line", "for the daemon the line goes on behind it");
        }
    }
    if (crlf > 0) {
        Add(file, Verdict::Pass, "line-ends", 0, std::to_string(crlf) + " lines end in CR LF",
            "they are read as if they ended in LF");
    }
}

void CheckBytes(CheckedFile &file)
{
    const bool config = file.isConfig;
    CheckMarks(file);
    CheckLineEnds(file);
    for (const Line &line : file.lines) {
        if (line.text.size() > kLineMax) {
            Add(file, Verdict::Warn, "long-line", line.number,
                std::to_string(line.text.size()) + " bytes in one line",
                config
                    ? "name and path1: what is behind byte 1023 is dropped; disable_cdrom: it is a line of its own"
                    : "what is behind byte 1023 is a line of its own");
        }
        if (line.text.find('\0') == std::string_view::npos)
            continue;
        Add(file, config ? Verdict::Fail : Verdict::Pass, "zero-byte", line.number, "a zero byte",
            config ? "the line ends there; at its start it even ends the file"
                   : "the line ends there; the daemon leaves one when it switches a setup off");
    }
}

}  // namespace kcheck
