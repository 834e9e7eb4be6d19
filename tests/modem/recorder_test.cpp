// What a recording makes of looks: whose a mount is, what belongs to one plugging, and in which
// order it is told. All looks are made up: nothing waits and nothing is mounted.
#include <functional>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "modem/hardware.h"
#include "modem/recorder.h"

namespace
{

const char kArrival[] = "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter";
const char kMountEnd[] = "Kestrun:DiskMountCallback --- DiskMountCallback Enter";
const char kActionsEnd[] = "Kestrun:DiskMountCallback --- DiskMountCallback exit";
const char kPlace[] = "/Volumes/Orvanta";
const char kBare[] = "rw,relatime";
const char kDaemons[] = "ro,nosuid,nodev,relatime";

// A system that is recorded: what stands there, and what its log says.
struct System {
    modem::Recorder recorder;
    modem::Sighting sighting;
    modem::LogBook log;

    System()
    {
        sighting.finder = true;
        sighting.daemonUser = "user1";
        sighting.consoleUser = "user1";
    }
};

using Event = std::function<void(System *)>;

void Say(System *system, const std::string &body)
{
    const std::string number = std::to_string(system->log.lines.size() + 1);
    system->log.lines.push_back({"line " + number + "===2026-11-21 9:5:3   " + body, false});
}

// `seconds` after the last one.
void Look(System *system, double seconds = 0.1)
{
    system->sighting.at += seconds;
    modem::Record(&system->recorder, system->sighting, system->log);
}

void Plug(System *system, const std::string &label, const std::string &device)
{
    system->sighting.disks[device] = {label, "identity of " + device, "link to " + device, false};
}

// The recording as it ends, without its beginning.
std::string TextSince(System *system, const std::string &begin)
{
    Look(system);
    Look(system);
    modem::FinishRecording(&system->recorder);
    const std::string &text = system->recorder.text;
    const size_t at = text.find(begin);
    return at == std::string::npos ? "no \"" + begin + "\" in:\n" + text : text.substr(at);
}

// A daemon that came to rest.
System AtRest()
{
    System system;
    system.sighting.daemon = 100;
    Say(&system, "Kestrun:main --- TOOL-BrelmarkV100R001B035");
    Say(&system, "Kestrun:main --- value of disable_cdrom is false");
    system.sighting.idle = true;
    Look(&system);
    Look(&system, 60);
    return system;
}

Event Saying(const std::string &body)
{
    return [body](System *system) { Say(system, body); };
}

Event Mounting(const std::string &place, const std::string &options)
{
    return [=](System *system) { system->sighting.mounts[place] = {options, "at " + place}; };
}

Event Unmounting(const std::string &place)
{
    return [=](System *system) { system->sighting.mounts.erase(place); };
}

void PlugDisk(System *system)
{
    Plug(system, "Orvanta", "/dev/sr0");
}

void PullDisk(System *system)
{
    system->sighting.disks.erase("/dev/sr0");
}

void PlugPort(System *system)
{
    system->sighting.ports.insert(modem::kModemPort);
}

void PullPort(System *system)
{
    system->sighting.ports.erase(modem::kModemPort);
}

// Calls `use` with each nondecreasing list of `count` numbers from `from` to `to`.
void ForEachOrder(size_t count, size_t from, size_t to, std::vector<size_t> *order,
                  const std::function<void(const std::vector<size_t> &)> &use)
{
    if (order->size() == count) {
        use(*order);
        return;
    }
    for (size_t next = from; next <= to; ++next) {
        order->push_back(next);
        ForEachOrder(count, next, to, order, use);
        order->pop_back();
    }
}

// Lets `events` happen, with looks between them: the log is read before the event with the number
// of each first entry, the rest is seen before that of the entry behind it.
std::string RecordEvents(System system, const std::vector<Event> &events,
                         const std::vector<size_t> &looks, const std::string &begin)
{
    modem::LogBook read = system.log;
    size_t look = 0;
    for (size_t happened = 0; happened <= events.size(); ++happened) {
        for (; look < looks.size() && looks[look] == happened; ++look) {
            if (look % 2 == 0) {
                read = system.log;
            } else {
                system.sighting.at += 0.1;
                modem::Record(&system.recorder, system.sighting, read);
            }
        }
        if (happened < events.size())
            events[happened](&system);
    }
    return TextSince(&system, begin);
}

// All ways of looking so many times while these events happen give this text.
void CheckEveryWayOfLooking(const System &system, const std::vector<Event> &events,
                            const std::string &begin, const std::string &text, size_t times = 3)
{
    std::vector<size_t> order;
    size_t ways = 0;
    ForEachOrder(2 * times, 0, events.size(), &order, [&](const std::vector<size_t> &looks) {
        ++ways;
        const std::string recorded = RecordEvents(system, events, looks, begin);
        if (recorded != text) {
            CAPTURE(looks);
            CHECK(recorded == text);
        }
    });
    CHECK(ways >= 28);
}

const char kPlugText[] = "plug disk \"Orvanta\" as disk1\n"
                         "expect log \"Kestrun:DiskPeekCallback --- DiskPeekCallback Enter\"\n"
                         "expect log \"Kestrun:DiskMountCallback --- DiskMountCallback Enter\"\n";
const char kEndText[] = "expect log \"Kestrun:DiskMountCallback --- DiskMountCallback exit\"\n"
                        "wait until idle\n";
const char kMountedText[] = "expect mounted \"/Volumes/Orvanta\" with \"ro,nosuid,nodev\"\n";

}  // namespace

