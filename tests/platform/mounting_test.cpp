// Mount requests: what is run for them, what comes of them, and what goes with the disk.
#include "World.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static const char kFails[] = "#!/bin/sh\nexit 32\n";

static void SetArguments(std::vector<const char *> arguments)
{
    size_t i = 0;
    for (const char *argument : arguments)
        g_arguments[i++] = CFStringCreateWithCString(nullptr, argument, kCFStringEncodingUTF8);
    g_arguments[i] = nullptr;
}

TEST_CASE("mount is given its options, two dashes, the source and the place")
{
    if (!EnterWorld())
        return;
    UseMountProgram(kRecordingScript, "");
    struct Row {
        std::vector<const char *> arguments;
        const char *options;
    };
    const Row rows[] = {
        {{"rdonly"}, "nosuid,nodev,ro,x-gvfs-show"},
        {{"nobrowse"}, "nosuid,nodev,x-gvfs-hide"},
        {{}, "nosuid,nodev"},
        {{"rdonly", "nobrowse"}, "nosuid,nodev,ro,x-gvfs-show,x-gvfs-hide"},
        {{"noatime"}, "nosuid,nodev,noatime"},
        {{"suid,dev", "nobrowse"}, "nosuid,nodev,suid,dev,x-gvfs-hide"},
        {{"Rdonly"}, "nosuid,nodev,Rdonly"},
        {{"-o exec; rm $x"}, "nosuid,nodev,-o exec; rm $x"},
        {{""}, "nosuid,nodev"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.options);
        g_events.clear();
        fs::remove("/run/mount-log");
        SetArguments(row.arguments);
        DASessionRef session = Watch(nullptr, RecordAndMount);
        const std::string folder = NewFolder();
        Plug("Orvanta", folder);
        CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
        CHECK(ReadFile("/run/mount-log") == "-o\nbind," + std::string(row.options) + "\n--\n" +
                                                folder + "\n/Volumes/Orvanta\n.\n");
        Unplug("Orvanta");
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
        Forget(session);
        for (CFStringRef &argument : g_arguments) {
            if (argument != nullptr)
                CFRelease(argument);
            argument = nullptr;
        }
    }
}

// A file that stands for a disk's image; what blkid says of it decides.
static std::string PlainImage()
{
    static int number = 0;
    const std::string path = "/disks/plain" + std::to_string(++number);
    WriteFile(path, "nothing");
    return path;
}

TEST_CASE("a disk's type is found first, and is named to mount")
{
    if (!EnterWorld())
        return;
    struct Row {
        const char *type;
        const char *options;
    };
    const Row rows[] = {
        {"iso9660", ""},
        {"udf", ""},
        {"vfat", ""},
        {"exfat", ""},
        {"hfs", ""},
        {"hfsplus", ""},
        {"ext2", "errors=remount-ro,"},
        {"ext3", "errors=remount-ro,"},
        {"ext4", "errors=remount-ro,"},
    };
    UseMountProgram(kRecordingScript, "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    for (const Row &row : rows) {
        CAPTURE(row.type);
        g_events.clear();
        fs::remove("/run/mount-log");
        fs::remove("/run/blkid-log");
        UseProgram("blkid", "#!/bin/sh\nprintf '%s\\n' \"$@\" > /run/blkid-log\necho " +
                                std::string(row.type) + "\n");
        const std::string image = PlainImage();
        Plug("Orvanta", image);
        CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
        CHECK(ReadFile("/run/blkid-log") ==
              "-p\n-u\nfilesystem\n-s\nTYPE\n-o\nvalue\n--\n" + image + "\n");
        CHECK(ReadFile("/run/mount-log") == "-t\n" + std::string(row.type) + "\n-o\nloop," +
                                                row.options + "nosuid,nodev,ro,x-gvfs-show\n--\n" +
                                                image + "\n/Volumes/Orvanta\n.\n");
        Unplug("Orvanta");
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    }
    Forget(session);
}

