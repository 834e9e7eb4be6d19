// What the layer does when memory runs out: each allocation in turn fails once, and what was asked
// for is refused, or done at the next look. The calls of the C library go through those here by the
// linker's --wrap.
#include "World.h"

#include "platform/linux/Dissenters.h"
#include "platform/linux/Runtime.h"

#include <IOKit/IOKitLib.h>

#include <doctest/doctest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

static int g_left = 0;             // the allocation that fails, counted from 1; 0: none
static time_t g_secondsAhead = 0;  // the clock is so much ahead

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    now->tv_sec += g_secondsAhead;
    return result;
}

static bool Fails()
{
    if (g_left == 0 || --g_left > 0)
        return false;
    errno = ENOMEM;
    return true;
}

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);
void *__real_reallocarray(void *memory, size_t count, size_t size);
char *__real_strdup(const char *text);

void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *memory, size_t size);
void *__wrap_reallocarray(void *memory, size_t count, size_t size);
char *__wrap_strdup(const char *text);
int __wrap_asprintf(char **text, const char *format, ...);

void *__wrap_malloc(size_t size)
{
    return Fails() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return Fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *memory, size_t size)
{
    return Fails() ? nullptr : __real_realloc(memory, size);
}

void *__wrap_reallocarray(void *memory, size_t count, size_t size)
{
    return Fails() ? nullptr : __real_reallocarray(memory, count, size);
}

char *__wrap_strdup(const char *text)
{
    return Fails() ? nullptr : __real_strdup(text);
}

int __wrap_asprintf(char **text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = Fails() ? -1 : vasprintf(text, format, arguments);
    va_end(arguments);
    return length;
}
}

// Does `act` with each allocation that it makes failing in a run of its own; the number of runs.
static int ForEachAllocation(void (*act)())
{
    for (int number = 1;; number++) {
        CAPTURE(number);
        g_left = number;
        act();
        const bool reached = g_left == 0;
        g_left = 0;
        if (!reached)
            return number - 1;
    }
}

TEST_CASE("strings and dictionaries are made whole or not at all")
{
    const int runs = ForEachAllocation([] {
        CFStringRef key = CFStringCreateWithCString(nullptr, "key", kCFStringEncodingUTF8);
        CFStringRef value = CFStringCreateWithCString(nullptr, "v\x80", kCFStringEncodingMacRoman);
        CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
            nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
        if (key != nullptr && value != nullptr && dictionary != nullptr) {
            CFDictionarySetValue(dictionary, key, value);
            CHECK(CFDictionaryGetCount(dictionary) <= 1);
            CFDictionaryRef copy = CFDictionaryCreateCopy(nullptr, dictionary);
            if (copy != nullptr) {
                CHECK(CFEqual(copy, dictionary));
                CFRelease(copy);
            }
        }
        Release(key);
        Release(value);
        Release(dictionary);
        CFStringRef constant = CFSTR("a constant that is made here");
        CFStringRef again = CFSTR("a constant that is made here");
        CHECK((constant == nullptr || again == nullptr || again == constant));
    });
    CHECK(runs >= 7);
}

TEST_CASE("a query for serial ports fails, or gives all ports or the first of them")
{
    if (!EnterWorld())
        return;
    fs::create_directories("/dev/serial/by-id");
    fs::create_symlink("/dev/null", "/dev/serial/by-id/a");
    fs::create_symlink("/dev/null", "/dev/serial/by-id/b");
    const int runs = ForEachAllocation([] {
        CFMutableDictionaryRef matching = IOServiceMatching("IOSerialBSDClient");
        io_iterator_t iterator = IO_OBJECT_NULL;
        const kern_return_t result = IOServiceGetMatchingServices(0, matching, &iterator);
        CHECK((result == KERN_SUCCESS) == (iterator != IO_OBJECT_NULL));
        if (matching == nullptr)
            CHECK(result == kIOReturnBadArgument);
        int ports = 0;
        for (io_object_t port; (port = IOIteratorNext(iterator)) != IO_OBJECT_NULL; ports++) {
            CFTypeRef path =
                IORegistryEntryCreateCFProperty(port, CFSTR("IOCalloutDevice"), nullptr, 0);
            Release(path);
            CHECK(IOObjectRelease(port) == KERN_SUCCESS);
        }
        CHECK(ports <= 2);
        if (iterator != IO_OBJECT_NULL)
            CHECK(IOObjectRelease(iterator) == KERN_SUCCESS);
    });
    CHECK(runs >= 10);
}

