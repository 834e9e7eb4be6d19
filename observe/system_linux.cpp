// system_linux.cpp - Linux has no Finder and other programs: those that answer in the way of macOS
// are installed in a folder of the daemon's own.
#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>

#include "observe/system.h"

namespace observe
{

static const char kCommands[] = "/usr/libexec/kestrun";
static const char *const kSystemFolders[] = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                             "/usr/bin",        "/sbin",          "/bin"};

// In front of the system's own folders, but behind what the caller put first.
void PrepareCommands()
{
    const char *old = getenv("PATH");
    std::istringstream folders(old != nullptr ? old : "/usr/bin:/bin");
    std::string path;
    bool placed = false;
    for (std::string folder; std::getline(folders, folder, ':');) {
        const bool system = std::find(std::begin(kSystemFolders), std::end(kSystemFolders),
                                      folder) != std::end(kSystemFolders);
        if (system && !placed) {
            path += std::string(path.empty() ? "" : ":") + kCommands;
            placed = true;
        }
        path += (path.empty() ? "" : ":") + folder;
    }
    (void)setenv("PATH", path.c_str(), 1);
}

const char *FinderAbsence()
{
    return "nobody is logged in graphically";
}

}  // namespace observe
