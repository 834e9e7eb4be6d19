// FindCommPort: what it asks of the I/O registry, in which order, what it logs and what it returns.
#include "src/Kestrun.h"
#include "tests/src/kestrun_seams.h"

static constexpr char kPcui[] = "QARVELMobile-Pcui";
static constexpr char kModem[] = "/dev/cu.QARVELMobile-Pcui";
static constexpr char kBluetooth[] = "/dev/cu.Bluetooth-Incoming-Port";

// The log of one search: the paths between the entry and the last message.
static Lines Search(const Lines &paths, const char *end)
{
    Lines records = {"Kestrun:FindCommPort --- FindCommPort Enter"};
    for (const std::string &path : paths)
        records.push_back("Kestrun:FindCommPort --- " + path);
    records.push_back(std::string("Kestrun:FindCommPort --- ") + end);
    return records;
}

static constexpr char kFound[] = "FindCommPort success, and exit";
static constexpr char kNotFound[] = "findCommPort failed, FindCommPort exit";

TEST_CASE("the search asks for serial streams, releases what does not match and keeps what does")
{
    const World world;
    frameworks.ports = {{{kBluetooth}, {std::nullopt}, {kModem}, {"/dev/cu.never-examined"}}};
    CHECK(FindCommPort(kPcui, nullptr, 0) == 0);
    const Lines expected = {
        R"(IOServiceMatching("IOSerialBSDClient"))",
        R"(CFDictionarySetValue(matching, "IOSerialBSDClientType", "IOSerialStream"))",
        R"(IOServiceGetMatchingServices(0, matching {"IOSerialBSDClientType": "IOSerialStream"}))",
        R"(IOIteratorNext(iterator))",
        R"(IORegistryEntryCreateCFProperty(port 1, "IOCalloutDevice", default, 0))",
        R"(CFStringGetCString(property of port 1, buffer, 1024, 134217984))",
        R"(CFRelease(property of port 1))",
        R"(IOObjectRelease(port 1))",
        R"(IOIteratorNext(iterator))",
        R"(IORegistryEntryCreateCFProperty(port 2, "IOCalloutDevice", default, 0))",
        R"(IOObjectRelease(port 2))",
        R"(IOIteratorNext(iterator))",
        R"(IORegistryEntryCreateCFProperty(port 3, "IOCalloutDevice", default, 0))",
        R"(CFStringGetCString(property of port 3, buffer, 1024, 134217984))",
        R"(CFRelease(property of port 3))",
        R"(IOObjectRelease(iterator))",
    };
    CHECK(calls == expected);
    CHECK(LiveObjects() == Lines{"port 3"});
    CHECK(world.TakeLog() == Search({kBluetooth, kModem}, kFound));
}

TEST_CASE("without any serial device the search fails with its two messages")
{
    const World world;
    CHECK(FindCommPort(kPcui, nullptr, 0) == -1);
    const Lines expected = {
        R"(IOServiceMatching("IOSerialBSDClient"))",
        R"(CFDictionarySetValue(matching, "IOSerialBSDClientType", "IOSerialStream"))",
        R"(IOServiceGetMatchingServices(0, matching {"IOSerialBSDClientType": "IOSerialStream"}))",
        R"(IOIteratorNext(iterator))",
        R"(IOObjectRelease(iterator))",
    };
    CHECK(calls == expected);
    CHECK(LiveObjects().empty());
    CHECK(world.TakeLog() == Search({}, kNotFound));
}

TEST_CASE("a search that fails has released every port, every path and the iterator")
{
    const World world;
    frameworks.ports = {{{kBluetooth}, {std::nullopt}, {"/dev/cu.usbserial"}}};
    CHECK(FindCommPort(kPcui, nullptr, 0) == -1);
    CHECK(LiveObjects().empty());
    CHECK(calls.back() == "IOObjectRelease(iterator)");
    CHECK(world.TakeLog() == Search({kBluetooth, "/dev/cu.usbserial"}, kNotFound));
}

TEST_CASE("a null name is refused before anything is asked")
{
    const World world;
    char path[16] = "untouched";
    CHECK(FindCommPort(nullptr, path, sizeof path) == -1);
    CHECK(calls.empty());
    CHECK(std::string(path) == "untouched");
    CHECK(world.TakeLog() == Search({}, "param error."));
}

