// general_checks.cpp - strings in both encodings, the run loop's sleep, serial ports.
#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>
#include <IOKit/IOKitLib.h>

#include "conformance/Checks.h"
#include "conformance/System.h"

#include <chrono>
#include <ctime>

namespace conformance
{
namespace
{

std::string Converted(const char *text, CFStringEncoding from, CFStringEncoding to, CFIndex size)
{
    char buffer[64];
    CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, text, from);
    if (string == nullptr)
        return "<no string>";
    const bool good = CFStringGetCString(string, buffer, size, to);
    CFRelease(string);
    return good ? buffer : std::string("<false>") + buffer;
}

std::string StringsAreConverted()
{
    constexpr CFStringEncoding roman = kCFStringEncodingMacRoman;
    constexpr CFStringEncoding utf8 = kCFStringEncodingUTF8;
    const std::string seen = Converted("Orv\x8Anta", roman, utf8, 64) + " " +
                             Converted("Orv\xC3\xA4nta", utf8, utf8, 64) + " " +
                             Converted("Orv\xC3\xA4nta", roman, utf8, 64);
    return Difference(seen, "Orv\xC3\xA4nta Orv\xC3\xA4nta Orv\xE2\x88\x9A\xC2\xA7nta");
}

std::string FailuresLeaveAnEmptyText()
{
    const std::string seen =
        Converted("Orvanta", kCFStringEncodingUTF8, kCFStringEncodingUTF8, 7) + " " +
        Converted("\xE2\x98\x83", kCFStringEncodingUTF8, kCFStringEncodingMacRoman, 64) + " " +
        Converted("\xC3(", kCFStringEncodingUTF8, kCFStringEncodingUTF8, 64);
    return Difference(seen, "<false> <false> <no string>");
}

// A session on it as the daemon has one: what a loop without anything does is no matter here.
std::string TheLoopSleeps()
{
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const std::clock_t work = std::clock();
    const CFRunLoopRunResult result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.5, false);
    const double slept = std::chrono::duration<double>(Clock::now() - start).count();
    const double worked = static_cast<double>(std::clock() - work) / CLOCKS_PER_SEC;
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    CFRelease(session);
    if (slept >= 0.45 && worked < 0.2 && result == kCFRunLoopRunTimedOut)
        return "";
    return "ended with " + std::to_string(result) + ", slept " + std::to_string(slept) +
           " s and worked " + std::to_string(worked) + " s";
}

// The callout paths of the services of a class and type; null for no type. Each with a blank
// behind.
std::string Ports(const char *serviceClass, CFStringRef type)
{
    CFMutableDictionaryRef matching = IOServiceMatching(serviceClass);
    if (type != nullptr)
        CFDictionarySetValue(matching, CFSTR("IOSerialBSDClientType"), type);
    io_iterator_t services = 0;
    if (IOServiceGetMatchingServices(0, matching, &services) != KERN_SUCCESS)
        return "<failed>";
    std::string paths;
    for (io_object_t port = IOIteratorNext(services); port != 0; port = IOIteratorNext(services)) {
        char path[1024] = "<no path>";
        CFTypeRef callout =
            IORegistryEntryCreateCFProperty(port, CFSTR("IOCalloutDevice"), kCFAllocatorDefault, 0);
        if (callout != nullptr) {
            (void)CFStringGetCString(static_cast<CFStringRef>(callout), path, sizeof path,
                                     kCFStringEncodingUTF8);
            CFRelease(callout);
        }
        paths += std::string(path) + " ";
        IOObjectRelease(port);
    }
    IOObjectRelease(services);
    return paths;
}

std::string PortsAreFound()
{
    const std::string plugged = PlugPort();
    if (plugged.empty() && Ports("IOSerialBSDClient", nullptr).empty())
        return "SKIP there is no serial port";
    const std::string streams = Ports("IOSerialBSDClient", CFSTR("IOSerialStream"));
    if (!plugged.empty())
        return Difference(streams, plugged + " ");
    const bool arePaths =
        streams.compare(0, 5, "/dev/") == 0 && streams.find('<') == std::string::npos;
    return arePaths ? "" : "seen: " + streams;
}

std::string OtherClassesAndTypesHaveNoPorts()
{
    return Difference(
        Ports("IOSerialBSDClient", CFSTR("NoSuchType")) + Ports("NoSuchClass", nullptr), "");
}

}  // namespace

const std::vector<Check> kGeneralChecks = {
    {"a text is the same in Mac OS Roman and in UTF-8, and UTF-8 read as Mac OS Roman is another",
     StringsAreConverted},
    {"a conversion that fails leaves an empty text, and bytes that are no UTF-8 make no string",
     FailuresLeaveAnEmptyText},
    {"the run loop sleeps while nothing happens", TheLoopSleeps},
    {"a serial port is found by its class and type, and has a callout path", PortsAreFound},
    {"another class or type has no ports", OtherClassesAndTypesHaveNoPorts},
};

}  // namespace conformance
