// macos.cpp - the facts of macOS, from what ps and mount print. Nothing tells what a process sleeps
// for, so what the daemon waits for is inferred from its log alone there.
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "observe/commands.h"
#include "observe/daemon.h"
#include "tools/status/system.h"

namespace kstatus
{

struct ProcessLine {
    long pid = 0;
    long parent = 0;
    std::string age;   // "[[days-]hours:]minutes:seconds"
    std::string name;  // without its folder
};

// "  321     1    02-03:04:05 /Library/StartupItems/QVKestrun/Kestrun"
static bool TakeProcessLine(const std::string &line, ProcessLine *process)
{
    std::istringstream fields(line);
    std::string path;
    if (!(fields >> process->pid >> process->parent >> process->age >> std::ws) ||
        !std::getline(fields, path)) {
        return false;
    }
    process->name = path.substr(path.rfind('/') + 1);
    return true;
}

static std::optional<long> SecondsOf(const std::string &age)
{
    long parts[4] = {0, 0, 0, 0};  // seconds, minutes, hours, days
    size_t part = 0;
    size_t end = age.size();
    while (part < 4) {
        const size_t start = age.find_last_of(":-", end - 1);
        const size_t first = start == std::string::npos ? 0 : start + 1;
        parts[part++] = strtol(age.substr(first, end - first).c_str(), nullptr, 10);
        if (start == std::string::npos || start == 0)
            return ((parts[3] * 24 + parts[2]) * 60 + parts[1]) * 60 + parts[0];
        end = start;
    }
    return std::nullopt;
}

bool FindDaemons(std::vector<Daemon> *daemons)
{
    std::istringstream lines(observe::CommandOutput("ps -A -o pid=,ppid=,etime=,comm="));
    std::vector<ProcessLine> processes;
    ProcessLine process;
    for (std::string line; std::getline(lines, line);) {
        if (TakeProcessLine(line, &process))
            processes.push_back(process);
    }
    for (const ProcessLine &found : processes) {
        if (found.name != "Kestrun")
            continue;
        Daemon daemon{found.pid, Activity::Unknown, {}, SecondsOf(found.age)};
        for (const ProcessLine &child : processes) {
            if (child.parent == found.pid)
                daemon.children.push_back(child.name);
        }
        daemons->push_back(daemon);
    }
    return !processes.empty();
}

// "/dev/disk2s1 on /Volumes/Orvanta (udf, local, nodev, nosuid, read-only, mounted by anna)". A
// place may hold " on " and brackets: the first " on " and the last bracket count.
static bool TakeMountLine(const std::string &line, Volume *volume)
{
    const char kBy[] = "mounted by ";
    const size_t on = line.find(" on ");
    const size_t bracket = line.rfind(" (");
    if (on == std::string::npos || bracket == std::string::npos || line.back() != ')')
        return false;
    *volume = {line.substr(on + 4, bracket - on - 4), line.substr(0, on), "the system", {}};
    std::istringstream options(line.substr(bracket + 2, line.size() - bracket - 3));
    for (std::string option; std::getline(options >> std::ws, option, ',');) {
        if (option.compare(0, sizeof kBy - 1, kBy) == 0)
            volume->by = option.substr(sizeof kBy - 1);
        else
            volume->options.push_back(option);
    }
    return true;
}

bool ListVolumes(std::vector<Volume> *volumes)
{
    std::istringstream lines(observe::CommandOutput("mount"));
    bool listed = false;
    Volume volume;
    for (std::string line; std::getline(lines, line);) {
        listed = TakeMountLine(line, &volume) || listed;
        if (volume.place.starts_with(observe::kVolumesDir))
            volumes->push_back(volume);
        volume = Volume();
    }
    return listed;
}

const char *ShownOption(bool hidden)
{
    return hidden ? "nobrowse" : "read-only";
}

}  // namespace kstatus
