/*
 * IOKitLib.h - the part of IOKit that stands on Linux: the serial ports of the machine as services
 * of the class "IOSerialBSDClient". Names, types and values are the framework's own; what is not
 * declared here is not provided. Serves C and C++.
 */
#ifndef IOKIT_IOKITLIB_H
#define IOKIT_IOKITLIB_H

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int kern_return_t;
typedef unsigned int mach_port_t;
typedef UInt32 IOOptionBits;
typedef kern_return_t IOReturn;
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;

#define MACH_PORT_NULL 0
#define IO_OBJECT_NULL 0

enum {
    KERN_SUCCESS = 0,
    kIOReturnSuccess = KERN_SUCCESS,
    kIOReturnError = -0x1FFFFD44,       /* 0xE00002BC */
    kIOReturnNoMemory = -0x1FFFFD43,    /* 0xE00002BD */
    kIOReturnNoResources = -0x1FFFFD42, /* 0xE00002BE */
    kIOReturnBadArgument = -0x1FFFFD3E  /* 0xE00002C2 */
};

/* The two names of the one port to talk to; a port argument is not looked at. */
extern const mach_port_t kIOMasterPortDefault;
extern const mach_port_t kIOMainPortDefault;

/* A dictionary that matches every service of the class `name`, the caller's; entries may be added.
 * NULL when memory runs out, or for a null name. */
CFMutableDictionaryRef IOServiceMatching(const char *name);

/* Puts into *existing an iterator over the services that match, as they are now; the caller's, to
 * be given back with IOObjectRelease. Takes one reference of `matching` away, whatever comes back.
 * No such service is a success with an iterator over nothing. On a failure (the result is not
 * KERN_SUCCESS) *existing is IO_OBJECT_NULL. */
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                           io_iterator_t *existing);

/* The next service, the caller's; IO_OBJECT_NULL at the end, for what is no iterator, and when
 * memory runs out. */
io_object_t IOIteratorNext(io_iterator_t iterator);

/* The property of a service, the caller's. The one property is "IOCalloutDevice", the full path of
 * the port as a string; for any other key, for what is no service and for a path that is not UTF-8
 * it is NULL. */
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

/* Gives a service or an iterator back; kIOReturnBadArgument for anything else. */
kern_return_t IOObjectRelease(io_object_t object);

#ifdef __cplusplus
}
#endif

#endif
