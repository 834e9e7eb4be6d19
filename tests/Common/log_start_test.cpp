// The log from the start of a process: a program of its own, since the line number is never reset.
#include "Common/Log.h"
#include "tests/support/log_capture.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>

TEST_CASE("the first line of a process is number 1, calls before the log is enabled do not count")
{
    std::string folder = (std::filesystem::temp_directory_path() / "kestrun-log-XXXXXX").string();
    REQUIRE(mkdtemp(folder.data()));
    const std::string path = folder + "/later/log";

    CloseLogSystem();
    Log("src/Kestrun", "main", "before the log is enabled");
    Log("src/Kestrun", "main", "before the log is %s", "enabled");
    InitLogSystem((folder + "/log").c_str());
    Log("src/Kestrun", "main", "first");
    Log("src/Kestrun", "main", "second");
    CloseLogSystem();
    CHECK(MaskTimes(FileContent(folder + "/log")) == "line 1===TIME   Kestrun:main --- first\n"
                                                     "line 2===TIME   Kestrun:main --- second\n");

    InitLogSystem(path.c_str());
    for (int i = 0; i < 3; i++)
        Log("src/Kestrun", "main", "lost: the folder is missing");
    REQUIRE(mkdir((folder + "/later").c_str(), 0755) == 0);
    Log("src/Kestrun", "main", "found");
    CloseLogSystem();
    CHECK(MaskTimes(FileContent(path)) == "line 6===TIME   Kestrun:main --- found\n");
    std::filesystem::remove_all(folder);
}
