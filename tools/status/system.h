// system.h - what differs between the systems that the daemon runs on. The build takes one source
// of the two, linux.cpp or macos.cpp. All of it only looks.
#ifndef TOOLS_STATUS_SYSTEM_H
#define TOOLS_STATUS_SYSTEM_H

#include <optional>
#include <string>
#include <vector>

namespace kstatus
{

enum class Activity {
    Unknown,       // this system, or this user's rights, do not tell
    AwaitsEvents,  // it sleeps in its run loop
    Pauses,        // it sleeps for a time, between two attempts at something
    Works,         // it computes or waits for a command
};

struct Daemon {
    long pid = 0;
    Activity activity = Activity::Unknown;
    std::vector<std::string> children;  // the names of the programs that it runs at the moment
    std::optional<long> age;            // seconds since it was started
    std::string user = {};  // as it is told itself; GatherFacts asks, empty: nobody knows
};

struct Volume {
    std::string place;   // "/Volumes/Orvanta"
    std::string source;  // "/dev/sr0"
    std::string by;      // who mounted it, in plain words
    std::vector<std::string> options;
};

// The daemon's processes, the oldest first. False when the processes cannot be listed.
bool FindDaemons(std::vector<Daemon> *daemons);

// All that is mounted under /Volumes, in the order in which it was mounted. False when the mounts
// cannot be listed.
bool ListVolumes(std::vector<Volume> *volumes);

// How this system shows the option that the daemon mounts with: hidden from the Finder, or
// read-only.
const char *ShownOption(bool hidden);

}  // namespace kstatus

#endif
