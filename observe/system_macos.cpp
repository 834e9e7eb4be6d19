// system_macos.cpp - the system's own programs answer.
#include "observe/system.h"

namespace observe
{

void PrepareCommands()
{
}

const char *FinderAbsence()
{
    return "nobody is logged in, or the Finder was quit";
}

}  // namespace observe
