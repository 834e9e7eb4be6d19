// render.cpp - see render.h.
#include "tools/check/render.h"

#include "tools/check/lines.h"
#include "tools/common/json.h"

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
    tools::JsonWriter json;
    json.BeginObject().Member("verdict", VerdictName(Worst(report)));
    json.Key("findings").BeginArray();
    for (const Finding &finding : report.findings) {
        json.BeginObject()
            .Member("verdict", VerdictName(finding.verdict))
            .Member("file", finding.file)
            .Member("about", finding.about)
            .Member("line", finding.line)
            .Member("found", finding.found)
            .Member("effect", finding.effect)
            .End();
    }
    json.End().Key("values").BeginArray();
    for (const Setting &setting : report.settings) {
        json.BeginObject()
            .Member("file", setting.file)
            .Member("key", setting.key)
            .Member("value", setting.value)
            .Member("bytes", setting.value ? std::optional(Hex(*setting.value)) : std::nullopt)
            .Member("line", setting.line)
            .End();
    }
    json.End().End();
    return json.Text();
}

}  // namespace kcheck
