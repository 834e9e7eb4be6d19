// render_json.cpp - the story for programs.
#include "observe/json.h"
#include "tools/log/render.h"

namespace klog
{

using observe::Json;

const char *OutcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Opened: return "opened";
    case Outcome::OtherUser: return "other-user";
    case Outcome::NoPipe: return "no-pipe";
    case Outcome::NoFinder: return "no-finder";
    case Outcome::NoVolume: return "no-volume";
    case Outcome::CommandFailed: return "command-failed";
    case Outcome::NoCompletion: return "no-completion";
    case Outcome::Unfinished: return "unfinished";
    }
    return "";
}

// `json` with the place in the log of what it tells.
static Json Placed(Json json, const LogText &log, size_t first, size_t last)
{
    json["from"] = Sortable(log.records[first].stamp);
    json["to"] = Sortable(log.records[last].stamp);
    json["seconds"] = observe::OrNull(Duration(log, first, last));
    json["first_line"] = log.records[first].number;
    json["last_line"] = log.records[last].number;
    json["text_line"] = log.records[first].textLine;
    return json;
}

static Json ArrivalJson(const LogText &log, const Arrival &arrival)
{
    Json steps = Json::array();
    for (const Step &step : arrival.steps) {
        const Json json = {{"name", step.name}, {"ended", step.ended}, {"detail", step.detail}};
        steps.push_back(Placed(json, log, step.first, step.last));
    }
    return {{"at_start", arrival.atStart},
            {"outcome", OutcomeName(arrival.outcome)},
            {"sentence", arrival.sentence},
            {"setup_failed", arrival.setupFailed},
            {"steps", steps},
            {"notes", arrival.notes}};
}

static Json CallsJson(const LogText &log, const Run &run)
{
    static const char *const kEndings[] = {"exit", "silent", "open"};
    Json calls = Json::array();
    for (const Call &call : run.calls.calls) {
        const Json json = {{"function", call.source},
                           {"depth", call.depth},
                           {"ending", kEndings[static_cast<size_t>(call.ending)]}};
        calls.push_back(Placed(json, log, call.first, call.last));
    }
    return calls;
}

static Json RunJson(const LogText &log, const Run &run)
{
    Json json =
        Placed({{"version", run.version}, {"last_run", run.isLast}}, log, run.first, run.last);
    json["missing"] = Json::array();
    for (const Gap &gap : run.gaps) {
        json["missing"].push_back(
            {{"first_line", gap.from}, {"last_line", gap.to}, {"why", GapText(gap)}});
    }
    json["notes"] = run.notes;
    json["arrivals"] = Json::array();
    for (const Arrival &arrival : run.arrivals)
        json["arrivals"].push_back(ArrivalJson(log, arrival));
    json["calls"] = CallsJson(log, run);
    return json;
}

std::string RenderJson(const LogText &log, const Story &story)
{
    Json runs = Json::array();
    for (const Run &run : story.runs)
        runs.push_back(RunJson(log, run));
    Json unknown = Json::array();
    for (const Unknown &text : story.unknown) {
        const Record &record = log.records[text.record];
        unknown.push_back({{"line", record.number},
                           {"text_line", record.textLine},
                           {"source", record.source},
                           {"message", record.message}});
    }
    return observe::JsonText({{"findings", HasFindings(story)},
                              {"runs", runs},
                              {"unknown", unknown},
                              {"notes", story.notes}});
}

}  // namespace klog
