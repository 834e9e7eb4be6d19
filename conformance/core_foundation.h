/*
 * core_foundation.h - put before tests/platform/core_foundation_test.cpp where it is linked with
 * CoreFoundation itself: there a constant string is made by the compiler, and no function makes
 * one.
 */
#ifndef CONFORMANCE_CORE_FOUNDATION_H
#define CONFORMANCE_CORE_FOUNDATION_H

#include <CoreFoundation/CoreFoundation.h>

#undef CFSTR
#define CFSTR(cStr)                                                                                \
    reinterpret_cast<CFStringRef>(__builtin___CFStringMakeConstantString("" cStr ""))

#endif
