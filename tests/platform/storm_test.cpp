// A thousand disks that come and go at random.
#include "World.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

namespace fs = std::filesystem;

static constexpr int kRounds = 1000;

// The disk that each label stands for now.
static std::map<std::string, std::string> g_plugged;

// The labels of the disks that were offered, by the folder that the label stood for.
static std::map<std::string, int> g_offered;

static void MountAndRemember(DADiskRef disk, void *context)
{
    const std::string label = LabelOf(disk);
    g_offered[g_plugged[label]]++;
    RecordAndMount(disk, context);
}

static void PullDisk(const std::string &label)
{
    fs::rename(g_plugged[label], g_plugged[label] + ".gone");
    g_plugged.erase(label);
}

TEST_CASE(
    "a thousand plugs and pulls lose no disk that stays, and leave no folder and no descriptor")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, MountAndRemember);
    Settle();
    const int descriptors = CountDescriptors();
    std::mt19937 random(4711);
    const char *const labels[] = {"Orvanta", "Orvanta\\x20Plus", "Orv\xC3\xA4nta", "other"};
    const auto labelOf = [](const std::string &entry) {
        return entry == "Orvanta\\x20Plus" ? std::string("Orvanta Plus") : entry;
    };
    for (int round = 0; round < kRounds; round++) {
        const std::string entry = labels[random() % 4];
        const std::string label = labelOf(entry);
        const bool isPlugged = g_plugged.count(label) != 0;
        const unsigned act = random() % 4;
        if (isPlugged && act == 0) {
            Plug(entry, g_plugged[label]);  // a change event of the same medium
        } else if (isPlugged && act == 1) {
            PullDisk(label);  // another medium in the same drive
            Plug(entry, g_plugged[label] = NewFolder());
        } else if (isPlugged) {
            PullDisk(label);
            Unplug(entry);
        } else {
            Plug(entry, g_plugged[label] = NewFolder());
        }
        for (auto steps = random() % 6; steps > 0; steps--)
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.005, true);
    }
    // Each disk that stays was offered once, and stands under its own name.
    std::vector<std::string> places;
    for (const auto &[label, folder] : g_plugged)
        places.push_back("/Volumes/" + label);
    const auto allStand = [&] {
        std::vector<std::string> points = MountPoints();
        std::sort(points.begin(), points.end());
        return points.size() == places.size();
    };
    CHECK(RunUntil(allStand, 30));
    Settle();
    for (const auto &plugged : g_plugged) {
        CAPTURE(plugged.first);
        CHECK(g_offered[plugged.second] == 1);
    }
    CHECK(MountPoints().size() == places.size());
    CHECK(NamesIn("/Volumes").size() == places.size());
    CHECK(std::all_of(g_offered.begin(), g_offered.end(),
                      [](const auto &offered) { return offered.second == 1; }));
    size_t peeks = 0;
    size_t completions = 0;
    for (const std::string &event : g_events)
        (event.rfind("peek", 0) == 0 ? peeks : completions)++;
    CHECK(peeks == completions);
    CHECK(peeks > kRounds / 10);
    MESSAGE("of " << kRounds << " events " << peeks << " arrivals were offered");

    for (const char *entry : labels) {
        if (g_plugged.count(labelOf(entry)) == 0)
            continue;
        PullDisk(labelOf(entry));
        Unplug(entry);
    }
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    CHECK(CountDescriptors() == descriptors);
    Forget(session);
    CHECK(CountDescriptors() < descriptors);
}
