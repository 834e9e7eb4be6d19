// report.cpp - see report.h.
#include "tools/status/report.h"

#include <cstdio>

#include "observe/daemon.h"
#include "observe/json.h"
#include "observe/names.h"

namespace kstatus
{

using observe::Json;

static std::string Line(const char *name, const std::string &text)
{
    char head[16];
    (void)snprintf(head, sizeof head, "%-9s", name);
    return head + observe::Printable(text) + "\n";
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

static std::string PortText(const Facts &facts)
{
    std::string text = Line("port", facts.port.empty() ? "none of the modem's" : facts.port);
    for (const std::string &port : facts.ports) {
        if (port != facts.port)
            text += Line("port", port + ", not the modem's");
    }
    return text;
}

static std::string DiskText(const Facts &facts)
{
    if (!facts.disks)
        return "";
    std::string text;
    for (const observe::Disk &disk : *facts.disks)
        text += Line("disk", Describe(disk));
    return text.empty() ? Line("disk", "none with a label") : text;
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
        return Line("log", std::string(observe::kLogFile) + ": " + log.problem);
    if (log.number == 0)
        return Line("log", std::string(observe::kLogFile) + " holds no line");
    std::string age = "of unknown age";
    if (log.age && *log.age >= 0)
        age = std::to_string(*log.age) + " s old";
    else if (log.age)
        age = std::to_string(-*log.age) + " s ahead of the clock";
    return Line("log", "line " + std::to_string(log.number) + ", " + age + ": " + log.text);
}

static const char *Option(bool hidden)
{
    return hidden ? "nobrowse" : "rdonly";
}

static std::string ConfigText(const Facts &facts)
{
    if (!facts.configProblem.empty())
        return Line("config", std::string(observe::kConfigFile) + ": " + facts.configProblem);
    const char *origin = facts.configured ? "" : "; there is no file, the defaults hold";
    std::string text = Line("config", "volume \"" + facts.volumeName + "\", mounted " +
                                          Option(facts.hidden) + origin);
    if (facts.used) {
        const Used &used = *facts.used;
        text += Line("uses", (used.name ? "volume \"" + *used.name + "\""
                                        : std::string("the volume's name of its start")) +
                                 ", mounted " +
                                 (used.hidden ? Option(*used.hidden) : "as at its start"));
    }
    return text;
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
    text += PortText(facts) + DiskText(facts) + VolumeText(facts) + LogText(facts.log);
    if (!facts.daemons.empty())
        text += Line("waits", DescribeWaiting(facts.waiting, facts.now));
    for (const std::string &wrong : FindWrongs(facts))
        text += Line("WRONG", wrong);
    for (const std::string &unknown : facts.unknown)
        text += Line("UNKNOWN", unknown);
    return text;
}

static Json Maybe(const std::string &text)
{
    return text.empty() ? Json() : Json(text);
}

static Json DaemonJson(const Facts &facts)
{
    Json processes = Json::array();
    for (const Daemon &daemon : facts.daemons)
        processes.push_back(daemon.pid);
    return {{"running", !facts.daemons.empty()},
            {"user", Maybe(facts.daemonUser)},
            {"processes", processes}};
}

static Json ConfigJson(const Facts &facts)
{
    const bool known = facts.configProblem.empty();
    return {{"file", facts.configured || !known},
            {"name", known ? Json(facts.volumeName) : Json()},
            {"option", known ? Json(Option(facts.hidden)) : Json()},
            {"changed_since_start", facts.used.has_value()},
            {"used_name", facts.used ? observe::OrNull(facts.used->name) : Json()},
            {"used_option",
             facts.used && facts.used->hidden ? Json(Option(*facts.used->hidden)) : Json()}};
}

static Json DisksJson(const Facts &facts)
{
    if (!facts.disks)
        return {};
    Json disks = Json::array();
    for (const observe::Disk &disk : *facts.disks) {
        disks.push_back({{"label", disk.label},
                         {"device", disk.node},
                         {"bytes", observe::OrNull(disk.size)},
                         {"optical", disk.optical},
                         {"usb", disk.usb},
                         {"place", Maybe(disk.place)}});
    }
    return disks;
}

static Json VolumesJson(const Facts &facts)
{
    Json volumes = Json::array();
    for (const Volume &volume : facts.volumes) {
        volumes.push_back({{"place", volume.place},
                           {"source", volume.source},
                           {"by", volume.by},
                           {"options", volume.options}});
    }
    return volumes;
}

static Json LogJson(const LogFacts &log)
{
    return {{"path", observe::kLogFile},
            {"problem", Maybe(log.problem)},
            {"line", log.number},
            {"seconds", observe::OrNull(log.age)},
            {"text", Maybe(log.text)}};
}

static Json WaitingJson(const Facts &facts)
{
    const Waiting &waiting = facts.waiting;
    if (facts.daemons.empty())
        return {};
    return {{"for", PhaseWord(waiting.phase)},
            {"text", DescribeWaiting(waiting, facts.now)},
            {"seconds", waiting.since ? Json(facts.now - *waiting.since) : Json()},
            {"tries", waiting.tries},
            {"limit", waiting.limit}};
}

std::string ReportJson(const Facts &facts)
{
    return observe::JsonText({{"daemon", DaemonJson(facts)},
                              {"console", Maybe(facts.consoleUser)},
                              {"finder", observe::OrNull(facts.finder)},
                              {"configuration", ConfigJson(facts)},
                              {"port", Maybe(facts.port)},
                              {"ports", facts.ports},
                              {"disks", DisksJson(facts)},
                              {"volumes", VolumesJson(facts)},
                              {"log", LogJson(facts.log)},
                              {"waits", WaitingJson(facts)},
                              {"wrong", FindWrongs(facts)},
                              {"unknown", facts.unknown}});
}

}  // namespace kstatus
