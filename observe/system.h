// system.h - how this system answers the daemon's questions. The build takes one source of the two,
// system_linux.cpp or system_macos.cpp.
#ifndef OBSERVE_SYSTEM_H
#define OBSERVE_SYSTEM_H

namespace observe
{

// Puts the programs in front on PATH that answer the daemon's questions on this system.
void PrepareCommands();

// What it means here that the Finder does not run: a whole sentence without its stop.
const char *FinderAbsence();

}  // namespace observe

#endif
