// sighting.cpp - see sighting.h.
#include "bench/sighting.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "bench/modem.h"

namespace bench
{
namespace
{

namespace fs = std::filesystem;

const char kVolumes[] = "/Volumes";

// udev's \xNN, undone.
std::string UnescapedLabel(const std::string &name)
{
    std::string label;
    for (size_t at = 0; at < name.size();) {
        if (name.compare(at, 2, "\\x") == 0 && at + 3 < name.size()) {
            label += static_cast<char>(strtol(name.substr(at + 2, 2).c_str(), nullptr, 16));
            at += 4;
        } else {
            label += name[at++];
        }
    }
    return label;
}

std::string Numbers(const struct stat &status)
{
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
           std::to_string(status.st_rdev);
}

std::string FirstLineOf(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

std::string Asked(const std::string &command)
{
    std::string output;
    FILE *pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr)
        return output;
    char buffer[4096];
    for (size_t got = 0; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, got);
    (void)pclose(pipe);
    return output;
}

std::set<std::string> FoldersWithout(const std::vector<Mounted> &mounts)
{
    std::set<std::string> folders;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(kVolumes, ignored))
        folders.insert(entry.path());
    for (const Mounted &mounted : mounts)
        folders.erase(mounted.place);
    return folders;
}

std::optional<std::string> ContentOf(const char *path)
{
    return access(path, R_OK) == 0 ? std::optional(ReadFile(path)) : std::nullopt;
}

// The entries of a folder of links, without those that udev has not renamed yet.
std::vector<fs::path> LinksIn(const char *folder)
{
    std::vector<fs::path> links;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(folder, ignored)) {
        if (entry.path().filename().string().compare(0, 2, ".#") != 0)
            links.push_back(entry.path());
    }
    return links;
}

}  // namespace

std::string IdentityOf(const std::string &device)
{
    struct stat status;
    return stat(device.c_str(), &status) == 0 ? Numbers(status) : "";
}

void LookAtHardware(const World &world, Sighting *sighting)
{
    sighting->disks.clear();
    sighting->ports.clear();
    for (const fs::path &link : LinksIn(kByLabel)) {
        std::error_code error;
        struct stat status;
        const std::string device = fs::canonical(link, error);
        const std::string identity = error ? "" : IdentityOf(device);
        if (!identity.empty() && lstat(link.c_str(), &status) == 0) {
            sighting->disks[UnescapedLabel(link.filename())] = {device, identity, Numbers(status)};
        }
    }
    for (const fs::path &link : LinksIn(kById))
        sighting->ports.insert(link.filename());
    sighting->mounts = MountsUnder(world, kVolumes);
    sighting->folders = FoldersWithout(sighting->mounts);
    sighting->config = ContentOf(kConfigPath);
    sighting->sysConfig = ContentOf(kSysConfigPath);
}

void LookAtPeople(const World &world, Sighting *sighting)
{
    sighting->consoleUser = FirstLineOf(ReadFile(world.stateDir + "/console-user"));
    sighting->daemonUser = FirstLineOf(ReadFile(world.stateDir + "/daemon-user"));
    sighting->finder = access((world.stateDir + "/finder").c_str(), F_OK) == 0;
}

void AskForPeople(long daemon, Sighting *sighting)
{
    sighting->consoleUser = FirstLineOf(Asked("stat -f%Su /dev/console"));
    sighting->finder = !Asked("ps -A | grep 'Finder[.]'").empty();
    if (daemon > 0) {
        sighting->daemonUser = FirstLineOf(
            Asked("ps aux | awk -v PID=" + std::to_string(daemon) + " '$2 == PID { print $1 }'"));
    }
}

}  // namespace bench
