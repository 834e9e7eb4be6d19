// log_line.h - the lines of a log: how one begins, and the records that its
// whole text holds.
//
// A record begins with "line <number>===" and goes on to the next one: a
// message may hold line feeds of its own, and a record that was cut at 2047
// bytes has lost its line feed, so that the next one follows on the same line
// of text.
#ifndef OBSERVE_LOG_LINE_H
#define OBSERVE_LOG_LINE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace observe
{

// A local time as the log gives it. Where the daemon had no clock it is 1900-1-0 0:0:0.
struct Stamp {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// "2026-11-20 09:05:03": texts that sort as the times do.
std::string Sortable(const Stamp &stamp);

// Seconds from 1970-01-01 00:00:00 of the same local time; nothing when the daemon had no clock.
std::optional<int64_t> Seconds(const Stamp &stamp);

// How a record begins, up to its time: "line 12===2026-11-20 9:5:3   ", the
// numbers without leading zeros.
struct Head {
    long number = 0;
    Stamp stamp;
    size_t timeStart = 0, timeEnd = 0;  // of the time
    size_t length = 0;                  // of all of it
};

// Reads the beginning of a record at the start of `text`. False when none
// stands there.
bool ReadHead(std::string_view text, Head &head);

// The number of the record that `line` begins ("line 12===..."), 0 when it
// begins none.
long RecordNumber(std::string_view line);

// What a line says behind its number and time: "Kestrun:main --- ..."; all of a
// line that begins no record.
std::string LineBody(const std::string &line);

struct Record {
    long number;               // that the daemon gave it
    Stamp stamp;               // local time of the call
    std::string_view source;   // "Kestrun:main"
    std::string_view message;  // without the line feed that ends the record
    size_t textLine;           // in the file, from 1, where the record begins
    size_t offset;             // in the file, from 0
    bool cut;                  // the record was cut at 2047 bytes
    bool joined;               // it follows a cut one on the same line of text
    bool whole;                // its end has been written
    size_t zerosBefore;        // zero bytes before it: the file was truncated under the daemon
};

struct LogText {
    std::vector<Record> records;  // in the order of the file, until Untangle changes it
    size_t strayBytes = 0;        // before the first record, zero bytes not counted
    // Several daemons wrote at once: Untangle has put together what is each one's.
    bool several = false;
};

// Takes out of `content` what an editor or a mail program put in: a byte-order mark at its start
// and, where every line ends in CR LF, the carriage returns before the line feeds. Returns a note
// on each.
std::vector<std::string> UndoConversions(std::string &content);

// Takes `text` apart. The records point into `text`, which the caller keeps.
LogText ParseLog(std::string_view text);

// Puts the records of each daemon together where several wrote into the file at once: a daemon goes
// on with the number behind its own last one. Where none does, numbers jump because lines are
// missing, and nothing changes.
void Untangle(LogText &log);

}  // namespace observe

#endif
