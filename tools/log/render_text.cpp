// render_text.cpp - the story for people.
#include <algorithm>
#include <cstdio>

#include "observe/names.h"
#include "tools/log/render.h"
#include "tools/log/sentences.h"

namespace klog
{

static const size_t kLabelWidth = 26;
static const size_t kDetailWidth = 52;

std::optional<int64_t> Duration(const LogText &log, size_t first, size_t last)
{
    const auto from = Seconds(log.records[first].stamp);
    const auto to = Seconds(log.records[last].stamp);
    if (!from || !to || *to < *from)
        return std::nullopt;
    return *to - *from;
}

std::string StepLabel(const Step &step)
{
    static const char *const kLabels[][2] = {
        {"port", "serial port looked for"}, {"volume", "volume waited for"},
        {"peek", "disk offered"},           {"mount", "mount under way"},
        {"console", "console's owner"},     {"finder", "Finder waited for"},
        {"application", "application"},     {"setup", "setup package"},
        {"setup volume", "  its volume"},   {"setup command", "  its command"},
    };
    for (const auto &label : kLabels) {
        if (step.name == label[0])
            return label[1];
    }
    return step.name;
}

static std::string Padded(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

static std::string DurationText(std::optional<int64_t> seconds)
{
    char text[32] = "     ?  ";
    if (seconds)
        snprintf(text, sizeof text, "%6lld s", static_cast<long long>(*seconds));
    return text;
}

std::string RenderArrival(const LogText &log, const Arrival &arrival, size_t number)
{
    const Record &first = log.records[arrival.steps.empty() ? 0 : arrival.steps.front().first];
    std::string text = "  Arrival " + std::to_string(number) + ", " +
                       (arrival.atStart ? "there at the start" : "plugged in") + ", " +
                       Sortable(first.stamp) + "\n";
    for (const Step &step : arrival.steps) {
        const std::string detail = step.ended ? step.detail : "no end in the log";
        text += "    " + Sortable(log.records[step.first].stamp) +
                DurationText(Duration(log, step.first, step.last)) + "  " +
                Padded(StepLabel(step), kLabelWidth) + Padded(detail, kDetailWidth) + "  " +
                Lines(log, step.first, step.last) + "\n";
    }
    for (const std::string &note : arrival.notes)
        text += "    note: " + observe::Printable(note) + "\n";
    return text + "    => " + arrival.sentence + "\n";
}

std::string GapText(const Gap &gap)
{
    const bool one = gap.from == gap.to;
    const std::string numbers =
        one ? "line " + std::to_string(gap.from)
            : "lines " + std::to_string(gap.from) + " to " + std::to_string(gap.to);
    const std::string are = one ? " is" : " are";
    if (gap.atStart) {
        return numbers + are +
               " not in the file: it was emptied at 10,000,000 bytes, cut from outside, or could not be opened at first";
    }
    return numbers + are +
           " lost: the file could not be opened or written then, or was emptied in between";
}

static std::string Name(std::string_view source)
{
    return std::string(source.substr(source.find(':') + 1));
}

static std::string CallSummary(const LogText &log, const Run &run)
{
    size_t exits = 0;
    size_t silent = 0;
    for (const Call &call : run.calls.calls) {
        exits += call.ending == Ending::Exit;
        silent += call.ending == Ending::Silent;
    }
    std::string text = "  calls: " + std::to_string(run.calls.calls.size()) + " entered, " +
                       std::to_string(exits) + " with their exit, " + std::to_string(silent) +
                       " ended without one, as the texts go\n";
    if (run.calls.open.empty())
        return text;
    text += run.isLast ? "  inside at the end of the log:" : "  inside when the daemon ended:";
    const char *separator = " ";
    for (const size_t open : run.calls.open) {
        const Call &call = run.calls.calls[open];
        text += separator + Name(call.source) + " (" + Lines(log, call.first, call.first) + ")";
        separator = " > ";
    }
    return text + "\n";
}

static std::string CallList(const LogText &log, const Run &run)
{
    static const char *const kEndings[] = {"", "  (no exit logged)", "  (not ended)"};
    std::string text;
    for (const Call &call : run.calls.calls) {
        text += "    " + Sortable(log.records[call.first].stamp) +
                DurationText(Duration(log, call.first, call.last)) + "  " +
                std::string(2 * call.depth, ' ') + Name(call.source) + ", " +
                Lines(log, call.first, call.last) + kEndings[static_cast<size_t>(call.ending)] +
                "\n";
    }
    return text;
}

static std::string RunText(const LogText &log, const Run &run, size_t number,
                           const TextOptions &options)
{
    std::string text =
        "Run " + std::to_string(number) + ": " + Sortable(log.records[run.first].stamp) + " to " +
        Sortable(log.records[run.last].stamp) + ", " + Lines(log, run.first, run.last) + ", " +
        (run.version.empty() ? "version not in the log" : run.version) +
        (run.isLast ? "" : "; then the daemon was started anew") + "\n";
    for (const std::string &note : run.notes)
        text += "  " + note + "\n";
    for (const Gap &gap : run.gaps)
        text += "  " + GapText(gap) + "\n";
    if (run.arrivals.empty())
        text += "  no modem came\n";
    for (size_t i = 0; i < run.arrivals.size(); i++)
        text += RenderArrival(log, run.arrivals[i], i + 1);
    text += CallSummary(log, run);
    return options.calls ? text + CallList(log, run) : text;
}

std::string RenderText(const LogText &log, const Story &story, const TextOptions &options)
{
    std::string text;
    for (size_t i = 0; i < story.runs.size(); i++)
        text += RunText(log, story.runs[i], i + 1, options) + "\n";
    for (const Unknown &unknown : story.unknown) {
        const Record &record = log.records[unknown.record];
        text += "unknown text, line " + std::to_string(record.number) + ": " +
                observe::Printable(record.source) + " --- " + observe::Printable(record.message) +
                "\n";
    }
    if (story.runs.empty())
        text += "no line of the daemon in this file\n";
    for (const std::string &note : story.notes)
        text += note + "\n";
    return text;
}

std::string RenderRecord(const Record &record)
{
    const Found found = FindMessage(record.source, record.message, record.cut);
    std::string text = Sortable(record.stamp) + "  " + Padded(std::to_string(record.number), 6) +
                       " " + Padded(Name(record.source), 20) + " " +
                       observe::Printable(record.message);
    text += found.message ? "\n    " + found.message->meaning : "\n    (unknown text)";
    return text + "\n";
}

}  // namespace klog
