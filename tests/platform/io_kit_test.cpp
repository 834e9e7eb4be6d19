// Serial ports as services.
#include "World.h"

#include <IOKit/IOKitLib.h>

#include <doctest/doctest.h>

#include <cstring>
#include <filesystem>

#include <sys/resource.h>

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

static const char kFolder[] = "/dev/serial/by-id";

static CFMutableDictionaryRef SerialPorts()
{
    CFMutableDictionaryRef matching = IOServiceMatching("IOSerialBSDClient");
    CFDictionarySetValue(matching, CFSTR("IOSerialBSDClientType"), CFSTR("IOSerialStream"));
    return matching;
}

// The callout paths that a query gives, in its order; "<none>" for a service without one.
static Paths Query(CFMutableDictionaryRef matching)
{
    Paths paths;
    io_iterator_t iterator = IO_OBJECT_NULL;
    REQUIRE(IOServiceGetMatchingServices(kIOMasterPortDefault, matching, &iterator) ==
            KERN_SUCCESS);
    CHECK(iterator != IO_OBJECT_NULL);
    for (io_object_t service = IOIteratorNext(iterator); service != IO_OBJECT_NULL;
         service = IOIteratorNext(iterator)) {
        CFStringRef path = static_cast<CFStringRef>(IORegistryEntryCreateCFProperty(
            service, CFSTR("IOCalloutDevice"), kCFAllocatorDefault, 0));
        char text[1024] = "<none>";
        if (path != nullptr) {
            CHECK(CFStringGetCString(path, text, sizeof text, kCFStringEncodingUTF8));
            CFRelease(path);
        }
        paths.emplace_back(text);
        CHECK(IOObjectRelease(service) == KERN_SUCCESS);
    }
    CHECK(IOIteratorNext(iterator) == IO_OBJECT_NULL);
    CHECK(IOObjectRelease(iterator) == KERN_SUCCESS);
    return paths;
}

TEST_CASE("without a folder of ports there is no port, and the query succeeds")
{
    if (!EnterWorld())
        return;
    CHECK(Query(SerialPorts()).empty());
    fs::create_directories(kFolder);
    CHECK(Query(SerialPorts()).empty());
}

TEST_CASE("each entry of the folder is a port with its full path, sorted by name")
{
    if (!EnterWorld())
        return;
    fs::create_directories(kFolder);
    const std::string folder = std::string(kFolder) + "/";
    for (const char *name : {"usb-b-port0", "usb-a-port0", "%s%n", "Z", "\\x41", "zz\xFF",
                             ".#usb-a-port0b8cd1eb03ccd0b0e"})
        fs::create_symlink("/dev/null", folder + name);
    CHECK(Query(SerialPorts()) == Paths{folder + "%s%n", folder + "Z", folder + "\\x41",
                                        folder + "usb-a-port0", folder + "usb-b-port0", "<none>"});
    const std::string longest(255, 'l');
    fs::create_symlink("/dev/null", folder + longest);
    CHECK(Query(SerialPorts())[3] == folder + longest);
}

TEST_CASE("a query sees the ports that were there when it was made")
{
    if (!EnterWorld())
        return;
    fs::create_directories(kFolder);
    fs::create_symlink("/dev/null", std::string(kFolder) + "/a");
    fs::create_symlink("/dev/null", std::string(kFolder) + "/b");
    io_iterator_t iterator = IO_OBJECT_NULL;
    REQUIRE(IOServiceGetMatchingServices(0, SerialPorts(), &iterator) == KERN_SUCCESS);
    fs::remove_all("/dev/serial");
    const io_object_t first = IOIteratorNext(iterator);
    const io_object_t second = IOIteratorNext(iterator);
    CHECK(first != IO_OBJECT_NULL);
    CHECK(second != IO_OBJECT_NULL);
    CHECK(IOIteratorNext(iterator) == IO_OBJECT_NULL);
    IOObjectRelease(first);
    IOObjectRelease(second);
    IOObjectRelease(iterator);
}

TEST_CASE("a query for anything but serial ports gives no service")
{
    if (!EnterWorld())
        return;
    fs::create_directories(kFolder);
    fs::create_symlink("/dev/null", std::string(kFolder) + "/port");
    CHECK(Query(IOServiceMatching("IOSerialBSDClient")).size() == 1);
    CHECK(Query(IOServiceMatching("IOMedia")).empty());
    CHECK(Query(IOServiceMatching("ioserialbsdclient")).empty());
    CFMutableDictionaryRef matching = IOServiceMatching("IOSerialBSDClient");
    CFDictionarySetValue(matching, CFSTR("IOSerialBSDClientType"), CFSTR("IOModemSerialStream"));
    CHECK(Query(matching).empty());
    matching = SerialPorts();
    CFDictionarySetValue(matching, CFSTR("IOTTYBaseName"), CFSTR("port"));
    CHECK(Query(matching).empty());
    CHECK(Query(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                          &kCFTypeDictionaryValueCallBacks))
              .empty());
}

