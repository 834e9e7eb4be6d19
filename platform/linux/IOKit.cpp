// IOKit.cpp - the serial ports of /dev/serial/by-id as services.
//
// A handle is a slot number with the slot's age above it, so a handle that was given back is told
// from the one that took its place. An iterator holds the sorted names of one look into the folder;
// a service holds its path.

#include <IOKit/IOKitLib.h>

#include "Labels.h"
#include "Runtime.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define SERIAL_FOLDER "/dev/serial/by-id"

static constexpr char kProviderClassKey[] = "IOProviderClass";
static constexpr char kSerialClass[] = "IOSerialBSDClient";
static constexpr char kSerialTypeKey[] = "IOSerialBSDClientType";
static constexpr char kSerialType[] = "IOSerialStream";
static constexpr char kCalloutKey[] = "IOCalloutDevice";

const mach_port_t kIOMasterPortDefault = MACH_PORT_NULL;
const mach_port_t kIOMainPortDefault = MACH_PORT_NULL;

// ---- Handles ----

enum class Kind { Free, Iterator, Service };

struct Slot {
    Kind kind;
    unsigned int age;  // counts the uses of the slot
    dirent **names;  // Iterator: the names that are left, from `next` to `count`; each is malloc'ed
    int next;
    int count;
    char *path;  // Service
};

// A handle is (age << kSlotBits) + slot number + 1.
static constexpr unsigned int kSlotBits = 16;
static constexpr unsigned int kMaxSlots = (1U << kSlotBits) - 1;
static constexpr unsigned int kAgeMask = (1U << (32 - kSlotBits)) - 1;

static Slot *g_slots = nullptr;  // all slots, free ones included
static unsigned int g_slotCount = 0;

static Slot *FindSlot(io_object_t object, Kind kind)
{
    const unsigned int number = object & kMaxSlots;
    if (number == 0 || number > g_slotCount)
        return nullptr;
    Slot *slot = &g_slots[number - 1];
    return slot->kind == kind && slot->age == object >> kSlotBits ? slot : nullptr;
}

// The number of a free slot; g_slotCount when there is no more room.
static unsigned int FreeSlot()
{
    for (unsigned int i = 0; i < g_slotCount; i++) {
        if (g_slots[i].kind == Kind::Free)
            return i;
    }
    if (g_slotCount == kMaxSlots)
        return g_slotCount;
    Slot *slots = static_cast<Slot *>(reallocarray(g_slots, g_slotCount + 1, sizeof(Slot)));
    if (slots == nullptr)
        return g_slotCount;
    g_slots = slots;
    g_slots[g_slotCount] = {Kind::Free, 0, nullptr, 0, 0, nullptr};
    return g_slotCount++;
}

// The handle of a new object of `kind`, its slot in *slot; IO_OBJECT_NULL when memory runs out.
static io_object_t NewHandle(Kind kind, Slot **slot)
{
    const unsigned int count = g_slotCount;
    const unsigned int number = FreeSlot();
    if (number == count && g_slotCount == count)
        return IO_OBJECT_NULL;
    *slot = &g_slots[number];
    const unsigned int age = ((*slot)->age + 1) & kAgeMask;
    **slot = {kind, age, nullptr, 0, 0, nullptr};
    return (age << kSlotBits) + number + 1;
}

static void FreeNames(dirent **names, int first, int count)
{
    for (int i = first; i < count; i++)
        free(names[i]);
    free(names);
}

// ---- Matching ----

CFMutableDictionaryRef IOServiceMatching(const char *name)
{
    CFStringRef className = name == nullptr ? nullptr
                                            : CFStringCreateWithCString(kCFAllocatorDefault, name,
                                                                        kCFStringEncodingUTF8);
    CFStringRef key = CreateString(kProviderClassKey);
    CFMutableDictionaryRef matching = nullptr;
    if (className != nullptr && key != nullptr) {
        matching = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                             &kCFTypeDictionaryValueCallBacks);
        if (matching != nullptr)
            CFDictionarySetValue(matching, key, className);
        if (matching != nullptr && CFDictionaryGetCount(matching) == 0) {
            Release(matching);
            matching = nullptr;
        }
    }
    Release(key);
    Release(className);
    return matching;
}

