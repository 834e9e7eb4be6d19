// mounts.h - what is mounted, as the system's own table of mounts has it.
#ifndef OBSERVE_MOUNTS_H
#define OBSERVE_MOUNTS_H

#include <string>
#include <vector>

namespace observe
{

struct Mounted {
    std::string place;
    std::string source;
    std::string options;  // as the kernel shows them
};

// All mounts in the order in which they were made; empty where the system has no table in a file.
std::vector<Mounted> Mounts();

// Whether `path` is `folder` or stands below it. `folder` may end in "/".
bool IsUnder(const std::string &path, const std::string &folder);

// Whether a mount with these options can be the daemon's: its own forbid programs to change users
// and devices to be opened.
bool IsDaemons(const std::string &options);

}  // namespace observe

#endif
