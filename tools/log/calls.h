// calls.h - pairs the entries and exits of the daemon's functions.
//
// Several functions log an entry and, on some or all of their ways out, no exit; so a call also
// ends when its caller speaks again, or when the same function is entered anew.
#ifndef TOOLS_LOG_CALLS_H
#define TOOLS_LOG_CALLS_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "observe/log_events.h"

namespace klog
{

// What the log says is read by observe/; its words are those of this folder
// too.
using namespace observe;

enum class Ending {
    Exit,    // an exit was logged
    Silent,  // it returned and logged none
    Open,    // it has not returned by the end of the run
};

struct Call {
    std::string_view source;  // "Process:RunShellCmd"
    size_t depth;             // 0 for a call that no other one made
    size_t first;             // index of the record of its entry
    size_t last;              // of its exit, or of the last record before it was seen to have ended
    Ending ending;
};

struct CallTracker {
    std::vector<Call> calls;   // in the order of their entries
    std::vector<size_t> open;  // those that have not ended, the outermost first
};

// Takes the record `index`, which `source` said. `message` may be null: an unknown text.
void TrackRecord(CallTracker &tracker, size_t index, std::string_view source,
                 const Message *message);

// Whether a call of `source` is under way.
bool IsInside(const CallTracker &tracker, std::string_view source);

}  // namespace klog

#endif