TEST_CASE("a query that fails ends the search with its message")
{
    for (const int result : {-536870212, 1, -1}) {
        CAPTURE(result);
        const World world;
        frameworks.queryResult = result;
        frameworks.ports = {{{kModem}}};
        CHECK(FindCommPort(kPcui, nullptr, 0) == -1);
        CHECK(calls.size() == 3);
        CHECK(LiveObjects().empty());
        CHECK(world.TakeLog() ==
              Search({}, "IOServiceGetMatchingSerices failed, FindCommPort exit"));
    }
}

TEST_CASE("a dictionary that cannot be made is passed on as it is, without the type")
{
    const World world;
    frameworks.matching = false;
    frameworks.ports = {{{kModem}}};
    CHECK(FindCommPort(kPcui, nullptr, 0) == 0);
    CHECK(calls.at(0) == R"(IOServiceMatching("IOSerialBSDClient"))");
    CHECK(calls.at(1) == "IOServiceGetMatchingServices(0, null)");
    CHECK(world.TakeLog() == Search({kModem}, kFound));
}

TEST_CASE("the name matches anywhere in the path, in its own case only")
{
    struct {
        const char *path;
        const char *name;
        int result;
    } const rows[] = {
        {"/dev/cu.QARVELMobile-Pcui", "QARVELMobile-Pcui", 0},
        {"/dev/cu.xQARVELMobile-Pcui2", "QARVELMobile-Pcui", 0},
        {"QARVELMobile-Pcui", "QARVELMobile-Pcui", 0},
        {"/dev/cu.QARVELMobile-Pcui", "", 0},
        {"/dev/cu.QARVELMobile-Pcui", "qarvelmobile-pcui", -1},
        {"/dev/cu.qarvelmobile-pcui", "QARVELMobile-Pcui", -1},
        {"/dev/cu.QARVELMobile-Pcu", "QARVELMobile-Pcui", -1},
        {"/dev/cu.QARVELMobile-Modem", "QARVELMobile-Pcui", -1},
        {"", "QARVELMobile-Pcui", -1},
    };
    for (const auto &row : rows) {
        CAPTURE(row.path);
        CAPTURE(row.name);
        const World world;
        frameworks.ports = {{{row.path}}};
        CHECK(FindCommPort(row.name, nullptr, 0) == row.result);
        CHECK(world.TakeLog() == Search({row.path}, row.result == 0 ? kFound : kNotFound));
    }
}

TEST_CASE("every path examined is copied to the caller, cut to its buffer and terminated")
{
    const std::string thirty = "/dev/cu.QARVELMobile-Pcui-1234";
    REQUIRE(thirty.size() == 30);
    struct {
        int size;           // that the function is given
        std::string after;  // what the 40 bytes then begin with; the rest is unchanged
    } const rows[] = {
        {40, thirty + '\0'},
        {31, thirty + '\0'},
        {30, thirty.substr(0, 29) + '\0'},
        {16, std::string("/dev/cu.QARVELM") + '\0'},
        {2, std::string("/") + '\0'},
        {1, std::string(1, '\0')},
        {0, ""},
        {-1, ""},
        {-2147483647 - 1, ""},
    };
    for (const auto &row : rows) {
        CAPTURE(row.size);
        const World world;
        frameworks.ports = {{{thirty}}};
        std::string buffer(40, '#');
        CHECK(FindCommPort(kPcui, buffer.data(), row.size) == 0);
        CHECK(buffer == row.after + std::string(40 - row.after.size(), '#'));
    }
}

TEST_CASE("a size without a buffer copies nothing")
{
    const World world;
    frameworks.ports = {{{kModem}}};
    CHECK(FindCommPort(kPcui, nullptr, 100) == 0);
    CHECK(world.TakeLog() == Search({kModem}, kFound));
}

