// render.h - a report as text for people and as JSON for programs.
#ifndef TOOLS_CHECK_RENDER_H
#define TOOLS_CHECK_RENDER_H

#include <string>

#include "tools/check/report.h"

namespace kcheck
{

std::string RenderText(const Report &report);
std::string RenderJson(const Report &report);

}  // namespace kcheck

#endif
