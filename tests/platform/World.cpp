// World.cpp - a private world for the tests of the platform layer.
#include "World.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <doctest/doctest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

const char *const kRecordingScript = R"(#!/bin/sh
for argument; do printf '%s\n' "$argument"; done >> /run/mount-log
echo . >> /run/mount-log
exit $(cat /run/mount-status 2>/dev/null || echo 0)
)";

std::vector<std::string> g_events;
CFStringRef g_arguments[4];

// ---- Entering ----

static std::string g_why;  // why there is no world

static bool Fail(const std::string &what)
{
    g_why = what + ": " + std::strerror(errno);
    return false;
}

void WriteFile(const std::string &path, const std::string &text, int mode)
{
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), static_cast<mode_t>(mode));
}

static bool EnterNamespace()
{
    const uid_t user = getuid();
    const gid_t group = getgid();
    const char *asAnybody = std::getenv("KESTRUN_TEST_USER_NAMESPACE");
    if (user == 0 && asAnybody == nullptr) {
        if (unshare(CLONE_NEWNS) == 0)
            return true;
    }
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return Fail("no mount namespace");
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    return getuid() == 0 || Fail("no user of its own in the namespace");
}

static bool Bind(const std::string &from, const std::string &to)
{
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// The machine's root with other folders in place of dev, run and Volumes.
static bool BuildRoot(const fs::path &root)
{
    if (mount("root", root.c_str(), "tmpfs", 0, "mode=755") != 0)
        return Fail("no tmpfs");
    for (const auto &entry : fs::directory_iterator("/")) {
        const fs::path name = entry.path().filename();
        if (name == "dev" || name == "run" || name == "Volumes")
            continue;
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), root / name);
        } else if (entry.is_directory()) {
            fs::create_directory(root / name);
            Bind(entry.path(), root / name);
        }
    }
    for (const char *name : {"dev", "run", "Volumes", "disks"})
        fs::create_directory(root / name);
    for (const auto &entry : fs::directory_iterator("/dev")) {
        const fs::path to = root / "dev" / entry.path().filename();
        const std::string name = entry.path().filename();
        const bool isLoop = name.rfind("loop", 0) == 0;
        const bool isPlain = name == "null" || name == "zero" || name == "random" ||
                             name == "urandom" || name == "tty";
        if (!isLoop && !isPlain)
            continue;
        WriteFile(to, "");
        Bind(entry.path(), to);
    }
    return true;
}

static bool Enter()
{
    if (!EnterNamespace())
        return false;
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return Fail("no private mounts");
    // On a folder that every machine has and the world has its own of: nothing is left behind.
    const char *const root = "/run";
    if (!BuildRoot(root))
        return false;
    if (chroot(root) != 0 || chdir("/") != 0)
        return Fail("no root of its own");
    prctl(PR_SET_DUMPABLE, 1);
    return true;
}

static void EmptyFolder(const std::string &folder)
{
    std::error_code ignored;
    for (const std::string &name : NamesIn(folder))
        fs::remove_all(folder + "/" + name, ignored);
}

static void Empty()
{
    for (const std::string &point : MountPoints())
        umount2(point.c_str(), MNT_DETACH);
    EmptyFolder("/Volumes");
    EmptyFolder("/run");
    EmptyFolder("/disks");
    fs::remove_all("/dev/disk");
    fs::remove_all("/dev/serial");
    g_events.clear();
    g_arguments[0] = CFSTR("rdonly");
    g_arguments[1] = nullptr;
    UseMountProgram("", "");
}

bool EnterWorld()
{
    static const bool entered = Enter();
    if (!entered) {
        MESSAGE("skipped: " << g_why);
        return false;
    }
    Empty();
    return true;
}

// ---- Files and links ----

std::string ReadFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool Exists(const std::string &path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

std::string NewFolder()
{
    static int number = 0;
    const std::string path = "/disks/folder" + std::to_string(++number);
    fs::create_directory(path);
    WriteFile(path + "/app", "app");
    return path;
}

std::string NewImage(const std::string &label)
{
    static int number = 0;
    const std::string path = "/disks/image" + std::to_string(++number);
    WriteFile(path, "");
    fs::resize_file(path, 256 * 1024);
    const std::string command =
        "PATH=$PATH:/usr/sbin:/sbin mkfs.ext4 -q -O ^has_journal -L '" + label + "' " + path;
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0 ||
        access("/dev/loop-control", R_OK | W_OK) != 0)
        return "";
    return path;
}

void Plug(const std::string &entry, const std::string &target)
{
    static unsigned long long number = 0xb8cd1eb03ccd0b0eULL;
    char digits[32];
    std::snprintf(digits, sizeof digits, "%016llx", number++);
    fs::create_directories("/dev/disk/by-label");
    const std::string folder = "/dev/disk/by-label/";
    const std::string temporary = folder + ".#" + entry.substr(0, 200) + digits;
    fs::create_symlink(target, temporary);
    fs::rename(temporary, folder + entry);
}

void Unplug(const std::string &entry)
{
    fs::remove("/dev/disk/by-label/" + entry);
    std::error_code notEmpty;
    fs::remove("/dev/disk/by-label", notEmpty);
    fs::remove("/dev/disk", notEmpty);
}

