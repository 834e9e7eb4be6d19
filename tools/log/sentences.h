// sentences.h - the outcome of an arrival in one sentence.
#ifndef TOOLS_LOG_SENTENCES_H
#define TOOLS_LOG_SENTENCES_H

#include <string>

#include "tools/log/arrivals.h"

namespace klog
{

// "line 4", or "lines 4 to 9", of the numbers that the daemon gave to the records.
std::string Lines(const LogText &log, size_t first, size_t last);

// The status of a command as system() gave it, as a person reads it: "exit code 1".
std::string StatusText(long status);

std::string OpenedSentence(const Teller &teller, const Arrival &arrival, size_t index);
std::string OtherUserSentence(const Teller &teller, size_t index);
std::string NoPipeSentence(const Teller &teller, size_t index);
std::string NoVolumeSentence(const Teller &teller, size_t first, size_t last);
std::string CommandFailedSentence(const Teller &teller, const Arrival &arrival, size_t index);
// Of an arrival of which the log has the last word, and not how it came to that.
std::string ResultSentence(const Teller &teller, size_t index, bool opened);
std::string NoFinderSentence(const Teller &teller);
std::string NoCompletionSentence(const Teller &teller, const Arrival &arrival);
std::string UnfinishedSentence(const Teller &teller, const Arrival &arrival);
// Of an arrival that the daemon left behind without a line that decides it, for lines are missing.
std::string UnknownSentence(const Teller &teller, const Arrival &arrival);

}  // namespace klog

#endif
