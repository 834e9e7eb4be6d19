// The folders under /Volumes and the lines of mountinfo.
#include "World.h"

#include "platform/linux/MountPoints.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace fs = std::filesystem;

static std::string Place(const std::string &label, int number)
{
    char place[kPlaceSize];
    std::memset(place, 0x5A, sizeof place);
    return PlaceName(label.c_str(), number, place, sizeof place) ? place : "<none>";
}

TEST_CASE("a disk's folder is named by its label, with colons for slashes")
{
    CHECK(Place("Orvanta", 0) == "/Volumes/Orvanta");
    CHECK(Place("Orvanta", 1) == "/Volumes/Orvanta 1");
    CHECK(Place("Orvanta", 99) == "/Volumes/Orvanta 99");
    CHECK(Place("a/../b%n\\x2f", 0) == "/Volumes/a:..:b%n\\x2f");
    CHECK(Place("/", 0) == "/Volumes/:");
    CHECK(Place("../../etc", 2) == "/Volumes/..:..:etc 2");
    const std::string longest(kLabelMax, 'x');
    CHECK(Place(longest, 0) == "/Volumes/" + longest);
    CHECK(Place(longest, 99) == "/Volumes/" + longest + " 99");
    CHECK(Place(longest + "x", 99) == "<none>");
    char place[17];
    CHECK(PlaceName("Orvanta", 0, place, sizeof place));
    CHECK(!PlaceName("Orvanta", 0, place, sizeof place - 1));
    CHECK(place[0] == '\0');
}

// The place that is taken, or the name of the error.
static std::string Take(const std::string &label)
{
    char place[kPlaceSize];
    const int error = TakePlace(label.c_str(), place, sizeof place);
    if (error == 0)
        return place;
    CHECK(place[0] == '\0');
    return std::strerror(error);
}

TEST_CASE("whatever stands at a name makes the next number the place")
{
    if (!EnterWorld())
        return;
    CHECK(Take("Orvanta") == "/Volumes/Orvanta");
    CHECK(fs::is_directory("/Volumes/Orvanta"));
    CHECK(Take("Orvanta") == "/Volumes/Orvanta 1");
    WriteFile("/Volumes/Orvanta 2", "a file");
    fs::create_symlink("/nowhere", "/Volumes/Orvanta 3");
    CHECK(Take("Orvanta") == "/Volumes/Orvanta 4");
    fs::remove("/Volumes/Orvanta 1");
    CHECK(Take("Orvanta") == "/Volumes/Orvanta 1");
    CHECK(Take("a/b") == "/Volumes/a:b");
}

TEST_CASE("the names end at 99")
{
    if (!EnterWorld())
        return;
    CHECK(Take("Orvanta") == "/Volumes/Orvanta");
    for (int number = 1; number <= 99; number++)
        CHECK(Take("Orvanta") == "/Volumes/Orvanta " + std::to_string(number));
    CHECK(Take("Orvanta") == std::strerror(EEXIST));
    CHECK(NamesIn("/Volumes").size() == 100);
}

TEST_CASE("a label of the greatest length has one place")
{
    if (!EnterWorld())
        return;
    const std::string longest(kLabelMax, 'x');
    CHECK(Take(longest) == "/Volumes/" + longest);
    CHECK(Take(longest) == std::strerror(ENAMETOOLONG));
}

TEST_CASE("/Volumes is made when it is missing, and nothing when it is no folder")
{
    if (!EnterWorld())
        return;
    fs::remove("/Volumes");
    CHECK(Take("Orvanta") == "/Volumes/Orvanta");
    fs::remove_all("/Volumes");
    WriteFile("/Volumes", "");
    CHECK(Take("Orvanta") == std::strerror(ENOTDIR));
    fs::remove("/Volumes");
    fs::create_directory("/Volumes");
}

TEST_CASE("what keeps a folder from being made is told")
{
    if (!EnterWorld())
        return;
    CHECK(Take(std::string(300, 'x')) == std::strerror(ENAMETOOLONG));
    fs::remove("/Volumes");
    REQUIRE(mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0);
    CHECK(Take("Orvanta") == std::strerror(EROFS));
    RemoveStalePlaces();
    CHECK(IsMounted({DiskKind::Folder, 1, 2}) == Found::No);
    REQUIRE(mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND, nullptr) == 0);
    fs::create_directory("/Volumes");
}

// What stands in place of mountinfo: a file, or none to be had.
static const char *g_mountInfo = nullptr;
static const char *g_mountInfoMode = "re";

extern "C" FILE *fopen(const char *path, const char *mode)
{
    const bool instead = g_mountInfo != nullptr && std::strcmp(path, "/proc/self/mountinfo") == 0;
    static FILE *(*const next)(const char *, const char *) =
        reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    return instead ? next(g_mountInfo, g_mountInfoMode) : next(path, mode);
}