TEST_CASE("a mount is the system's only without the daemon's options and with none under way")
{
    using modem::Owner;
    struct Row {
        const char *options;
        bool underWay;
        Owner owner;
    };
    const Row rows[] = {
        {"ro,nosuid,nodev,relatime", false, Owner::Daemon},
        {"nodev,nosuid", true, Owner::Daemon},
        {"rw,relatime", true, Owner::Unknown},
        {"rw,relatime", false, Owner::System},
        {"nosuid", false, Owner::System},
        {"nosuid", true, Owner::Unknown},
        {"nosuidx,nodevx", false, Owner::System},
        {"", false, Owner::Unknown},
        {"", true, Owner::Unknown},
    };
    for (const Row &row : rows) {
        CAPTURE(row.options);
        CAPTURE(row.underWay);
        CHECK(modem::OwnerOf(row.options, row.underWay) == row.owner);
    }
}

TEST_CASE("however looks fall between the steps of mount, the daemon's mount is the daemon's")
{
    const std::vector<Event> events = {
        PlugDisk,          Saying(kArrival),    Mounting(kPlace, kBare), Mounting(kPlace, kDaemons),
        Saying(kMountEnd), Saying(kActionsEnd),
    };
    CheckEveryWayOfLooking(AtRest(), events, "plug disk",
                           std::string(kPlugText) + kEndText + kMountedText);
}

TEST_CASE(
    "however looks fall, a mount without options in the place of one that went is no stranger's")
{
    System system = AtRest();
    PlugDisk(&system);
    Say(&system, kArrival);
    Mounting(kPlace, kDaemons)(&system);
    Say(&system, kMountEnd);
    Say(&system, kActionsEnd);
    Look(&system);
    Look(&system, 60);
    const std::vector<Event> events = {
        [](System *other) { other->sighting.disks["/dev/sr0"].identity = "another disk"; },
        Unmounting(kPlace),
        Saying(kArrival),
        Mounting(kPlace, kBare),
        Mounting(kPlace, "ro,nosuid,nodev"),
        Saying(kMountEnd),
        Saying(kActionsEnd),
    };
    std::vector<size_t> order;
    ForEachOrder(6, 0, events.size(), &order, [&](const std::vector<size_t> &looks) {
        const std::string recorded = RecordEvents(system, events, looks, "change disk1");
        CHECK(recorded.find("system mounts") == std::string::npos);
        CHECK(recorded.ends_with(std::string(kEndText) + kMountedText));
    });
}