// A session that mounts each disk; null if it was not to be had.
static DASessionRef WatchAll()
{
    DASessionRef session = DASessionCreate(nullptr);
    if (session == nullptr)
        return nullptr;
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    CFMutableDictionaryRef match = CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    if (match != nullptr)
        DARegisterDiskPeekCallback(session, match, 0, RecordAndMount, nullptr);
    Release(match);
    return session;
}

// What comes and goes while one allocation fails: in the end everything is as before.
static void PlugRenamePull()
{
    g_events.clear();
    DASessionRef session = WatchAll();
    const std::string first = NewFolder();
    Plug(".#Orvanta0123456789abcdef", first);
    Settle();
    g_secondsAhead++;
    Settle();
    Plug("Renamed", first);
    fs::remove("/dev/disk/by-label/.#Orvanta0123456789abcdef");
    Settle();
    WriteFile("/disks/plain", "nothing");
    Plug("image", "/disks/plain");
    Settle();
    g_secondsAhead++;
    Settle();
    Unplug("image");
    Unplug("Renamed");
    Settle();
    // What could not be done is done at the next change.
    Plug("wakes", "/nowhere");
    g_secondsAhead++;
    Settle();
    Unplug("wakes");
    Settle();
    if (session != nullptr) {
        DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        CFRelease(session);
        Settle();
    }
    CHECK(g_events.size() % 2 == 0);
}

TEST_CASE(
    "a watch that runs out of memory once leaves no mount for good, no folder and no descriptor")
{
    if (!EnterWorld())
        return;
    UseProgram("blkid", "#!/bin/sh\necho iso9660\n");
    UseProgram("mount", "#!/bin/sh\n[ $1 = -t ] && exit 32\nexec /bin/mount \"$@\"\n");
    Settle();
    static int descriptors;
    descriptors = CountDescriptors();
    const int runs = ForEachAllocation([] {
        PlugRenamePull();
        CHECK(CountDescriptors() == descriptors);
        // What memory ran out for stays until the next process looks: here, the next watch.
        const int left = g_left;
        g_left = 0;
        DASessionRef next = Watch("nothing", RecordPeek);
        Settle();
        Forget(next);
        CHECK(NamesIn("/Volumes").empty());
        CHECK(MountPoints().empty());
        g_left = left;
    });
    CHECK(runs >= 20);
}

TEST_CASE("each error has its status, and a dissenter without memory says so")
{
    CHECK(StatusOfErrno(EBUSY) == kDAReturnBusy);
    CHECK(StatusOfErrno(EINVAL) == kDAReturnBadArgument);
    CHECK(StatusOfErrno(ENOENT) == kDAReturnNotFound);
    CHECK(StatusOfErrno(EPERM) == kDAReturnNotPermitted);
    CHECK(StatusOfErrno(EACCES) == 0xC00D);
    CHECK(StatusOfErrno(EIO) == unix_err(EIO));
    CHECK(StatusOfMount(0) == kDAReturnSuccess);
    CHECK(StatusOfMount(1) == kDAReturnNotPermitted);
    CHECK(StatusOfMount(2) == unix_err(ENOMEM));
    CHECK(StatusOfMount(32) == unix_err(EIO));
    CHECK(StatusOfMount(126) == unix_err(EIO));
    CHECK(StatusOfMount(127) == unix_err(ENOEXEC));
    CHECK(StatusOfMount(128) == unix_err(EINTR));
    CHECK(StatusOfMount(128 + 9) == unix_err(EINTR));
    CHECK(StatusOfMount(-1) == unix_err(EIO));
    CHECK(CreateDissenter(kDAReturnSuccess) == nullptr);
    g_left = 1;
    DADissenterRef dissenter = CreateDissenter(kDAReturnBusy);
    CHECK(DADissenterGetStatus(dissenter) == kDAReturnNoResources);
    CFRelease(dissenter);
    dissenter = CreateDissenter(kDAReturnBusy);
    CHECK(DADissenterGetStatus(dissenter) == kDAReturnBusy);
    CFRelease(dissenter);
}
