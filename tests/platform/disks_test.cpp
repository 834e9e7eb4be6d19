// Which disks are offered, and when; what a removal takes away.
#include "World.h"

#include <doctest/doctest.h>

#include <filesystem>

#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

TEST_CASE("a disk that is plugged in is offered, mounted on request, and unmounted when it goes")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch("Orvanta", RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(RunUntil([] { return g_events.size() == 2; }));
    CHECK(g_events == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    CHECK(ReadFile("/Volumes/Orvanta/app") == "app");
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    Settle();
    CHECK(g_events.size() == 2);
    Forget(session);
}
