// The peek callback, the mount-time actions and the setup package after them: every way through,
// with the exact calls, commands and log lines.
#include "src/Kestrun.h"
#include "tests/src/kestrun_seams.h"

static constexpr char kOwnerQuery[] =
    R"(popen("ps aux | awk -v PID=4711 '$2 == PID { print $1 }'", "r"))";
static constexpr char kConsoleQuery[] = R"(popen("stat -f%Su /dev/console", "r"))";
static constexpr char kFinderProbe[] = R"(RunShellCmd("ps -A | grep 'Finder[.]'", buffer, 1024))";
static constexpr char kSetup[] =
    R"(RunSDProgram("/Applications/Orvanta.app/Contents/Resources/SysConfig.dat", "open "", "/Volumes/"))";
static constexpr char kFallback[] =
    R"(RunShellProgram("open -a /Volumes/Orvanta/Orvanta.app/", 10))";

// Records of DiskMountCallback's own.
static Lines Mount(const Lines &texts)
{
    Lines records;
    for (const std::string &text : texts)
        records.push_back("Kestrun:DiskMountCallback --- " + text);
    return records;
}

static const Lines kEnter =
    Mount({"DiskMountCallback Enter", "ps aux | awk -v PID=4711 '$2 == PID { print $1 }'"});
static const Lines kSetupDone = {
    "Kestrun:DiskMountApproval --- DiskMountApproval Enter",
    "Kestrun:DiskMountApproval --- finish run sd program, and successful, DiskMountApproval exit",
};
static const Lines kSetupFailed = {
    "Kestrun:DiskMountApproval --- DiskMountApproval Enter",
    "Kestrun:DiskMountApproval --- finish run program, and error, DiskMountApproval exit ",
};
static const Lines kSameUser = Mount({"actvie == pname....."});
static const Lines kFinderRuns = Mount({"have some one login succ"});
static const Lines kDefaultPath = kNoConfig + Mount({"Doesn't find ini file."});
static const Lines kOpened = Mount({"Run Orvanta Program success"});
static const Lines kExit = Mount({"DiskMountCallback exit"});

TEST_CASE("a new disk loses its automatic mount and is mounted with the chosen option")
{
    struct {
        CFStringRef option;
        const char *list;
    } const rows[] = {{CFSTR("rdonly"), R"({"rdonly"})"}, {CFSTR("nobrowse"), R"({"nobrowse"})"}};
    for (const auto &row : rows) {
        CAPTURE(row.list);
        const World world;
        gMountArgs[0] = row.option;
        DiskPeekCallback(MakeDisk("disk"), nullptr);
        const Lines expected = {
            "DADiskSetOptions(disk, 16, 0)",
            std::string("DADiskMountWithArguments(disk, null, 0, DiskMountCallback, null, ") +
                row.list + ")",
        };
        CHECK(calls == expected);
        CHECK(gMountArgs[0] == row.option);
        CHECK(gMountArgs[1] == nullptr);
        CHECK(LiveObjects() == Lines{"disk"});
        const Lines log = {
            "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter",
            "Kestrun:DiskPeekCallback --- ----------------------Device inserted!---------------",
            "Kestrun:DiskPeekCallback --- DiskPeekCallback exit",
        };
        CHECK(world.TakeLog() == log);
    }
}

TEST_CASE("a refused option is logged and the mount is asked for all the same, disk by disk")
{
    for (const DAReturn refusal : {1, -119930879}) {
        CAPTURE(refusal);
        const World world;
        frameworks.setOptionsResult = refusal;
        gMountArgs[0] = CFSTR("rdonly");
        DiskPeekCallback(MakeDisk("disk 1"), nullptr);
        DiskPeekCallback(MakeDisk("disk 2"), nullptr);
        const Lines expected = {
            "DADiskSetOptions(disk 1, 16, 0)",
            R"(DADiskMountWithArguments(disk 1, null, 0, DiskMountCallback, null, {"rdonly"}))",
            "DADiskSetOptions(disk 2, 16, 0)",
            R"(DADiskMountWithArguments(disk 2, null, 0, DiskMountCallback, null, {"rdonly"}))",
        };
        CHECK(calls == expected);
        const Lines log = {
            "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter",
            "Kestrun:DiskPeekCallback --- ----------------------Device inserted!---------------",
            "Kestrun:DiskPeekCallback --- DADiskSetOptions failed!",
            "Kestrun:DiskPeekCallback --- DiskPeekCallback exit",
        };
        CHECK(world.TakeLog() == log + log);
    }
}

