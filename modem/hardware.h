// hardware.h - the hardware of the bench: disks that come and go under /dev/disk/by-label, and
// serial ports under /dev/serial/by-id, with links made and removed in the order and the way of
// udev.
#ifndef MODEM_HARDWARE_H
#define MODEM_HARDWARE_H

#include <map>
#include <string>
#include <vector>

#include "modem/world.h"

namespace modem
{

struct Disk {
    std::string label;
    std::string device;  // "/dev/sr0": a folder or a disk image
    bool image = false;
    bool modem = false;       // pulled together with the modem's port
    std::string systemPlace;  // where the system itself mounted it; empty when it did not
    unsigned long age = 0;    // of several disks with one label the link names the last that came
    bool broken = false;      // an image whose file system is damaged
};

struct Hardware {
    const World *world = nullptr;
    std::map<std::string, Disk> disks;         // those plugged in, by the scenario's name
    std::map<std::string, std::string> ports;  // by-id name to "/dev/ttyUSB0"
    std::map<std::string, int> ptyMasters;     // by-id name to the side that plays the modem
    unsigned long plugged = 0;
    unsigned long linksMade = 0;
};

extern const char kModemPort[];  // the by-id name of the modem's port
extern const char kByLabel[];    // the folder of the links to disks, by their escaped labels
extern const char kById[];       // the folder of the links to serial ports

// What lies in a drive: a folder, or an image of a file system, whole or damaged.
enum class Medium { Folder, Image, BrokenImage };

// Plugs a disk in: a new medium with the modem's software on it, then the link. Where images cannot
// be mounted, a whole one becomes a folder. False with the reason in `why`.
bool PlugDisk(Hardware *hardware, const std::string &name, const std::string &label, Medium medium,
              std::string *why);

// The system mounts the disk at /Volumes/<label>, as it does at boot, and unmounts it when the disk
// is pulled. A disk image it does not mount.
bool SystemMount(Hardware *hardware, const std::string &name, std::string *why);

// Pulls a disk: first the device is gone (its link dangles), then the link, then empty folders.
// When another disk has the same label, the link names that one from then on.
void UnplugDisk(Hardware *hardware, const std::string &name);

// Another disk of the same label in the same drive: the link is renamed over itself.
bool ChangeMedium(Hardware *hardware, const std::string &name, std::string *why);

// A change event without a change: the link is renamed over itself.
void TouchDisk(Hardware *hardware, const std::string &name);

// Plugs a port in: a pseudo-terminal and its link. False with the reason in `why`.
bool PlugPort(Hardware *hardware, const std::string &name, std::string *why);
void UnplugPort(Hardware *hardware, const std::string &name);

// The name of the disk that the link of `label` names now; empty when there is none.
std::string LinkedDisk(const Hardware &hardware, const std::string &label);

}  // namespace modem

#endif