TEST_CASE("however looks fall, a mount that the system makes is told as the system's")
{
    const std::vector<Event> events = {PlugDisk, Mounting(kPlace, kBare)};
    CheckEveryWayOfLooking(AtRest(), events, "plug disk",
                           "plug disk \"Orvanta\" as disk1\nsystem mounts disk1\n");

    SUBCASE("before the daemon starts, too")
    {
        std::vector<Event> atBoot = events;
        atBoot.emplace_back([](System *system) { system->sighting.daemon = 100; });
        atBoot.push_back(Saying("Kestrun:main --- TOOL-BrelmarkV100R001B035"));
        System system;
        Look(&system);
        CheckEveryWayOfLooking(system, atBoot, "plug disk",
                               "plug disk \"Orvanta\" as disk1\n"
                               "system mounts disk1\n"
                               "start daemon\n"
                               "expect log \"Kestrun:main --- TOOL-\"\n");
    }
    SUBCASE("and once the daemon's own mounts have ended, when some were under way")
    {
        std::vector<Event> busy = {PlugDisk, Saying(kArrival)};
        busy.emplace_back([](System *system) { Plug(system, "Photos", "/dev/sr1"); });
        busy.push_back(Mounting("/Volumes/Photos", kBare));
        busy.push_back(Saying(kMountEnd));
        std::vector<size_t> order;
        ForEachOrder(6, 0, busy.size(), &order, [&](const std::vector<size_t> &looks) {
            const std::string recorded = RecordEvents(AtRest(), busy, looks, "plug disk");
            CHECK(recorded.find("system mounts") != std::string::npos);
        });
    }
}

TEST_CASE("a mount that was under way when the daemon was killed is nobody's")
{
    const std::vector<Event> events = {
        PlugDisk,
        Saying(kArrival),
        [](System *system) { system->sighting.daemon = 0; },
        Mounting(kPlace, kBare),
        [](System *system) { system->sighting.daemon = 101; },
        Saying("Kestrun:main --- TOOL-BrelmarkV100R001B035"),
        Saying("Kestrun:main --- value of disable_cdrom is false"),
    };
    std::vector<size_t> order;
    ForEachOrder(6, 0, events.size(), &order, [&](const std::vector<size_t> &looks) {
        const std::string recorded = RecordEvents(AtRest(), events, looks, "start daemon");
        CHECK(recorded.find("system mounts") == std::string::npos);
    });
}

TEST_CASE("a mount whose options nobody can see is nobody's")
{
    System system = AtRest();
    PlugDisk(&system);
    Mounting(kPlace, "")(&system);
    CHECK(TextSince(&system, "plug disk") == "plug disk \"Orvanta\" as disk1\n");
}

TEST_CASE(
    "one plugging of the modem is one statement, in whatever order and looks its parts are seen")
{
    const std::vector<Event> parts = {
        PlugDisk,          Saying(kArrival),    Mounting(kPlace, kBare), Mounting(kPlace, kDaemons),
        Saying(kMountEnd), Saying(kActionsEnd),
    };
    const std::string text = "plug modem\n" +
                             std::string(kPlugText).substr(std::string(kPlugText).find("expect")) +
                             kEndText + kMountedText;
    for (size_t port = 0; port <= parts.size(); ++port) {
        std::vector<Event> events = parts;
        events.insert(events.begin() + static_cast<long>(port), PlugPort);
        CAPTURE(port);
        CheckEveryWayOfLooking(AtRest(), events, "plug modem", text, 2);
    }
}

TEST_CASE(
    "one unplugging of the modem is one statement, in whatever order and looks its parts are seen")
{
    System plugged = AtRest();
    PlugPort(&plugged);
    PlugDisk(&plugged);
    Say(&plugged, kArrival);
    Mounting(kPlace, kDaemons)(&plugged);
    Say(&plugged, kMountEnd);
    Say(&plugged, kActionsEnd);
    Look(&plugged);
    Look(&plugged, 60);
    const std::vector<Event> parts = {PullDisk, Unmounting(kPlace)};
    for (size_t port = 0; port <= parts.size(); ++port) {
        std::vector<Event> events = parts;
        events.insert(events.begin() + static_cast<long>(port), PullPort);
        CAPTURE(port);
        std::vector<size_t> order;
        ForEachOrder(6, 0, events.size(), &order, [&](const std::vector<size_t> &looks) {
            CHECK(RecordEvents(plugged, events, looks, "\nunplug") ==
                  "\nunplug modem\nwait until idle\nexpect not mounted \"/Volumes/Orvanta\"\n");
        });
    }
}

