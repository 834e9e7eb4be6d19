// sighting.h - what somebody who only looks can see of the world around the daemon: disks, ports,
// mounts, users, the Finder.
#ifndef BENCH_SIGHTING_H
#define BENCH_SIGHTING_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bench/world.h"

namespace bench
{

// A disk that a link under /dev/disk/by-label names.
struct LabelledDisk {
    std::string device;    // what the link leads to, "/dev/sr0"
    std::string identity;  // differs when another disk stands at that device
    std::string link;      // differs when the link was made anew
};

struct Sighting {
    std::map<std::string, LabelledDisk> disks;  // by label
    std::set<std::string> ports;                // names under /dev/serial/by-id
    std::vector<Mounted> mounts;                // under /Volumes
    std::set<std::string> folders;              // in /Volumes, with nothing mounted there
    std::string consoleUser;
    std::string daemonUser;
    bool finder = false;
    long daemon = 0;                    // its process id; 0 when it does not run
    std::optional<std::string> config;  // the files' content, where they are there
    std::optional<std::string> sysConfig;
};

// Disks, ports, mounts and files. The other members stay as they are.
void LookAtHardware(const World &world, Sighting *sighting);

// The users and the Finder, in a world of the bench: what its programs would answer.
void LookAtPeople(const World &world, Sighting *sighting);

// The same where no bench answers: asks with the daemon's own commands. `daemon` is its process id.
void AskForPeople(long daemon, Sighting *sighting);

// What identifies the disk at a device; empty when there is none.
std::string IdentityOf(const std::string &device);

}  // namespace bench

#endif
