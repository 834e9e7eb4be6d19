// storm.cpp - random plugs and pulls, and the claims about what they leave: every disk that its
// link names is mounted exactly once, nothing else is mounted, no folder is left over, and the
// daemon holds no more descriptors and children than before.
#include <algorithm>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "modem/player.h"
#include "observe/daemon.h"
#include "observe/mounts.h"
#include "observe/process.h"

namespace modem
{
namespace
{

namespace fs = std::filesystem;

const size_t kMostDisks = 4;
const char kOtherLabel[] = "Holiday Photos";
const double kRestWithin = 600;

enum class Event { Plug, PlugOther, Pull, Change, Touch };

unsigned long Dice(Player *player, unsigned long sides)
{
    return std::uniform_int_distribution<unsigned long>(0, sides - 1)(player->random);
}

Event ChooseEvent(Player *player)
{
    const size_t plugged = player->hardware.disks.size();
    const unsigned long dice = Dice(player, 100);
    if (plugged == 0 || (plugged < kMostDisks && dice < 38))
        return dice % 5 == 0 ? Event::PlugOther : Event::Plug;
    return dice < 80 ? Event::Pull : dice < 90 ? Event::Change : Event::Touch;
}

std::string AnyDisk(Player *player)
{
    auto at = player->hardware.disks.begin();
    std::advance(at, Dice(player, player->hardware.disks.size()));
    return at->first;
}

void PlayEvent(Player *player, long number)
{
    Hardware *hardware = &player->hardware;
    std::string why;
    switch (ChooseEvent(player)) {
    case Event::Plug:
        (void)PlugDisk(hardware, "storm" + std::to_string(number), observe::kDefaultVolumeName,
                       Medium::Folder, &why);
        break;
    case Event::PlugOther:
        (void)PlugDisk(hardware, "storm" + std::to_string(number), kOtherLabel, Medium::Folder,
                       &why);
        break;
    case Event::Pull: UnplugDisk(hardware, AnyDisk(player)); break;
    case Event::Change: (void)ChangeMedium(hardware, AnyDisk(player), &why); break;
    case Event::Touch: TouchDisk(hardware, AnyDisk(player)); break;
    }
    if (!why.empty())
        FailScenario(player, why);
}

// A rest between two events, from none at all to long enough for the daemon to finish.
void Rest(Player *player)
{
    const unsigned long dice = Dice(player, 10);
    if (dice < 3)
        return;
    (void)usleep(static_cast<useconds_t>(Dice(player, dice < 9 ? 10000 : 60000)));
}

// The places where `disk` is mounted.
std::vector<std::string> PlacesOf(const Player &player, const Disk &disk)
{
    struct stat device;
    std::vector<std::string> places;
    if (stat(disk.device.c_str(), &device) != 0)
        return places;
    for (const observe::Mounted &mounted : player.observed.mounts) {
        struct stat place;
        if (stat(mounted.place.c_str(), &place) == 0 && place.st_dev == device.st_dev &&
            place.st_ino == device.st_ino) {
            places.push_back(mounted.place);
        }
    }
    return places;
}

void CheckMounts(Player *player)
{
    size_t accounted = 0;
    for (const auto &[name, disk] : player->hardware.disks) {
        const size_t count = PlacesOf(*player, disk).size();
        const bool linked = LinkedDisk(player->hardware, disk.label) == name;
        const bool ours = disk.label == observe::kDefaultVolumeName;
        accounted += count;
        if (ours && linked && count != 1) {
            FailScenario(player, "the disk " + name + " (" + disk.device +
                                     ") stays and is mounted " + std::to_string(count) + " times");
        }
        if (count > (ours ? 1 : 0)) {
            FailScenario(player, "the disk " + name + " labelled " + disk.label + " is mounted " +
                                     std::to_string(count) + " times");
        }
    }
    if (accounted != player->observed.mounts.size()) {
        std::string places;
        for (const observe::Mounted &mounted : player->observed.mounts)
            places += "\n  " + mounted.place + " from " + mounted.source;
        FailScenario(player, "something is mounted of a disk that is gone:" + places);
    }
}

void CheckFolders(Player *player)
{
    for (const auto &entry : fs::directory_iterator(observe::kVolumesDir)) {
        const std::string path = entry.path();
        const bool mounted =
            std::any_of(player->observed.mounts.begin(), player->observed.mounts.end(),
                        [&](const observe::Mounted &mount) { return mount.place == path; });
        if (!mounted)
            FailScenario(player, "the folder " + path + " is left over");
    }
}

bool ComeToRest(Player *player)
{
    const bool idle = WaitFor(player, "waiting until the daemon has worked it all off", kRestWithin,
                              false, [&] { return observe::IsIdle(player->daemon.pid); });
    LookAround(player);  // what came between the last look and the rest
    return idle;
}

struct Held {
    int descriptors = 0;
    int children = 0;
    long residentKiB = 0;
};

Held WhatItHolds(const Player &player)
{
    return {observe::CountDescriptors(player.daemon.pid),
            static_cast<int>(observe::ChildrenOf(player.daemon.pid).size()),
            observe::ResidentKiB(player.daemon.pid)};
}

std::string HeldText(const Held &held)
{
    return std::to_string(held.descriptors) + " descriptors, " + std::to_string(held.children) +
           " children, " + std::to_string(held.residentKiB) + " KiB resident";
}

}  // namespace

void PlayStorm(Player *player, long events)
{
    Say(&player->timeLine, Kind::Outside,
        std::to_string(events) + " random events, seed " + std::to_string(player->options->seed));
    (void)ComeToRest(player);
    const Held before = WhatItHolds(*player);
    for (long number = 0; number < events && player->result == Result::Passed; ++number) {
        PlayEvent(player, number);
        Rest(player);
        LookAround(player);
    }
    if (!ComeToRest(player)) {
        FailScenario(player, "the daemon does not come to rest after the storm");
        return;
    }
    CheckMounts(player);
    CheckFolders(player);
    while (!player->hardware.disks.empty())
        UnplugDisk(&player->hardware, player->hardware.disks.begin()->first);
    (void)ComeToRest(player);
    CheckMounts(player);
    CheckFolders(player);
    const Held after = WhatItHolds(*player);
    Say(&player->timeLine, Kind::Note,
        std::to_string(CountInLog(player->observed.log, "Device inserted!")) +
            " arrivals; before: " + HeldText(before) + "; after: " + HeldText(after));
    if (after.descriptors != before.descriptors || after.children != before.children)
        FailScenario(player, "the daemon holds other things than before the storm");
    ++player->expectations;
}

}  // namespace modem