TEST_CASE("a mount that is refused at once has its actions logged before the end of the peek")
{
    const World world;
    frameworks.refusesMounts = true;
    DiskPeekCallback(MakeDisk("disk"), nullptr);
    const Lines before = {
        "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter",
        "Kestrun:DiskPeekCallback --- ----------------------Device inserted!---------------",
    };
    CHECK(world.TakeLog() == before + kEnter + kSameUser + kFinderRuns + kDefaultPath + kOpened +
                                 kSetupDone + kExit +
                                 Lines{"Kestrun:DiskPeekCallback --- DiskPeekCallback exit"});
}

TEST_CASE("without a configuration the default application is opened, its path unquoted")
{
    const World world;
    DiskMountCallback(nullptr, nullptr, nullptr);
    const Lines expected = {kOwnerQuery,  "pclose()", kConsoleQuery, "pclose()",
                            kFinderProbe, kFallback,  kSetup};
    CHECK(calls == expected);
    CHECK(world.TakeLog() ==
          kEnter + kSameUser + kFinderRuns + kDefaultPath + kOpened + kSetupDone + kExit);
}

TEST_CASE("the arguments are ignored: a mount that failed is followed by the same actions")
{
    Lines plain;
    {
        const World world;
        DiskMountCallback(nullptr, nullptr, nullptr);
        plain = calls + world.TakeLog();
    }
    const World world;
    int context = 0;
    // Handles that must not be dereferenced.
    DiskMountCallback(reinterpret_cast<DADiskRef>(&context),
                      reinterpret_cast<DADissenterRef>(&context), &context);
    CHECK(calls + world.TakeLog() == plain);
}

TEST_CASE("the application's path comes from the configuration, quoted, and is read at every mount")
{
    const World world;
    const Lines opened = kEnter + Mount({
                                      "actvie == pname.....",
                                      "have some one login succ",
                                      "Current Mac OS version is newer than Mac OS X 10.4\n",
                                      "Run Orvanta Program success",
                                  });
    world.Configure("[Volumes]\npath1 =  /Applications/My Manager.app  \n");
    DiskMountCallback(nullptr, nullptr, nullptr);
    world.Configure("[Volumes]\npath1=/Applications/Other.app\n");
    DiskMountCallback(nullptr, nullptr, nullptr);
    const Lines once = {kOwnerQuery, "pclose()", kConsoleQuery, "pclose()", kFinderProbe};
    CHECK(calls ==
          once + Lines{R"(RunShellProgram("open -a "/Applications/My Manager.app"", 10))", kSetup} +
              once + Lines{R"(RunShellProgram("open -a "/Applications/Other.app"", 10))", kSetup});
    CHECK(world.TakeLog() == opened + kSetupDone + kExit + opened + kSetupDone + kExit);
}

TEST_CASE("a configuration without the path opens the default one, quoted")
{
    const World world;
    world.Configure("[Volumes]\nname=Modem\n");
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls.at(5) == R"(RunShellProgram("open -a "/Volumes/Orvanta/Orvanta.app/"", 10))");
    CHECK(world.TakeLog() == kEnter +
                                 Mount({
                                     "actvie == pname.....",
                                     "have some one login succ",
                                     "Current Mac OS version is newer than Mac OS X 10.4\n",
                                 }) +
                                 Lines{"INI:KeyExists --- not found the key",
                                       "INI:ReadString --- cfg key [path1] not exists..."} +
                                 Mount({"Run Orvanta Program success"}) + kSetupDone + kExit);
}

