// check_support.h - runs a check over a text in a file of its own.
#ifndef TESTS_TOOLS_CHECK_SUPPORT_H
#define TESTS_TOOLS_CHECK_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include <doctest/doctest.h>

#include "observe/files.h"
#include "tools/check/report.h"
#include "tools/check/rules.h"

// A file that goes with the variable, in memory where the system has a folder for that.
struct TemporaryFile {
    std::string path =
        std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/kestrun-check-XXXXXX";

    explicit TemporaryFile(const std::string &content)
    {
        const int file = mkstemp(path.data());
        REQUIRE(file != -1);
        close(file);
        REQUIRE(observe::WriteFile(path, content));
    }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;
    ~TemporaryFile()
    {
        remove(path.c_str());
    }
};

// What the check finds in a file of this content. Each finding and value names the file by its
// path; in the report that is replaced by `name`.
inline kcheck::Report CheckText(const std::string &content,
                                void (*check)(kcheck::Report &, const std::string &,
                                              std::string_view),
                                const char *name = "config")
{
    const TemporaryFile file(content);
    kcheck::Report report;
    check(report, file.path, content);
    for (kcheck::Finding &finding : report.findings) {
        REQUIRE(finding.file == file.path);
        finding.file = name;
    }
    for (kcheck::Setting &setting : report.settings) {
        REQUIRE(setting.file == file.path);
        setting.file = name;
    }
    return report;
}

// The values, "|" between them, "-" for one that was not found.
inline std::string ValuesOf(const kcheck::Report &report)
{
    std::string values;
    for (const kcheck::Setting &setting : report.settings)
        values += (values.empty() && &setting == report.settings.data() ? "" : "|") +
                  setting.value.value_or("-");
    return values;
}

// Every finding that is not PASS: "VERDICT about:line", a blank between two.
inline std::string FindingsOf(const kcheck::Report &report)
{
    std::string findings;
    for (const kcheck::Finding &finding : report.findings) {
        if (finding.verdict == kcheck::Verdict::Pass)
            continue;
        findings += (findings.empty() ? "" : " ") + std::string(VerdictName(finding.verdict)) +
                    " " + finding.about + ":" + std::to_string(finding.line);
    }
    return findings;
}

#endif
