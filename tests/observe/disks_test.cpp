// The disks and ports that are there, which of them may be meant, and names that are near each
// other.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/disks.h"
#include "observe/nearest.h"

namespace fs = std::filesystem;

namespace
{

using Texts = std::vector<std::string>;

// A machine's root folder, gone at the end.
struct Root {
    fs::path path;

    Root()
    {
        char name[] = "/tmp/disks_test.XXXXXX";
        path = mkdtemp(name);
    }
    ~Root()
    {
        fs::remove_all(path);
    }
    Root(const Root &) = delete;
    Root &operator=(const Root &) = delete;

    void Link(const std::string &link, const std::string &target) const
    {
        fs::create_directories((path / link).parent_path());
        fs::create_symlink(target, path / link);
    }

    // A device with its link and what sysfs tells of it.
    void Disk(const std::string &name, const std::string &device, const std::string &bus,
              const std::string &sectors) const
    {
        Link("dev/disk/by-label/" + name, "../../" + device);
        const std::string folder = "sys/devices/" + bus + "/block/" + device;
        fs::create_directories(path / folder);
        std::ofstream(path / folder / "size") << sectors << '\n';
        Link("sys/class/block/" + device, "../../../" + folder);
    }
};

Texts Described(const std::vector<observe::Disk> &disks)
{
    Texts texts;
    for (const observe::Disk &disk : disks)
        texts.push_back(Describe(disk));
    return texts;
}

observe::Disk Labelled(const std::string &label, bool optical = false, bool usb = false)
{
    return {label, "/dev/x", std::nullopt, optical, usb, ""};
}

}  // namespace

TEST_CASE("the disks are those of udev's links, each with what the kernel tells of its device")
{
    const Root root;
    root.Disk("Orvanta\\x20Plus", "sr0", "pci0/usb2/2-1/host3", "24576");
    root.Disk("EFI", "sda1", "pci0/ata1/host0", "1048576");
    root.Disk("Or\303\244", "sdb1", "pci0/usb1/1-4", "3");
    root.Link("dev/disk/by-label/.#Orvanta0123456789abcdef", "../../sr0");
    root.Link("dev/disk/by-label/folder", "/srv/modem");
    const auto disks = observe::ListDisks(root.path);
    REQUIRE(disks);
    CHECK(Described(*disks) ==
          Texts{
              "\"EFI\" on /dev/sda1, 537 MB, not mounted",
              "\"Orvanta Plus\" on /dev/sr0, 12.6 MB, optical, USB, not mounted",
              "\"Or\303\244\" on /dev/sdb1, 1.5 kB, USB, not mounted",
              "\"folder\" on /srv/modem, not mounted",
          });
}

TEST_CASE("a machine without disks and ports lists none")
{
    const Root root;
    const auto disks = observe::ListDisks(root.path);
    REQUIRE(disks);
    CHECK(disks->empty());
    CHECK(observe::ListPorts(root.path).empty());
}

TEST_CASE("ports are listed by the paths that the daemon sees, in the order of their names")
{
    const Root root;
    root.Link("dev/serial/by-id/usb-b-port0", "../../ttyUSB0");
    root.Link("dev/serial/by-id/usb-a-port0", "../../ttyUSB1");
    root.Link("dev/serial/by-id/.#usb-c-port00123456789abcdef", "../../ttyUSB2");
    CHECK(observe::ListPorts(root.path) ==
          Texts{"/dev/serial/by-id/usb-a-port0", "/dev/serial/by-id/usb-b-port0"});
}