TEST_CASE("after a search that failed the caller holds the last path examined")
{
    const World world;
    frameworks.ports = {{{"/dev/cu.a-long-name"}, {"/dev/cu.b"}, {std::nullopt}}};
    char path[64] = "untouched";
    CHECK(FindCommPort(kPcui, path, sizeof path) == -1);
    CHECK(std::string(path) == "/dev/cu.b");

    frameworks.ports = {{{std::nullopt}}};
    CHECK(FindCommPort(kPcui, path, sizeof path) == -1);
    CHECK(std::string(path) == "/dev/cu.b");
}

TEST_CASE(
    "a path that cannot be converted is logged and copied as the buffer holds it, and never matches")
{
    SUBCASE("the first one: an empty text")
    {
        const World world;
        frameworks.ports = {{{.calloutDevice = kModem, .converts = false}}};
        char path[64] = "untouched";
        CHECK(FindCommPort("", path, sizeof path) == -1);
        CHECK(std::string(path).empty());
        CHECK(LiveObjects().empty());
        CHECK(world.TakeLog() == Search({""}, kNotFound));
    }
    SUBCASE("a later one: the path before it, which was no match and now would be one")
    {
        const World world;
        frameworks.ports = {
            {{kBluetooth}, {.calloutDevice = kModem, .converts = false}, {"/dev/cu.b"}}};
        char path[64] = "";
        CHECK(FindCommPort(kPcui, path, sizeof path) == -1);
        CHECK(std::string(path) == "/dev/cu.b");
        CHECK(world.TakeLog() == Search({kBluetooth, kBluetooth, "/dev/cu.b"}, kNotFound));
    }
    SUBCASE("one that leaves the buffer full and unterminated")
    {
        const World world;
        frameworks.ports = {{{.calloutDevice = kModem, .spoils = true}, {kModem}}};
        char path[2048] = "";
        CHECK(FindCommPort(kPcui, path, sizeof path) == 0);
        CHECK(std::string(path) == kModem);
        CHECK(world.TakeLog() == Search({std::string(1023, '?'), kModem}, kFound));
    }
}

TEST_CASE("long paths overrun nothing: up to 1023 bytes are read whole, longer ones cannot match")
{
    struct {
        size_t length;
        int result;
    } const rows[] = {{511, 0}, {512, 0}, {513, 0}, {1022, 0}, {1023, 0}, {1024, -1}, {5000, -1}};
    for (const auto &row : rows) {
        CAPTURE(row.length);
        const World world;
        std::string path(row.length - 17, 'x');
        path += kPcui;
        frameworks.ports = {{{path}}};
        std::string copy(6000, '#');
        CHECK(FindCommPort(kPcui, copy.data(), static_cast<int>(copy.size())) == row.result);
        const std::string seen = row.result == 0 ? path : "";
        CHECK(copy.substr(0, seen.size() + 1) == seen + '\0');
        CHECK(copy.substr(seen.size() + 1) == std::string(6000 - seen.size() - 1, '#'));
        CHECK(world.TakeLog() == Search({seen}, row.result == 0 ? kFound : kNotFound));
    }
}

TEST_CASE("a path is logged as a format, harmlessly")
{
    struct {
        const char *path;
        const char *logged;
    } const rows[] = {
        {"/dev/cu.%s%n", "/dev/cu.%s%n"},
        {"/dev/cu.%n", ""},  // it is invalid, which empties the message
        {"/dev/cu.%1000000d", "/dev/cu.%1000000d"},
        {"/dev/cu.%*d%*.*f%lS", "/dev/cu.%*d%*.*f%lS"},
        {"/dev/cu.100%%%%x", "/dev/cu.100%x"},  // once as the message, once as the line
    };
    for (const auto &row : rows) {
        CAPTURE(row.path);
        const World world;
        frameworks.ports = {{{row.path}}};
        char path[64] = "";
        CHECK(FindCommPort(kPcui, path, sizeof path) == -1);
        CHECK(std::string(path) == row.path);
        CHECK(world.TakeLog() == Search({row.logged}, kNotFound));
    }
}

TEST_CASE("every search lists the ports afresh")
{
    const World world;
    frameworks.ports = {{}, {{kModem}}, {}};
    CHECK(FindCommPort(kPcui, nullptr, 0) == -1);
    CHECK(FindCommPort(kPcui, nullptr, 0) == 0);
    CHECK(FindCommPort(kPcui, nullptr, 0) == -1);
}
