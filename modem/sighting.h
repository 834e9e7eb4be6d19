// sighting.h - what somebody who only looks can see of the world around the daemon: disks, ports,
// mounts, users, the Finder, files.
#ifndef MODEM_SIGHTING_H
#define MODEM_SIGHTING_H

#include <map>
#include <optional>
#include <set>
#include <string>

#include "modem/daemon.h"
#include "modem/world.h"

namespace modem
{

// A disk that a link under /dev/disk/by-label names, or named until another disk of its label came.
struct SeenDisk {
    std::string label;
    std::string identity;  // differs when another disk stands at the device
    std::string link;      // differs when the link was made anew; empty while it names another disk
    bool image = false;    // a file

    bool operator==(const SeenDisk &) const = default;
};

struct SeenMount {
    std::string options;   // as the kernel shows them; empty where it shows none
    std::string identity;  // differs when something else is mounted there

    bool operator==(const SeenMount &) const = default;
};

struct Sighting {
    double at = 0;                            // when, in seconds of the daemon
    std::map<std::string, SeenDisk> disks;    // by what the link leads to, "/dev/sr0"
    std::set<std::string> ports;              // names under /dev/serial/by-id
    std::map<std::string, SeenMount> mounts;  // by place, under /Volumes
    std::set<std::string> folders;            // in /Volumes, with nothing mounted there
    std::string consoleUser;
    std::string daemonUser;
    bool finder = false;
    long daemon = 0;                    // its process id; 0 when it does not run
    bool idle = false;                  // it has nothing to do
    bool waits = false;                 // it sleeps for a time, and goes on then
    bool logFolder = true;              // the folder of the log is there
    bool logReadOnly = false;           // and nobody may write it
    long logDisk = 0;                   // bytes of the disk of its own that it is; 0: it is none
    bool logFull = false;               // that disk has no room
    long logSize = 0;                   // bytes
    std::optional<std::string> config;  // the files' content, where they are there
    std::optional<std::string> sysConfig;
};

// Disks, ports, mounts, files and the log's folder. The other members stay as they are. `sighting`
// holds what the last look has found: a disk whose link names another one now is known from it.
//
// What the daemon does is looked at before what makes it do so: a mount or an unmount that is seen
// has its cause in the same sighting or in one before.
void LookAtHardware(const World &world, Sighting *sighting);

// The daemon's process: its id, and how it sleeps.
void LookAtDaemon(const Process &daemon, Sighting *sighting);

// The users and the Finder, in a world of the bench: what its programs would answer.
void LookAtPeople(const World &world, Sighting *sighting);

// The same where no bench answers: asks with the daemon's own commands. `daemon` is its process id.
void AskForPeople(long daemon, Sighting *sighting);

}  // namespace modem

#endif
