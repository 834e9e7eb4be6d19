// frameworks_stand_in.h - CoreFoundation, DiskArbitration and IOKit for a test: every call is
// written down with its arguments and answered as the test asks.
//
// The functions themselves are those of the frameworks' own headers, so what does not fit their
// signatures does not compile. Objects are counted: what is released too often or used after its
// release stands in the list of calls as a line that begins with "WRONG".
#ifndef TESTS_SRC_FRAMEWORKS_STAND_IN_H
#define TESTS_SRC_FRAMEWORKS_STAND_IN_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <DiskArbitration/DiskArbitration.h>

#include "tests/support/log_capture.h"

// A serial port of the I/O registry, or something else of its class.
struct Port {
    std::optional<std::string> calloutDevice;  // none: it has no such property
    bool converts = true;                      // whether its text can be had in UTF-8
    bool spoils = false;  // a conversion that fails fills the buffer and does not terminate it
};

// What the frameworks answer.
struct Frameworks {
    std::vector<std::vector<Port>> ports;  // a list for each search; the last one serves the rest
    int queryResult = 0;                   // of IOServiceGetMatchingServices
    bool matching = true;                  // false: IOServiceMatching gives null
    bool session = true;                   // false: DASessionCreate gives null
    bool dictionary = true;                // false: CFDictionaryCreateMutable gives null
    bool strings = true;                   // false: CFStringCreateWithCString gives null
    DAReturn setOptionsResult = 0;
    bool refusesMounts = false;          // each mount ends, refused, before its request returns
    std::function<void()> whileRunning;  // what CFRunLoopRun does before it returns
};

extern Frameworks frameworks;
extern Lines calls;  // all that was called, in its order

// Starts anew: no calls, no objects, answers as above.
void ResetFrameworks();

// Writes down a call.
void Note(const std::string &call);

// What was created and not released, in the order of its creation.
Lines LiveObjects();

// A disk with that name, for the callbacks.
DADiskRef MakeDisk(const std::string &name);

// The text of a string object; "null" without one.
std::string TextOf(CFStringRef string);

#endif
