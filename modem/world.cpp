// world.cpp - the private world. The kinds Root and User build a new root folder in memory: every
// entry of the real root is bound into it, /dev, /run and the daemon's own folders are new, and
// pivot_root(2) makes it the root of this process and its children alone. It is gone with the last
// of them, and nothing needs to be put back. Surprising: /dev/pts must be a new instance, for a
// ptmx that is bound from elsewhere does not find its pts folder.
#include "modem/world.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "modem/children.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"

namespace modem
{

namespace
{

namespace fs = std::filesystem;

const char kStateName[] = "kestrun-bench";

// The folders that the daemon finds things in, and that a machine of another kind does not have.
const char *const kDaemonDirs[] = {
    "/Volumes",     "/Library/StartupItems/QVKestrun", "/Applications", "/usr/local/Tarnwell",
    "/run/kestrun",
};

// What must not exist where a scenario is to be played at the real paths.
const char *const kRealPaths[] = {
    "/Volumes",     "/Library",  "/Applications", "/usr/local/Tarnwell",
    "/run/kestrun", "/dev/disk", "/dev/serial",
};

const int kLoopDevices = 64;
const unsigned int kLoopMajor = 7;

std::string Failed(const std::string &what)
{
    return what + ": " + strerror(errno);
}

bool Bind(const std::string &from, const std::string &to)
{
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// Makes `to` show what `from` shows: a folder or a file is bound, a symbolic link made anew.
bool Show(const fs::path &from, const std::string &to)
{
    std::error_code ignored;
    if (fs::is_symlink(from))
        return symlink(fs::read_symlink(from, ignored).c_str(), to.c_str()) == 0;
    if (fs::is_directory(from, ignored))
        return mkdir(to.c_str(), 0755) == 0 && Bind(from, to);
    return observe::WriteFile(to, "") && Bind(from, to);
}

// Shows every entry of `from` in `to`, but for those named. An entry that cannot be shown is left
// out: the daemon needs few of them, and one that is missed says so itself.
void ShowAll(const std::string &from, const std::string &to, const std::set<std::string> &but)
{
    std::error_code ignored;
    for (const fs::directory_entry &entry : fs::directory_iterator(from, ignored)) {
        const std::string name = entry.path().filename();
        if (!but.contains(name))
            (void)Show(entry.path(), fs::path(to) / name);
    }
}

bool MountMemory(const std::string &place)
{
    return mkdir(place.c_str(), 0755) == 0 || errno == EEXIST
               ? mount("tmpfs", place.c_str(), "tmpfs", 0, "mode=755") == 0
               : false;
}

// A /dev without the machine's disks and ports: plugging makes its own.
bool BuildDev(const std::string &dev, std::string *why)
{
    if (!MountMemory(dev)) {
        *why = Failed("a folder in memory for /dev");
        return false;
    }
    ShowAll("/dev", dev, {"disk", "serial", "pts", "ptmx", "cdrom", "sr0", "sr1"});
    (void)mkdir((dev + "/pts").c_str(), 0755);
    if (mount("devpts", (dev + "/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
              "newinstance,ptmxmode=0666,mode=620") == 0) {
        (void)symlink("pts/ptmx", (dev + "/ptmx").c_str());
    }
    for (unsigned int i = 0; i < kLoopDevices; ++i) {
        const std::string node = dev + "/loop" + std::to_string(i);
        (void)mknod(node.c_str(), S_IFBLK | 0600, makedev(kLoopMajor, i));
    }
    return true;
}

bool BuildRoot(const std::string &root, std::string *why)
{
    if (!MountMemory(root)) {
        *why = Failed("a folder in memory");
        return false;
    }
    ShowAll("/", root, {"dev", "run", "usr", "Volumes", "Library", "Applications"});
    if (!Show("/usr", root + "/usr") || !MountMemory(root + "/usr/local")) {
        *why = Failed("a /usr/local of its own");
        return false;
    }
    ShowAll("/usr/local", root + "/usr/local", {"Tarnwell"});
    if (!MountMemory(root + "/run")) {
        *why = Failed("a /run of its own");
        return false;
    }
    return BuildDev(root + "/dev", why);
}

// Makes `root` the root folder of this process. The working folder stays the same in the new world.
bool Pivot(const std::string &root, std::string *why)
{
    std::error_code ignored;
    const fs::path workingDir = fs::current_path(ignored);
    const std::string old = root + "/.old";
    if (mkdir(old.c_str(), 0700) != 0 || syscall(SYS_pivot_root, root.c_str(), old.c_str()) != 0 ||
        chdir("/") != 0 || umount2("/.old", MNT_DETACH) != 0) {
        *why = Failed("a new root folder");
        return false;
    }
    (void)rmdir("/.old");
    if (chdir(workingDir.c_str()) != 0)
        (void)chdir("/");
    return true;
}

bool MapUser(uid_t uid, gid_t gid)
{
    char map[64];
    (void)snprintf(map, sizeof map, "0 %u 1", uid);
    const bool user = observe::WriteFile("/proc/self/uid_map", map);
    (void)observe::WriteFile("/proc/self/setgroups", "deny");
    (void)snprintf(map, sizeof map, "0 %u 1", gid);
    return observe::WriteFile("/proc/self/gid_map", map) && user;
}

bool Unshare(WorldKind kind, std::string *why)
{
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWNS | (kind == WorldKind::User ? CLONE_NEWUSER : 0)) != 0) {
        *why = Failed("a mount namespace");
        return false;
    }
    if (kind == WorldKind::User && !MapUser(uid, gid)) {
        *why = Failed("a user namespace");
        return false;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        *why = Failed("mounts of its own");
        return false;
    }
    return true;
}

bool MakeDaemonDirs(std::string *why)
{
    return std::all_of(std::begin(kDaemonDirs), std::end(kDaemonDirs), [&](const char *dir) {
        const bool made = observe::MakeFolders(dir);
        *why = made ? *why : Failed(dir);
        return made;
    });
}

bool EnterNamespaces(World *world, std::string *why)
{
    char root[] = "/tmp/kestrun-bench-XXXXXX";
    if (!Unshare(world->kind, why))
        return false;
    if (mkdtemp(root) == nullptr) {
        *why = Failed("a folder in /tmp");
        return false;
    }
    const bool entered = BuildRoot(root, why) && Pivot(root, why);
    (void)umount2(root, MNT_DETACH);  // /tmp was bound with all that stood in it, the new root too
    (void)rmdir(root);
    world->stateDir = std::string("/run/") + kStateName;
    return entered && MakeDaemonDirs(why);
}

bool EnterReal(World *world, std::string *why)
{
    for (const char *path : kRealPaths) {
        if (access(path, F_OK) == 0) {
            *why = std::string("at the real paths nothing is replaced, and ") + path +
                   " exists here: play as root, or allow users their own namespaces";
            return false;
        }
    }
    world->realDirs.assign(std::begin(kRealPaths), std::end(kRealPaths));
    char state[] = "/tmp/kestrun-bench-XXXXXX";
    if (mkdtemp(state) == nullptr) {
        *why = Failed("a folder in /tmp");
        return false;
    }
    world->realDirs.emplace_back(state);
    world->stateDir = state;
    return MakeDaemonDirs(why);
}

// The kind that is taken when none is asked for; `reason` says why not the ones before it.
WorldKind FirstPossible(std::string *reason)
{
    for (const WorldKind kind : {WorldKind::Root, WorldKind::User}) {
        std::string why;
        if (WorldIsPossible(kind, &why)) {
            *reason += reason->empty() ? "the first choice" : "";
            return kind;
        }
        *reason +=
            std::string(reason->empty() ? "no " : "; no ") + KindName(kind) + " (" + why + ")";
    }
    return WorldKind::Real;
}

bool EnterKind(World *world, std::string *why)
{
    if (!(world->kind == WorldKind::Real ? EnterReal(world, why) : EnterNamespaces(world, why)))
        return false;
    if (observe::MakeFolders(world->stateDir + "/when-opened"))
        return true;
    *why = Failed(world->stateDir);
    return false;
}

}  // namespace

bool WorldIsPossible(WorldKind kind, std::string *why)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        *why = Failed("a pipe");
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        World world;
        world.kind = kind;
        const bool entered = EnterNamespaces(&world, why);
        (void)!write(ends[1], why->data(), why->size());
        _exit(entered ? 0 : 1);
    }
    (void)close(ends[1]);
    char text[512];
    const ssize_t length = read(ends[0], text, sizeof text);
    (void)close(ends[0]);
    why->assign(text, length > 0 ? static_cast<size_t>(length) : 0);
    return WaitForEnd(child) == 0;
}

