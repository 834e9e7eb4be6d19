// render_svg.cpp - the story as a picture: a lane for each arrival, a bar for each step.
//
// Every lane has its own scale, written under it: an arrival takes a second or a day.
#include <algorithm>
#include <cstdio>

#include "observe/names.h"
#include "tools/log/render.h"

namespace klog
{

static const int kWidth = 1300;
static const int kLeft = 190;   // the steps' names
static const int kBars = 1080;  // room for the bars
static const int kRow = 20;
static const int kTop = 30;

// Characters that XML gives a meaning, and what it does not allow, put differently.
static std::string Escaped(const std::string &text)
{
    std::string escaped;
    for (const char ch : observe::Printable(text)) {
        switch (ch) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        default: escaped += ch;
        }
    }
    return escaped;
}

static std::string TextAt(int x, int y, const char *kind, const std::string &text)
{
    return "  <text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" class=\"" +
           kind + "\">" + Escaped(text) + "</text>\n";
}

// Seconds of the record `index` behind the record `start`; 0 without a clock.
static int64_t Behind(const LogText &log, size_t start, size_t index)
{
    return Duration(log, start, index).value_or(0);
}

static std::string Bar(const LogText &log, const Step &step, size_t start, int64_t whole, int y)
{
    const int64_t from = std::min(Behind(log, start, step.first), whole);
    const int64_t to = std::clamp(Behind(log, start, step.last), from, whole);
    const int x = kLeft + static_cast<int>(kBars * from / whole);
    const int width = std::max(3, static_cast<int>(kBars * (to - from) / whole));
    const char *kind = step.ended ? "done" : "open";
    return "  <rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" +
           std::to_string(width) + "\" height=\"14\" class=\"" + kind + "\"><title>" +
           Escaped(std::to_string(to - from) + " s: " + step.detail) + "</title></rect>\n";
}

// Appends the lane of one arrival at `y`, and moves `y` on.
static void AppendLane(std::string &svg, const LogText &log, const Arrival &arrival,
                       const std::string &title, int &y)
{
    svg += TextAt(10, y, "title", title);
    y += 8;
    const size_t start = arrival.steps.empty() ? 0 : arrival.steps.front().first;
    int64_t whole = 1;
    for (const Step &step : arrival.steps)
        whole = std::max(whole, Behind(log, start, step.last));
    for (const Step &step : arrival.steps) {
        svg += TextAt(10, y + 12, "step", StepLabel(step));
        svg += Bar(log, step, start, whole, y);
        y += kRow;
    }
    svg += TextAt(kLeft, y + 10, "scale", "0 s");
    svg += TextAt(kLeft + kBars - 60, y + 10, "scale", std::to_string(whole) + " s");
    y += 26;
    const char *kind = arrival.outcome == Outcome::Opened ? "good" : "bad";
    svg += TextAt(10, y, kind, arrival.sentence);
    y += 34;
}

std::string RenderSvg(const LogText &log, const Story &story)
{
    std::string lanes;
    int y = kTop;
    for (size_t i = 0; i < story.runs.size(); i++) {
        const Run &run = story.runs[i];
        for (size_t k = 0; k < run.arrivals.size(); k++) {
            const Arrival &arrival = run.arrivals[k];
            const size_t first = arrival.steps.empty() ? run.first : arrival.steps.front().first;
            AppendLane(lanes, log, arrival,
                       "Run " + std::to_string(i + 1) + ", arrival " + std::to_string(k + 1) +
                           ", " + Sortable(log.records[first].stamp),
                       y);
        }
    }
    if (lanes.empty()) {
        lanes = TextAt(10, y, "title", "no modem came");
        y += kRow;
    }
    const std::string size =
        "width=\"" + std::to_string(kWidth) + "\" height=\"" + std::to_string(y) + "\"";
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" " + size +
           " font-family=\"sans-serif\" font-size=\"12\">\n"
           "  <style>.title{font-weight:bold}.scale{fill:#666;font-size:10px}.done{fill:#4a7ebb}"
           ".open{fill:#d9a441}.good{fill:#2e7d32}.bad{fill:#b3261e}</style>\n"
           "  <rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" +
           lanes + "</svg>\n";
}

}  // namespace klog
