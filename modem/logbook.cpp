// logbook.cpp - the daemon's log, followed from outside. The daemon keeps the last line in memory
// until the next one; the player may add it as an unwritten line, which gives way to the written one.
#include "modem/logbook.h"

#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "observe/daemon.h"

namespace modem
{

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
        const long number = RecordNumber(line);
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

void AddUnwritten(LogBook *book, const std::string &line)
{
    if (book->lines.empty() || !book->lines.back().unwritten) {
        const std::string whole =
            !line.empty() && line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
        book->lines.push_back({whole, true});
    }
}

long RecordNumber(const std::string &line)
{
    if (line.compare(0, 5, "line ") != 0)
        return 0;
    char *end = nullptr;
    const long number = strtol(line.c_str() + 5, &end, 10);
    return line.compare(static_cast<size_t>(end - line.c_str()), 3, "===") == 0 ? number : 0;
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

std::string LineBody(const std::string &line)
{
    const size_t time = line.find("===");
    const size_t body = time == std::string::npos ? time : line.find("   ", time);
    return RecordNumber(line) > 0 && body != std::string::npos ? line.substr(body + 3) : line;
}

}  // namespace modem
