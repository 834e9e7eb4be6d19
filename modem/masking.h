// masking.h - logs made comparable: times and process ids masked, and what differs shown.
#ifndef MODEM_MASKING_H
#define MODEM_MASKING_H

#include <string>

namespace modem
{

// The log with the time of each record replaced by "<time>" and the process id in the command
// "ps aux | awk -v PID=..." by "<pid>", and the text of errno at the end of a "system failed" line,
// which is whatever an earlier call left there, by "<errno>". Every other byte stays.
std::string MaskLog(const std::string &log);

// Empty when both are the same; else the first line that differs in both, with its number and the
// three lines before it. Bytes that no terminal shows are written as \xNN.
std::string DescribeDifference(const std::string &expected, const std::string &actual);

}  // namespace modem

#endif