TEST_CASE("a disk is described with its size in round numbers and with where it is mounted")
{
    const auto text = [](uint64_t size) {
        return observe::Describe({"\x1B[2J", "/dev/sr0", size, false, false, "/Volumes/x"});
    };
    CHECK(text(0) == "\"\\x1B[2J\" on /dev/sr0, 0 bytes, mounted at /Volumes/x");
    CHECK(text(999) == "\"\\x1B[2J\" on /dev/sr0, 999 bytes, mounted at /Volumes/x");
    CHECK(text(1000) == "\"\\x1B[2J\" on /dev/sr0, 1.0 kB, mounted at /Volumes/x");
    CHECK(text(250'000'000'000) == "\"\\x1B[2J\" on /dev/sr0, 250 GB, mounted at /Volumes/x");
    CHECK(text(UINT64_MAX) == "\"\\x1B[2J\" on /dev/sr0, 18446744 TB, mounted at /Volumes/x");
}

TEST_CASE("a disk is likely meant by a near label, by the modems' own, or by a port beside it")
{
    const std::vector<observe::Disk> disks = {Labelled("EFI"), Labelled("Orvanta"),
                                              Labelled("Qarvel", true, true)};
    CHECK(observe::LikelyMeant(disks, "Foo", false) ==
          Texts{"the disk \"Orvanta\" is there, the configuration waits for \"Foo\""});
    CHECK(observe::LikelyMeant(disks, "Foo", true) ==
          Texts{"the disk \"Orvanta\" is there, the configuration waits for \"Foo\"",
                "the disk \"Qarvel\" is there, the configuration waits for \"Foo\""});
    CHECK(observe::LikelyMeant(disks, "qarvel", false) ==
          Texts{"the disk \"Orvanta\" is there, the configuration waits for \"qarvel\"",
                "the disk \"Qarvel\" is there, the configuration waits for \"qarvel\": they differ "
                "in the letter case"});
    CHECK(observe::LikelyMeant(disks, "EFI ", false) ==
          Texts{"the disk \"EFI\" is there, the configuration waits for \"EFI \": they differ in a "
                "blank",
                "the disk \"Orvanta\" is there, the configuration waits for \"EFI \""});
}

TEST_CASE("where the disk is there that the configuration waits for, no other one is likely meant")
{
    const std::vector<observe::Disk> disks = {Labelled("Orvanta"), Labelled("orvanta"),
                                              Labelled("Foo", true, true)};
    CHECK(observe::LikelyMeant(disks, "orvanta", true).empty());
    CHECK(observe::LikelyMeant({Labelled("USBSTICK", false, true)}, "Orvanta", true).empty());
}

TEST_CASE("the distance of names is counted in characters put in, left out, replaced or exchanged")
{
    CHECK(observe::Distance("", "") == 0);
    CHECK(observe::Distance("abc", "") == 3);
    CHECK(observe::Distance("", "abc") == 3);
    CHECK(observe::Distance("name", "nmae") == 1);
    CHECK(observe::Distance("name", "names") == 1);
    CHECK(observe::Distance("name", "nme") == 1);
    CHECK(observe::Distance("name", "nane") == 1);
    CHECK(observe::Distance("ca", "abc") == 3);
    CHECK(observe::Distance("Orv\303\244nta", "Orvanta") == 1);
    CHECK(observe::Distance("\xFF\xFE", "") == 2);
    CHECK(observe::Distance("kitten", "sitting") == 3);
}

TEST_CASE("a small difference is named, a large one and none are not")
{
    CHECK(observe::SmallDifference("Orvanta", "Orvanta") == nullptr);
    CHECK(observe::SmallDifference("Orvanta", "ORVANTA") == std::string("the letter case"));
    CHECK(observe::SmallDifference("Or vanta", "Orvanta ") == std::string("a blank"));
    CHECK(observe::SmallDifference("Orvanta", "Orvamta") == std::string("one letter"));
    CHECK(observe::SmallDifference("Orvanta", "orvamta") == nullptr);
}

TEST_CASE("the nearest name is at most two steps away, and keeps a letter of what was written")
{
    const Texts keys = {"name", "path1", "disable_cdrom"};
    CHECK(observe::Nearest("nmae", keys) == "name");
    CHECK(observe::Nearest("PATH", keys) == "path1");
    CHECK(observe::Nearest("disable-cdrm", keys) == "disable_cdrom");
    CHECK(observe::Nearest("disablecd", keys).empty());
    CHECK(observe::Nearest("xy", {"ab"}).empty());
    CHECK(observe::Nearest("", keys).empty());
}
