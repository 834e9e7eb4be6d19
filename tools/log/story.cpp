// story.cpp - see story.h. Splits the runs, finds what is missing, and hands each record on.
#include "tools/log/story.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "observe/daemon.h"
#include "tools/log/arrivals.h"
#include "tools/log/sentences.h"

namespace klog
{

// A record begins a run when its number starts again or when it is the banner. (So does one that
// LostStarts finds.)
static bool BeginsRun(const LogText &log, size_t index, const Found &found)
{
    if (index == 0 || (found.message && found.message->event == Event::Banner))
        return true;
    return log.records[index].number <= log.records[index - 1].number;
}

// The daemon's process id, where a record tells it.
static std::optional<long> ProcessId(const Record &record)
{
    static constexpr std::string_view kBegin = observe::kOwnerCommand;
    if (record.source != "Kestrun:DiskMountCallback" || !record.message.starts_with(kBegin))
        return std::nullopt;
    const std::string_view rest = record.message.substr(kBegin.size());
    long pid = 0;
    const auto parsed = std::from_chars(rest.data(), rest.data() + rest.size(), pid);
    return parsed.ec == std::errc() ? std::optional(pid) : std::nullopt;
}

namespace
{

// Looks for starts whose first lines are lost. Numbers that go on may be a later daemon's; the
// process id that it logs at a mount is not that of the one before, and it began where lines are
// missing.
struct LostStarts {
    std::optional<long> pid;      // of the run that is looked at
    size_t toldAt = 0;            // the record that tells it
    std::vector<size_t> gapEnds;  // records since then that stand behind missing numbers
};

struct LostStart {
    size_t first;     // the record that begins the run
    size_t pidAt;     // the records that tell its process id
    size_t otherAt;   // and the other one
    bool onlyOneGap;  // so that it is known where it began
};

}  // namespace

static std::optional<LostStart> FollowProcess(LostStarts &looked, const LogText &log, size_t index,
                                              bool begins)
{
    if (begins)
        looked = {};
    else if (log.records[index].number != log.records[index - 1].number + 1 && looked.pid)
        looked.gapEnds.push_back(index);
    const std::optional<long> pid = ProcessId(log.records[index]);
    if (!pid)
        return std::nullopt;
    std::optional<LostStart> start;
    if (looked.pid && *looked.pid != *pid && !looked.gapEnds.empty())
        start = {looked.gapEnds.back(), index, looked.toldAt, looked.gapEnds.size() == 1};
    looked = {pid, index, {}};
    return start;
}

static std::string LostStartNote(const LogText &log, const LostStart &start)
{
    return "the process id in " + Lines(log, start.pidAt, start.pidAt) + " is another than in " +
           Lines(log, start.otherAt, start.otherAt) +
           " of the run before: the daemon was started anew, and its first lines are lost" +
           (start.onlyOneGap ? "" : "; lines of it may stand in the run before");
}

static void BeginRun(Story &story, const LogText &log, size_t index)
{
    Run run = {};
    run.first = run.last = index;
    run.whole = log.records[index].number == 1;
    if (!run.whole)
        run.gaps.push_back({1, log.records[index].number - 1, index == 0});
    story.runs.push_back(std::move(run));
}

const Gap *GapBehind(const Run &run, long number)
{
    const auto gap = std::ranges::upper_bound(run.gaps, number, {}, &Gap::from);
    return gap == run.gaps.end() ? nullptr : &*gap;
}

static void NoteRecord(Run &run, const LogText &log, size_t index, const Found &found)
{
    const Record &record = log.records[index];
    if (index > run.first) {
        const long before = log.records[index - 1].number;
        if (record.number != before + 1)
            run.gaps.push_back({before + 1, record.number - 1, false});
        const auto now = Seconds(record.stamp);
        const auto then = Seconds(log.records[index - 1].stamp);
        if (now && then && *now < *then)
            run.notes.push_back("the clock was set back before " + Lines(log, index, index));
    }
    if (record.cut)
        run.notes.push_back(Lines(log, index, index) + " was cut at 2047 characters");
    if (record.zerosBefore > 0) {
        run.notes.push_back(std::to_string(record.zerosBefore) + " zero bytes before " +
                            Lines(log, index, index) +
                            ": the file was truncated while the daemon had it open");
    }
    if (found.message && found.message->event == Event::Version)
        run.version = found.message->text;
    run.last = index;
}

// A daemon that wrote behind the start of every later one has not ended, as far as the file goes.
static void FindLastRuns(Story &story, const LogText &log)
{
    size_t newest = 0;
    for (size_t i = story.runs.size(); i-- > 0;) {
        Run &run = story.runs[i];
        run.isLast = log.records[run.last].offset >= newest;
        newest = std::max(newest, log.records[run.first].offset);
    }
}

// The records of one run, told. `found` is what each record of the log was recognised as.
static void TellRun(Run &run, const LogText &log, const std::vector<Found> &found)
{
    Teller teller = {log, run};
    for (size_t index = run.first; index <= run.last; index++) {
        TrackRecord(run.calls, index, log.records[index].source, found[index].message);
        TellRecord(teller, index, found[index]);
    }
    EndTelling(teller);
}

// The record that stands last in the file.
static size_t LastOfFile(const LogText &log)
{
    const auto last = std::ranges::max_element(log.records, {}, &Record::offset);
    return static_cast<size_t>(last - log.records.begin());
}

static void NoteFile(Story &story, const LogText &log)
{
    if (log.strayBytes > 0)
        story.notes.push_back(std::to_string(log.strayBytes) +
                              " bytes before the first line belong to no line");
    if (log.several) {
        story.notes.emplace_back(
            "several daemons wrote into this file at once: each has its own run here, told apart by the numbers of the lines");
    }
    if (log.records.empty())
        return;
    const size_t last = LastOfFile(log);
    if (!log.records[last].whole)
        story.notes.emplace_back("the end of the last line is not in the file");
    story.notes.push_back(
        "the newest line is not in the file yet: the daemon writes a line when it logs the next one, so after " +
        Lines(log, last, last) + " one more may have been logged");
}

// Whether the file's last record, which is no known text, can become one: it may still be written,
// and where it ends in a line feed that can be one within its message. What it will say is open.
static bool IsBegun(const Record &record)
{
    const bool fed = record.whole && !record.cut;
    const std::string_view message(record.message.data(), record.message.size() + fed);
    return message.empty() || FindMessage(record.source, message, true).message;
}

Story TellStory(const LogText &log)
{
    Story story;
    story.several = log.several;
    const size_t lastOfFile = LastOfFile(log);
    std::vector<Found> found;
    std::vector<LostStart> lost;
    LostStarts looked;
    found.reserve(log.records.size());
    for (size_t index = 0; index < log.records.size(); index++) {
        const Record &record = log.records[index];
        found.push_back(FindMessage(record.source, record.message, record.cut));
        if (!found.back().message && !(index == lastOfFile && IsBegun(record)))
            story.unknown.push_back({index});
        const auto start = FollowProcess(looked, log, index, BeginsRun(log, index, found.back()));
        if (start)
            lost.push_back(*start);
    }
    auto next = lost.begin();
    for (size_t index = 0; index < log.records.size(); index++) {
        const bool hidden = next != lost.end() && next->first == index;
        if (hidden || BeginsRun(log, index, found[index]))
            BeginRun(story, log, index);
        if (hidden)
            story.runs.back().notes.push_back(LostStartNote(log, *next++));
        NoteRecord(story.runs.back(), log, index, found[index]);
    }
    FindLastRuns(story, log);
    for (Run &run : story.runs)
        TellRun(run, log, found);
    NoteFile(story, log);
    return story;
}

bool HasFindings(const Story &story)
{
    const bool foreign = story.runs.empty() && !story.notes.empty();
    if (!story.unknown.empty() || foreign || story.several)
        return true;
    for (const Run &run : story.runs) {
        for (const Gap &gap : run.gaps) {
            if (!gap.atStart)
                return true;
        }
        for (const Arrival &arrival : run.arrivals) {
            if (arrival.outcome != Outcome::Opened || arrival.setupFailed)
                return true;
        }
    }
    return false;
}

}  // namespace klog