TEST_CASE("a file system of any other type is refused with a line on standard error")
{
    if (!EnterWorld())
        return;
    const std::string only =
        ", and only iso9660, udf, vfat, exfat, hfs, hfsplus, ext2, ext3 and ext4 are mounted\n";
    struct Row {
        const char *script;
        std::string complaint;
    };
    const Row rows[] = {
        {"#!/bin/sh\necho btrfs\n", "it holds btrfs" + only},
        {"#!/bin/sh\necho ntfs\n", "it holds ntfs" + only},
        {"#!/bin/sh\necho ext4dev\n", "it holds ext4dev" + only},
        {"#!/bin/sh\necho iso9660,loop\n", "it holds iso9660,loop" + only},
        {"#!/bin/sh\nexit 2\n", "it holds no file system that blkid knows\n"},
        {"#!/bin/sh\nexit 127\n", "blkid, which tells its type, cannot be run\n"},
        {"#!/bin/sh\nprintf '%500s' x\n", "it holds " + std::string(31, ' ') + only},
    };
    UseMountProgram(kRecordingScript, "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    for (const Row &row : rows) {
        CAPTURE(row.script);
        g_events.clear();
        UseProgram("blkid", row.script);
        const std::string image = PlainImage();
        const CaughtErrors errors;
        Plug("Orvanta", image);
        CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta unsupported"});
        CHECK(errors.Text() ==
              "DADiskMountWithArguments: " + image + " is not mounted: " + row.complaint);
        CHECK(!Exists("/run/mount-log"));
        CHECK(NamesIn("/Volumes").empty());
        Unplug("Orvanta");
        Settle();
    }
    Forget(session);
}

TEST_CASE("a disk that goes while its type is looked for is not mounted")
{
    if (!EnterWorld())
        return;
    UseMountProgram(kRecordingScript, "");
    UseProgram("blkid", "#!/bin/sh\n" + kHold + "echo iso9660\n");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", PlainImage());
    CHECK(AwaitReached());
    Unplug("Orvanta");
    Drain();
    Release();
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta not found"});
    CHECK(!Exists("/run/mount-log"));
    CHECK(NamesIn("/Volumes").empty());
    Forget(session);
}

static void MountWithoutArguments(DADiskRef disk, void *context)
{
    RecordPeek(disk, context);
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, RecordMount, context,
                             nullptr);
}

TEST_CASE("a request without arguments has the options that are never left out")
{
    if (!EnterWorld())
        return;
    UseMountProgram(kRecordingScript, "");
    DASessionRef session = Watch(nullptr, MountWithoutArguments);
    const std::string folder = NewFolder();
    Plug("Orvanta", folder);
    CHECK(Await(2).size() == 2);
    CHECK(ReadFile("/run/mount-log") ==
          "-o\nbind,nosuid,nodev\n--\n" + folder + "\n/Volumes/Orvanta\n.\n");
    Forget(session);
}

TEST_CASE("a stranger's label is the name of a folder and nothing else")
{
    if (!EnterWorld())
        return;
    struct Row {
        const char *link;
        const char *place;
    };
    const Row rows[] = {
        {"Orvanta\\x20Plus", "Orvanta Plus"},
        {"-o", "-o"},
        {"a\\x2f..\\x2fb\\x25n\\x5cx2f", "a:..:b%n\\x2f"},
        {"\\x24\\x28touch\\x20\\x2fx\\x29\\x3b\\x60", "$(touch :x);`"},
        {"Orv\xC3\xA4nta", "Orv\xC3\xA4nta"},
        {"\\xff\\x0a", "\xFF\n"},
    };
    DASessionRef session = Watch(nullptr, RecordAndMount);
    for (const Row &row : rows) {
        CAPTURE(row.link);
        g_events.clear();
        Plug(row.link, NewFolder());
        CHECK(RunUntil([] { return g_events.size() == 2; }));
        CHECK(g_events[1].rfind("mounted", 0) == 0);
        CHECK(NamesIn("/Volumes") == Events{row.place});
        CHECK(ReadFile(std::string("/Volumes/") + row.place + "/app") == "app");
        Unplug(row.link);
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    }
    const std::string longest(255, 'x');
    g_events.clear();
    symlink(NewFolder().c_str(), ("/dev/disk/by-label/" + longest).c_str());
    fs::create_directories("/dev/disk/by-label");
    symlink(NewFolder().c_str(), ("/dev/disk/by-label/" + longest).c_str());
    CHECK(Await(2).back() == "mounted " + longest);
    CHECK(NamesIn("/Volumes") == Events{longest});
    Unplug(longest);
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE("the mount has the options that were asked for")
{
    if (!EnterWorld())
        return;
    struct Row {
        const char *argument;
        bool readOnly;
    };
    for (const Row &row : {Row{"rdonly", true}, Row{"nobrowse", false}}) {
        CAPTURE(row.argument);
        g_events.clear();
        g_arguments[0] = CFStringCreateWithCString(nullptr, row.argument, kCFStringEncodingUTF8);
        DASessionRef session = Watch(nullptr, RecordAndMount);
        Plug("Orvanta", NewFolder());
        CHECK(Await(2).back() == "mounted Orvanta");
        REQUIRE(Mounts().size() == 1);
        const std::string options = "," + Mounts()[0].options + ",";
        CHECK(options.find(",nosuid,") != std::string::npos);
        CHECK(options.find(",nodev,") != std::string::npos);
        CHECK((options.find(",ro,") != std::string::npos) == row.readOnly);
        Unplug("Orvanta");
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
        Forget(session);
        CFRelease(g_arguments[0]);
    }
}

TEST_CASE("a mount that fails is refused, and its folder goes")
{
    if (!EnterWorld())
        return;
    struct Row {
        const char *script;
        const char *status;
    };
    const Row rows[] = {
        {kFails, "Input/output error"},
        {"#!/bin/sh\nexit 1\n", "not permitted"},
        {"#!/bin/sh\nexit 2\n", "Cannot allocate memory"},
        {"#!/bin/sh\nkill -9 $$\n", "Interrupted system call"},
        {"#!/bin/sh\necho mounted; echo error >&2; exit 64\n", "Input/output error"},
    };
    DASessionRef session = Watch(nullptr, RecordAndMount);
    for (const Row &row : rows) {
        CAPTURE(row.script);
        g_events.clear();
        UseMountProgram(row.script, "");
        Plug("Orvanta", NewFolder());
        CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta " + std::string(row.status)});
        CHECK(NamesIn("/Volumes").empty());
        Unplug("Orvanta");
        Settle();
    }
    g_events.clear();
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/run/bin-that-is-not-there", 1);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta Exec format error"});
    CHECK(NamesIn("/Volumes").empty());
    setenv("PATH", path.c_str(), 1);
    Forget(session);
}

