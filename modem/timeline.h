// timeline.h - the time line: what happened when, as it happens. A terminal gets colour and a clock
// that runs while nothing happens; a pipe gets plain text; a program that asks for it gets JSON.
#ifndef MODEM_TIMELINE_H
#define MODEM_TIMELINE_H

#include <chrono>
#include <string>

namespace modem
{

enum class Kind {
    Outside,  // what the bench did
    Log,      // a line of the daemon's log
    Mount,
    Open,
    Good,  // an expectation that came true
    Bad,   // one that did not
    Note,
};

struct TimeLine {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    bool terminal = false;
    bool json = false;
    bool clockShown = false;
    std::chrono::steady_clock::time_point clockAt;
};

// For standard output as it is, or in JSON: an object on a line of its own for each entry, with its
// "milliseconds" since the start, its "kind" and its "text".
TimeLine MakeTimeLine(bool json);

// Seconds since the start, real ones.
double SecondsSince(const TimeLine &timeLine);

// Prints one entry. Line ends in `text` are kept, the further lines set in; other bytes that no
// terminal shows are written as \xNN.
void Say(TimeLine *timeLine, Kind kind, const std::string &text);

// On a terminal: shows the running clock and what is waited for.
void ShowClock(TimeLine *timeLine, const std::string &waitingFor);
void HideClock(TimeLine *timeLine);

}  // namespace modem

#endif
