// report.cpp - see report.h.
#include "tools/status/report.h"

#include <cstdio>

#include "tools/common/json.h"
#include "tools/common/program.h"
#include "tools/status/daemon.h"

namespace kstatus
{

static std::string Line(const char *name, const std::string &text)
{
    char head[16];
    (void)snprintf(head, sizeof head, "%-9s", name);
    return head + tools::Printable(text) + "\n";
}

static std::string Joined(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

static std::string Known(const std::string &name)
{
    return name.empty() ? "nobody knows whom" : name;
}

static std::string DaemonText(const Facts &facts)
{
    if (facts.daemons.empty())
        return Line("daemon", "does not run");
    std::string text;
    for (const Daemon &daemon : facts.daemons) {
        text += Line("daemon",
                     "runs as " + Known(daemon.user) + ", process " + std::to_string(daemon.pid));
    }
    return text;
}

static std::string VolumeText(const Facts &facts)
{
    std::string text;
    for (const Volume &volume : facts.volumes) {
        text += Line("volume", volume.place + ", mounted by " + volume.by + " from " +
                                   volume.source + " with " + Joined(volume.options));
    }
    if (!facts.configProblem.empty())
        return Line("volume", "not known: its name stands in the configuration");
    if (text.empty())
        text = Line("volume", "\"" + facts.volumeName + "\" is not mounted");
    return text;
}

static std::string LogText(const LogFacts &log)
{
    if (!log.problem.empty())
        return Line("log", std::string(kLogFile) + ": " + log.problem);
    if (log.number == 0)
        return Line("log", std::string(kLogFile) + " holds no line");
    std::string age = "of unknown age";
    if (log.age && *log.age >= 0)
        age = std::to_string(*log.age) + " s old";
    else if (log.age)
        age = std::to_string(-*log.age) + " s ahead of the clock";
    return Line("log", "line " + std::to_string(log.number) + ", " + age + ": " + log.text);
}

static const char *Option(const Facts &facts)
{
    return facts.hidden ? "nobrowse" : "rdonly";
}

static std::string ConfigText(const Facts &facts)
{
    if (!facts.configProblem.empty())
        return Line("config", std::string(kConfigFile) + ": " + facts.configProblem);
    return Line("config", "volume \"" + facts.volumeName + "\", mounted " + Option(facts) +
                              (facts.configured ? "" : "; there is no file, the defaults hold"));
}

std::string ReportText(const Facts &facts)
{
    std::string text = DaemonText(facts);
    text += Line("console", facts.consoleUser.empty() ? "nobody knows whose it is"
                                                      : "belongs to " + facts.consoleUser);
    text += Line("Finder", !facts.finder   ? "nobody knows whether it runs"
                           : *facts.finder ? "runs"
                                           : "does not run");
    text += ConfigText(facts);
    text += Line("port", facts.port.empty() ? "none of the modem's" : facts.port);
    text += VolumeText(facts) + LogText(facts.log);
    if (!facts.daemons.empty())
        text += Line("waits", DescribeWaiting(facts.waiting, facts.now));
    for (const std::string &wrong : FindWrongs(facts))
        text += Line("WRONG", wrong);
    for (const std::string &unknown : facts.unknown)
        text += Line("UNKNOWN", unknown);
    return text;
}

static void AddTexts(tools::JsonWriter *json, const char *key,
                     const std::vector<std::string> &texts)
{
    json->Key(key).BeginArray();
    for (const std::string &text : texts)
        json->Value(text);
    json->End();
}

static std::optional<std::string> Maybe(const std::string &text)
{
    return text.empty() ? std::nullopt : std::optional(text);
}

static void AddDaemon(tools::JsonWriter *json, const Facts &facts)
{
    json->Key("daemon").BeginObject().Member("running", !facts.daemons.empty());
    json->Member("user", Maybe(facts.daemonUser)).Key("processes").BeginArray();
    for (const Daemon &daemon : facts.daemons)
        json->Value(static_cast<int64_t>(daemon.pid));
    json->End().End();
}

static void AddVolumes(tools::JsonWriter *json, const Facts &facts)
{
    json->Key("volumes").BeginArray();
    for (const Volume &volume : facts.volumes) {
        json->BeginObject().Member("place", volume.place).Member("source", volume.source);
        json->Member("by", volume.by);
        AddTexts(json, "options", volume.options);
        json->End();
    }
    json->End();
}

static void AddLog(tools::JsonWriter *json, const LogFacts &log)
{
    json->Key("log").BeginObject().Member("path", kLogFile);
    json->Member("problem", Maybe(log.problem)).Member("line", log.number);
    json->Member("seconds", log.age).Member("text", Maybe(log.text)).End();
}

static void AddWaiting(tools::JsonWriter *json, const Facts &facts)
{
    const Waiting &waiting = facts.waiting;
    const std::optional<int64_t> seconds =
        waiting.since ? std::optional(facts.now - *waiting.since) : std::nullopt;
    json->Key("waits").BeginObject().Member("for", PhaseWord(waiting.phase));
    json->Member("text", DescribeWaiting(waiting, facts.now)).Member("seconds", seconds);
    json->Member("tries", waiting.tries).Member("limit", waiting.limit).End();
}

std::string ReportJson(const Facts &facts)
{
    tools::JsonWriter json;
    json.BeginObject();
    AddDaemon(&json, facts);
    json.Member("console", Maybe(facts.consoleUser)).Member("finder", facts.finder);
    const bool known = facts.configProblem.empty();
    json.Key("configuration").BeginObject().Member("file", facts.configured || !known);
    json.Member("name", known ? std::optional(facts.volumeName) : std::nullopt);
    json.Member("option", known ? std::optional(std::string(Option(facts))) : std::nullopt);
    json.End().Member("port", Maybe(facts.port));
    AddVolumes(&json, facts);
    AddLog(&json, facts.log);
    if (facts.daemons.empty())
        json.Key("waits").Null();
    else
        AddWaiting(&json, facts);
    AddTexts(&json, "wrong", FindWrongs(facts));
    AddTexts(&json, "unknown", facts.unknown);
    return json.End().Text();
}

}  // namespace kstatus
