// main: its steps in their order, by the calls that it makes and the log that it leaves.
#include "src/Kestrun.h"
#include "tests/src/kestrun_seams.h"

int KestrunMain();  // what main is called here

// The calls of one search for the port.
static Lines SearchCalls(bool modem)
{
    Lines search = {
        R"(IOServiceMatching("IOSerialBSDClient"))",
        R"(CFDictionarySetValue(matching, "IOSerialBSDClientType", "IOSerialStream"))",
        R"(IOServiceGetMatchingServices(0, matching {"IOSerialBSDClientType": "IOSerialStream"}))",
        R"(IOIteratorNext(iterator))",
    };
    if (modem) {
        search.push_back(
            R"(IORegistryEntryCreateCFProperty(port 1, "IOCalloutDevice", default, 0))");
        search.push_back(R"(CFStringGetCString(property of port 1, buffer, 1024, 134217984))");
        search.push_back(R"(CFRelease(property of port 1))");
    }
    search.push_back(R"(IOObjectRelease(iterator))");
    return search;
}

// The calls from the match dictionary to the end.
static Lines WatchCalls(const std::string &name)
{
    const std::string entry = "\"DAVolumeName\": \"" + name + "\"";
    return {
        "CFDictionaryCreateMutable(default, 0, type keys, type values)",
        "CFStringCreateWithCString(default, \"" + name + "\", 0)",
        "CFDictionarySetValue(dictionary, \"DAVolumeName\", \"" + name + "\")",
        "CFRelease(\"" + name + "\")",
        R"(IsKeyValueCaseEqual("/Library/StartupItems/QVKestrun/config", "Volumes", "disable_cdrom", "true"))",
        "CFRunLoopGetCurrent()",
        R"(DASessionScheduleWithRunLoop(session, run loop, "kCFRunLoopDefaultMode"))",
        "DARegisterDiskPeekCallback(session, dictionary {" + entry +
            "}, 0, DiskPeekCallback, null)",
        "CFRunLoopRun()",
    };
}

static const Lines kActions = {
    R"(popen("ps aux | awk -v PID=4711 '$2 == PID { print $1 }'", "r"))",
    "pclose()",
    R"(popen("stat -f%Su /dev/console", "r"))",
    "pclose()",
    R"(RunShellCmd("ps -A | grep 'Finder[.]'", buffer, 1024))",
    R"(RunShellProgram("open -a /Volumes/Orvanta/Orvanta.app/", 10))",
    R"(RunSDProgram("/Applications/Orvanta.app/Contents/Resources/SysConfig.dat", "open "", "/Volumes/"))",
};

static const Lines kBanner = {
    "Kestrun:main --- \n\n====================================Kestrun started===============================",
    "Kestrun:main --- TOOL-BrelmarkV100R001B035",
};
static const Lines kBegin = {
    "Kestrun:main --- begin to run SDProgram at beginning to run autorun",
};
static const Lines kPortAbsent = {
    "Kestrun:FindCommPort --- FindCommPort Enter",
    "Kestrun:FindCommPort --- findCommPort failed, FindCommPort exit",
    "Kestrun:main --- wait to again to find comm port at beginning to run autorun...",
};
static const Lines kPortFound = {
    "Kestrun:FindCommPort --- FindCommPort Enter",
    "Kestrun:FindCommPort --- /dev/cu.QARVELMobile-Pcui",
    "Kestrun:FindCommPort --- FindCommPort success, and exit",
};
static const Lines kActionsLog = {
    "Kestrun:DiskMountCallback --- DiskMountCallback Enter",
    "Kestrun:DiskMountCallback --- ps aux | awk -v PID=4711 '$2 == PID { print $1 }'",
    "Kestrun:DiskMountCallback --- actvie == pname.....",
    "Kestrun:DiskMountCallback --- have some one login succ",
    kNoConfig.front(),
    "Kestrun:DiskMountCallback --- Doesn't find ini file.",
    "Kestrun:DiskMountCallback --- Run Orvanta Program success",
    "Kestrun:DiskMountApproval --- DiskMountApproval Enter",
    "Kestrun:DiskMountApproval --- finish run sd program, and successful, DiskMountApproval exit",
    "Kestrun:DiskMountCallback --- DiskMountCallback exit",
};
static const Lines kActionsDone = {
    "Kestrun:main --- finish run SDProgram at beginning to run autorun",
};
static const Lines kVolumeAbsent = {
    "Kestrun:main --- can't find /Volumes/Orvanta, can't run firmware program and SDProgram",
};
static const Lines kReadOnly = {"Kestrun:main --- value of disable_cdrom is false"};
static const Lines kNoBrowse = {"Kestrun:main --- value of disable_cdrom is true"};

static const std::vector<Port> kModem = {{"/dev/cu.QARVELMobile-Pcui"}};

static Lines Times(size_t count, const Lines &lines)
{
    Lines all;
    for (size_t i = 0; i < count; i++)
        all = all + lines;
    return all;
}

TEST_CASE("the mount options are null before main has run")
{
    // World empties only the first: this one is what the process started with.
    CHECK(gMountArgs[1] == nullptr);
}

