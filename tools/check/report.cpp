// report.cpp - see report.h.
#include "tools/check/report.h"

#include <algorithm>

namespace kcheck
{

Verdict Worst(const Report &report)
{
    Verdict worst = Verdict::Pass;
    for (const Finding &finding : report.findings)
        worst = std::max(worst, finding.verdict);
    return worst == Verdict::Note ? Verdict::Pass : worst;
}

void TakeNotesAsWarnings(Report &report)
{
    for (Finding &finding : report.findings) {
        if (finding.verdict == Verdict::Note)
            finding.verdict = Verdict::Warn;
    }
}

const char *VerdictName(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Pass: return "PASS";
    case Verdict::Note: return "NOTE";
    case Verdict::Warn: return "WARN";
    case Verdict::Fail: return "FAIL";
    }
    return "";
}

}  // namespace kcheck
