// logbook.cpp - the daemon's log, followed from outside. The daemon keeps the last line in memory
// until the next one; the player may add it as an unwritten line, which gives way to the written
// one.
#include "modem/logbook.h"

#include <algorithm>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "observe/daemon.h"
#include "observe/log_line.h"
#include "observe/process.h"

namespace modem
{

static const int kMostSought = 5;  // looks for one line

void SkipLog(LogBook *book)
{
    struct stat status;
    book->offset = stat(observe::kLogFile, &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

void TakeText(LogBook *book, const std::string &added, bool emptied)
{
    if (emptied) {
        book->text.clear();
        book->unfinished.clear();
    }
    if (!added.empty() && !book->lines.empty() && book->lines.back().unwritten)
        book->lines.pop_back();
    book->text += added;
    book->unfinished += added;
    size_t start = 0;
    for (size_t end = book->unfinished.find('\n'); end != std::string::npos;
         end = book->unfinished.find('\n', start)) {
        const std::string line = book->unfinished.substr(start, end - start);
        const long number = observe::RecordNumber(line);
        book->lastNumber = number > 0 ? number : book->lastNumber;
        book->lines.push_back({line, false});
        start = end + 1;
    }
    book->unfinished.erase(0, start);
}

bool FollowLog(LogBook *book)
{
    const int file = open(observe::kLogFile, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    struct stat status;
    const bool emptied = fstat(file, &status) == 0 && status.st_size < book->offset;
    if (emptied)
        book->offset = 0;
    std::string added;
    char buffer[16384];
    for (ssize_t got = 0; (got = pread(file, buffer, sizeof buffer, book->offset)) > 0;) {
        added.append(buffer, static_cast<size_t>(got));
        book->offset += got;
    }
    (void)close(file);
    if (added.empty() && !emptied)
        return false;
    TakeText(book, added, emptied);
    return !added.empty();
}

void RestartLog(LogBook *book)
{
    (void)FollowLog(book);
    if (!book->lines.empty() && book->lines.back().unwritten)
        book->lines.pop_back();
    book->lastNumber = 0;
}

void SeekUnwrittenLine(LogBook *book, Process *daemon)
{
    const long number = book->lastNumber + 1;
    if (number != book->soughtNumber) {
        book->soughtNumber = number;
        book->soughtTimes = 0;
    }
    const bool known = !book->lines.empty() && book->lines.back().unwritten;
    if (known || book->soughtTimes >= kMostSought || !observe::IsAsleep(daemon->pid))
        return;
    ++book->soughtTimes;
    const std::string line = observe::UnwrittenLine(daemon->pid, &daemon->bufferPage, number,
                                                    book->unfinished, book->offset);
    // The log may have been written between the look at the file and the look at the memory.
    if (!line.empty() && !FollowLog(book))
        AddUnwritten(book, line);
}

void ShowNewLines(LogBook *book, TimeLine *timeLine)
{
    book->shown = std::min(book->shown, book->lines.size());
    for (; book->shown < book->lines.size(); ++book->shown) {
        const std::string &line = book->lines[book->shown].text;
        const long number = observe::RecordNumber(line);
        char text[24];
        (void)snprintf(text, sizeof text, number > 0 ? "%4ld  " : "      ", number);
        Say(timeLine, Kind::Log, text + observe::LineBody(line));
    }
}

void AddUnwritten(LogBook *book, const std::string &line)
{
    if (book->lines.empty() || !book->lines.back().unwritten) {
        const std::string whole =
            !line.empty() && line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
        book->lines.push_back({whole, true});
    }
}

long FindInLog(const LogBook &book, const std::string &text, size_t from)
{
    for (size_t i = from; i < book.lines.size(); ++i) {
        if (book.lines[i].text.find(text) != std::string::npos)
            return static_cast<long>(i);
    }
    return -1;
}

long CountInLog(const LogBook &book, const std::string &text)
{
    long count = 0;
    for (const LogLine &line : book.lines)
        count += line.text.find(text) != std::string::npos;
    return count;
}

}  // namespace modem
