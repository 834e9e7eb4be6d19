// Runtime.h - what the sources of the platform layer share: the head of every object, the text of a
// string, and the sources of the run loop.
#ifndef PLATFORM_LINUX_RUNTIME_H
#define PLATFORM_LINUX_RUNTIME_H

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>
#include <stdint.h>

struct Object;

// One a type of object. A null `equal` compares pointers; `hash` is null with it.
struct ObjectType {
    void (*destroy)(Object *object);  // the last reference is gone: frees what the object owns
    bool (*equal)(const Object *left, const Object *right);  // both are of this type
    CFHashCode (*hash)(const Object *object);
};

// The references of an object that is never freed.
constexpr long kImmortal = -1;

// The first member of every object that a CFTypeRef may point to.
struct Object {
    const ObjectType *type;
    long references;
};

// Zeroed memory of `size` bytes that begins with an Object of `type` and one reference, the
// caller's; null when memory runs out.
void *NewObject(const ObjectType *type, size_t size);

// Gives one reference back; null is left alone.
inline void Release(CFTypeRef cf)
{
    if (cf != nullptr)
        CFRelease(cf);
}

// A string. `text` stands behind the object in the same memory, or is a literal.
struct __CFString {  // NOLINT(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
    Object object;
    size_t length;     // of the text, in bytes, its zero byte not counted
    const char *text;  // UTF-8, zero-terminated
};
extern const ObjectType kStringType;

// The string's characters in UTF-8, zero-terminated, valid as long as the string.
const char *StringText(CFStringRef string);

// A string of UTF-8, the caller's; null for invalid UTF-8 and when memory runs out.
CFStringRef CreateString(const char *utf8);

// True if the dictionary has every entry of `match`, as CFEqual compares; null has none.
bool HasEntriesOf(CFDictionaryRef dictionary, CFDictionaryRef match);

// What the run loop waits for. The memory is the owner's, who adds the source and removes it before
// the memory goes away; `perform` may remove its own source or any other.
struct LoopSource {
    int fd;            // wakes the loop when it can be read; -1 for none
    bool signalled;    // `perform` is due without waiting
    int64_t deadline;  // MonotonicTime at which `perform` is due; 0 for none
    void (*perform)(LoopSource *source);
    void *owner;       // for `perform`; the loop does not look at it
    bool due;          // the loop's: `perform` is about to be called
    LoopSource *next;  // the loop's
};

// Adds a source that is not on the loop. False, and nothing is changed, when memory runs out.
bool RunLoopAddSource(LoopSource *source);

// Takes the source off the loop; nothing happens if it is not on it.
void RunLoopRemoveSource(LoopSource *source);

// One line on standard error: "FUNCTION: " and the text of the format, as printf has it. `function`
// is the framework's name of what was called.
__attribute__((format(printf, 2, 3))) void Complain(const char *function, const char *format, ...);

// Ends the process, with that line: the framework does so where null is passed for an object.
[[noreturn]] void HaltAtNull(const char *function);

// Milliseconds of a clock that is never set back.
int64_t MonotonicTime();

#endif
