// macos_test.cpp - the facts of macOS, from programs that print what ps and mount of macOS print.
#include <doctest/doctest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tools/status/system.h"

namespace fs = std::filesystem;

// A folder with a program of this name that prints `text`, alone on PATH.
struct Stage {
    fs::path folder;
    std::string path;

    Stage()
    {
        char name[] = "/tmp/kestrun-status-XXXXXX";
        folder = mkdtemp(name);
        path = getenv("PATH");
        (void)setenv("PATH", (folder.string() + ":" + path).c_str(), 1);
    }
    ~Stage()
    {
        (void)setenv("PATH", path.c_str(), 1);
        fs::remove_all(folder);
    }
    void Put(const std::string &program, const std::string &text) const
    {
        std::ofstream(folder / program) << "#!/bin/sh\ncat <<'END'\n" << text << "END\n";
        fs::permissions(folder / program, fs::perms::owner_all);
    }
};

TEST_CASE("the daemon is found among the processes, with what it runs and since when")
{
    const Stage stage;
    stage.Put("ps", "    1     0 12-03:04:05 /sbin/launchd\n"
                    "   77     1 01-00:00:10 /Library/StartupItems/QVKestrun/Kestrun\n"
                    "   78     1    10:00:00 /Applications/NotKestrun\n"
                    "  321    77       00:01 sh\n"
                    "  322   321       00:01 /usr/bin/open\n"
                    "  400     1    02:03:04 /Library/Start Items/Kestrun\n");
    std::vector<kstatus::Daemon> daemons;
    REQUIRE(kstatus::FindDaemons(&daemons));
    REQUIRE(daemons.size() == 2);
    CHECK(daemons[0].pid == 77);
    CHECK(daemons[0].activity == kstatus::Activity::Unknown);
    CHECK(daemons[0].children == std::vector<std::string>{"sh"});
    CHECK(daemons[0].age == 86410);
    CHECK(daemons[1].pid == 400);
    CHECK(daemons[1].children.empty());
    CHECK(daemons[1].age == 7384);
}

TEST_CASE("without a ps that answers, the processes are unknown")
{
    const Stage stage;
    stage.Put("ps", "");
    std::vector<kstatus::Daemon> daemons;
    CHECK_FALSE(kstatus::FindDaemons(&daemons));
    CHECK(daemons.empty());
}

TEST_CASE("volumes are taken with their source, their options and who mounted them")
{
    const Stage stage;
    stage.Put("mount",
              "/dev/disk1s5 on / (apfs, local, read-only, journaled)\n"
              "/dev/disk2s1 on /Volumes/Orvanta (udf, local, nodev, nosuid, read-only, noowners, "
              "mounted by anna)\n"
              "/dev/disk3 on /Volumes/On (the) on road (1) (hfs, local, nobrowse)\n"
              "map auto_home on /System/Volumes/Data/home (autofs, automounted, nobrowse)\n");
    std::vector<kstatus::Volume> volumes;
    REQUIRE(kstatus::ListVolumes(&volumes));
    REQUIRE(volumes.size() == 2);
    CHECK(volumes[0].place == "/Volumes/Orvanta");
    CHECK(volumes[0].source == "/dev/disk2s1");
    CHECK(volumes[0].by == "anna");
    CHECK(volumes[0].options ==
          std::vector<std::string>{"udf", "local", "nodev", "nosuid", "read-only", "noowners"});
    CHECK(volumes[1].place == "/Volumes/On (the) on road (1)");
    CHECK(volumes[1].by == "the system");
    CHECK(volumes[1].options == std::vector<std::string>{"hfs", "local", "nobrowse"});
}

TEST_CASE("without a mount that answers, what is mounted is unknown")
{
    const Stage stage;
    stage.Put("mount", "");
    std::vector<kstatus::Volume> volumes;
    CHECK_FALSE(kstatus::ListVolumes(&volumes));
    CHECK(volumes.empty());
}

TEST_CASE("an option is shown by the name that mount of macOS gives it")
{
    CHECK(std::string(kstatus::ShownOption(false)) == "read-only");
    CHECK(std::string(kstatus::ShownOption(true)) == "nobrowse");
}
