// log_capture.h - what a piece of code wrote to the log, for tests.
//
//     LogCapture log;
//     ReadInteger(nullptr, "n", 7);
//     CHECK(log.Take() == Lines{"INI:ReadInteger --- param error"});
//
// Files are read with open and read, so a test program may replace the stdio functions.
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include "Common/Log.h"

#include <doctest/doctest.h>

#include <ctype.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

// A list of texts that doctest can print, a text a line.
struct Lines : std::vector<std::string> {
    using std::vector<std::string>::vector;
};

inline std::ostream &operator<<(std::ostream &out, const Lines &lines)
{
    for (const std::string &line : lines)
        out << "\n    |" << line << "|";
    return out;
}

// The whole content of a file; empty when it cannot be opened.
inline std::string FileContent(const std::string &path)
{
    std::string content;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return content;
    char block[65536];
    for (ssize_t got = 0; (got = read(fd, block, sizeof block)) > 0;)
        content.append(block, static_cast<size_t>(got));
    close(fd);
    return content;
}

// The length of the "line 12===2026-11-20 9:5:3   " at `at`, or 0 when there is none. `*timeAt` and
// `*timeEnd` are where its date and time stand.
inline size_t LogPrefixLength(const std::string &text, size_t at, size_t *timeAt = nullptr,
                              size_t *timeEnd = nullptr)
{
    const char *const pattern = "line #===#-#-# #:#:#   ";
    size_t to = at;
    for (const char *p = pattern; *p != '\0'; p++) {
        if (*p != '#') {
            if (to >= text.size() || text[to] != *p)
                return 0;
            to++;
            if (timeAt && p[1] == '#' && p[-1] == '=')
                *timeAt = to;
            continue;
        }
        const size_t from = to;
        if (to < text.size() && text[to] == '-')  // a number may be negative
            to++;
        while (to < text.size() && isdigit(static_cast<unsigned char>(text[to])))
            to++;
        if (to == from)
            return 0;
        if (timeEnd)
            *timeEnd = to;
    }
    return to - at;
}

// A log's text with the date and time of every line replaced by "TIME".
inline std::string MaskTimes(const std::string &text)
{
    std::string masked;
    for (size_t at = 0; at < text.size();) {
        size_t timeAt = 0;
        size_t timeEnd = 0;
        const bool atStart = at == 0 || text[at - 1] == '\n';
        if (atStart && LogPrefixLength(text, at, &timeAt, &timeEnd) > 0) {
            masked += text.substr(at, timeAt - at) + "TIME";
            at = timeEnd;
        }
        masked += text[at++];
    }
    return masked;
}

// A log's records without numbers and times: "INI:ReadString --- param error.". A message that has
// line feeds keeps them.
inline Lines LogRecords(const std::string &text)
{
    Lines records;
    for (size_t at = 0; at < text.size();) {
        const size_t lineFeed = text.find('\n', at);
        const size_t end = lineFeed == std::string::npos ? text.size() : lineFeed + 1;
        const size_t prefix = LogPrefixLength(text, at);
        if (prefix > 0 || records.empty())
            records.push_back(text.substr(at + prefix, end - at - prefix));
        else
            records.back() += text.substr(at, end - at);
        at = end;
    }
    for (std::string &record : records) {
        if (!record.empty() && record.back() == '\n')
            record.pop_back();
    }
    return records;
}

// Catches the log in a file of its own, from here to the end of the block. The log's stream is
// opened at once, so the files that the code under test opens can be counted.
struct LogCapture {
    std::string path;

    LogCapture()
    {
        const char *folder = getenv("TMPDIR");
        path = std::string(folder ? folder : "/tmp") + "/kestrun-log-XXXXXX";
        const int fd = mkstemp(path.data());
        REQUIRE(fd >= 0);
        close(fd);
        Start();
    }

    ~LogCapture()
    {
        CloseLogSystem();
        unlink(path.c_str());
    }

    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The records since the start, or since the last call.
    Lines Take()
    {
        CloseLogSystem();
        Lines records = LogRecords(FileContent(path));
        REQUIRE(!records.empty());
        REQUIRE(records.front() == "capture:Start --- begin");
        records.erase(records.begin());
        Start();
        return records;
    }

  private:
    void Start()
    {
        CloseLogSystem();
        REQUIRE(truncate(path.c_str(), 0) == 0);
        InitLogSystem(path.c_str());
        Log("test/capture", "Start", "begin");
    }
};

#endif
