// System.cpp - Linux: a private world of the simulated modem's, in which the layer stands for the
// whole service. It is gone with the process that entered it, all mounts and disks with it.
#include "conformance/System.h"

#include "modem/hardware.h"
#include "modem/world.h"
#include "observe/files.h"
#include "observe/mounts.h"

#include <fstream>

#include <sys/utsname.h>
#include <unistd.h>

namespace conformance
{

// Where libmount keeps the options that the kernel does not know.
static constexpr char kUserOptions[] = "/run/mount/utab";

static constexpr char kAutomountFile[] = "/run/kestrun/automount";

static modem::World g_world;
static modem::Hardware g_hardware;

const double kSettled = 0.2;
const char kWhatIsDone[] =
    "This makes disk images and mounts them in a private world, which nobody else sees.";

std::string SystemVersion()
{
    std::string name = "Linux";
    std::ifstream file("/etc/os-release");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("PRETTY_NAME=", 0) == 0)
            name = line.substr(13, line.size() - 14);
    }
    utsname kernel = {};
    (void)uname(&kernel);
    return name + ", Linux " + kernel.release + ", " + modem::KindName(g_world.kind) +
           "; platform/linux stands for the frameworks";
}

bool EnterSystem(const std::string & /*folder*/, std::string *why)
{
    std::string reason;
    const bool isRoot = modem::WorldIsPossible(modem::WorldKind::Root, &reason);
    if (!modem::EnterWorld(isRoot ? modem::WorldKind::Root : modem::WorldKind::User, &g_world,
                           &reason)) {
        *why = "no private world (" + reason + "): run it as root";
        return false;
    }
    g_hardware.world = &g_world;
    if (!observe::WriteFile(kAutomountFile, "")) {
        *why =
            std::string("cannot write ") + kAutomountFile + " in the private world: run it as root";
        return false;
    }
    return true;
}

void CleanUp(const std::string &folder)
{
    (void)rmdir(folder.c_str());
}

bool Attach(const std::string &label, std::string *why)
{
    const bool loops = access("/dev/loop-control", R_OK | W_OK) == 0;
    const modem::Medium medium = loops ? modem::Medium::Image : modem::Medium::Folder;
    return modem::PlugDisk(&g_hardware, label, label, medium, why);
}

void Detach(const std::string &label)
{
    modem::UnplugDisk(&g_hardware, label);
}

MountState MountOf(const std::string &label)
{
    MountState state;
    const std::string place = "/Volumes/" + label;
    for (const observe::Mounted &mounted : modem::MountsUnder(g_world, place)) {
        state.mounted = true;
        state.readOnly = mounted.options.rfind("ro", 0) == 0;
    }
    std::ifstream file(kUserOptions);
    for (std::string line; std::getline(file, line);) {
        if (line.find("TARGET=" + place + " ") != std::string::npos)
            state.hidden = line.find("x-gvfs-hide") != std::string::npos;
    }
    return state;
}

std::string PlugPort()
{
    std::string why;
    return modem::PlugPort(&g_hardware, modem::kModemPort, &why)
               ? std::string(modem::kById) + "/" + modem::kModemPort
               : "";
}

}  // namespace conformance
