// timeline.cpp - the time line on standard output.
#include "modem/timeline.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <unistd.h>

#include "observe/json.h"
#include "observe/names.h"

namespace modem
{
namespace
{

struct Look {
    const char *word;
    const char *colour;
};

const char kPlain[] = "\x1b[0m";
const char kDim[] = "\x1b[2m";

Look LookOf(Kind kind)
{
    switch (kind) {
    case Kind::Outside: return {"outside", "\x1b[36m"};
    case Kind::Log: return {"log", ""};
    case Kind::Mount: return {"mount", "\x1b[32m"};
    case Kind::Open: return {"open", "\x1b[35m"};
    case Kind::Good: return {"true", "\x1b[32m"};
    case Kind::Bad: return {"FALSE", "\x1b[1;31m"};
    case Kind::Note: return {"", "\x1b[2m"};
    }
    return {"", ""};
}

void SayInJson(const TimeLine &timeLine, Kind kind, const std::string &text)
{
    const char *word = kind == Kind::Note ? "note" : LookOf(kind).word;
    const long milliseconds = static_cast<long>(SecondsSince(timeLine) * 1000);
    const observe::Json json = {{"milliseconds", milliseconds}, {"kind", word}, {"text", text}};
    (void)fputs(observe::JsonLine(json).c_str(), stdout);
    (void)fflush(stdout);
}

}  // namespace

TimeLine MakeTimeLine(bool json)
{
    TimeLine timeLine;
    timeLine.json = json;
    const char *term = getenv("TERM");
    timeLine.terminal = !json && isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr &&
                        term != nullptr && std::string(term) != "dumb";
    return timeLine;
}

double SecondsSince(const TimeLine &timeLine)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - timeLine.start).count();
}

void Say(TimeLine *timeLine, Kind kind, const std::string &text)
{
    if (timeLine->json) {
        SayInJson(*timeLine, kind, text);
        return;
    }
    HideClock(timeLine);
    const Look look = LookOf(kind);
    const bool colour = timeLine->terminal;
    std::istringstream lines(text);
    bool first = true;
    for (std::string line; std::getline(lines, line); first = false) {
        const std::string shown = observe::Printable(line);
        if (first) {
            (void)printf("%s%8.2f%s  ", colour ? kDim : "", SecondsSince(*timeLine),
                         colour ? kPlain : "");
            (void)printf("%s%-8s%s%s\n", colour ? look.colour : "", look.word, shown.c_str(),
                         colour ? kPlain : "");
        } else {
            (void)printf("%18s%s%s%s\n", "", colour ? look.colour : "", shown.c_str(),
                         colour ? kPlain : "");
        }
    }
    (void)fflush(stdout);
}

void ShowClock(TimeLine *timeLine, const std::string &waitingFor)
{
    const auto now = std::chrono::steady_clock::now();
    if (!timeLine->terminal || now - timeLine->clockAt < std::chrono::milliseconds(100))
        return;
    timeLine->clockAt = now;
    timeLine->clockShown = true;
    (void)printf("\r\x1b[K%s%8.1f  ... %s%s", kDim, SecondsSince(*timeLine),
                 observe::Printable(waitingFor).c_str(), kPlain);
    (void)fflush(stdout);
}

void HideClock(TimeLine *timeLine)
{
    if (timeLine->clockShown) {
        (void)printf("\r\x1b[K");
        timeLine->clockShown = false;
    }
}

}  // namespace modem
