// logbook.h - the daemon's log, followed from outside as it is written.
#ifndef MODEM_LOGBOOK_H
#define MODEM_LOGBOOK_H

#include <string>
#include <vector>

#include "modem/daemon.h"
#include "modem/timeline.h"

namespace modem
{

// A line of the log, without its line end.
struct LogLine {
    std::string text;
    bool unwritten = false;  // read from the daemon's memory: the file does not hold it yet
};

struct LogBook {
    long offset = 0;             // how much of the file was read
    std::string text;            // all that was read since the file was emptied, line ends included
    std::string unfinished;      // the end of it that is no whole line yet
    std::vector<LogLine> lines;  // whole lines; the last one may be an unwritten one
    long lastNumber = 0;         // the number of the last record that was read from the file
    size_t shown = 0;            // lines that the time line has
    long soughtNumber = 0;       // the unwritten line that was looked for last, and how often
    int soughtTimes = 0;
};

// Passes over what the file holds already.
void SkipLog(LogBook *book);

// Reads what was added since. True when there are new lines.
bool FollowLog(LogBook *book);

// What FollowLog does with what it has read; `emptied`: the daemon emptied the file before. What it
// held then may have been seen or not, for the daemon writes its last line only to empty it.
void TakeText(LogBook *book, const std::string &added, bool emptied);

// A new daemon begins to count anew.
void RestartLog(LogBook *book);

// While the daemon sleeps, its last line stands in its memory alone, or its end
// does: reads it from there.
void SeekUnwrittenLine(LogBook *book, Process *daemon);

// Puts what is new on the time line.
void ShowNewLines(LogBook *book, TimeLine *timeLine);

// Takes in a line that the daemon has not written yet; FollowLog replaces it by the written one.
void AddUnwritten(LogBook *book, const std::string &line);

// The first line from `from` on that holds `text`; -1 when there is none.
long FindInLog(const LogBook &book, const std::string &text, size_t from);
long CountInLog(const LogBook &book, const std::string &text);

}  // namespace modem

#endif
