// disks_macos.cpp - the disks of macOS, from the property list that diskutil prints. It names the
// volumes, their devices, sizes and places; of the bus it says nothing.
//
// The disks are those of the running system: another root folder holds none.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "observe/commands.h"
#include "observe/disks.h"

namespace fs = std::filesystem;

namespace observe
{

// What a <dict> of the list says of one disk or volume.
struct Entry {
    Disk disk;
    bool optical = false;  // its own content, or that of the disk around it, is a CD's or a DVD's
};

// Takes the text of `key` in an entry.
static void TakeValue(Entry *entry, const std::string &key, const std::string &value)
{
    if (key == "VolumeName")
        entry->disk.label = value;
    if (key == "DeviceIdentifier")
        entry->disk.node = "/dev/" + value;
    if (key == "MountPoint")
        entry->disk.place = value;
    if (key == "Size")
        entry->disk.size = strtoull(value.c_str(), nullptr, 10);
    if (key == "Content" && (value.starts_with("CD_") || value.starts_with("DVD")))
        entry->optical = true;
}

static std::string WithoutEntities(std::string text)
{
    static const char *const kEntities[][2] = {
        {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
    for (const auto &[entity, character] : kEntities) {
        for (size_t at = 0; (at = text.find(entity, at)) != std::string::npos; at++)
            text.replace(at, std::string(entity).size(), character);
    }
    return text;
}

// Reads the list from tag to tag. The keys of an entry stand in the order of the alphabet, so
// "Content" comes before the volumes that a disk holds.
static std::vector<Disk> DisksIn(const std::string &list)
{
    std::vector<Disk> disks;
    std::vector<Entry> open;
    std::string key;
    for (size_t at = list.find('<'); at != std::string::npos; at = list.find('<', at + 1)) {
        const size_t end = list.find('>', at);
        if (end == std::string::npos)
            break;
        const std::string tag = list.substr(at + 1, end - at - 1);
        const std::string text =
            WithoutEntities(list.substr(end + 1, list.find('<', end) - end - 1));
        if (tag == "dict")
            open.push_back({{}, !open.empty() && open.back().optical});
        else if (tag == "key")
            key = text;
        else if ((tag == "string" || tag == "integer") && !open.empty())
            TakeValue(&open.back(), key, text);
        else if (tag == "/dict" && !open.empty()) {
            open.back().disk.optical = open.back().optical;
            if (!open.back().disk.label.empty())
                disks.push_back(open.back().disk);
            open.pop_back();
        }
    }
    std::ranges::stable_sort(disks, {}, &Disk::label);
    return disks;
}

std::optional<std::vector<Disk>> ListDisks(const std::string & /*root*/)
{
    const std::string list = CommandOutput("diskutil list -plist");
    return list.empty() ? std::nullopt : std::optional(DisksIn(list));
}

std::vector<std::string> ListPorts(const std::string &root)
{
    std::vector<std::string> ports;
    std::error_code error;
    for (fs::directory_iterator at(root + "/dev", error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename();
        if (name.starts_with("cu."))
            ports.push_back("/dev/" + name);
    }
    std::ranges::sort(ports);
    return ports;
}

}  // namespace observe
