// System.cpp - macOS: disk images by hdiutil, as the user who runs it. In the run's folder stand an
// image for each label and, beside it, what hdiutil said when it attached it: the device first.
#include "conformance/System.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/sysctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace conformance
{

namespace fs = std::filesystem;

static constexpr char kTool[] = "/usr/bin/hdiutil";
static constexpr char kAttachedEnding[] = ".attached";

static std::string g_folder;

const double kSettled = 3;
const char kWhatIsDone[] =
    "This makes disk images of 2 MiB in a temporary folder, attaches them one "
    "after the other, and detaches and removes them in the end.";

static std::string SystemText(const char *name)
{
    char text[256] = "";
    size_t size = sizeof text;
    return sysctlbyname(name, text, &size, nullptr, 0) == 0 ? text : "?";
}

std::string SystemVersion()
{
    return "macOS " + SystemText("kern.osproductversion") + " (" + SystemText("kern.osversion") +
           "), " + SystemText("hw.machine");
}

// Starts hdiutil with its standard output in the file; the child's number.
static pid_t Start(std::vector<std::string> words, const std::string &output)
{
    std::vector<char *> argv = {const_cast<char *>(kTool)};
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0)
        return child;
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int nothing = open("/dev/null", O_RDWR);
    if (file < 0 || nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 ||
        dup2(file, STDOUT_FILENO) < 0 || dup2(nothing, STDERR_FILENO) < 0)
        _exit(126);
    (void)execv(kTool, argv.data());
    _exit(127);
}

// Waits for the child, for `seconds` at most; true if it has ended well.
static bool HasSucceeded(pid_t child, int seconds)
{
    constexpr useconds_t kStep = 20000;
    for (int left = seconds * 50; left > 0; left--) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return status == 0;
        (void)usleep(kStep);
    }
    return false;
}

bool EnterSystem(const std::string &folder, std::string *why)
{
    g_folder = folder;
    if (access(kTool, X_OK) == 0)
        return true;
    *why = std::string("there is no ") + kTool + ": run it on a whole macOS";
    return false;
}

// hdiutil tells the device when the disk is mounted or nobody wants to mount it.
static void DetachWhatIsToldIn(const std::string &file)
{
    constexpr int kTries = 30;
    std::string device;
    for (int i = 0; i < kTries && !(std::ifstream(file) >> device); i++)
        (void)usleep(100000);
    if (device.rfind("/dev/", 0) == 0)
        (void)HasSucceeded(Start({"detach", device, "-force"}, "/dev/null"), 3);
    (void)unlink(file.c_str());
}

void CleanUp(const std::string &folder)
{
    std::error_code ignored;
    std::vector<std::string> attached;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, ignored)) {
        if (entry.path().extension() == kAttachedEnding)
            attached.push_back(entry.path());
    }
    for (const std::string &file : attached)
        DetachWhatIsToldIn(file);
    fs::remove_all(folder, ignored);
}

bool Attach(const std::string &label, std::string *why)
{
    const std::string image = g_folder + "/" + label + ".dmg";
    const pid_t making =
        Start({"create", "-size", "2m", "-layout", "NONE", "-fs", "HFS+", "-volname", label, image},
              "/dev/null");
    if (!HasSucceeded(making, 30)) {
        *why = "hdiutil made no image in " + g_folder + ": is there room for 2 MiB?";
        return false;
    }
    // Not waited for: the disk is there when its peeks are answered and it is mounted.
    return Start({"attach", "-noverify", "-noautofsck", "-mount", "optional", image},
                 g_folder + "/" + label + kAttachedEnding) > 0;
}

void Detach(const std::string &label)
{
    DetachWhatIsToldIn(g_folder + "/" + label + kAttachedEnding);
}

MountState MountOf(const std::string &label)
{
    struct statfs *mounts = nullptr;
    const int count = getmntinfo(&mounts, MNT_NOWAIT);
    MountState state;
    for (int i = 0; i < count; i++) {
        if ("/Volumes/" + label != mounts[i].f_mntonname)
            continue;
        state.mounted = true;
        state.readOnly = (mounts[i].f_flags & MNT_RDONLY) != 0;
        state.hidden = (mounts[i].f_flags & MNT_DONTBROWSE) != 0;
    }
    return state;
}

std::string PlugPort()
{
    return "";
}

}  // namespace conformance