TEST_CASE("what mount says is not looked at, only its status")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\necho 'mount: failed, unknown filesystem type'\nexit 0\n", "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "mounted Orvanta"});
    CHECK(NamesIn("/Volumes") == Events{"Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE("a mount program that mounts and fails leaves nothing behind")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\n/bin/mount \"$@\"\nexit 16\n", "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta Input/output error"});
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    Forget(session);
}

static void MountTwice(DADiskRef disk, void *context)
{
    RecordAndMount(disk, context);
    DADiskMountWithArguments(disk, nullptr, kDADiskMountOptionDefault, RecordMount,
                             const_cast<char *>("again"), g_arguments);
}

TEST_CASE("of two requests for one disk the second finds it busy")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, MountTwice);
    Plug("Orvanta", NewFolder());
    CHECK(Await(3) == Events{"peek Orvanta", "mounted Orvanta", "refused Orvanta busy (again)"});
    CHECK(static_cast<unsigned int>(kDAReturnBusy) == 0xF8DA0002U);
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    CHECK(NamesIn("/Volumes") == Events{"Orvanta"});
    Forget(session);
}

TEST_CASE("a request that follows one that failed is tried")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\n[ -e /run/tried ] && exec /bin/mount \"$@\"\n"
                    ": > /run/tried\nexit 32\n",
                    "");
    DASessionRef session = Watch(nullptr, MountTwice);
    Plug("Orvanta", NewFolder());
    CHECK(Await(3) ==
          Events{"peek Orvanta", "refused Orvanta Input/output error", "mounted Orvanta (again)"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Forget(session);
}

TEST_CASE("two disks are mounted beside each other")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\ncase $5 in */slow)\n" + kHold + ";; esac\nexec /bin/mount \"$@\"\n",
                    "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("slow", NewFolder());
    Plug("quick", NewFolder());
    CHECK(RunUntil([] { return g_events.size() == 3; }));
    Release();
    CHECK(Await(4) == Events{"peek quick", "peek slow", "mounted quick", "mounted slow"});
    Forget(session);
}

TEST_CASE(
    "a request with a path or an option that is not provided, or for no disk, is refused before "
    "it returns")
{
    if (!EnterWorld())
        return;
    UseMountProgram(kRecordingScript, "");
    DASessionRef session = Watch(nullptr, [](DADiskRef disk, void *) {
        int url = 0;
        DADiskMountWithArguments(disk, reinterpret_cast<CFURLRef>(&url), 0, RecordMount, nullptr,
                                 g_arguments);
        DADiskMountWithArguments(disk, nullptr, 1, RecordMount, nullptr, g_arguments);
        DADiskMountWithArguments(disk, nullptr, 1, nullptr, nullptr, g_arguments);
        DADiskMountWithArguments(nullptr, nullptr, 0, RecordMount, nullptr, g_arguments);
        g_events.push_back("asked");
    });
    Plug("Orvanta", NewFolder());
    CHECK(Await(4) == Events{"refused Orvanta unsupported", "refused Orvanta unsupported",
                             "refused no disk bad argument", "asked"});
    CHECK(!Exists("/run/mount-log"));
    Forget(session);
}

