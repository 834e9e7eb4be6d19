// disks.cpp - what is the same on every system: a disk in words, and the disks that may be the
// modem's.
#include "observe/disks.h"

#include <algorithm>
#include <cstdio>

#include "observe/daemon.h"
#include "observe/names.h"
#include "observe/nearest.h"

namespace observe
{

static std::string SizeText(uint64_t bytes)
{
    static const char *const kUnits[] = {"bytes", "kB", "MB", "GB", "TB"};
    size_t unit = 0;
    auto size = static_cast<double>(bytes);
    while (size >= 1000 && unit + 1 < std::size(kUnits)) {
        size /= 1000;
        unit++;
    }
    char text[32];
    (void)snprintf(text, sizeof text, "%.*f %s", unit == 0 || size >= 100 ? 0 : 1, size,
                   kUnits[unit]);
    return text;
}

std::string Describe(const Disk &disk)
{
    std::string text = Quoted(disk.label) + " on " + disk.node;
    if (disk.size)
        text += ", " + SizeText(*disk.size);
    if (disk.optical)
        text += ", optical";
    if (disk.usb)
        text += ", USB";
    return text + (disk.place.empty() ? ", not mounted" : ", mounted at " + disk.place);
}

std::vector<std::string> LikelyMeant(const std::vector<Disk> &disks, const std::string &label,
                                     bool portIsThere)
{
    std::vector<std::string> sentences;
    for (const Disk &disk : disks) {
        if (disk.label == label)
            return {};
        const char *difference = SmallDifference(disk.label, label);
        if (difference == nullptr && disk.label != kDefaultVolumeName &&
            !(portIsThere && disk.optical && disk.usb)) {
            continue;
        }
        const std::string why =
            difference == nullptr ? "" : std::string(": they differ in ") + difference;
        sentences.push_back("the disk " + Quoted(disk.label) +
                            " is there, the configuration waits for " + Quoted(label) + why);
    }
    return sentences;
}

}  // namespace observe
