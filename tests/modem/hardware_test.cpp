// The simulated hardware's own rules.
#include <string>

#include <doctest/doctest.h>

#include "modem/hardware.h"

TEST_CASE("a label becomes a file name in udev's way")
{
    struct Row {
        const char *label;
        const char *name;
    };
    const Row rows[] = {
        {"Orvanta", "Orvanta"},
        {"Orvanta Plus", "Orvanta\\x20Plus"},
        {"Orv\xc3\xa4nta/%d", "Orv\xc3\xa4nta\\x2f\\x25d"},
        {"a/../b%n\\x2f", "a\\x2f..\\x2fb\\x25n\\x5cx2f"},
        {".#Orvanta", ".#Orvanta"},
        {"09AZaz#+-.:=@_", "09AZaz#+-.:=@_"},
        {"Orv\x8anta", "Orv\\x8anta"},
        {"\xe2\x82\xac\xe2\x82", "\xe2\x82\xac\\xe2\\x82"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.label);
        CHECK(modem::EscapeLabel(row.label) == row.name);
    }
}

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