TEST_CASE("a path of up to 501 characters is quoted whole; a longer one loses its closing quote")
{
    for (const size_t length : {0U, 1U, 500U, 501U, 502U, 503U, 510U, 511U, 512U, 600U, 1017U}) {
        CAPTURE(length);
        const World world;
        std::string path(length, 'p');
        for (size_t i = 0; i < length; i++)
            path[i] = static_cast<char>('a' + i % 26);
        world.Configure("[Volumes]\npath1=" + path + "\n");
        DiskMountCallback(nullptr, nullptr, nullptr);
        const std::string command =
            length <= 501 ? "open -a \"" + path + "\"" : "open -a \"" + path.substr(0, 502);
        CHECK(command.size() <= 511);
        CHECK(calls.at(5) == "RunShellProgram(\"" + command + "\", 10)");
    }
}

TEST_CASE(
    "an application that cannot be opened is logged, and the setup package is run all the same")
{
    World world;
    world.commandsSucceed = false;
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls.back() == kSetup);
    CHECK(world.TakeLog() == kEnter + kSameUser + kFinderRuns + kDefaultPath +
                                 Mount({"RunShellProgram failed, can't run Orvanta Program"}) +
                                 kSetupDone + kExit);
}

TEST_CASE("a setup package that fails changes nothing for the callback")
{
    World world;
    world.setupSucceeds = false;
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(world.TakeLog() ==
          kEnter + kSameUser + kFinderRuns + kDefaultPath + kOpened + kSetupFailed + kExit);
}

TEST_CASE(
    "DiskMountApproval passes the setup runner's result on, its failure's text ending in a blank")
{
    for (const bool succeeds : {true, false}) {
        CAPTURE(succeeds);
        World world;
        world.setupSucceeds = succeeds;
        CHECK(DiskMountApproval() == (succeeds ? 0 : -1));
        CHECK(calls == Lines{kSetup});
        CHECK(world.TakeLog() == (succeeds ? kSetupDone : kSetupFailed));
    }
}

TEST_CASE("the two users are compared as they were read, to the last byte")
{
    const std::string sixHundred(600, 'u');
    struct {
        const char *what;
        std::optional<std::string> owner;
        std::optional<std::string> console;
        Lines log;  // between the owner's query and the end of the check
        bool passes;
    } const rows[] = {
        {"the same name", "ada\n", "ada\n", {}, true},
        {"the same name, twice without its line feed", "ada", "ada", {}, true},
        {"no line feed at the first", "ada", "ada\n", {}, false},
        {"no line feed at the second", "ada\n", "ada", {}, false},
        {"another name", "root\n", "ada\n", {}, false},
        {"another case", "Ada\n", "ada\n", {}, false},
        {"a blank after one", "ada \n", "ada\n", {}, false},
        {"only the first line counts", "ada\nroot\n", "ada\nbob\n", {}, true},
        {"empty lines", "\n", "\n", {}, true},
        {"only the first 255 characters count", sixHundred + "x\n", sixHundred + "y\n", {}, true},
        {"the 256th does not",
         std::string(255, 'u') + "x\n",
         std::string(255, 'u') + "y\n",
         {},
         true},
        {"the 255th counts",
         std::string(254, 'u') + "x\n",
         std::string(254, 'u') + "y\n",
         {},
         false},
        {"no owner to be read", kNothing, "ada\n", {"fgets pname failed!"}, false},
        {"no console's owner to be read", "ada\n", kNothing, {"fgets active failed!"}, false},
        {"neither to be read",
         kNothing,
         kNothing,
         {"fgets pname failed!", "fgets active failed!"},
         true},
        {"no pipe for the console's owner", "ada\n", kNoPipe, {"fgets active failed!"}, false},
        {"no pipe for the console's owner, and the other unreadable",
         kNothing,
         kNoPipe,
         {"fgets pname failed!", "fgets active failed!"},
         true},
    };
    for (const auto &row : rows) {
        CAPTURE(row.what);
        World world;
        world.owner = row.owner;
        world.console = row.console;
        DiskMountCallback(nullptr, nullptr, nullptr);

        Lines expectedCalls = {kOwnerQuery, "pclose()", kConsoleQuery};
        if (row.console)
            expectedCalls.push_back("pclose()");
        Lines log = kEnter + Mount(row.log);
        if (row.passes) {
            expectedCalls = expectedCalls + Lines{kFinderProbe, kFallback, kSetup};
            log = log + kSameUser + kFinderRuns + kDefaultPath + kOpened + kSetupDone + kExit;
        } else {
            log = log + Mount({"are not same return....."});
        }
        CHECK(calls == expectedCalls);
        CHECK(world.TakeLog() == log);
    }
}