bool EnterWorld(WorldKind wanted, World *world, std::string *why)
{
    world->reason = "asked for";
    world->kind = wanted;
    if (wanted == WorldKind::Automatic) {
        world->reason.clear();
        world->kind = FirstPossible(&world->reason);
    }
    const char *path = getenv("PATH");
    world->systemPath = std::string(path != nullptr ? path : "") +
                        ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    if (EnterKind(world, why))
        return true;
    if (wanted == WorldKind::Automatic && world->kind == WorldKind::Real)
        *why = world->reason + "; " + *why;
    PutBack(*world);
    return false;
}

void MakesAtRealPath(const World &world, const std::string &path)
{
    const std::string list = world.stateDir + "/made";
    if (world.kind == WorldKind::Real)
        (void)observe::WriteFile(list, observe::ReadFile(list) + path + "\n");
}

void PutBack(const World &world)
{
    std::error_code ignored;
    const std::string made =
        world.stateDir.empty() ? "" : observe::ReadFile(world.stateDir + "/made");
    for (const std::string &path : observe::Split(made, '\n'))
        (void)fs::remove_all(path, ignored);
    for (const std::string &dir : world.realDirs)
        (void)fs::remove_all(dir, ignored);
}

void SetState(const World &world, const std::string &name, const std::string &content)
{
    // Written aside and renamed: a reader finds the old or the new, never half of it.
    const std::string path = world.stateDir + "/" + name;
    if (!observe::WriteFile(path + ".new", content) ||
        rename((path + ".new").c_str(), path.c_str()) != 0)
        (void)fprintf(stderr, "kestrun-bench: %s\n", Failed(path).c_str());
}

void ClearState(const World &world, const std::string &name)
{
    (void)unlink((world.stateDir + "/" + name).c_str());
}

std::vector<observe::Mounted> MountsUnder(const World &world, const std::string &under)
{
    std::vector<observe::Mounted> mounts;
    if (world.kind == WorldKind::Real) {
        for (const std::string &place :
             observe::Split(observe::ReadFile(world.stateDir + "/mounted"), '\0'))
            mounts.push_back({place, "", ""});
    } else {
        mounts = observe::Mounts();
    }
    std::erase_if(mounts,
                  [&](const auto &mounted) { return !observe::IsUnder(mounted.place, under); });
    return mounts;
}

const char *KindName(WorldKind kind)
{
    switch (kind) {
    case WorldKind::Automatic: return "automatic";
    case WorldKind::Root: return "mount namespace";
    case WorldKind::User: return "user and mount namespace";
    case WorldKind::Real: return "real paths";
    }
    return "";
}

}  // namespace modem
