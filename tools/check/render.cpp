// render.cpp - see render.h.
#include "tools/check/render.h"

#include "observe/json.h"
#include "tools/check/lines.h"

namespace kcheck
{

std::string RenderText(const Report &report)
{
    std::string text;
    for (const Finding &finding : report.findings) {
        const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : "";
        text += std::string(VerdictName(finding.verdict)) + "  " + finding.file + line + "  " +
                finding.about + ": " + finding.found + "\n      " + finding.effect + "\n";
    }
    return text + VerdictName(Worst(report)) + "\n";
}

std::string RenderJson(const Report &report)
{
    observe::Json findings = observe::Json::array();
    for (const Finding &finding : report.findings) {
        findings.push_back({{"verdict", VerdictName(finding.verdict)},
                            {"file", finding.file},
                            {"about", finding.about},
                            {"line", finding.line},
                            {"found", finding.found},
                            {"effect", finding.effect}});
    }
    observe::Json values = observe::Json::array();
    for (const Setting &setting : report.settings) {
        const auto bytes = setting.value ? std::optional(Hex(*setting.value)) : std::nullopt;
        values.push_back({{"file", setting.file},
                          {"key", setting.key},
                          {"value", observe::OrNull(setting.value)},
                          {"bytes", observe::OrNull(bytes)},
                          {"line", setting.line}});
    }
    return observe::JsonText(
        {{"verdict", VerdictName(Worst(report))}, {"findings", findings}, {"values", values}});
}

}  // namespace kcheck
