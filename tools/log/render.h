// render.h - the story as text for people, as JSON for programs and as a picture.
#ifndef TOOLS_LOG_RENDER_H
#define TOOLS_LOG_RENDER_H

#include <string>

#include "tools/log/story.h"

namespace klog
{

struct TextOptions {
    bool calls = false;  // every call of the daemon's functions too
};

std::string RenderText(const LogText &log, const Story &story, const TextOptions &options);
std::string RenderJson(const LogText &log, const Story &story);

// An SVG picture: a lane for each arrival, its steps as bars over the time they took.
std::string RenderSvg(const LogText &log, const Story &story);

// One record as a line: its time, number, source and message, and what it means.
std::string RenderRecord(const Record &record);

// The time line and the sentence of one arrival, of which the run has `number` - 1 before it.
std::string RenderArrival(const LogText &log, const Arrival &arrival, size_t number);

// What a person calls the step.
std::string StepLabel(const Step &step);

// Seconds from the first to the last record; nothing without a clock or when it was set back.
std::optional<int64_t> Duration(const LogText &log, size_t first, size_t last);

// What became of the arrival, one word for programs.
const char *OutcomeName(Outcome outcome);

// Why the numbers of `gap` are not in the file.
std::string GapText(const Gap &gap);

}  // namespace klog

#endif
