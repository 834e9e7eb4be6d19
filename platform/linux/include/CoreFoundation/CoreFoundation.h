/*
 * CoreFoundation.h - the part of CoreFoundation that stands on Linux: strings, dictionaries, retain
 * and release, and the run loop of the one thread. Names, types and values are the framework's own;
 * what is not declared here is not provided. Serves C and C++.
 *
 * Ownership: what a function with Create or Copy in its name gives is the caller's, who gives it
 * back with CFRelease; everything else is borrowed. Where memory runs out, Create and Copy give
 * NULL.
 *
 * "NULL halts" means what it means on macOS: one line on standard error that names the function,
 * and the process ends by SIGABRT.
 */
#ifndef COREFOUNDATION_COREFOUNDATION_H
#define COREFOUNDATION_COREFOUNDATION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp, modernize-*)
// The names are the framework's.

typedef unsigned char Boolean;
typedef int32_t SInt32;
typedef uint32_t UInt32;
typedef long CFIndex;
typedef unsigned long CFHashCode;
typedef double CFTimeInterval;
typedef UInt32 CFStringEncoding;

typedef const void *CFTypeRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFDictionary *CFMutableDictionaryRef;
typedef const struct __CFURL *CFURLRef;
typedef struct __CFRunLoop *CFRunLoopRef;
typedef CFStringRef CFRunLoopMode;

/* ---- Objects of every type ---- */

/* The one allocator: the C library's. An allocator argument is not looked at. */
extern const CFAllocatorRef kCFAllocatorDefault;

/* Takes one more reference of cf and gives cf back. NULL halts. */
CFTypeRef CFRetain(CFTypeRef cf);

/* Gives one reference back; with the last one the object is gone. Constants stay as they are,
 * however often they are released. NULL halts. */
void CFRelease(CFTypeRef cf);

/* The references that are held; for a constant the largest CFIndex. NULL halts. */
CFIndex CFGetRetainCount(CFTypeRef cf);

/* True for the same object, and for two strings of the same characters: no normal form is looked
 * for. NULL on either side halts. */
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

/* Equal objects have equal codes. NULL halts. */
CFHashCode CFHash(CFTypeRef cf);

/* ---- Strings ---- */

enum { kCFStringEncodingMacRoman = 0, kCFStringEncodingUTF8 = 0x08000100 };

/* A constant string of a literal's characters; the same text gives the same object. */
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")

/* What stands behind CFSTR: bytes above 0x7F are Mac OS Roman. The string is never freed. NULL when
 * memory runs out. */
CFStringRef __CFStringMakeConstantString(const char *cStr);

/* A string of the characters that the zero-terminated cStr spells in encoding; a byte order mark in
 * front of UTF-8 is none of them. NULL for bytes that are nothing in the encoding, and for an
 * encoding not named above. A NULL cStr halts. */
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr,
                                      CFStringEncoding encoding);

/* Writes the characters and a zero byte, in encoding, to buffer of bufferSize bytes. False when
 * they do not fit, and when the encoding cannot hold one of them or is not named above: the buffer
 * then holds an empty text (if bufferSize is at least 1), and what was written before the failure
 * stands behind its zero byte. A NULL string halts. */
Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);

/* ---- Dictionaries ---- */

typedef const void *(*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void *value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void *value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void *value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void *value1, const void *value2);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void *value);

typedef struct {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;

typedef struct {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

/* Keys and values that are CoreFoundation objects: retained while they are in the dictionary,
 * compared with CFEqual. */
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

/* An empty dictionary. capacity is a hint; 0 says nothing, a negative one gives NULL. Null call
 * backs: nothing is retained, and pointers are compared. */
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks *keyCallBacks,
                                                 const CFDictionaryValueCallBacks *valueCallBacks);

/* A dictionary of its own with the entries that theDict has now. NULL halts. */
CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict);

/* Adds the entry, or replaces the key and the value of the one with an equal key. When memory runs
 * out nothing is changed. A NULL dictionary halts, and so does a NULL key or value where the call
 * backs are those of CoreFoundation objects. */
void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void *key, const void *value);

/* The value under the key, borrowed from the dictionary; NULL when there is none. A NULL dictionary
 * halts. */
const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key);

/* The number of entries. NULL halts. */
CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);

/* ---- The run loop ---- */

extern const CFRunLoopMode kCFRunLoopDefaultMode;

/* What CFRunLoopRunInMode says about its end. */
typedef SInt32 CFRunLoopRunResult;
enum {
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4
};

/* The run loop of the one thread there is; borrowed, never NULL. */
CFRunLoopRef CFRunLoopGetCurrent(void);

/* Sleeps until something happens, calls what waits for it, and starts over: until CFRunLoopStop, or
 * at once when nothing is scheduled on the loop. */
void CFRunLoopRun(void);

/* The same for the time of `seconds` at most (0: what is ready now); when returnAfterSourceHandled
 * is true it ends after the first call. A mode other than the default one has no sources: it is
 * finished at once. */
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);

/* Makes the innermost run end when the call that is under way returns. NULL halts. */
void CFRunLoopStop(CFRunLoopRef rl);

// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp, modernize-*)

#ifdef __cplusplus
}
#endif

#endif