TEST_CASE("a name whose reading fails halfway counts as none")
{
    World world;
    world.owner = "ad";
    world.ownerBreaks = true;
    world.console = kNothing;
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls == Lines{kOwnerQuery, "pclose()", kConsoleQuery, "pclose()", kFinderProbe,
                         kFallback, kSetup});
    CHECK(world.TakeLog() == kEnter + Mount({"fgets pname failed!", "fgets active failed!"}) +
                                 kSameUser + kFinderRuns + kDefaultPath + kOpened + kSetupDone +
                                 kExit);
}

TEST_CASE("without a pipe for its own user the daemon opens nothing")
{
    World world;
    world.owner = kNoPipe;
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls == Lines{kOwnerQuery});
    CHECK(world.TakeLog() == kEnter + Mount({"create pipe failed!"}));
}

TEST_CASE("a process id of 0 skips the check of the users")
{
    World world;
    world.pid = 0;
    world.owner = "root\n";
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls == Lines{kFinderProbe, kFallback, kSetup});
    CHECK(world.TakeLog() == Mount({"DiskMountCallback Enter"}) + kFinderRuns + kDefaultPath +
                                 kOpened + kSetupDone + kExit);
}

TEST_CASE("the process id stands in the owner's command in decimal")
{
    for (const int pid : {1, 99999, 2147483647}) {
        CAPTURE(pid);
        World world;
        world.pid = pid;
        DiskMountCallback(nullptr, nullptr, nullptr);
        const std::string command =
            "ps aux | awk -v PID=" + std::to_string(pid) + " '$2 == PID { print $1 }'";
        CHECK(calls.at(0) == "popen(\"" + command + "\", \"r\")");
        CHECK(world.TakeLog().at(1) == "Kestrun:DiskMountCallback --- " + command);
    }
}

TEST_CASE("a single character of the Finder is enough")
{
    World world;
    world.finder.push_back({true, "F"});
    DiskMountCallback(nullptr, nullptr, nullptr);
    CHECK(calls == Lines{kOwnerQuery, "pclose()", kConsoleQuery, "pclose()", kFinderProbe,
                         kFallback, kSetup});
}

TEST_CASE("the wait for the Finder goes on, five seconds apart, until a probe prints something")
{
    World world;
    const int absent = 40;
    for (int i = 0; i < absent; i++)
        world.finder.push_back({i % 3 == 2, ""});  // every third one succeeds and prints nothing
    world.finder.push_back({false, "a call that failed, whatever it printed"});
    world.finder.push_back({true, std::string(1023, 'F')});
    DiskMountCallback(nullptr, nullptr, nullptr);

    Lines expectedCalls = {kOwnerQuery, "pclose()", kConsoleQuery, "pclose()"};
    Lines log = kEnter + kSameUser;
    for (int i = 0; i <= absent; i++) {
        expectedCalls = expectedCalls + Lines{kFinderProbe, "sleep(5)"};
        log = log + Mount({i % 3 == 2 ? "No fond Finder, not run board app"
                                      : "send cmd failed, not run board app"});
    }
    expectedCalls = expectedCalls + Lines{kFinderProbe, kFallback, kSetup};
    log = log + kFinderRuns + kDefaultPath + kOpened + kSetupDone + kExit;
    CHECK(calls == expectedCalls);
    CHECK(world.TakeLog() == log);
}
