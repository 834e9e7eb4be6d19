/* headers_in_c.c - a C program with all three headers, linked as C: the layer needs no C++
 * library. */
#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>
#include <IOKit/IOKitLib.h>

#include <string.h>

static void Peek(DADiskRef disk, void *context)
{
    DADiskMountWithArguments(disk, NULL, kDADiskMountOptionDefault, NULL, context, NULL);
}

int main(void)
{
    char text[8];
    io_iterator_t ports = IO_OBJECT_NULL;
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DARegisterDiskPeekCallback(session, NULL, 0, Peek, NULL);
    DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    CFRelease(session);
    if (IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("IOSerialBSDClient"),
                                     &ports) != KERN_SUCCESS ||
        IOObjectRelease(ports) != KERN_SUCCESS)
        return 1;
    if (!CFStringGetCString(CFSTR("abc"), text, sizeof text, kCFStringEncodingMacRoman))
        return 2;
    return strcmp(text, "abc") == 0 ? 0 : 3;
}
