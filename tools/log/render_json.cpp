// render_json.cpp - the story for programs.
#include "tools/common/json.h"
#include "tools/log/render.h"

namespace klog
{

using tools::JsonWriter;

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

static void Place(JsonWriter &json, const LogText &log, size_t first, size_t last)
{
    json.Member("from", Sortable(log.records[first].stamp))
        .Member("to", Sortable(log.records[last].stamp))
        .Member("seconds", Duration(log, first, last))
        .Member("first_line", log.records[first].number)
        .Member("last_line", log.records[last].number)
        .Member("text_line", log.records[first].textLine);
}

static void Texts(JsonWriter &json, const char *key, const std::vector<std::string> &texts)
{
    json.Key(key).BeginArray();
    for (const std::string &text : texts)
        json.Value(text);
    json.End();
}

static void WriteArrival(JsonWriter &json, const LogText &log, const Arrival &arrival)
{
    json.BeginObject()
        .Member("at_start", arrival.atStart)
        .Member("outcome", OutcomeName(arrival.outcome))
        .Member("sentence", arrival.sentence)
        .Member("setup_failed", arrival.setupFailed);
    json.Key("steps").BeginArray();
    for (const Step &step : arrival.steps) {
        json.BeginObject().Member("name", step.name).Member("ended", step.ended);
        json.Member("detail", step.detail);
        Place(json, log, step.first, step.last);
        json.End();
    }
    json.End();
    Texts(json, "notes", arrival.notes);
    json.End();
}

static void WriteCalls(JsonWriter &json, const LogText &log, const Run &run)
{
    static const char *const kEndings[] = {"exit", "silent", "open"};
    json.Key("calls").BeginArray();
    for (const Call &call : run.calls.calls) {
        json.BeginObject()
            .Member("function", call.source)
            .Member("depth", call.depth)
            .Member("ending", kEndings[static_cast<size_t>(call.ending)]);
        Place(json, log, call.first, call.last);
        json.End();
    }
    json.End();
}

static void WriteRun(JsonWriter &json, const LogText &log, const Run &run)
{
    json.BeginObject().Member("version", run.version).Member("last_run", run.isLast);
    Place(json, log, run.first, run.last);
    json.Key("missing").BeginArray();
    for (const Gap &gap : run.gaps) {
        json.BeginObject()
            .Member("first_line", gap.from)
            .Member("last_line", gap.to)
            .Member("why", GapText(gap))
            .End();
    }
    json.End();
    Texts(json, "notes", run.notes);
    json.Key("arrivals").BeginArray();
    for (const Arrival &arrival : run.arrivals)
        WriteArrival(json, log, arrival);
    json.End();
    WriteCalls(json, log, run);
    json.End();
}

std::string RenderJson(const LogText &log, const Story &story)
{
    JsonWriter json;
    json.BeginObject().Member("findings", HasFindings(story));
    json.Key("runs").BeginArray();
    for (const Run &run : story.runs)
        WriteRun(json, log, run);
    json.End();
    json.Key("unknown").BeginArray();
    for (const Unknown &unknown : story.unknown) {
        const Record &record = log.records[unknown.record];
        json.BeginObject()
            .Member("line", record.number)
            .Member("text_line", record.textLine)
            .Member("source", record.source)
            .Member("message", record.message)
            .End();
    }
    json.End();
    Texts(json, "notes", story.notes);
    json.End();
    return json.Text();
}

}  // namespace klog