TEST_CASE("a modem that is there at once is acted upon before the watch begins")
{
    const World world;
    frameworks.ports = {kModem};
    CHECK(KestrunMain() == 0);
    CHECK(calls == Lines{"DASessionCreate(default)"} + SearchCalls(true) +
                       Lines{R"(IsVolumeExist("Orvanta", "/Volumes/", 300))"} + kActions +
                       WatchCalls("Orvanta"));
    CHECK(world.TakeLog() ==
          kBanner + kNoConfig + kBegin + kPortFound + kActionsLog + kActionsDone + kReadOnly);
}

TEST_CASE("each buffer is cleared before it is used")
{
    const World world;
    frameworks.ports = {kModem};
    CHECK(ClearedBy([] { KestrunMain(); }, kLogLineSize) ==
          std::vector<size_t>{64, 1024, 64, 256, 256, 256, 1024, 512, 512});
}

TEST_CASE(
    "a modem that is absent costs ten searches, ten messages and ten seconds, then the watch begins")
{
    const World world;
    CHECK(KestrunMain() == 0);
    CHECK(calls == Lines{"DASessionCreate(default)"} +
                       Times(10, SearchCalls(false) + Lines{"sleep(1)"}) + WatchCalls("Orvanta"));
    CHECK(world.TakeLog() == kBanner + kNoConfig + kBegin + Times(10, kPortAbsent) + kReadOnly);
}

TEST_CASE("a modem that shows itself on a later try is waited for just so long")
{
    for (const size_t tries : {2U, 3U, 9U, 10U}) {
        CAPTURE(tries);
        const World world;
        frameworks.ports.resize(tries - 1);
        frameworks.ports.push_back(kModem);
        CHECK(KestrunMain() == 0);
        CHECK(calls == Lines{"DASessionCreate(default)"} +
                           Times(tries - 1, SearchCalls(false) + Lines{"sleep(1)"}) +
                           SearchCalls(true) +
                           Lines{R"(IsVolumeExist("Orvanta", "/Volumes/", 300))"} + kActions +
                           WatchCalls("Orvanta"));
        CHECK(world.TakeLog() == kBanner + kNoConfig + kBegin + Times(tries - 1, kPortAbsent) +
                                     kPortFound + kActionsLog + kActionsDone + kReadOnly);
    }
}

TEST_CASE("a modem that would show itself on the eleventh try is left to the watch")
{
    const World world;
    frameworks.ports.resize(10);
    frameworks.ports.push_back(kModem);
    CHECK(KestrunMain() == 0);
    CHECK(world.TakeLog() == kBanner + kNoConfig + kBegin + Times(10, kPortAbsent) + kReadOnly);
}

TEST_CASE("a volume that does not come skips the actions, and the message names the default volume")
{
    for (const char *name : {"Orvanta", "Other Modem"}) {
        CAPTURE(name);
        World world;
        world.volumeExists = false;
        world.Configure(std::string("[Volumes]\nname=") + name + "\n");
        frameworks.ports = {kModem};
        CHECK(KestrunMain() == 0);
        CHECK(calls ==
              Lines{"DASessionCreate(default)"} + SearchCalls(true) +
                  Lines{std::string("IsVolumeExist(\"") + name + "\", \"/Volumes/\", 300)"} +
                  WatchCalls(name));
        CHECK(world.TakeLog() == kBanner + kBegin + kPortFound + kVolumeAbsent + kReadOnly);
    }
}

TEST_CASE("actions that end early are finished actions to main")
{
    World world;
    world.console = "bob\n";
    frameworks.ports = {kModem};
    CHECK(KestrunMain() == 0);
    CHECK(world.TakeLog() == kBanner + kNoConfig + kBegin + kPortFound +
                                 Lines(kActionsLog.begin(), kActionsLog.begin() + 2) +
                                 Lines{"Kestrun:DiskMountCallback --- are not same return....."} +
                                 kActionsDone + kReadOnly);
}

TEST_CASE("the configured name is looked for and matched, cut to 63 characters")
{
    const std::string seventy =
        "0123456789012345678901234567890123456789012345678901234567890123456789";
    struct {
        std::string configured;
        std::string used;
    } const rows[] = {
        {"M", "M"},
        {"Orvanta Plus", "Orvanta Plus"},
        {"Orv\xc3\xa4nta", "Orv\xc3\xa4nta"},  // the bytes, whatever they mean
        {"100%s%n", "100%s%n"},
        {seventy.substr(0, 62), seventy.substr(0, 62)},
        {seventy.substr(0, 63), seventy.substr(0, 63)},
        {seventy.substr(0, 64), seventy.substr(0, 63)},
        {seventy, seventy.substr(0, 63)},
        {"", ""},
    };
    for (const auto &row : rows) {
        CAPTURE(row.configured);
        World world;
        world.volumeExists = false;
        world.Configure("[Volumes]\nname=" + row.configured + "\n");
        frameworks.ports = {kModem};
        CHECK(KestrunMain() == 0);
        CHECK(calls == Lines{"DASessionCreate(default)"} + SearchCalls(true) +
                           Lines{"IsVolumeExist(\"" + row.used + "\", \"/Volumes/\", 300)"} +
                           WatchCalls(row.used));
        CHECK(world.TakeLog() == kBanner + kBegin + kPortFound + kVolumeAbsent + kReadOnly);
    }
}

