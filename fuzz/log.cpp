// The log with any message, device path, source path and function name, at any time: its lines are
// those that a plain reading of the rules gives. The first byte chooses how the text comes in, the
// next eight are the time.
#include "Common/Log.h"

#include "fuzz/check.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

static const std::size_t kHead = 1 + sizeof(time_t);
static const std::size_t kMost = 2047;  // characters of a message, and of a line

static thread_local const time_t *t_now;  // null while nothing is logged

time_t time(time_t *result) noexcept
{
    timespec at = {};
    clock_gettime(CLOCK_REALTIME, &at);
    const time_t now = t_now != nullptr ? *t_now : at.tv_sec;
    if (result != nullptr)
        *result = now;
    return now;
}

// The text as a format that takes nothing: doubled percent signs single, up to the first sign that
// stands alone, which is at *lone; all from there on as it stands.
static std::string Interpreted(const std::string &text, std::size_t *lone)
{
    std::string made;
    std::size_t at = 0;
    for (; at < text.size(); at++) {
        if (text[at] == '%' && (at + 1 == text.size() || text[at + 1] != '%'))
            break;
        at += text[at] == '%' ? 1 : 0;
        made += text[at];
    }
    *lone = made.size();
    return made + text.substr(std::min(at, text.size()));
}

static std::string BaseName(const std::string &path)
{
    const std::size_t slash = path.find_last_of('/');
    if (path.empty())
        return path;
    return path.substr(slash == std::string::npos || slash == 0 ? 1 : slash + 1);
}

// The date and time as a line begins with them, every part a number:
// "line 7===2026-11-20 9:5:3   ".
static std::string TimeText(time_t now)
{
    tm local = {};
    if (localtime_r(&now, &local) == nullptr)
        local = {};
    return std::to_string(local.tm_year + 1900L) + "-" + std::to_string(local.tm_mon + 1) + "-" +
           std::to_string(local.tm_mday) + " " + std::to_string(local.tm_hour) + ":" +
           std::to_string(local.tm_min) + ":" + std::to_string(local.tm_sec) + "   ";
}

// A file that is written by the log and read here, without a name.
struct LogFile {
    std::string path = "/tmp/kestrun-fuzz-log-XXXXXX";
    int fd = mkstemp(path.data());
    int lines = 0;  // that the process has logged

    LogFile()
    {
        FUZZ_CHECK(fd >= 0);
        unlink(path.c_str());
        path = "/proc/self/fd/" + std::to_string(fd);
    }
    std::string Take()
    {
        char held[2 * kMost];
        const ssize_t length = pread(fd, held, sizeof held, 0);
        FUZZ_CHECK(length >= 0 && ftruncate(fd, 0) == 0);
        return {held, static_cast<std::size_t>(length)};
    }
};

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static LogFile file;
    if (size < kHead)
        return 0;
    time_t now = 0;
    memcpy(&now, data + 1, sizeof now);
    std::string text(reinterpret_cast<const char *>(data) + kHead, size - kHead);
    text = text.substr(0, text.find('\0'));
    enum { kAsFormat, kAsArgument, kAsFunction, kAsSource, kWays };
    const int way = data[0] % kWays;
    const bool isSource = way == kAsSource;
    const std::string function = way == kAsFunction ? text : "FindCommPort";
    const std::string source = isSource ? text : "src/Kestrun";
    std::string message = way == kAsFormat || way == kAsArgument ? text : "message";

    t_now = &now;
    InitLogSystem(file.path.c_str());
    if (way == kAsArgument)
        Log(source.c_str(), function.c_str(), "%s", text.c_str());
    else
        Log(source.c_str(), function.c_str(), message.c_str());
    CloseLogSystem();
    t_now = nullptr;
    file.lines++;

    std::size_t lone = message.size();
    if (way == kAsFormat)
        message = Interpreted(message, &lone);
    const bool isPlain = lone == message.size();
    const std::string head = "line " + std::to_string(file.lines) + "===" + TimeText(now) +
                             BaseName(source) + ":" + function + " --- ";
    const std::string whole = (head + message.substr(0, kMost) + "\n").substr(0, kMost);
    const std::string written = file.Take();
    FUZZ_CHECK(!written.empty() && written.size() <= kMost);
    std::size_t ignored = 0;
    if (isPlain || written == Interpreted(whole, &ignored)) {
        FUZZ_CHECK(written == Interpreted(whole, &ignored));
        return 0;
    }
    // A message with an invalid directive is empty; one that prints a character where it breaks
    // off goes on behind it. Up to there the line is the same.
    const std::string before =
        Interpreted((head + message.substr(0, lone)).substr(0, kMost), &ignored);
    const std::string empty = Interpreted((head + "\n").substr(0, kMost), &ignored);
    FUZZ_CHECK(written == empty || written.compare(0, before.size(), before) == 0);
    return 0;
}
