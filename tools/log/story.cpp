// story.cpp - see story.h. Splits the runs, finds what is missing, and hands each record on.
#include "tools/log/story.h"

#include "tools/log/arrivals.h"
#include "tools/log/sentences.h"

namespace klog
{

// A record begins a run when its number starts again or when it is the banner.
static bool BeginsRun(const LogText &log, size_t index, const Found &found)
{
    if (index == 0 || (found.message && found.message->event == Event::Banner))
        return true;
    return log.records[index].number <= log.records[index - 1].number;
}

static void BeginRun(Story &story, const LogText &log, size_t index)
{
    Run run = {};
    run.first = run.last = index;
    run.isLast = true;
    if (!story.runs.empty())
        story.runs.back().isLast = false;
    run.whole = log.records[index].number == 1;
    if (!run.whole)
        run.gaps.push_back({1, log.records[index].number - 1, index == 0});
    story.runs.push_back(std::move(run));
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

static void NoteFile(Story &story, const LogText &log)
{
    if (log.strayBytes > 0)
        story.notes.push_back(std::to_string(log.strayBytes) +
                              " bytes before the first line belong to no line");
    if (log.records.empty())
        return;
    if (!log.records.back().whole)
        story.notes.emplace_back("the end of the last line is not in the file");
    story.notes.push_back(
        "the newest line is not in the file yet: the daemon writes a line when it logs the next one, so after " +
        Lines(log, log.records.size() - 1, log.records.size() - 1) +
        " one more may have been logged");
}

Story TellStory(const LogText &log)
{
    Story story;
    std::vector<Found> found;
    found.reserve(log.records.size());
    for (size_t index = 0; index < log.records.size(); index++) {
        const Record &record = log.records[index];
        found.push_back(FindMessage(record.source, record.message, record.cut || !record.whole));
        if (!found.back().message)
            story.unknown.push_back({index});
        if (BeginsRun(log, index, found.back()))
            BeginRun(story, log, index);
        NoteRecord(story.runs.back(), log, index, found.back());
    }
    for (Run &run : story.runs)
        TellRun(run, log, found);
    NoteFile(story, log);
    return story;
}

bool HasFindings(const Story &story)
{
    const bool foreign = story.runs.empty() && !story.notes.empty();
    if (!story.unknown.empty() || foreign)
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