TEST_CASE("a disk's options are set and cleared bit by bit")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, [](DADiskRef disk, void *) {
        CHECK(kDADiskOptionMountAutomatic == 0x10);
        CHECK(DADiskGetOptions(disk) == 0x10);
        CHECK(DADiskSetOptions(disk, 0x101, true) == kDAReturnSuccess);
        CHECK(DADiskGetOptions(disk) == 0x111);
        CHECK(DADiskSetOptions(disk, 16, false) == kDAReturnSuccess);
        CHECK(DADiskGetOptions(disk) == 0x101);
        CHECK(DADiskSetOptions(nullptr, 16, false) == kDAReturnBadArgument);
        CHECK(DADiskGetOptions(nullptr) == 0);
        CHECK(DADiskCopyDescription(nullptr) == nullptr);
        CHECK(DADissenterGetStatus(nullptr) == kDAReturnSuccess);
        CHECK(unix_err(EIO) == 0xC005);
        g_events.push_back("asked");
    });
    Plug("Orvanta", NewFolder());
    CHECK(Await(1).size() == 1);
    Forget(session);
}

TEST_CASE("a name that is taken gets a number, and without a free one the mount is refused")
{
    if (!EnterWorld())
        return;
    fs::create_directory("/Volumes/Orvanta");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    CHECK(MountPoints() == Events{"/Volumes/Orvanta 1"});
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes") == Events{"Orvanta"}; }));
    for (int number = 1; number <= 99; number++)
        WriteFile("/Volumes/Orvanta " + std::to_string(number), "");
    g_events.clear();
    Plug("Orvanta", NewFolder());
    CHECK(Await(2) == Events{"peek Orvanta", "refused Orvanta File exists"});
    CHECK(NamesIn("/Volumes").size() == 100);
    Forget(session);
}

TEST_CASE(
    "a disk that vanishes during its mount gives one completion, the mount's own, and no folder")
{
    if (!EnterWorld())
        return;
    struct Row {
        std::string script;
        const char *completion;
    };
    const Row rows[] = {
        {"#!/bin/sh\n" + kHold + "exec /bin/mount \"$@\"\n", "mounted Orvanta"},
        {"#!/bin/sh\n/bin/mount \"$@\"\n" + kHold, "mounted Orvanta"},
        {"#!/bin/sh\n" + kHold + "exit 32\n", "refused Orvanta Input/output error"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.script);
        g_events.clear();
        fs::remove("/run/reached");
        fs::remove("/run/released");
        UseMountProgram(row.script, "");
        DASessionRef session = Watch(nullptr, RecordAndMount);
        Plug("Orvanta", NewFolder());
        CHECK(AwaitReached());
        CHECK(NamesIn("/Volumes") == Events{"Orvanta"});
        Unplug("Orvanta");
        Drain();
        Release();
        CHECK(Await(2) == Events{"peek Orvanta", row.completion});
        CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
        CHECK(MountPoints().empty());
        Forget(session);
    }
}

TEST_CASE("a replug during the mount waits for its end, and finds the name free")
{
    if (!EnterWorld())
        return;
    UseMountProgram("#!/bin/sh\n" + kHold + "exec /bin/mount \"$@\"\n", "");
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(AwaitReached());
    Unplug("Orvanta");
    Drain();
    Plug("Orvanta", NewFolder());
    Drain();
    CHECK(g_events == Events{"peek Orvanta", "peek Orvanta"});
    Release();
    CHECK(Await(4) == Events{"peek Orvanta", "peek Orvanta", "mounted Orvanta", "mounted Orvanta"});
    CHECK(NamesIn("/Volumes") == Events{"Orvanta"});
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE("a removal is content when somebody else has unmounted the disk")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    REQUIRE(umount2("/Volumes/Orvanta", 0) == 0);
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    Forget(session);
}

