// machine_rules.cpp - modes of files and folders, and what stands under /Volumes/.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "observe/files.h"
#include "observe/commands.h"
#include "observe/daemon.h"
#include "observe/disks.h"
#include "observe/mounts.h"
#include "observe/names.h"
#include "observe/system.h"
#include "tools/check/readers.h"
#include "tools/check/rules.h"

namespace kcheck
{

static const size_t kNameMax = observe::kVolumeNameSize - 1;

static std::string ModeText(mode_t mode)
{
    char text[16];
    snprintf(text, sizeof text, "mode %04o", static_cast<unsigned>(mode & 07777));
    return text;
}

void CheckModes(Report &report, const std::string &path)
{
    const std::string file = observe::Printable(path);
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0)
        return;
    const bool open = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    report.findings.push_back({open ? Verdict::Warn : Verdict::Pass, file, "mode", 0,
                               ModeText(info.st_mode),
                               open ? "others than its owner may change what the daemon runs"
                                    : "only its owner may change it"});
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (stat(folder.c_str(), &info) != 0)
        return;
    if ((info.st_mode & S_IWOTH) != 0 && (info.st_mode & S_ISVTX) == 0) {
        report.findings.push_back({Verdict::Warn, file, "folder-mode", 0,
                                   "its folder: " + ModeText(info.st_mode),
                                   "everybody may put another file in its place"});
    }
}

// Whether something is mounted at `path`: another device than its parent's, or, where the system
// lists its mounts in a file, one of these.
static bool IsMountPoint(const std::string &path, const std::string &parent)
{
    struct stat info = {};
    struct stat above = {};
    if (stat(path.c_str(), &info) != 0 || stat(parent.c_str(), &above) != 0)
        return false;
    if (info.st_dev != above.st_dev)
        return true;
    char *whole = realpath(path.c_str(), nullptr);
    const std::string place = whole ? whole : "";
    free(whole);
    return std::ranges::any_of(observe::Mounts(),
                               [&](const auto &mounted) { return mounted.place == place; });
}

static void CheckLogFolder(Report &report, const std::string &root)
{
    const std::string folder = root + observe::kLogFolder;
    const auto add = [&](Verdict verdict, const std::string &found, const std::string &effect) {
        report.findings.push_back(
            {verdict, "machine", "log-folder", 0, observe::kLogFolder + found, effect});
    };
    if (!observe::IsFolder(folder))
        add(Verdict::Fail, " is missing",
            "nothing is logged, the Finder is never seen and nothing is opened");
    else if (access(folder.c_str(), W_OK) != 0)
        add(Verdict::Fail, " is not writable for this user",
            "a daemon of this user never sees the Finder and opens nothing");
    else
        add(Verdict::Pass, "", "the log and the Finder's search can be written");
}

static void CheckVolume(Report &report, const std::string &root, const std::string &name)
{
    const std::string volumes = root + "/Volumes";
    const std::string shown = "/Volumes/" + observe::Printable(name);
    const auto add = [&](Verdict verdict, const std::string &found, const std::string &effect) {
        report.findings.push_back({verdict, "machine", "volume", 0, shown + found, effect});
    };
    if (!observe::IsFolder(volumes + "/" + name))
        add(Verdict::Note, " is not there",
            "with a modem's port present a start waits up to 300 s for it");
    else if (!IsMountPoint(volumes + "/" + name, volumes))
        add(Verdict::Fail, " is a folder and no volume",
            "a start takes it for the volume, and the true one is mounted beside it under a number");
    else
        add(Verdict::Pass, " is mounted", "a start goes on at once");
}

// The disks and ports that are there, and which disk may be the modem's under another label than
// `name`.
static void CheckHardware(Report &report, const std::string &root, const std::string &name)
{
    const auto add = [&](Verdict verdict, const char *about, const std::string &found,
                         const std::string &effect) {
        report.findings.push_back(
            {verdict, "machine", about, 0, observe::Printable(found), effect});
    };
    bool portIsThere = false;
    for (const std::string &port : observe::ListPorts(root)) {
        const bool isModems = port.find(observe::kPortName) != std::string::npos;
        portIsThere = portIsThere || isModems;
        add(Verdict::Pass, "port", port, isModems ? "a modem's" : "not a modem's");
    }
    const auto disks = observe::ListDisks(root).value_or(std::vector<observe::Disk>());
    for (const observe::Disk &disk : disks) {
        add(Verdict::Pass, "disk", Describe(disk),
            disk.label == name ? "its label is the configured one"
                               : "its label is another than the configured one: it is left alone");
    }
    for (const std::string &sentence : LikelyMeant(disks, name, portIsThere))
        add(Verdict::Fail, "label", sentence, "nothing happens when that disk comes");
}

static void CheckSession(Report &report)
{
    observe::PrepareCommands();
    if (observe::FinderRuns()) {
        report.findings.push_back({Verdict::Pass, "machine", "session", 0, "the Finder runs",
                                   "the application is opened at once"});
    } else {
        report.findings.push_back({Verdict::Note, "machine", "session", 0, observe::FinderAbsence(),
                                   "the daemon waits with a mounted disk until somebody is"});
    }
}

void CheckMachine(Report &report, const std::string &root, const std::string &configPath)
{
    CheckLogFolder(report, root);
    const auto name = ReadIni(configPath, observe::kConfigSection, "name");
    const std::string label =
        name ? name->value.substr(0, kNameMax) : std::string(observe::kDefaultVolumeName);
    CheckVolume(report, root, label);
    CheckHardware(report, root, label);
    if (root.empty())
        CheckSession(report);
}

}  // namespace kcheck
