// follow.cpp - see follow.h. The file is small (10,000,000 bytes at most), so all of it is read
// anew whenever it has changed: no state of the story has to survive.
#include "tools/log/follow.h"

#include <algorithm>

#include "tools/log/render.h"

namespace klog
{

static const size_t kStartSize = 64;  // bytes by which a file is told from another

static bool IsSameFile(const Shown &shown, const std::string &content)
{
    return content.size() >= shown.size && content.starts_with(shown.start);
}

// The outcomes of `run` that were decided since.
static std::string NewOutcomes(const LogText &log, const Run &run, size_t &shown)
{
    std::string text;
    size_t decided = 0;
    for (size_t i = 0; i < run.arrivals.size(); i++) {
        if (!run.arrivals[i].decided)
            continue;
        if (decided++ >= shown)
            text += RenderArrival(log, run.arrivals[i], i + 1);
    }
    shown = decided;
    return text;
}

std::string ShowNews(Shown &shown, const std::string &content)
{
    if (!IsSameFile(shown, content))
        shown = {};
    shown.size = content.size();
    shown.start = content.substr(0, kStartSize);

    LogText log = ParseLog(content);
    if (!log.records.empty() && !log.records.back().whole)
        log.records.pop_back();
    std::string text;
    for (size_t i = shown.records; i < log.records.size(); i++)
        text += RenderRecord(log.records[i]);
    shown.records = std::max(shown.records, log.records.size());

    Untangle(log);
    const Story story = TellStory(log);
    shown.decided.resize(std::max(shown.decided.size(), story.runs.size()));
    for (size_t i = 0; i < story.runs.size(); i++)
        text += NewOutcomes(log, story.runs[i], shown.decided[i]);
    return text;
}

}  // namespace klog
