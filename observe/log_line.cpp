// log_line.cpp - see log_line.h. One pass over the text, line by line; nothing
// is copied.
#include "observe/log_line.h"

#include <algorithm>
#include <cstdio>

namespace observe
{

// A record is cut at so many bytes, before its doubled percent signs become single ones.
static const size_t kLengthMax = 2047;

static bool TakeText(std::string_view &rest, std::string_view text)
{
    if (!rest.starts_with(text))
        return false;
    rest.remove_prefix(text.size());
    return true;
}

// Takes a number of at most ten digits, without leading zeros.
static bool TakeNumber(std::string_view &rest, long &number)
{
    size_t digits = 0;
    number = 0;
    if (rest.size() > 1 && rest[0] == '0' && rest[1] >= '0' && rest[1] <= '9')
        return false;
    while (digits < rest.size() && digits < 10 && rest[digits] >= '0' && rest[digits] <= '9')
        number = number * 10 + (rest[digits++] - '0');
    rest.remove_prefix(digits);
    return digits > 0;
}

static const char *const kBehindFields[6] = {"-", "-", " ", ":", ":", "   "};

static bool TakeStamp(std::string_view &rest, Stamp &stamp)
{
    long fields[6];
    for (size_t i = 0; i < 6; i++) {
        if (!TakeNumber(rest, fields[i]) || fields[i] > 9999 || !TakeText(rest, kBehindFields[i]))
            return false;
    }
    stamp = {static_cast<int>(fields[0]), static_cast<int>(fields[1]), static_cast<int>(fields[2]),
             static_cast<int>(fields[3]), static_cast<int>(fields[4]), static_cast<int>(fields[5])};
    return true;
}

static bool TakeRecordNumber(std::string_view &rest, long &number)
{
    return TakeText(rest, "line ") && TakeNumber(rest, number) && TakeText(rest, "===");
}

bool ReadHead(std::string_view text, Head &head)
{
    std::string_view rest = text;
    if (!TakeRecordNumber(rest, head.number))
        return false;
    head.timeStart = text.size() - rest.size();
    if (!TakeStamp(rest, head.stamp))
        return false;
    head.length = text.size() - rest.size();
    head.timeEnd = head.length - std::string_view(kBehindFields[5]).size();
    return true;
}

long RecordNumber(std::string_view line)
{
    long number = 0;
    return TakeRecordNumber(line, number) ? number : 0;
}

std::string LineBody(const std::string &line)
{
    Head head;
    return ReadHead(line, head) ? line.substr(head.length) : line;
}

static bool IsNameChar(char ch)
{
    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') ||
           ch == '_' || ch == ':';
}

// Reads the beginning of a record at the start of `text`. Gives the length of that beginning in
// `headerLength`.
static bool ReadHeader(std::string_view text, Record &record, size_t &headerLength)
{
    Head head;
    if (!ReadHead(text, head))
        return false;
    record.number = head.number;
    record.stamp = head.stamp;
    std::string_view rest = text.substr(head.length);
    size_t length = 0;
    while (length < rest.size() && IsNameChar(rest[length]))
        length++;
    record.source = rest.substr(0, length);
    rest.remove_prefix(length);
    if (record.source.find(':') == std::string_view::npos || !TakeText(rest, " --- "))
        return false;
    headerLength = text.size() - rest.size();
    return true;
}

// Takes as much of `text` as there is. False when `rest` goes on otherwise.
static bool TakeBegin(std::string_view &rest, std::string_view text)
{
    return TakeText(rest, text.substr(0, rest.size()));
}

// Whether all of `text` can be the first part of the beginning of a record.
static bool BeginsHeader(std::string_view text)
{
    std::string_view rest = text;
    long number = 0;
    if (!TakeBegin(rest, "line ") || (!TakeNumber(rest, number) && !rest.empty()) ||
        !TakeBegin(rest, "==="))
        return false;
    for (const char *behind : kBehindFields) {
        if ((!TakeNumber(rest, number) && !rest.empty()) || !TakeBegin(rest, behind))
            return false;
    }
    while (!rest.empty() && IsNameChar(rest[0]))
        rest.remove_prefix(1);
    return std::string_view(" --- ").starts_with(rest);
}

namespace
{

// The state of one pass.
struct Parser {
    std::string_view text;
    LogText log;
    size_t textLine = 0;
    size_t messageStart = 0;  // of the record that is being read, in the text
    bool open = false;        // there is such a record
};

}  // namespace

// Ends the record that is being read at `end`.
static void Close(Parser &parser, size_t end, bool cut)
{
    if (!parser.open)
        return;
    Record &record = parser.log.records.back();
    const size_t cutAt = record.offset + kLengthMax;
    if (!cut && cutAt < end && BeginsHeader(parser.text.substr(cutAt, end - cutAt))) {
        end = cutAt;
        cut = true;
    }
    const bool fed = !cut && end > parser.messageStart && parser.text[end - 1] == '\n';
    record.message = parser.text.substr(parser.messageStart, end - parser.messageStart - fed);
    record.cut = cut || (!fed && end - record.offset == kLengthMax);
    record.whole = fed || record.cut;
    parser.open = false;
}

static void Open(Parser &parser, const Record &header, size_t offset, size_t headerLength,
                 bool joined, size_t zeros)
{
    Record record = header;
    record.textLine = parser.textLine;
    record.offset = offset;
    record.joined = joined;
    record.zerosBefore = zeros;
    parser.log.records.push_back(record);
    parser.messageStart = offset + headerLength;
    parser.open = true;
}

// Where, before `end`, a record follows the cut one that is being read; `end` when none does. One
// with percent signs was cut before the doubled ones became single, so it may be shorter now.
static size_t FindJoined(const Parser &parser, size_t end, Record &header, size_t &headerLength)
{
    const Record &record = parser.log.records.back();
    const size_t cutAt = record.offset + kLengthMax;
    if (cutAt < end && ReadHeader(parser.text.substr(cutAt, end - cutAt), header, headerLength))
        return cutAt;
    std::string_view piece = parser.text.substr(record.offset, end - record.offset);
    piece = piece.substr(0, kLengthMax);
    if (end - record.offset <= kLengthMax / 2 || piece.find('%') == std::string_view::npos)
        return end;
    const std::string next = "line " + std::to_string(record.number + 1) + "===";
    const size_t at = piece.find(next, kLengthMax / 2);
    if (at == std::string_view::npos)
        return end;
    const size_t start = record.offset + at;
    return ReadHeader(parser.text.substr(start, end - start), header, headerLength) ? start : end;
}

// Where, before `end`, a whole beginning of a record follows one at `at` that a full disk has torn;
// `end` when none does.
static size_t FindTorn(const Parser &parser, size_t at, size_t end, Record &header,
                       size_t &headerLength)
{
    const std::string_view text = parser.text.substr(0, end);
    if (text.substr(at, 5) != "line ")
        return end;
    for (size_t next = text.find("line ", at + 1); next < end;
         next = text.find("line ", next + 1)) {
        if (!BeginsHeader(text.substr(at, next - at)))
            return end;
        if (ReadHeader(text.substr(next), header, headerLength))
            return next;
    }
    return end;
}

// Takes the line of text from `start` to `end`, its line feed included.
static void TakeLine(Parser &parser, size_t start, size_t end)
{
    parser.textLine++;
    size_t zeros = 0;
    while (start + zeros < end && parser.text[start + zeros] == '\0')
        zeros++;
    Record header = {};
    size_t headerLength = 0;
    size_t at = start + zeros;
    bool begins = ReadHeader(parser.text.substr(at, end - at), header, headerLength);
    const size_t torn = begins ? end : FindTorn(parser, at, end, header, headerLength);
    if (torn < end) {
        at = torn;
        begins = true;
    }
    if (begins) {
        Close(parser, start, false);
        Open(parser, header, at, headerLength, false, zeros);
    } else if (!parser.open) {
        parser.log.strayBytes += end - at;
        return;
    } else if (BeginsHeader(parser.text.substr(at, end - at))) {
        // The file ends here. Whether it is a record that begins or text of the one before is open.
        Close(parser, start, false);
        parser.log.records.back().whole = false;
        return;
    }
    for (;;) {
        const size_t joined = FindJoined(parser, end, header, headerLength);
        if (joined == end)
            return;
        Close(parser, joined, true);
        Open(parser, header, joined, headerLength, true, 0);
    }
}

LogText ParseLog(std::string_view text)
{
    Parser parser;
    parser.text = text;
    size_t start = 0;
    while (start < text.size()) {
        const size_t feed = text.find('\n', start);
        const size_t end = feed == std::string_view::npos ? text.size() : feed + 1;
        TakeLine(parser, start, end);
        start = end;
    }
    Close(parser, text.size(), false);
    return std::move(parser.log);
}

namespace
{

// One daemon's lines, while those of several are told apart.
struct Stream {
    long last = 0;  // number of its newest record
    std::vector<Record> records = {};
};

}  // namespace

static const size_t kStreamsMax = 4;  // daemons that may write at once

// The newest other stream that goes on with `number`; `current` when that does, or none.
static size_t FindOther(const std::vector<Stream> &streams, long number, size_t current)
{
    if (number == 1 || number == streams[current].last + 1)
        return current;
    const size_t oldest = streams.size() > kStreamsMax ? streams.size() - kStreamsMax : 0;
    for (size_t i = streams.size(); i-- > oldest;) {
        if (i != current && streams[i].last + 1 == number)
            return i;
    }
    return current;
}

void Untangle(LogText &log)
{
    std::vector<Stream> streams;
    size_t current = 0;
    for (size_t i = 0; i < log.records.size(); i++) {
        const Record &record = log.records[i];
        const size_t other = streams.empty() ? 0 : FindOther(streams, record.number, current);
        log.several = log.several || other != current;
        const bool begins =
            streams.empty() || (other == current && record.number <= streams[current].last);
        if (begins)
            streams.emplace_back();
        current = begins ? streams.size() - 1 : other;
        streams[current].last = record.number;
        streams[current].records.push_back(record);
    }
    if (!log.several)
        return;
    log.records.clear();
    for (const Stream &stream : streams)
        log.records.insert(log.records.end(), stream.records.begin(), stream.records.end());
}

static bool EndsAllInCrLf(std::string_view content)
{
    size_t feed = content.find('\n');
    const bool any = feed != std::string_view::npos;
    while (feed != std::string_view::npos) {
        if (feed == 0 || content[feed - 1] != '\r')
            return false;
        feed = content.find('\n', feed + 1);
    }
    return any;
}

std::vector<std::string> UndoConversions(std::string &content)
{
    std::vector<std::string> notes;
    if (content.starts_with("\xEF\xBB\xBF")) {
        content.erase(0, 3);
        notes.emplace_back(
            "the file begins with a byte-order mark: another program than the daemon wrote it");
    }
    if (EndsAllInCrLf(content)) {
        size_t kept = 0;
        for (size_t i = 0; i < content.size(); i++) {
            if (content[i] != '\r' || i + 1 == content.size() || content[i + 1] != '\n')
                content[kept++] = content[i];
        }
        content.resize(kept);
        notes.emplace_back(
            "every line ends in CR LF: another program than the daemon wrote the file");
    }
    return notes;
}

std::string Sortable(const Stamp &stamp)
{
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", stamp.year, stamp.month, stamp.day,
             stamp.hour, stamp.minute, stamp.second);
    return text;
}

// Days from 1970-01-01, counted in years that begin in March.
static int64_t Days(const Stamp &stamp)
{
    const int64_t month = (stamp.month + 9) % 12;
    const int64_t year = stamp.year - (month >= 10 ? 1 : 0);
    return 365 * year + year / 4 - year / 100 + year / 400 + (month * 306 + 5) / 10 +
           (stamp.day - 1) - 719468;
}

std::optional<int64_t> Seconds(const Stamp &stamp)
{
    if (stamp.year <= 1900)
        return std::nullopt;
    return ((Days(stamp) * 24 + stamp.hour) * 60 + stamp.minute) * 60 + stamp.second;
}

}  // namespace observe