TEST_CASE("a configuration without the name gives the default one")
{
    const World world;
    world.Configure("[Volumes]\npath1=/x\n");
    CHECK(KestrunMain() == 0);
    CHECK(world.TakeLog() == kBanner +
                                 Lines{"INI:KeyExists --- not found the key",
                                       "INI:ReadString --- cfg key [name] not exists..."} +
                                 kBegin + Times(10, kPortAbsent) + kReadOnly);
    CHECK(calls.back() == "CFRunLoopRun()");
    CHECK(LiveObjects() ==
          Lines{"session", "dictionary {\"DAVolumeName\": \"Orvanta\"}", "\"Orvanta\""});
}

TEST_CASE("disable_cdrom chooses the one mount option")
{
    for (const bool disabled : {true, false}) {
        CAPTURE(disabled);
        World world;
        world.disableCdrom = disabled;
        CHECK(KestrunMain() == 0);
        CHECK(TextOf(gMountArgs[0]) == (disabled ? "\"nobrowse\"" : "\"rdonly\""));
        CHECK(gMountArgs[1] == nullptr);
        CHECK(world.TakeLog() == kBanner + kNoConfig + kBegin + Times(10, kPortAbsent) +
                                     (disabled ? kNoBrowse : kReadOnly));
    }
}

TEST_CASE("the session and the dictionary stay, the name belongs to the dictionary alone")
{
    const World world;
    size_t references = 0;
    frameworks.whileRunning = [&] { references = LiveObjects().size(); };
    CHECK(KestrunMain() == 0);
    CHECK(references == 3);
    CHECK(LiveObjects() ==
          Lines{"session", "dictionary {\"DAVolumeName\": \"Orvanta\"}", "\"Orvanta\""});
}

TEST_CASE("failures of the frameworks change nothing in the order of the calls")
{
    const World world;
    frameworks.session = false;
    frameworks.dictionary = false;
    frameworks.strings = false;
    frameworks.queryResult = 5;
    CHECK(KestrunMain() == 0);
    const Lines query = {
        R"(IOServiceMatching("IOSerialBSDClient"))",
        R"(CFDictionarySetValue(matching, "IOSerialBSDClientType", "IOSerialStream"))",
        R"(IOServiceGetMatchingServices(0, matching {"IOSerialBSDClientType": "IOSerialStream"}))",
        "sleep(1)",
    };
    const Lines watch = {
        "CFDictionaryCreateMutable(default, 0, type keys, type values)",
        R"(CFStringCreateWithCString(default, "Orvanta", 0))",
        R"(CFDictionarySetValue(null, "DAVolumeName", null))",
        R"(IsKeyValueCaseEqual("/Library/StartupItems/QVKestrun/config", "Volumes", "disable_cdrom", "true"))",
        "CFRunLoopGetCurrent()",
        R"(DASessionScheduleWithRunLoop(null, run loop, "kCFRunLoopDefaultMode"))",
        "DARegisterDiskPeekCallback(null, null, 0, DiskPeekCallback, null)",
        "CFRunLoopRun()",
    };
    CHECK(calls == Lines{"DASessionCreate(default)"} + Times(10, query) + watch);
}

TEST_CASE("disks that arrive are mounted with the option that main chose, one after the other")
{
    World world;
    world.disableCdrom = true;
    world.pid = 0;
    frameworks.whileRunning = [] {
        DADiskRef first = MakeDisk("first");
        DADiskRef second = MakeDisk("second");
        DiskPeekCallback(first, nullptr);
        DiskPeekCallback(second, nullptr);
        DiskMountCallback(first, nullptr, nullptr);
    };
    CHECK(KestrunMain() == 0);
    const Lines mounts = {
        "DADiskSetOptions(first, 16, 0)",
        R"(DADiskMountWithArguments(first, null, 0, DiskMountCallback, null, {"nobrowse"}))",
        "DADiskSetOptions(second, 16, 0)",
        R"(DADiskMountWithArguments(second, null, 0, DiskMountCallback, null, {"nobrowse"}))",
    };
    CHECK(calls == Lines{"DASessionCreate(default)"} +
                       Times(10, SearchCalls(false) + Lines{"sleep(1)"}) + WatchCalls("Orvanta") +
                       mounts + Lines(kActions.begin() + 4, kActions.end()));
}

TEST_CASE("when the run loop returns the log is closed, its last line written")
{
    const World world;
    frameworks.whileRunning = [] { Log("tests/src/kestrun_main_test", "loop", "the last line"); };
    CHECK(KestrunMain() == 0);
    // Nothing here writes out or closes what main left open.
    CHECK(LogRecords(FileContent(world.folder + "/log")).back() ==
          "kestrun_main_test:loop --- the last line");
    Log("tests/src/kestrun_main_test", "loop", "a line after the end");
    CHECK(world.TakeLog().back() == "kestrun_main_test:loop --- the last line");
}