TEST_CASE("what changes while the daemon says nothing is told in one order, however it comes")
{
    const std::vector<Event> changes = {
        [](System *system) { Plug(system, "Zebra", "/dev/sr0"); },
        [](System *system) { Plug(system, "Ant", "/dev/sr1"); },
        [](System *system) { system->sighting.consoleUser = "root"; },
        [](System *system) { system->sighting.config = "[Volumes]\n"; },
        [](System *system) {
            system->sighting.ports = {"b", "a"};
        },
    };
    const std::string text = "config\n  | [Volumes]\nlogout\nplug port \"a\"\nplug port \"b\"\n"
                             "plug disk \"Ant\" as disk1\nplug disk \"Zebra\" as disk2\n";
    std::vector<size_t> order = {0, 1, 2, 3, 4};
    do {
        System together = AtRest();
        System apart = AtRest();
        for (const size_t next : order) {
            changes[next](&together);
            changes[next](&apart);
            Look(&apart, 0.5);
        }
        CHECK(TextSince(&together, "config") == text);
        CHECK(TextSince(&apart, "config") == text);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_CASE("changes that lie far apart are told apart, also when the daemon does not answer them")
{
    struct Row {
        double seconds;
        const char *text;
    };
    const Row rows[] = {
        {2.9, "plug disk \"Ant\" as disk1\nplug disk \"Bee\" as disk2\n"},
        {3.2, "plug disk \"Ant\" as disk1\nwait until idle\nwait 10 s\n\n"
              "plug disk \"Bee\" as disk2\n"},
    };
    for (const Row &row : rows) {
        System system = AtRest();
        Plug(&system, "Ant", "/dev/sr0");
        Look(&system);
        Plug(&system, "Bee", "/dev/sr1");
        Look(&system, row.seconds);
        CHECK(TextSince(&system, "plug") == row.text);
    }
}

TEST_CASE("the halves of the modem belong together as long as the daemon stays quiet")
{
    System quiet = AtRest();
    PlugPort(&quiet);
    Look(&quiet);
    PlugDisk(&quiet);
    Look(&quiet, 100);
    CHECK(TextSince(&quiet, "plug") == "plug modem\n");

    // The start-up pass asks for the port: whether it is there is the point.
    System starting;
    starting.sighting.daemon = 100;
    PlugDisk(&starting);
    Look(&starting);
    Say(&starting, "Kestrun:main --- TOOL-BrelmarkV100R001B035");
    Look(&starting);
    PlugPort(&starting);
    Look(&starting);
    CHECK(TextSince(&starting, "plug") ==
          "plug disk \"Orvanta\" as disk1\nstart daemon\nexpect log \"Kestrun:main --- TOOL-\"\n\n"
          "plug port \"usb-QARVEL_QARVELMobile_QARVELMobile-Pcui-if00-port0\"\n");
}

TEST_CASE(
    "the modem's disk that goes alone takes the port along in the scenario, and the port is told anew")
{
    System system = AtRest();
    PlugPort(&system);
    PlugDisk(&system);
    Look(&system);
    PullDisk(&system);
    Look(&system, 60);
    PlugDisk(&system);
    Look(&system, 60);
    CHECK(TextSince(&system, "plug") == "plug modem\nwait until idle\nwait 10 s\n\n"
                                        "unplug modem\nwait until idle\nwait 10 s\n\nplug modem\n");
}

TEST_CASE("what comes and goes while the daemon stays quiet is not told")
{
    System system = AtRest();
    Plug(&system, "Ant", "/dev/sr0");
    system.sighting.ports.insert("a");
    Look(&system);
    system.sighting.disks.clear();
    system.sighting.ports.clear();
    system.sighting.consoleUser = "root";
    Look(&system);
    CHECK(TextSince(&system, "logout") == "logout\n");
}

TEST_CASE("a link that is made anew is told, beside another change of its disk it is not")
{
    System system = AtRest();
    Plug(&system, "Ant", "/dev/sr0");
    Look(&system);
    system.sighting.disks["/dev/sr0"].link = "anew";
    Look(&system, 60);
    system.sighting.disks["/dev/sr0"].link = "and again";
    system.sighting.disks["/dev/sr0"].identity = "another disk";
    Look(&system, 60);
    CHECK(TextSince(&system, "plug") ==
          "plug disk \"Ant\" as disk1\nwait until idle\nwait 10 s\n\n"
          "touch disk1\nwait until idle\nwait 10 s\n\nchange disk1\n");
}

TEST_CASE("a disk that goes while it is being mounted is held in its mount until it is gone")
{
    System system = AtRest();
    PlugDisk(&system);
    Say(&system, kArrival);
    Look(&system);
    PullDisk(&system);
    Look(&system);
    Say(&system, kMountEnd);
    Look(&system);
    CHECK(TextSince(&system, "mount") ==
          "mount holds\nplug disk \"Orvanta\" as disk1\n"
          "expect log \"Kestrun:DiskPeekCallback --- DiskPeekCallback Enter\"\n\n"
          "unplug disk1\nmount works\n"
          "expect log \"Kestrun:DiskMountCallback --- DiskMountCallback Enter\"\n");
}

TEST_CASE("what the setup runner makes of SysConfig.dat is not told, what others make of it is")
{
    System system = AtRest();
    system.sighting.sysConfig = "SD_THIRD_SETUP=yes\n";
    PlugDisk(&system);
    Say(&system, kArrival);
    Look(&system);
    Say(&system, kMountEnd);
    system.sighting.sysConfig = std::string("SD_THIRD_SETUP=No\0\n", 19);
    Look(&system);
    Say(&system, kActionsEnd);
    Look(&system);
    const std::string first = "sysconfig\n  | SD_THIRD_SETUP=yes\nplug disk";
    SUBCASE("nothing follows")
    {
        CHECK(TextSince(&system, "sysconfig").substr(0, first.size()) == first);
        CHECK(system.recorder.text.find("SETUP=No") == std::string::npos);
    }
    SUBCASE("the request is made anew")
    {
        system.sighting.sysConfig = "SD_THIRD_SETUP=yes\n";
        Look(&system);
        CHECK(TextSince(&system, "sysconfig").substr(0, first.size()) == first);
        CHECK(system.recorder.text.ends_with("\nsysconfig\n  | SD_THIRD_SETUP=yes\n"));
    }
    SUBCASE("another value comes")
    {
        system.sighting.sysConfig = "SD_THIRD_SETUP=maybe\n";
        Look(&system);
        CHECK(TextSince(&system, "sysconfig").substr(0, first.size()) == first);
        CHECK(system.recorder.text.ends_with("\nsysconfig\n  | SD_THIRD_SETUP=maybe\n"));
    }
}

TEST_CASE("only three bytes that become No and a zero byte are the setup runner's doing")
{
    struct Row {
        std::string before;
        std::string now;
        bool told;
    };
    using namespace std::string_literals;
    const Row rows[] = {
        {"a=yes\n"s, "a=No\0\n"s, false},  {"a=  yes\n"s, "a=No\0es\n"s, false},
        {"a=Nox\n"s, "a=No\0\n"s, false},  {"a=N\0\0\n"s, "a=No\0\n"s, false},
        {"a=yes\n"s, "a=No\n"s, true},     {"a=yes\n"s, "a=no\0\n"s, true},
        {"a=yes\nb"s, "a=No\0\nc"s, true}, {"yes"s, "No\0"s, false},
        {"a=yes\n"s, "a=No\0"s, true},     {"ab"s, "No"s, true},
    };
    for (const Row &row : rows) {
        CAPTURE(row.before);
        CAPTURE(row.now);
        System system = AtRest();
        system.sighting.sysConfig = row.before;
        Look(&system);
        system.sighting.sysConfig = row.now;
        Look(&system, 60);
        const std::string text = TextSince(&system, "sysconfig");
        CHECK((text.find("wait 10 s\n\nsysconfig\n") != std::string::npos) == row.told);
    }
}

TEST_CASE("a line that died in the memory of a killed daemon does not hide the next one")
{
    System system = AtRest();
    Say(&system, kArrival);
    system.log.lines.back().unwritten = true;
    Look(&system);
    system.log.lines.pop_back();
    system.sighting.daemon = 0;
    Look(&system);
    system.sighting.daemon = 101;
    Say(&system, "Kestrun:main --- TOOL-BrelmarkV100R001B035");
    Look(&system);
    CHECK(TextSince(&system, "kill") == "kill daemon\nstart daemon\n"
                                        "expect log \"Kestrun:main --- TOOL-\"\n");
}

TEST_CASE("a recording of a daemon that runs already begins with what it says next")
{
    for (const bool foundInMemory : {true, false}) {
        CAPTURE(foundInMemory);
        System system;
        system.recorder.midway = true;
        system.sighting.daemon = 100;
        system.log.lastNumber = 45;
        const std::string last = "line 46===2026-11-21 9:5:3   Kestrun:main --- "
                                 "value of disable_cdrom is false";
        if (foundInMemory)
            system.log.lines.push_back({last, true});
        Look(&system);
        Look(&system);
        if (!foundInMemory)
            system.log.lines.push_back({last, false});
        system.log.lines.push_back(
            {"line 47===2026-11-21 9:5:4   " + std::string(kArrival), false});
        PlugDisk(&system);
        Look(&system);
        CHECK(TextSince(&system, "start") ==
              "start daemon\nwait until idle\n\nplug disk \"Orvanta\" as disk1\n"
              "expect log \"Kestrun:DiskPeekCallback --- DiskPeekCallback Enter\"\n");
    }
}

TEST_CASE("while nothing can be logged, a mount without the daemon's options is nobody's")
{
    for (const bool folder : {true, false}) {
        CAPTURE(folder);
        System system = AtRest();
        system.sighting.logFolder = folder;
        Look(&system);
        PlugDisk(&system);
        Mounting(kPlace, kBare)(&system);
        Look(&system);
        const std::string text = TextSince(&system, "plug disk");
        CHECK((text.find("system mounts disk1") != std::string::npos) == folder);
    }
}

TEST_CASE("a log that cannot be written is told, and what it lacks is not made up")
{
    System system;
    system.sighting.daemonUser.clear();
    system.sighting.consoleUser.clear();
    system.sighting.logDisk = 65536;
    system.sighting.logReadOnly = true;
    Look(&system);
    system.sighting.daemon = 100;
    system.sighting.idle = true;
    Look(&system);
    system.sighting.logReadOnly = false;
    Look(&system, 60);

    // Full: some lines come through, which ones is chance. It waits, for nobody knows what.
    system.sighting.logFull = true;
    PlugDisk(&system);
    Look(&system, 60);
    Say(&system, kArrival);
    Mounting(kPlace, kDaemons)(&system);
    system.sighting.idle = false;
    system.sighting.waits = true;
    Look(&system);
    system.sighting.waits = false;  // between two sleeps
    Look(&system, 60);

    // It came to rest while it was not heard.
    system.sighting.disks.clear();
    system.sighting.mounts.clear();
    system.sighting.idle = true;
    Look(&system);
    system.sighting.logFull = false;
    Look(&system, 60);
    CHECK(
        TextSince(&system, "") ==
        "title \"A recording\"\n"
        "\nlog folder 65536 bytes\nlog folder read-only\nstart daemon\nwait until idle\nwait 10 s\n"
        "\nlog folder writable\nwait until idle\nwait 10 s\n"
        "\nlog folder full\nplug disk \"Orvanta\" as disk1\n"
        "expect mounted \"/Volumes/Orvanta\" with \"ro,nosuid,nodev\"\nwait 10 s\n"
        "\nunplug disk1\nwait until idle\nexpect not mounted \"/Volumes/Orvanta\"\n"
        "\nlog folder has room\n");
}

TEST_CASE("that the Finder is missing is no news when it may have been said unheard")
{
    for (const bool readOnly : {false, true}) {
        CAPTURE(readOnly);
        System system = AtRest();
        system.sighting.idle = false;
        system.sighting.waits = true;
        system.sighting.logReadOnly = readOnly;
        Look(&system, 60);
        system.sighting.logReadOnly = false;
        Look(&system, 60);
        Say(&system, "Kestrun:DiskMountCallback --- send cmd failed, not run board app");
        const std::string text = TextSince(&system, "start daemon");
        CHECK((text.find("send cmd failed") == std::string::npos) == readOnly);
    }
}

TEST_CASE("folders for volumes are told until the daemon runs, then they are its own")
{
    System system;
    system.sighting.folders = {"/Volumes/Left"};
    Look(&system);
    system.sighting.daemon = 100;
    Look(&system);
    Say(&system, "Kestrun:main --- TOOL-BrelmarkV100R001B035");
    Look(&system);
    system.sighting.folders = {"/Volumes/Left", "/Volumes/Orvanta"};
    Look(&system);
    CHECK(TextSince(&system, "make folder") ==
          "make folder \"/Volumes/Left\"\ndaemon user \"user1\"\nlogin \"user1\"\nstart daemon\n"
          "expect log \"Kestrun:main --- TOOL-\"\n");
}

TEST_CASE("a mount that is refused is not held as well")
{
    System system = AtRest();
    for (const char *device : {"/dev/sr0", "/dev/sr1"}) {
        Plug(&system, "Orvanta", device);
        Say(&system, kArrival);
        Look(&system);
        if (std::string(device) == "/dev/sr1")
            break;
        Say(&system, kMountEnd);
        Say(&system, kActionsEnd);
        Look(&system);
    }
    system.sighting.disks.erase("/dev/sr1");
    Look(&system);
    Say(&system, kMountEnd);
    Say(&system, kActionsEnd);
    Look(&system);
    const std::string text = TextSince(&system, "mount refuses");
    CHECK(text.starts_with("mount refuses\nplug disk \"Orvanta\" as disk1\n"));
    CHECK(text.find("mount holds") == std::string::npos);
    CHECK(text.find("mount works") == std::string::npos);
}

TEST_CASE("what can only be told at the beginning, or from the log, is told in its place")
{
    System system;
    system.sighting.logSize = 9999999;
    system.sighting.sysConfig = "x\n";
    system.sighting.logFolder = true;
    system.sighting.finder = false;
    system.sighting.daemonUser = "anna";
    system.sighting.consoleUser = "root";
    system.sighting.disks["/dev/sr0"] = {"Photos", "identity", "link", true};
    Look(&system);
    system.sighting.logSize = 20;
    system.sighting.daemon = 100;
    Look(&system);
    Say(&system,
        "ActiveVolumeProgram:RunSDProgram --- open file [x] failed, RunSDProgram exit false");
    Say(&system, kActionsEnd);
    Look(&system);
    system.sighting.logFolder = false;
    CHECK(TextSince(&system, "fill log") ==
          "fill log 9999999 bytes\nsysconfig\n  | x\nsysconfig read-only\ndaemon user \"user1\"\n"
          "logout\nfinder quits\nplug disk image \"Photos\" as disk1\nstart daemon\n"
          "expect log \"ActiveVolumeProgram:RunSDProgram --- open file [x] failed, "
          "RunSDProgram exit false\"\n"
          "expect log \"Kestrun:DiskMountCallback --- DiskMountCallback exit\"\nwait until idle\n\n"
          "remove folder \"/usr/local/Tarnwell\"\n");
}