std::vector<std::string> NamesIn(const std::string &folder)
{
    std::vector<std::string> names;
    std::error_code absent;
    for (const auto &entry : fs::directory_iterator(folder, absent))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<MountedAt> Mounts()
{
    std::vector<MountedAt> mounts;
    std::ifstream file("/proc/self/mountinfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string id, parent, device, root, point, options;
        fields >> id >> parent >> device >> root >> point >> options;
        for (size_t at; (at = point.find("\\040")) != std::string::npos;)
            point.replace(at, 4, " ");
        if (point.rfind("/Volumes/", 0) == 0)
            mounts.push_back({point, options});
    }
    return mounts;
}

std::vector<std::string> MountPoints()
{
    std::vector<std::string> points;
    for (const MountedAt &mounted : Mounts())
        points.push_back(mounted.point);
    return points;
}

void UseMountProgram(const std::string &mountScript, const std::string &umountScript)
{
    static const std::string ownPath = std::getenv("PATH");
    fs::create_directories("/run/bin");
    EmptyFolder("/run/bin");
    setenv("PATH", ("/run/bin:" + ownPath).c_str(), 1);
    if (!mountScript.empty())
        UseProgram("mount", mountScript);
    if (!umountScript.empty())
        UseProgram("umount", umountScript);
}

void UseProgram(const std::string &name, const std::string &script)
{
    WriteFile("/run/bin/" + name, script, 0755);
}

const std::string kHold = ": > /run/reached\nuntil [ -e /run/released ]; do sleep 0.005; done\n";

bool AwaitReached()
{
    return RunUntil([] { return Exists("/run/reached"); });
}

void Release()
{
    WriteFile("/run/released", "");
}

static const char kErrorsFile[] = "/run/standard-error";

CaughtErrors::CaughtErrors() : m_before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0))
{
    const int file = open(kErrorsFile, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    REQUIRE(file >= 0);
    dup2(file, STDERR_FILENO);
    close(file);
}

CaughtErrors::~CaughtErrors()
{
    dup2(m_before, STDERR_FILENO);
    close(m_before);
}

std::string CaughtErrors::Text() const
{
    return ReadFile(kErrorsFile);
}

int CountDescriptors()
{
    return static_cast<int>(NamesIn("/proc/self/fd").size());
}

std::string Output(const std::string &command, int *status)
{
    std::string text;
    FILE *pipe = popen(command.c_str(), "r");
    REQUIRE(pipe != nullptr);
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        text += static_cast<char>(c);
    const int result = pclose(pipe);
    if (status != nullptr)
        *status = result;
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// ---- The run loop and the callbacks ----

bool RunUntil(const std::function<bool()> &done, double seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done() && std::chrono::steady_clock::now() < end)
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true);
    return done();
}

void Drain()
{
    while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) == kCFRunLoopRunHandledSource) {
    }
}

static bool HasChildren()
{
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

void Settle()
{
    while (HasChildren())
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true);
    Drain();
    if (HasChildren())  // what ended has led to something new
        Settle();
}

std::vector<std::string> Await(size_t count)
{
    RunUntil([count] { return g_events.size() >= count; });
    Settle();
    return g_events;
}

std::string LabelOf(DADiskRef disk)
{
    if (disk == nullptr)
        return "no disk";
    char label[512] = "?";
    CFDictionaryRef description = DADiskCopyDescription(disk);
    CFStringRef name = static_cast<CFStringRef>(
        CFDictionaryGetValue(description, kDADiskDescriptionVolumeNameKey));
    if (name != nullptr)
        CFStringGetCString(name, label, sizeof label, kCFStringEncodingUTF8);
    CFRelease(description);
    return label;
}

std::string StatusName(DAReturn status)
{
    switch (status) {
    case kDAReturnSuccess: return "success";
    case kDAReturnBusy: return "busy";
    case kDAReturnBadArgument: return "bad argument";
    case kDAReturnNoResources: return "no resources";
    case kDAReturnNotFound: return "not found";
    case kDAReturnNotPermitted: return "not permitted";
    case kDAReturnUnsupported: return "unsupported";
    default: return (status & ~0x3FFF) == 0xC000 ? std::strerror(status & 0x3FFF) : "unknown";
    }
}

static std::string Suffix(void *context)
{
    return context == nullptr ? "" : " (" + std::string(static_cast<const char *>(context)) + ")";
}

void RecordPeek(DADiskRef disk, void *context)
{
    g_events.push_back("peek " + LabelOf(disk) + Suffix(context));
}

void RecordMount(DADiskRef disk, DADissenterRef dissenter, void *context)
{
    if (dissenter == nullptr)
        g_events.push_back("mounted " + LabelOf(disk) + Suffix(context));
    else
        g_events.push_back("refused " + LabelOf(disk) + " " +
                           StatusName(DADissenterGetStatus(dissenter)) + Suffix(context));
}

void RecordAndMount(DADiskRef disk, void *context)
{
    RecordPeek(disk, context);
    DADiskSetOptions(disk, kDADiskOptionMountAutomatic, false);
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, RecordMount, context,
                             g_arguments);
}

void Register(DASessionRef session, const char *label, CFIndex order, DADiskPeekCallback callback,
              void *context)
{
    CFMutableDictionaryRef match = nullptr;
    if (label != nullptr) {
        match = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                          &kCFTypeDictionaryValueCallBacks);
        CFStringRef name =
            CFStringCreateWithCString(kCFAllocatorDefault, label, kCFStringEncodingUTF8);
        CFDictionarySetValue(match, kDADiskDescriptionVolumeNameKey, name);
        CFRelease(name);
    }
    DARegisterDiskPeekCallback(session, match, order, callback, context);
    if (match != nullptr)
        CFRelease(match);
}

DASessionRef Watch(const char *label, DADiskPeekCallback callback, void *context)
{
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Register(session, label, 0, callback, context);
    return session;
}

void Forget(DASessionRef session, bool isLast)
{
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    CFRelease(session);
    if (isLast)
        CHECK(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, false) == kCFRunLoopRunFinished);
}