TEST_CASE("ports that cannot be listed make the query fail, a file in their folder's place none")
{
    if (!EnterWorld())
        return;
    rlimit before = {};
    REQUIRE(getrlimit(RLIMIT_NOFILE, &before) == 0);
    const rlimit none = {0, before.rlim_max};
    fs::create_directories(kFolder);
    CFMutableDictionaryRef matching = SerialPorts();
    io_iterator_t iterator = 77;
    setrlimit(RLIMIT_NOFILE, &none);
    const kern_return_t result = IOServiceGetMatchingServices(0, matching, &iterator);
    setrlimit(RLIMIT_NOFILE, &before);
    CHECK(result == kIOReturnNoResources);
    CHECK(iterator == IO_OBJECT_NULL);
    fs::remove(kFolder);
    WriteFile(kFolder, "");
    CHECK(Query(SerialPorts()).empty());
    fs::remove_all("/dev/serial");
    WriteFile("/dev/serial", "");
    CHECK(Query(SerialPorts()).empty());
    fs::remove("/dev/serial");
}

TEST_CASE("a query consumes its dictionary, whatever comes of it")
{
    if (!EnterWorld())
        return;
    CFMutableDictionaryRef matching = SerialPorts();
    CFRetain(matching);
    io_iterator_t iterator = 77;
    CHECK(IOServiceGetMatchingServices(kIOMainPortDefault, matching, &iterator) == KERN_SUCCESS);
    CHECK(CFGetRetainCount(matching) == 1);
    IOObjectRelease(iterator);
    CFRetain(matching);
    CHECK(IOServiceGetMatchingServices(0, matching, nullptr) == kIOReturnBadArgument);
    CHECK(CFGetRetainCount(matching) == 1);
    CFRelease(matching);
    iterator = 77;
    CHECK(IOServiceGetMatchingServices(0, nullptr, &iterator) == kIOReturnBadArgument);
    CHECK(iterator == IO_OBJECT_NULL);
    CHECK(static_cast<unsigned int>(kIOReturnBadArgument) == 0xE00002C2U);
    CHECK(IOServiceMatching(nullptr) == nullptr);
}

TEST_CASE("a handle that was given back, and any other number, is nothing")
{
    if (!EnterWorld())
        return;
    fs::create_directories(kFolder);
    fs::create_symlink("/dev/null", std::string(kFolder) + "/port");
    io_iterator_t iterator = IO_OBJECT_NULL;
    REQUIRE(IOServiceGetMatchingServices(0, SerialPorts(), &iterator) == KERN_SUCCESS);
    const io_object_t service = IOIteratorNext(iterator);
    CHECK(IOIteratorNext(service) == IO_OBJECT_NULL);
    CHECK(IORegistryEntryCreateCFProperty(iterator, CFSTR("IOCalloutDevice"), nullptr, 0) ==
          nullptr);
    CHECK(IORegistryEntryCreateCFProperty(service, CFSTR("IODialinDevice"), nullptr, 0) == nullptr);
    CHECK(IORegistryEntryCreateCFProperty(service, nullptr, nullptr, 0) == nullptr);
    CHECK(IOObjectRelease(service) == KERN_SUCCESS);
    CHECK(IOObjectRelease(service) == kIOReturnBadArgument);
    CHECK(IOObjectRelease(iterator) == KERN_SUCCESS);
    CHECK(IOIteratorNext(iterator) == IO_OBJECT_NULL);
    CHECK(IOObjectRelease(IO_OBJECT_NULL) == kIOReturnBadArgument);
    CHECK(IOObjectRelease(0xFFFFFFFF) == kIOReturnBadArgument);

    // The slot of the iterator is used again, under another number.
    io_iterator_t next = IO_OBJECT_NULL;
    REQUIRE(IOServiceGetMatchingServices(0, SerialPorts(), &next) == KERN_SUCCESS);
    CHECK(next != iterator);
    CHECK(IOObjectRelease(iterator) == kIOReturnBadArgument);
    CHECK(IOObjectRelease(next) == KERN_SUCCESS);
}