TEST_CASE("without mountinfo nobody knows what is mounted")
{
    if (!EnterWorld())
        return;
    WriteFile("/run/mountinfo", "1 2 0:25 / / rw - tmpfs none rw\n");
    char place[kPlaceSize] = "x";
    const auto unknown = [&] {
        CHECK(IsMounted({DiskKind::Folder, 1, 2}) == Found::Unknown);
        CHECK(IsMountPoint("/Volumes/Orvanta") == Found::Unknown);
        CHECK(FindPlaceOf({DiskKind::Folder, 1, 2}, true, place, sizeof place) == Found::Unknown);
        CHECK(place[0] == '\0');
        CHECK(!ForEachLeftover(nullptr, nullptr));
    };
    g_mountInfo = "/run/no-such-file";
    unknown();
    CHECK(errno == ENOENT);
    g_mountInfo = "/run/mountinfo";
    g_mountInfoMode = "ae";  // cannot be read
    unknown();
    g_mountInfoMode = "re";
    CHECK(IsMounted({DiskKind::Folder, 1, 2}) == Found::No);
    g_mountInfo = nullptr;
}

TEST_CASE("a file system of many devices is known by the one that is its source")
{
    if (!EnterWorld())
        return;
    struct stat status = {};
    if (stat("/dev/loop0", &status) != 0) {
        MESSAGE("skipped: no loop devices here");
        return;
    }
    g_mountInfo = "/run/mountinfo";
    const Identity disk = {DiskKind::Block, status.st_rdev, 1};
    struct Row {
        const char *device;
        const char *source;
        Found found;
    };
    const Row rows[] = {
        {"7:0", "/dev/loop0", Found::Yes}, {"0:40", "/dev/loop0", Found::Yes},
        {"0:40", "/dev/null", Found::No},  {"0:40", "/dev/gone", Found::No},
        {"0:40", "/devloop0", Found::No},  {"8:1", "/dev/loop0", Found::No},
    };
    for (const Row &row : rows) {
        CAPTURE(row.source);
        WriteFile("/run/mountinfo", "36 35 " + std::string(row.device) + " / /run/x rw - btrfs " +
                                        row.source + " rw\n");
        CHECK(IsMounted(disk) == row.found);
    }
    g_mountInfo = nullptr;
}

TEST_CASE("a line of mountinfo is taken apart")
{
    char line[] =
        "36 35 98:7 /mnt1\\040a /Volumes/a\\134b\\011c\\012d rw,noatime,nodev master:1 shared:2 "
        "- ext3 /dev/my\\040root rw,errors=continue\n";
    MountLine mount;
    REQUIRE(ParseMountLine(line, &mount));
    CHECK(mount.device == makedev(98, 7));
    CHECK(std::string(mount.root) == "/mnt1 a");
    CHECK(std::string(mount.point) == "/Volumes/a\\b\tc\nd");
    CHECK(std::string(mount.options) == "rw,noatime,nodev");
    CHECK(std::string(mount.source) == "/dev/my root");
}

TEST_CASE("a line without optional fields, and one with the least, are taken apart")
{
    char plain[] = "1 2 0:25 / / rw - tmpfs none rw";
    MountLine mount;
    REQUIRE(ParseMountLine(plain, &mount));
    CHECK(std::string(mount.source) == "none");
    char least[] = "1 2 0:25 / / rw - tmpfs none";
    CHECK(ParseMountLine(least, &mount));
    char octal[] = "1 2 0:25 / /a\\0\\04\\049\\40\\400\\ rw - tmpfs \\040";
    REQUIRE(ParseMountLine(octal, &mount));
    CHECK(std::string(mount.point) == "/a\\0\\04\\049\\40\\400\\");
    CHECK(std::string(mount.source) == " ");
}

TEST_CASE("what is no line of mountinfo is refused")
{
    for (const char *text :
         {"", "\n", " ", "1", "1 2 3 4 5 6 7 8", "1 2 0:25 / / rw -", "1 2 0:25 / / rw - tmpfs",
          "1 2 0:25 / / rw - tmpfs \n", "1 2 025 / / rw - tmpfs none", "1 2 : / / rw - tmpfs none",
          "1 2 0: / / rw - tmpfs none", "1 2 0:25 / /", "1 2 0:25 / / rw x - ",
          "- - - - - - - -"}) {
        CAPTURE(text);
        std::string line = text;
        MountLine mount;
        CHECK(!ParseMountLine(line.data(), &mount));
    }
}

TEST_CASE("an option is found as a whole")
{
    CHECK(HasOption("ro,nosuid,nodev", "nosuid"));
    CHECK(HasOption("nosuid", "nosuid"));
    CHECK(HasOption("ro,nosuid", "nosuid"));
    CHECK(!HasOption("ro,nosuidx", "nosuid"));
    CHECK(!HasOption("ro,xnosuid", "nosuid"));
    CHECK(!HasOption("suid", "nosuid"));
    CHECK(!HasOption("", "nosuid"));
}
