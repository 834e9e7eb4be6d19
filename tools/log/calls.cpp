// calls.cpp - see calls.h.
#include "tools/log/calls.h"

#include <algorithm>

namespace klog
{

static void EndInnermost(CallTracker &tracker, size_t last, Ending ending)
{
    Call &call = tracker.calls[tracker.open.back()];
    call.last = last;
    call.ending = ending;
    tracker.open.pop_back();
}

// Whether the function logs entries; main does not, and the INI reader's functions do not.
static bool IsTracked(std::string_view source)
{
    return source != "Kestrun:main" && !source.starts_with("INI:");
}

// Whether the function calls no other one that logs.
static bool IsLeaf(std::string_view source)
{
    return source == "ActiveVolumeProgram:TrimKey" || source == "ActiveVolumeProgram:IsPrimaryKey";
}

bool IsInside(const CallTracker &tracker, std::string_view source)
{
    return std::any_of(tracker.open.begin(), tracker.open.end(),
                       [&](size_t call) { return tracker.calls[call].source == source; });
}

void TrackRecord(CallTracker &tracker, size_t index, std::string_view source,
                 const Message *message)
{
    const size_t before = index == 0 ? 0 : index - 1;
    if (source == "Kestrun:main") {
        while (!tracker.open.empty())
            EndInnermost(tracker, before, Ending::Silent);
    }
    if (!IsTracked(source))
        return;
    if (!tracker.open.empty()) {
        const std::string_view innermost = tracker.calls[tracker.open.back()].source;
        if (IsLeaf(innermost) && innermost != source)
            EndInnermost(tracker, before, Ending::Silent);
    }
    const Bound bound = message ? message->bound : Bound::Inside;
    if (IsInside(tracker, source)) {
        while (tracker.calls[tracker.open.back()].source != source)
            EndInnermost(tracker, before, Ending::Silent);
        if (bound == Bound::Enters)
            EndInnermost(tracker, before, Ending::Silent);
    }
    if (bound == Bound::Enters) {
        tracker.calls.push_back({source, tracker.open.size(), index, index, Ending::Open});
        tracker.open.push_back(tracker.calls.size() - 1);
    } else if (bound == Bound::Exits && IsInside(tracker, source)) {
        EndInnermost(tracker, index, Ending::Exit);
    }
}

}  // namespace klog
