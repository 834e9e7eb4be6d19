// report.h - the facts, told to people and to programs.
#ifndef TOOLS_STATUS_REPORT_H
#define TOOLS_STATUS_REPORT_H

#include <string>

#include "tools/status/facts.h"

namespace kstatus
{

// A line for each fact, its name in front. What other programs or a device chose is shown with \xNN
// for bytes that could steer a terminal.
std::string ReportText(const Facts &facts);

// The same as one JSON object.
std::string ReportJson(const Facts &facts);

}  // namespace kstatus

#endif