TEST_CASE(
    "a removal unmounts what stands in layers, and leaves a folder that has become somebody's")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    REQUIRE(mount("over", "/Volumes/Orvanta", "tmpfs", 0, nullptr) == 0);
    Unplug("Orvanta");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    g_events.clear();
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    REQUIRE(umount2("/Volumes/Orvanta", 0) == 0);
    WriteFile("/Volumes/Orvanta/mine", "");
    Unplug("Orvanta");
    Settle();
    CHECK(Exists("/Volumes/Orvanta/mine"));
    Forget(session);
}

TEST_CASE("an unmount that fails is tried again at the next change, and not before")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    UseMountProgram("", "#!/bin/sh\necho >> /run/tries\nexit 32\n");
    Unplug("Orvanta");
    Settle();
    CHECK(ReadFile("/run/tries") == "\n");
    CHECK(MountPoints() == Events{"/Volumes/Orvanta"});
    UseMountProgram("", "");
    Plug("wakes", "/nowhere");
    CHECK(RunUntil([] { return NamesIn("/Volumes").empty(); }));
    CHECK(MountPoints().empty());
    Forget(session);
}

TEST_CASE("umount is called lazily, with two dashes before the place")
{
    if (!EnterWorld())
        return;
    UseMountProgram("", kRecordingScript);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta\\x20Plus", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta Plus");
    Unplug("Orvanta\\x20Plus");
    CHECK(RunUntil([] { return Exists("/run/mount-log"); }));
    Settle();
    CHECK(ReadFile("/run/mount-log").rfind("-l\n--\n/Volumes/Orvanta Plus\n.\n", 0) == 0);
    UseMountProgram("", "");
    Forget(session);
}

static void UseTheShell(DADiskRef disk, void *context)
{
    RecordAndMount(disk, context);
    // The program of the layer ends while the shell runs.
    Release();
    CHECK(WEXITSTATUS(std::system("while [ -e /run/runs ]; do sleep 0.005; done; exit 3")) == 3);
    int status = 0;
    CHECK(Output("echo hello; exit 4", &status) == "hello");
    CHECK(WEXITSTATUS(status) == 4);
}

TEST_CASE("system and popen keep working while programs of the layer run")
{
    if (!EnterWorld())
        return;
    DASessionRef session = Watch(nullptr, [](DADiskRef disk, void *context) {
        if (LabelOf(disk) == "first")
            RecordAndMount(disk, context);
        else
            UseTheShell(disk, context);
    });
    UseMountProgram("#!/bin/sh\n: > /run/runs\n" + kHold + "/bin/mount \"$@\"\nrm /run/runs\n", "");
    Plug("first", NewFolder());
    CHECK(AwaitReached());
    Plug("second", NewFolder());
    CHECK(Await(4) == Events{"peek first", "peek second", "mounted first", "mounted second"});
    struct sigaction action = {};
    sigaction(SIGCHLD, nullptr, &action);
    CHECK((action.sa_handler == SIG_DFL));
    Forget(session);
}

TEST_CASE("where nobody may wait for children a mount is judged by what is mounted")
{
    if (!EnterWorld())
        return;
    signal(SIGCHLD, SIG_IGN);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("Orvanta", NewFolder());
    CHECK(Await(2).back() == "mounted Orvanta");
    UseMountProgram(kFails, "");
    Plug("other", NewFolder());
    CHECK(Await(4).back() == "refused other Input/output error");
    signal(SIGCHLD, SIG_DFL);
    Forget(session);
}

TEST_CASE(
    "a child inherits no descriptor of the layer, reads and prints nothing, and has no blocked or "
    "ignored signal")
{
    if (!EnterWorld())
        return;
    // The shell itself reads its status: programs that it starts have its signals cleared for them.
    UseMountProgram(
        "#!/bin/sh\nfiles=$(ls -l /proc/$$/fd)\necho \"$files\" > /run/files\n"
        "while read -r name value; do case $name in Sig[BI]*) echo $name $value;; esac\n"
        "done < /proc/$$/status > /run/signals\n",
        "");
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    signal(SIGPIPE, SIG_IGN);
    DASessionRef session = Watch(nullptr, RecordAndMount);
    Plug("a", NewFolder());
    Plug("b", NewFolder());
    CHECK(Await(4).size() == 4);
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    CHECK(ReadFile("/run/files").find("anon_inode") == std::string::npos);
    CHECK(ReadFile("/run/files").find("/dev/disk") == std::string::npos);
    CHECK(Output("grep -cE ' [01] -> /dev/null$' /run/files") == "2");
    CHECK(ReadFile("/run/signals") == "SigBlk: 0000000000000000\nSigIgn: 0000000000000000\n");
    Forget(session);
}
