// linux.cpp - the facts of Linux: processes from /proc, mounts from mountinfo. What a mount helper
// keeps for itself (x-gvfs-hide and the like) stands in the table of libmount alone.
#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <unistd.h>

#include "modem/process.h"
#include "modem/world.h"
#include "tools/status/system.h"

namespace kstatus
{

static const char kCommands[] = "/usr/libexec/kestrun";
static const char kMountTable[] = "/run/mount/utab";
static const char *const kSystemFolders[] = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                             "/usr/bin",        "/sbin",          "/bin"};

// In front of the system's own folders, but behind what the caller put first.
void PrepareCommands()
{
    const char *old = getenv("PATH");
    std::istringstream folders(old != nullptr ? old : "/usr/bin:/bin");
    std::string path;
    bool placed = false;
    for (std::string folder; std::getline(folders, folder, ':');) {
        const bool system = std::find(std::begin(kSystemFolders), std::end(kSystemFolders),
                                      folder) != std::end(kSystemFolders);
        if (system && !placed) {
            path += std::string(path.empty() ? "" : ":") + kCommands;
            placed = true;
        }
        path += (path.empty() ? "" : ":") + folder;
    }
    (void)setenv("PATH", path.c_str(), 1);
}

static std::string FirstLine(const std::string &path)
{
    const std::string text = modem::ReadFile(path);
    return text.substr(0, text.find('\n'));
}

static Activity ActivityOf(const modem::Process &process)
{
    switch (modem::SleepOf(process)) {
    case modem::Sleep::Unknown: return Activity::Unknown;
    case modem::Sleep::Awake: return Activity::Works;
    case modem::Sleep::Timed: return Activity::Pauses;
    case modem::Sleep::Endless: return Activity::AwaitsEvents;
    }
    return Activity::Unknown;
}

static std::vector<std::string> ChildrenOf(const std::string &folder, long pid)
{
    std::vector<std::string> names;
    std::istringstream children(
        modem::ReadFile(folder + "/task/" + std::to_string(pid) + "/children"));
    for (std::string child; children >> child;)
        names.push_back(FirstLine("/proc/" + child + "/comm"));
    return names;
}

// Seconds since the process was started.
static std::optional<long> AgeOf(long pid)
{
    const modem::NamedProcess process = modem::LookAtNamed(pid);
    const std::string uptime = modem::ReadFile("/proc/uptime");
    if (process.parent < 0 || uptime.empty())
        return std::nullopt;
    const long started = static_cast<long>(process.started) / sysconf(_SC_CLK_TCK);
    return strtol(uptime.c_str(), nullptr, 10) - started;
}

bool FindDaemons(std::vector<Daemon> *daemons)
{
    for (const long pid : modem::FindDaemons()) {
        const std::string folder = "/proc/" + std::to_string(pid);
        modem::Process process;
        process.pid = static_cast<pid_t>(pid);
        daemons->push_back({pid, ActivityOf(process), ChildrenOf(folder, pid), AgeOf(pid)});
    }
    return access("/proc/self/stat", R_OK) == 0;
}

static std::vector<std::string> Split(const std::string &text)
{
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, ',');)
        words.push_back(word);
    return words;
}

// The options that libmount noted for a place; none when it noted nothing.
static std::string NotedOptions(const std::string &place)
{
    std::istringstream table(modem::ReadFile(kMountTable));
    std::string options;
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string target;
        std::string noted;
        for (std::string field; fields >> field;) {
            if (field.compare(0, 7, "TARGET=") == 0)
                target = modem::UnescapedField(field.substr(7));
            if (field.compare(0, 5, "OPTS=") == 0)
                noted = field.substr(5);
        }
        if (target == place)
            options = noted;
    }
    return options;
}

static bool Has(const std::vector<std::string> &options, const char *option)
{
    return std::find(options.begin(), options.end(), option) != options.end();
}

// The kernel does not know who asked: the daemon's own mounts are known by their options.
static std::string MountedBy(const std::vector<std::string> &options)
{
    const bool daemons = Has(options, "nosuid") && Has(options, "nodev") &&
                         (Has(options, "ro") || Has(options, "x-gvfs-hide"));
    return daemons ? "Kestrun" : "another program";
}

bool ListVolumes(std::vector<Volume> *volumes)
{
    if (modem::ReadFile("/proc/self/mountinfo").empty())
        return false;
    modem::World world;
    world.kind = modem::WorldKind::Root;
    for (const modem::Mounted &mounted : modem::MountsUnder(world, "/Volumes")) {
        const std::string noted = NotedOptions(mounted.place);
        const auto options = Split(mounted.options + (noted.empty() ? "" : "," + noted));
        volumes->push_back({mounted.place, mounted.source, MountedBy(options), options});
    }
    return true;
}

const char *ShownOption(bool hidden)
{
    return hidden ? "x-gvfs-hide" : "ro";
}

}  // namespace kstatus
