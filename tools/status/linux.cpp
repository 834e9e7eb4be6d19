// linux.cpp - the facts of Linux: processes from /proc, mounts from mountinfo. What a mount helper
// keeps for itself (x-gvfs-hide and the like) stands in the table of libmount alone.
#include <sstream>

#include <unistd.h>

#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"
#include "observe/process.h"
#include "tools/status/system.h"

namespace kstatus
{

static const char kMountTable[] = "/run/mount/utab";

static Activity ActivityOf(long pid)
{
    switch (observe::SleepOf(pid)) {
    case observe::Sleep::Unknown: return Activity::Unknown;
    case observe::Sleep::Awake: return Activity::Works;
    case observe::Sleep::Timed: return Activity::Pauses;
    case observe::Sleep::Endless: return Activity::AwaitsEvents;
    }
    return Activity::Unknown;
}

bool FindDaemons(std::vector<Daemon> *daemons)
{
    for (const long pid : observe::FindDaemons()) {
        Daemon daemon{pid, ActivityOf(pid), {}, observe::AgeOf(pid)};
        for (const long child : observe::ChildrenOf(pid))
            daemon.children.push_back(observe::NameOf(child));
        daemons->push_back(daemon);
    }
    return access("/proc/self/stat", R_OK) == 0;
}

// The options that libmount noted for a place; none when it noted nothing.
static std::string NotedOptions(const std::string &place)
{
    std::istringstream table(observe::ReadFile(kMountTable));
    std::string options;
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string target;
        std::string noted;
        for (std::string field; fields >> field;) {
            if (field.compare(0, 7, "TARGET=") == 0)
                target = observe::UnescapeField(field.substr(7));
            if (field.compare(0, 5, "OPTS=") == 0)
                noted = field.substr(5);
        }
        if (target == place)
            options = noted;
    }
    return options;
}

// The kernel does not know who asked: the daemon's own mounts are known by their options.
static std::string MountedBy(const std::string &options)
{
    const bool shown =
        observe::HasOption(options, "ro") || observe::HasOption(options, "x-gvfs-hide");
    return observe::IsDaemons(options) && shown ? "Kestrun" : "another program";
}

bool ListVolumes(std::vector<Volume> *volumes)
{
    const auto mounts = observe::Mounts();
    for (const observe::Mounted &mounted : mounts) {
        if (!observe::IsUnder(mounted.place, observe::kVolumesDir))
            continue;
        const std::string noted = NotedOptions(mounted.place);
        const std::string options = mounted.options + (noted.empty() ? "" : "," + noted);
        volumes->push_back(
            {mounted.place, mounted.source, MountedBy(options), observe::Split(options, ',')});
    }
    return !mounts.empty();
}

const char *ShownOption(bool hidden)
{
    return hidden ? "x-gvfs-hide" : "ro";
}

}  // namespace kstatus
