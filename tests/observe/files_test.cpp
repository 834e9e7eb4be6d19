// Files as wholes.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <doctest/doctest.h>

#include "observe/files.h"
#include "observe/mounts.h"

TEST_CASE("whole files: what was written is read, and what is not there is nothing")
{
    char folder[] = "/tmp/files_test.XXXXXX";
    REQUIRE(mkdtemp(folder) != nullptr);
    const std::string path = std::string(folder) + "/a/b/file";
    const std::string content("a\0b\n\xFF", 5);
    CHECK_FALSE(observe::WriteFile(path, content));
    CHECK(errno == ENOENT);
    CHECK(observe::MakeFolders(std::string(folder) + "/a/b"));
    REQUIRE(observe::WriteFile(path, content));
    CHECK(observe::ReadWholeFile(path) == content);
    CHECK(observe::ReadFile(path) == content);
    CHECK(observe::WriteFile(path, "b"));
    CHECK(observe::ReadFile(path) == "b");
    CHECK_FALSE(observe::MakeFolders(path + "/c"));
    CHECK_FALSE(observe::IsFolder(path));
    CHECK(observe::IsFolder(folder));
    std::filesystem::remove_all(folder);
    CHECK_FALSE(observe::ReadWholeFile(path));
    CHECK(errno == ENOENT);
    CHECK(observe::ReadFile(path).empty());
    CHECK_FALSE(observe::ReadWholeFile("/proc/self"));
    CHECK(errno == EISDIR);
    CHECK_FALSE(observe::WriteFile("/dev/full", "x"));
    CHECK(errno == ENOSPC);
}

TEST_CASE("a path is under a folder when it is that folder or stands below it")
{
    for (const char *folder : {"/Volumes", "/Volumes/"}) {
        CHECK(observe::IsUnder("/Volumes", folder));
        CHECK(observe::IsUnder("/Volumes/a/b", folder));
        CHECK_FALSE(observe::IsUnder("/Volumes2", folder));
        CHECK_FALSE(observe::IsUnder("/", folder));
    }
}

TEST_CASE("the daemon's mounts are known by both options that it adds")
{
    CHECK(observe::IsDaemons("ro,nosuid,nodev,relatime"));
    CHECK_FALSE(observe::IsDaemons("ro,nosuid,relatime"));
    CHECK_FALSE(observe::IsDaemons("ro,nodev2,nosuid"));
}
