// frameworks_stand_in.cpp - the objects of the stand-in, counted, and the functions that note each
// call.
#include "tests/src/frameworks_stand_in.h"

#include <algorithm>
#include <deque>
#include <string.h>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include "src/Kestrun.h"

namespace
{

// Any object of the three frameworks. A handle is its address, or, in the I/O registry, its number.
struct Object {
    std::string name;  // as it is shown in the list of calls
    int references = 1;
    Port port;                      // of a port
    std::deque<Port> list;          // of an iterator: what is still to come
    std::vector<Object *> entries;  // of a dictionary: keys and values in turn
};

std::deque<Object> objects;
std::deque<Object> constants;  // constant strings: they outlive every release and every reset
size_t searches;               // how often the ports were listed
size_t ports;                  // how many ports were handed out

std::string Quoted(const std::string &text)
{
    return '"' + text + '"';
}

bool IsConstant(const Object *object)
{
    for (const Object &constant : constants)
        if (&constant == object)
            return true;
    return false;
}

Object *Make(const std::string &name)
{
    objects.emplace_back().name = name;
    return &objects.back();
}

io_object_t MakeNumbered(const std::string &name)
{
    Make(name);
    return static_cast<io_object_t>(objects.size());
}

// The object of a handle. Every handle that comes in was made here.
template <class Handle>
Object *Get(Handle handle)
{
    return reinterpret_cast<Object *>(const_cast<void *>(static_cast<const void *>(handle)));
}

Object *Numbered(io_object_t number)
{
    return number >= 1 && number <= objects.size() ? &objects[number - 1] : nullptr;
}

std::string Show(const Object *object)
{
    if (object == nullptr)
        return "null";
    std::string text = object->references == 0 ? "WRONG: released " + object->name : object->name;
    if (object->entries.empty())
        return text;
    text += " {";
    for (size_t i = 0; i < object->entries.size(); i += 2)
        text +=
            (i == 0 ? "" : ", ") + Show(object->entries[i]) + ": " + Show(object->entries[i + 1]);
    return text + "}";
}

template <class Handle>
std::string ShowHandle(Handle handle)
{
    return Show(Get(handle));
}

void Release(Object *object)
{
    if (object == nullptr || object->references == 0) {
        Note("WRONG: released once too often");
        return;
    }
    if (IsConstant(object) || --object->references > 0)
        return;
    for (Object *entry : object->entries)
        Release(entry);
}

std::string ShowAllocator(CFAllocatorRef allocator)
{
    return allocator == kCFAllocatorDefault ? "default" : "WRONG: allocator";
}

std::string ShowContext(const void *context)
{
    return context == nullptr ? "null" : "WRONG: context";
}

}  // namespace

Frameworks frameworks;
Lines calls;

void ResetFrameworks()
{
    frameworks = Frameworks();
    calls.clear();
    searches = 0;
    ports = 0;
    objects.clear();
}

void Note(const std::string &call)
{
    calls.push_back(call);
}

Lines LiveObjects()
{
    Lines live;
    for (const Object &object : objects)
        if (object.references > 0)
            live.push_back(Show(&object));
    return live;
}

DADiskRef MakeDisk(const std::string &name)
{
    return reinterpret_cast<DADiskRef>(Make(name));
}

std::string TextOf(CFStringRef string)
{
    return ShowHandle(string);
}

extern "C" {

// ---- CoreFoundation ----

CFStringRef __CFStringMakeConstantString(const char *text)
{
    for (const Object &constant : constants)
        if (constant.name == Quoted(text))
            return reinterpret_cast<CFStringRef>(&constant);
    constants.emplace_back().name = Quoted(text);
    return reinterpret_cast<CFStringRef>(&constants.back());
}

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};
const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks *keys,
                                                 const CFDictionaryValueCallBacks *values)
{
    Note("CFDictionaryCreateMutable(" + ShowAllocator(allocator) + ", " + std::to_string(capacity) +
         ", " + (keys == &kCFTypeDictionaryKeyCallBacks ? "type keys" : "WRONG: keys") + ", " +
         (values == &kCFTypeDictionaryValueCallBacks ? "type values" : "WRONG: values") + ")");
    return frameworks.dictionary ? reinterpret_cast<CFMutableDictionaryRef>(Make("dictionary"))
                                 : nullptr;
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void *key, const void *value)
{
    Note("CFDictionarySetValue(" + ShowHandle(dictionary) + ", " + ShowHandle(key) + ", " +
         ShowHandle(value) + ")");
    if (dictionary == nullptr || key == nullptr || value == nullptr)
        return;
    for (Object *entry : {Get(key), Get(value)}) {
        entry->references++;
        Get(dictionary)->entries.push_back(entry);
    }
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char *text,
                                      CFStringEncoding encoding)
{
    Note("CFStringCreateWithCString(" + ShowAllocator(allocator) + ", " + Quoted(text) + ", " +
         std::to_string(encoding) + ")");
    return frameworks.strings ? reinterpret_cast<CFStringRef>(Make(Quoted(text))) : nullptr;
}

