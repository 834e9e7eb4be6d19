// disks.h - the disks with a label and the serial ports that are there, whoever they belong to. The
// build takes one source of the two, disks_linux.cpp or disks_macos.cpp. All of it only looks.
#ifndef OBSERVE_DISKS_H
#define OBSERVE_DISKS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace observe
{

struct Disk {
    std::string label;             // as the medium has it
    std::string node;              // "/dev/sr0"
    std::optional<uint64_t> size;  // in bytes; nothing when the system does not tell
    bool optical = false;
    bool usb = false;   // macOS's list of disks does not tell: false there
    std::string place;  // where it is mounted; empty when it is not
};

// The disks that have a label, sorted by it, of the machine whose root folder is `root` ("" for
// this one). Nothing when the system cannot be asked.
std::optional<std::vector<Disk>> ListDisks(const std::string &root);

// The paths of the serial ports, sorted, by the names that the daemon looks at.
std::vector<std::string> ListPorts(const std::string &root);

// The names of udev's links in a folder, sorted, without those that it has not renamed yet; none
// where there is no such folder. On Linux alone.
std::vector<std::string> LinksIn(const std::string &folder);

// "Orvanta" on /dev/sr0, 12.3 MB, optical, USB, mounted at /Volumes/Orvanta
std::string Describe(const Disk &disk);

// The disks that may be the modem's though none has the label that the configuration waits for,
// each as a sentence: those whose label is nearly that one, those with the label that modems come
// with, and, where `portIsThere` tells that a modem is plugged in, optical disks on USB. Nothing
// when a disk of that label is there.
std::vector<std::string> LikelyMeant(const std::vector<Disk> &disks, const std::string &label,
                                     bool portIsThere);

}  // namespace observe

#endif
