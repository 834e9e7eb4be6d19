// The simulated hardware's own rules.
#include <string>

#include <doctest/doctest.h>

#include "modem/hardware.h"

TEST_CASE("of several disks with one label the link names the one that came last")
{
    modem::Hardware hardware;
    hardware.disks["a"] = {"Orvanta", "/dev/sr0", false, false, "", 1};
    hardware.disks["b"] = {"Orvanta", "/dev/sr1", false, false, "", 3};
    hardware.disks["c"] = {"Orvanta", "/dev/sr2", false, false, "", 2};
    hardware.disks["d"] = {"Other", "/dev/sr3", false, false, "", 4};
    CHECK(modem::LinkedDisk(hardware, "Orvanta") == "b");
    hardware.disks.erase("b");
    CHECK(modem::LinkedDisk(hardware, "Orvanta") == "c");
    CHECK(modem::LinkedDisk(hardware, "Nothing") == "");
}