Boolean CFStringGetCString(CFStringRef string, char *buffer, CFIndex capacity,
                           CFStringEncoding encoding)
{
    const Object *object = Get(string);
    Note("CFStringGetCString(" + Show(object) + ", buffer, " + std::to_string(capacity) + ", " +
         std::to_string(encoding) + ")");
    const std::string &text = *object->port.calloutDevice;
    const size_t room = static_cast<size_t>(capacity);
    if (object->port.spoils)
        memset(buffer, '?', room);
    if (!object->port.converts || object->port.spoils || text.size() >= room)
        return false;
    memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

void CFRelease(CFTypeRef object)
{
    Note("CFRelease(" + ShowHandle(object) + ")");
    Release(Get(object));
}

CFRunLoopRef CFRunLoopGetCurrent()
{
    Note("CFRunLoopGetCurrent()");
    static Object loop{.name = "run loop", .port = {}, .list = {}, .entries = {}};
    return reinterpret_cast<CFRunLoopRef>(&loop);
}

void CFRunLoopRun()
{
    Note("CFRunLoopRun()");
    if (frameworks.whileRunning)
        frameworks.whileRunning();
}

// ---- DiskArbitration ----

const CFStringRef kDADiskDescriptionVolumeNameKey = CFSTR("DAVolumeName");

DASessionRef DASessionCreate(CFAllocatorRef allocator)
{
    Note("DASessionCreate(" + ShowAllocator(allocator) + ")");
    return frameworks.session ? reinterpret_cast<DASessionRef>(Make("session")) : nullptr;
}

void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef loop, CFStringRef mode)
{
    Note("DASessionScheduleWithRunLoop(" + ShowHandle(session) + ", " + ShowHandle(loop) + ", " +
         ShowHandle(mode) + ")");
}

void DARegisterDiskPeekCallback(DASessionRef session, CFDictionaryRef match, CFIndex order,
                                DADiskPeekCallback callback, void *context)
{
    Note("DARegisterDiskPeekCallback(" + ShowHandle(session) + ", " + ShowHandle(match) + ", " +
         std::to_string(order) + ", " +
         (callback == DiskPeekCallback ? "DiskPeekCallback" : "WRONG: callback") + ", " +
         ShowContext(context) + ")");
}

DAReturn DADiskSetOptions(DADiskRef disk, DADiskOptions options, Boolean value)
{
    Note("DADiskSetOptions(" + ShowHandle(disk) + ", " + std::to_string(options) + ", " +
         std::to_string(value) + ")");
    return frameworks.setOptionsResult;
}

void DADiskMountWithArguments(DADiskRef disk, CFURLRef path, DADiskMountOptions options,
                              DADiskMountCallback callback, void *context, CFStringRef arguments[])
{
    std::string list;
    for (size_t i = 0; arguments[i] != nullptr; i++)
        list += (i == 0 ? "" : ", ") + ShowHandle(arguments[i]);
    Note("DADiskMountWithArguments(" + ShowHandle(disk) + ", " + ShowContext(path) + ", " +
         std::to_string(options) + ", " +
         (callback == DiskMountCallback ? "DiskMountCallback" : "WRONG: callback") + ", " +
         ShowContext(context) + ", {" + list + "})");
    if (frameworks.refusesMounts)
        callback(disk, nullptr, context);
}

// ---- IOKit ----

CFMutableDictionaryRef IOServiceMatching(const char *name)
{
    Note("IOServiceMatching(" + Quoted(name) + ")");
    return frameworks.matching ? reinterpret_cast<CFMutableDictionaryRef>(Make("matching"))
                               : nullptr;
}

kern_return_t IOServiceGetMatchingServices(mach_port_t port, CFDictionaryRef matching,
                                           io_iterator_t *iterator)
{
    Note("IOServiceGetMatchingServices(" + std::to_string(port) + ", " + ShowHandle(matching) +
         ")");
    if (matching != nullptr)
        Release(Get(matching));  // the query consumes it, whatever its result
    if (frameworks.queryResult != 0)
        return frameworks.queryResult;
    *iterator = MakeNumbered("iterator");
    if (!frameworks.ports.empty()) {
        const auto &list = frameworks.ports[std::min(searches, frameworks.ports.size() - 1)];
        objects.back().list.assign(list.begin(), list.end());
    }
    searches++;
    return 0;
}

io_object_t IOIteratorNext(io_iterator_t iterator)
{
    Object *object = Numbered(iterator);
    Note("IOIteratorNext(" + Show(object) + ")");
    if (object == nullptr || object->list.empty())
        return 0;
    const Port port = object->list.front();
    object->list.pop_front();
    const io_object_t number = MakeNumbered("port " + std::to_string(++ports));
    objects.back().port = port;
    return number;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options)
{
    const Object *object = Numbered(entry);
    Note("IORegistryEntryCreateCFProperty(" + Show(object) + ", " + ShowHandle(key) + ", " +
         ShowAllocator(allocator) + ", " + std::to_string(options) + ")");
    if (!object->port.calloutDevice)
        return nullptr;
    const Port port = object->port;
    Object *property = Make("property of " + Show(object));
    property->port = port;
    return property;
}

kern_return_t IOObjectRelease(io_object_t number)
{
    Note("IOObjectRelease(" + Show(Numbered(number)) + ")");
    Release(Numbered(number));
    return 0;
}

}  // extern "C"