// True if the dictionary's value under `key` is the string `expected`.
static bool HasText(CFDictionaryRef dictionary, const char *key, const char *expected)
{
    CFStringRef keyString = CreateString(key);
    CFStringRef expectedString = CreateString(expected);
    const void *value =
        keyString == nullptr ? nullptr : CFDictionaryGetValue(dictionary, keyString);
    const bool has =
        value != nullptr && expectedString != nullptr && CFEqual(value, expectedString);
    Release(keyString);
    Release(expectedString);
    return has;
}

// A query for serial ports has the class, and the type or no other entry.
static bool IsForSerialPorts(CFDictionaryRef matching)
{
    if (!HasText(matching, kProviderClassKey, kSerialClass))
        return false;
    const CFIndex entries = CFDictionaryGetCount(matching);
    return entries == 1 || (entries == 2 && HasText(matching, kSerialTypeKey, kSerialType));
}

static int IsPortName(const dirent *entry)
{
    return strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0 &&
           !IsTemporaryName(entry->d_name);
}

static int CompareNames(const dirent **left, const dirent **right)
{
    return strcmp((*left)->d_name, (*right)->d_name);
}

// The names of the ports, sorted; their number, 0 when there is no folder, -1 on a failure.
static int ListPorts(dirent ***names)
{
    *names = nullptr;
    const int count = scandir(SERIAL_FOLDER, names, IsPortName, CompareNames);
    if (count < 0 && (errno == ENOENT || errno == ENOTDIR))
        return 0;
    return count;
}

kern_return_t IOServiceGetMatchingServices(mach_port_t /*mainPort*/, CFDictionaryRef matching,
                                           io_iterator_t *existing)
{
    const bool forSerialPorts = matching != nullptr && IsForSerialPorts(matching);
    const bool complete = matching != nullptr && existing != nullptr;
    Release(matching);
    if (existing != nullptr)
        *existing = IO_OBJECT_NULL;
    if (!complete)
        return kIOReturnBadArgument;
    dirent **names = nullptr;
    const int count = forSerialPorts ? ListPorts(&names) : 0;
    if (count < 0)
        return kIOReturnNoResources;
    Slot *slot = nullptr;
    *existing = NewHandle(Kind::Iterator, &slot);
    if (*existing == IO_OBJECT_NULL) {
        FreeNames(names, 0, count);
        return kIOReturnNoMemory;
    }
    slot->names = names;
    slot->count = count;
    return KERN_SUCCESS;
}

// ---- Iterators and services ----

io_object_t IOIteratorNext(io_iterator_t iterator)
{
    Slot *from = FindSlot(iterator, Kind::Iterator);
    if (from == nullptr || from->next == from->count)
        return IO_OBJECT_NULL;
    const char *name = from->names[from->next]->d_name;
    const size_t size = sizeof SERIAL_FOLDER "/" + strlen(name);
    char *path = static_cast<char *>(malloc(size));
    if (path == nullptr)
        return IO_OBJECT_NULL;
    snprintf(path, size, SERIAL_FOLDER "/%s", name);
    Slot *slot = nullptr;
    const io_object_t service = NewHandle(Kind::Service, &slot);
    if (service == IO_OBJECT_NULL) {
        free(path);
        return IO_OBJECT_NULL;
    }
    slot->path = path;
    from = FindSlot(iterator, Kind::Iterator);  // the slots may have moved
    free(from->names[from->next++]);
    return service;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef /*allocator*/, IOOptionBits /*options*/)
{
    const Slot *slot = FindSlot(entry, Kind::Service);
    if (slot == nullptr || key == nullptr || strcmp(StringText(key), kCalloutKey) != 0)
        return nullptr;
    return CreateString(slot->path);
}

kern_return_t IOObjectRelease(io_object_t object)
{
    Slot *slot = FindSlot(object, Kind::Iterator);
    if (slot == nullptr)
        slot = FindSlot(object, Kind::Service);
    if (slot == nullptr)
        return kIOReturnBadArgument;
    FreeNames(slot->names, slot->next, slot->count);
    free(slot->path);
    *slot = {Kind::Free, slot->age, nullptr, 0, 0, nullptr};
    return KERN_SUCCESS;
}
