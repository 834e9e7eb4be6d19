// mounts.cpp - see mounts.h.
#include "observe/mounts.h"

#include <sstream>

#include "observe/files.h"
#include "observe/names.h"

namespace observe
{

// One line of mountinfo: id parent major:minor root place options [tags...] - type source more.
static bool TakeLine(const std::string &line, Mounted *mounted)
{
    std::istringstream fields(line);
    std::string field;
    std::string place;
    fields >> field >> field >> field >> field >> place >> mounted->options;
    while (fields >> field && field != "-") {
    }
    if (!(fields >> field >> field))  // the type, and what is mounted
        return false;
    mounted->place = UnescapeField(place);
    mounted->source = UnescapeField(field);
    return true;
}

std::vector<Mounted> Mounts()
{
    std::vector<Mounted> mounts;
    for (const std::string &line : Split(ReadFile("/proc/self/mountinfo"), '\n')) {
        Mounted mounted;
        if (TakeLine(line, &mounted))
            mounts.push_back(mounted);
    }
    return mounts;
}

bool IsUnder(const std::string &path, const std::string &folder)
{
    const std::string inside = folder.ends_with('/') ? folder : folder + "/";
    return path.starts_with(inside) || path + "/" == inside;
}

bool IsDaemons(const std::string &options)
{
    return HasOption(options, "nosuid") && HasOption(options, "nodev");
}

}  // namespace observe
