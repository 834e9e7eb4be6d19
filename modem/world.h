// world.h - the private world that the daemon is started in: its own /dev, /run, /Volumes,
// /Library, /Applications and /usr/local/Tarnwell, and all else as on the machine.
#ifndef MODEM_WORLD_H
#define MODEM_WORLD_H

#include <string>
#include <vector>

#include "observe/mounts.h"

namespace modem
{

enum class WorldKind {
    Automatic,  // the first of those below that the kernel allows
    Root,       // a mount namespace, as root
    User,       // a user and a mount namespace: folders can be mounted, disk images cannot
    Real,       // the real paths, if none of them exists yet; nothing can be mounted
};

struct World {
    WorldKind kind = WorldKind::Automatic;
    std::string reason;                 // why it is of this kind
    std::string stateDir;               // what modem/bin answers from and records to
    std::string toolsDir;               // modem/bin
    std::string programsDir;            // further programs that a scenario may run
    std::string speedLibrary;           // the library that shortens sleeps
    std::string systemPath;             // PATH as it was
    unsigned long daemonMemory = 0;     // bytes that the daemon may have (RLIMIT_AS); 0: no limit
    std::vector<std::string> realDirs;  // kind Real: the folders to remove in the end
};

// Moves the calling process, which must have one thread, into a new world of the kind wanted.
// `toolsDir` and `speedLibrary` must be set. False with the reason in `why` when there can be none;
// the process is then as good as lost for another try of the kinds Root and User, and one of the
// kind Real has put everything back.
bool EnterWorld(WorldKind wanted, World *world, std::string *why);

// Whether this kind of world, Root or User, can be had, found out in a child process; else the
// reason in `why`.
bool WorldIsPossible(WorldKind kind, std::string *why);

// To be said before `path` is made outside the folders of the world: in the kind Real PutBack
// removes it.
void MakesAtRealPath(const World &world, const std::string &path);

// Removes what a world of the kind Real left at the real paths. The other kinds need none.
void PutBack(const World &world);

// The state that modem/bin answers from: a small file of this name in the world's state folder.
void SetState(const World &world, const std::string &name, const std::string &content);
void ClearState(const World &world, const std::string &name);

// What is mounted at `under` or below it, in mountinfo's order.
std::vector<observe::Mounted> MountsUnder(const World &world, const std::string &under);

// A plain word for a kind.
const char *KindName(WorldKind kind);

}  // namespace modem

#endif
