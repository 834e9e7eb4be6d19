// kestrun-log on any bytes: the records lie in the text one behind the other, each arrival has one
// sentence, the JSON is UTF-8, and a log that is shown in two pieces shows every record once.
#include "fuzz/check.h"

#include <algorithm>
#include <string>

#include "observe/names.h"
#include "tools/log/follow.h"
#include "tools/log/render.h"

static void CheckRecords(const std::string &content, const klog::LogText &log)
{
    size_t end = 0;
    for (const klog::Record &record : log.records) {
        const auto start = static_cast<size_t>(record.message.data() - content.data());
        FUZZ_CHECK(record.offset >= end && start > record.offset);
        FUZZ_CHECK(content.compare(record.offset, 5, "line ") == 0);
        end = start + record.message.size();
        FUZZ_CHECK(end <= content.size());
        FUZZ_CHECK(record.cut || !record.whole || content[end] == '\n');
    }
    FUZZ_CHECK(log.strayBytes <= content.size());
}

static void CheckStory(const klog::LogText &log, const klog::Story &story)
{
    size_t next = 0;
    for (const klog::Run &run : story.runs) {
        FUZZ_CHECK(run.first == next && run.last >= run.first);
        next = run.last + 1;
        for (const klog::Arrival &arrival : run.arrivals) {
            FUZZ_CHECK(arrival.sentence.ends_with('.'));
            FUZZ_CHECK((arrival.outcome == klog::Outcome::Opened) ==
                       arrival.sentence.starts_with("Opened"));
            for (const klog::Step &step : arrival.steps)
                FUZZ_CHECK(step.first <= step.last && step.last <= run.last);
        }
        for (const klog::Call &call : run.calls.calls)
            FUZZ_CHECK(call.first <= call.last && call.last <= run.last);
    }
    FUZZ_CHECK(next == log.records.size());
}

static void CheckUtf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t length = observe::Utf8Length(text);
        FUZZ_CHECK(length > 0);
        text.remove_prefix(length);
    }
}

// Shows the log in two pieces: every whole record once.
static void CheckFollow(const std::string &content, const klog::LogText &log, size_t piece)
{
    klog::Shown shown;
    klog::ShowNews(shown, content.substr(0, piece));
    klog::ShowNews(shown, content);
    const auto whole = std::count_if(log.records.begin(), log.records.end(),
                                     [](const klog::Record &record) { return record.whole; });
    FUZZ_CHECK(shown.records >= static_cast<size_t>(whole));
    FUZZ_CHECK(shown.records <= log.records.size());
    FUZZ_CHECK(klog::ShowNews(shown, content).empty());
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string content(reinterpret_cast<const char *>(data), size);
    klog::LogText log = klog::ParseLog(content);
    CheckRecords(content, log);
    const size_t records = log.records.size();
    klog::Untangle(log);
    FUZZ_CHECK(log.records.size() == records);
    const klog::Story story = klog::TellStory(log);
    CheckStory(log, story);
    CheckUtf8(klog::RenderText(log, story, {.calls = true}));
    CheckUtf8(klog::RenderJson(log, story));
    CheckUtf8(klog::RenderSvg(log, story));
    CheckFollow(content, log, size / 2);
    std::string restored = content;
    klog::UndoConversions(restored);
    FUZZ_CHECK(restored.size() <= content.size());
    return 0;
}
