// rules.h - the checks. Each adds what it finds to a report.
#ifndef TOOLS_CHECK_RULES_H
#define TOOLS_CHECK_RULES_H

#include <string>
#include <string_view>

#include "tools/check/report.h"

namespace kcheck
{

// The daemon's configuration at `path`, of which `content` is the content.
void CheckConfig(Report &report, const std::string &path, std::string_view content);

// The installed application's SysConfig.dat.
void CheckSysConfig(Report &report, const std::string &path, std::string_view content);

// The mode of the file, and that of its folder.
void CheckModes(Report &report, const std::string &path);

// What the machine under `root` ("" for this one) has beside the files: the log's folder, the
// volume that the configuration at `configPath` names, the disks and ports that are there, and, on
// this machine, whether somebody is logged in.
void CheckMachine(Report &report, const std::string &root, const std::string &configPath);

}  // namespace kcheck

#endif
