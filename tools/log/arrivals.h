// arrivals.h - follows the arrivals of one run through its messages.
#ifndef TOOLS_LOG_ARRIVALS_H
#define TOOLS_LOG_ARRIVALS_H

#include <deque>
#include <string>
#include <vector>

#include "observe/journey.h"
#include "tools/log/story.h"

namespace klog
{

struct FinderLooks {
    int count = 0;  // that found none
    size_t firstLook = 0, lastLook = 0;
    size_t unread = 0;   // looks whose output could not be read: the Finder may have been there
    long oddStatus = 0;  // a status other than that of a search that found nothing
    size_t oddRecord = 0;
};

// The pass over one run.
struct Teller {
    const LogText &log;
    Run &run;
    Journey journey = {};
    size_t current = 0;                // index of the arrival that the daemon is busy with
    std::deque<size_t> awaiting = {};  // arrivals whose mount was asked for, the oldest first
    size_t portsFirst = 0;             // the first look for the serial port
    FinderLooks finder = {};
    Event setupReason = Event::None;  // what the setup runner said last
    size_t setupRecord = 0;
};

// Takes the record `index`, which `found` was recognised as.
void TellRecord(Teller &teller, size_t index, const Found &found);

// Ends the run: what is still undecided is put into words.
void EndTelling(Teller &teller);

}  // namespace klog

#endif
