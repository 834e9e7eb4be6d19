// Strings, their encodings, dictionaries, and what retains and releases them: a text that holds for
// the layer and for CoreFoundation itself (script/conformance --corefoundation). What the two do
// not share, or what their callers may not rely on, is not asked here.
#include <CoreFoundation/CoreFoundation.h>

#include "mac_roman_table.h"

#include <doctest/doctest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static CFStringRef FromMacRoman(const char *text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingMacRoman);
}

static CFStringRef FromUtf8(const char *text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

// The string's bytes in an encoding; "<false>" when it cannot be converted.
static std::string Bytes(CFStringRef string, CFStringEncoding encoding)
{
    char buffer[256];
    std::memset(buffer, 0x5A, sizeof buffer);
    return CFStringGetCString(string, buffer, sizeof buffer, encoding) ? buffer : "<false>";
}

static std::string MacRomanInUtf8(int byte)
{
    return byte < 0x80 ? std::string(1, static_cast<char>(byte))
                       : kMacRomanTable[byte / 16 - 8][byte % 16];
}

TEST_CASE("every byte of Mac OS Roman becomes its character, and comes back from it")
{
    for (int byte = 1; byte < 256; byte++) {
        CAPTURE(byte);
        const std::string macRoman(1, static_cast<char>(byte));
        CFStringRef read = FromMacRoman(macRoman.c_str());
        REQUIRE(read != nullptr);
        CHECK(Bytes(read, kCFStringEncodingUTF8) == MacRomanInUtf8(byte));
        CHECK(Bytes(read, kCFStringEncodingMacRoman) == macRoman);
        CFStringRef written = FromUtf8(MacRomanInUtf8(byte).c_str());
        REQUIRE(written != nullptr);
        CHECK(CFEqual(read, written));
        CHECK(Bytes(written, kCFStringEncodingMacRoman) == macRoman);
        CFRelease(read);
        CFRelease(written);
    }
}

TEST_CASE("all bytes of Mac OS Roman in one text keep their order")
{
    std::string macRoman;
    std::string utf8;
    for (int byte = 1; byte < 256; byte++) {
        macRoman += static_cast<char>(byte);
        utf8 += MacRomanInUtf8(byte);
    }
    CFStringRef string = FromMacRoman(macRoman.c_str());
    char buffer[1024];
    REQUIRE(CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8));
    CHECK(buffer == utf8);
    REQUIRE(CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingMacRoman));
    CHECK(buffer == macRoman);
    CFRelease(string);
}

// What a buffer of 32 bytes holds after a conversion that fails: an empty text. Behind it a part of
// the text may stand, but nothing behind the size that was said.
static void CheckFailure(CFStringRef string, CFIndex bufferSize, CFStringEncoding encoding)
{
    char buffer[32];
    std::memset(buffer, 0x5A, sizeof buffer);
    CHECK(!CFStringGetCString(string, buffer, bufferSize, encoding));
    if (bufferSize > 0)
        CHECK(buffer[0] == '\0');
    for (size_t i = static_cast<size_t>(bufferSize); i < sizeof buffer; i++)
        CHECK(buffer[i] == 0x5A);
}

TEST_CASE(
    "a character that Mac OS Roman does not have makes the conversion false and the text empty")
{
    for (const char *text : {"\xCE\xB1", "abc\xE2\x98\x83", "\xF0\x9F\x98\x80", "a\xCC\x88",
                             "\xC2\xA4", "\xE2\x84\xA6", "\xC2\x80", "\xEF\xBF\xBD"}) {
        CAPTURE(text);
        CFStringRef string = FromUtf8(text);
        REQUIRE(string != nullptr);
        CheckFailure(string, 16, kCFStringEncodingMacRoman);
        CHECK(Bytes(string, kCFStringEncodingUTF8) == text);
        CFRelease(string);
    }
}

TEST_CASE("bytes that are no UTF-8 make no string")
{
    const char *const texts[] = {
        "\x80",
        "a\xBF",
        "\xC3",
        "\xC3(",
        "\xC0\x80",
        "\xC1\xBF",
        "\xE0\x80\x80",
        "\xE0\x9F\xBF",
        "\xED\xA0\x80",
        "\xED\xBF\xBF",
        "\xE2\x82",
        "\xE2\x28\xA1",
        "\xF0\x80\x80\x80",
        "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80",
        "\xF8\x88\x80\x80\x80",
        "\xFE",
        "\xFF",
        "\xF0\x9F\x98",
    };
    for (const char *text : texts) {
        CAPTURE(text);
        CHECK(FromUtf8(text) == nullptr);
    }
}

TEST_CASE("the first and last characters of each length are UTF-8")
{
    for (const char *text :
         {"", "\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
          "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        CAPTURE(text);
        CFStringRef string = FromUtf8(text);
        REQUIRE(string != nullptr);
        CHECK(Bytes(string, kCFStringEncodingUTF8) == text);
        CFRelease(string);
    }
}

TEST_CASE("an encoding that nobody knows makes no string and no text")
{
    CFStringRef string = FromUtf8("abc");
    for (CFStringEncoding encoding : {1U, 0x08000101U, 0xFFFFFFFFU}) {
        CHECK(CFStringCreateWithCString(kCFAllocatorDefault, "abc", encoding) == nullptr);
        CheckFailure(string, 8, encoding);
    }
    CFRelease(string);
}

TEST_CASE("CFStringGetCString needs room for the text and its zero byte, and writes no more")
{
    struct Row {
        const char *utf8;
        CFStringEncoding encoding;
        CFIndex smallest;  // the least size asked: CoreFoundation is at fault below it
        CFIndex bytes;     // of the text in the encoding
    };
    const Row rows[] = {
        {"", kCFStringEncodingUTF8, 0, 0},
        {"Orvanta", kCFStringEncodingUTF8, 0, 7},
        {"Orvanta", kCFStringEncodingMacRoman, 0, 7},
        {"Orv\xC3\xA4nta", kCFStringEncodingUTF8, 2, 8},
        {"Orv\xC3\xA4nta", kCFStringEncodingMacRoman, 3, 7},
        {"\xE2\x82\xAC", kCFStringEncodingUTF8, 2, 3},
        {"\xE2\x82\xAC", kCFStringEncodingMacRoman, 0, 1},
    };
    for (const Row &row : rows) {
        CFStringRef string = FromUtf8(row.utf8);
        for (CFIndex size = row.smallest; size <= row.bytes + 3; size++) {
            CAPTURE(row.utf8);
            CAPTURE(size);
            if (size <= row.bytes) {
                CheckFailure(string, size, row.encoding);
                continue;
            }
            char buffer[16];
            std::memset(buffer, 0x5A, sizeof buffer);
            CHECK(CFStringGetCString(string, buffer, size, row.encoding));
            CHECK(buffer[row.bytes] == '\0');
            for (size_t i = static_cast<size_t>(row.bytes) + 1; i < sizeof buffer; i++)
                CHECK(buffer[i] == 0x5A);
        }
        CFRelease(string);
    }
}

TEST_CASE("a label in UTF-8 that was read as Mac OS Roman is another text")
{
    CFStringRef utf8 = FromUtf8("Orv\xC3\xA4nta");
    CFStringRef macRoman = FromMacRoman("Orv\xC3\xA4nta");
    CHECK(!CFEqual(utf8, macRoman));
    CHECK(Bytes(macRoman, kCFStringEncodingUTF8) == "Orv\xE2\x88\x9A\xC2\xA7nta");
    CFRelease(utf8);
    CFRelease(macRoman);
    utf8 = FromUtf8("Orvanta");
    macRoman = FromMacRoman("Orvanta");
    CHECK(CFEqual(utf8, macRoman));
    CHECK(CFHash(utf8) == CFHash(macRoman));
    CFRelease(utf8);
    CFRelease(macRoman);
}

TEST_CASE("a byte order mark in front of UTF-8 is no part of the text, behind it is")
{
    for (const char *text : {"", "Orvanta", "Orv\xEF\xBB\xBF", "\xEF\xBB\xBF"}) {
        CAPTURE(text);
        CFStringRef string = FromUtf8((std::string("\xEF\xBB\xBF") + text).c_str());
        CHECK(Bytes(string, kCFStringEncodingUTF8) == text);
        CFRelease(string);
    }
}

TEST_CASE("an object lives as long as somebody holds it")
{
    CFStringRef string = FromUtf8("abc");
    CHECK(CFRetain(string) == string);
    CFRelease(string);
    CHECK(Bytes(string, kCFStringEncodingUTF8) == "abc");
    CFRelease(string);
}

TEST_CASE("a constant string is one object, whatever is read from it")
{
    CFStringRef constant = CFSTR("constant");
    CHECK(Bytes(constant, kCFStringEncodingUTF8) == "constant");
    CHECK(CFSTR("constant") == constant);
    CHECK(CFSTR("constanT") != constant);
    CHECK(CFEqual(kCFRunLoopDefaultMode, CFSTR("kCFRunLoopDefaultMode")));
}

TEST_CASE("objects are equal to themselves, strings to strings of the same characters")
{
    CFStringRef one = FromUtf8("abc");
    CFStringRef same = FromUtf8("abc");
    CFStringRef longer = FromUtf8("abcd");
    CHECK(CFEqual(one, same));
    CHECK(!CFEqual(one, longer));
    CHECK(!CFEqual(one, CFRunLoopGetCurrent()));
    CHECK(CFEqual(CFRunLoopGetCurrent(), CFRunLoopGetCurrent()));
    CHECK(CFHash(CFRunLoopGetCurrent()) == CFHash(CFRunLoopGetCurrent()));
    CFRelease(one);
    CFRelease(same);
    CFRelease(longer);
    CFStringRef composed = FromUtf8("\xC3\xA4");
    CFStringRef decomposed = FromUtf8("a\xCC\x88");
    CHECK(!CFEqual(composed, decomposed));
    CFRelease(composed);
    CFRelease(decomposed);
}

// ---- Dictionaries ----

static CFMutableDictionaryRef NewDictionary()
{
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

// What the dictionary below holds, in the order in which it was retained.
static std::vector<const void *> g_held;

static const void *Hold(CFAllocatorRef /*allocator*/, const void *object)
{
    g_held.push_back(object);
    return CFRetain(object);
}

static void GiveUp(CFAllocatorRef /*allocator*/, const void *object)
{
    for (size_t i = 0; i < g_held.size(); i++) {
        if (g_held[i] != object)
            continue;
        g_held.erase(g_held.begin() + static_cast<std::ptrdiff_t>(i));
        CFRelease(object);
        return;
    }
    FAIL("what is not held cannot be given back");
}

static size_t TimesHeld(const void *object)
{
    size_t times = 0;
    for (const void *held : g_held)
        times += held == object ? 1 : 0;
    return times;
}

static CFMutableDictionaryRef NewWatchedDictionary()
{
    const CFDictionaryKeyCallBacks keys = {0, Hold, GiveUp, nullptr, CFEqual, CFHash};
    const CFDictionaryValueCallBacks values = {0, Hold, GiveUp, nullptr, CFEqual};
    g_held.clear();
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &keys, &values);
}

TEST_CASE("a dictionary holds its keys and values, and gives them back with itself")
{
    CFMutableDictionaryRef dictionary = NewWatchedDictionary();
    CFStringRef key = FromUtf8("key");
    CFStringRef value = FromUtf8("value");
    CFDictionarySetValue(dictionary, key, value);
    CHECK(TimesHeld(key) == 1);
    CHECK(TimesHeld(value) == 1);
    CHECK(CFDictionaryGetCount(dictionary) == 1);
    CHECK(CFDictionaryGetValue(dictionary, CFSTR("key")) == value);
    CHECK(CFDictionaryGetValue(dictionary, CFSTR("other")) == nullptr);
    CHECK(g_held.size() == 2);
    CFDictionaryRef copy = CFDictionaryCreateCopy(kCFAllocatorDefault, dictionary);
    CHECK(TimesHeld(key) == 2);
    CHECK(TimesHeld(value) == 2);
    CFRelease(dictionary);
    CHECK(TimesHeld(key) == 1);
    CHECK(TimesHeld(value) == 1);
    CFRelease(copy);
    CHECK(g_held.empty());
    CFRelease(key);
    CFRelease(value);
}

TEST_CASE("a dictionary of objects alone keeps them alive")
{
    CFMutableDictionaryRef dictionary = NewDictionary();
    CFStringRef key = FromUtf8("a key of some length");
    CFStringRef value = FromUtf8("a value of some length");
    CFDictionarySetValue(dictionary, key, value);
    CFRelease(key);
    CFRelease(value);
    CHECK(Bytes(static_cast<CFStringRef>(
                    CFDictionaryGetValue(dictionary, CFSTR("a key of some length"))),
                kCFStringEncodingUTF8) == "a value of some length");
    CFRelease(dictionary);
}

TEST_CASE("an equal key gets the new value and takes the place of the old one")
{
    CFMutableDictionaryRef dictionary = NewWatchedDictionary();
    CFStringRef key = FromUtf8("key");
    CFStringRef again = FromUtf8("key");
    CFStringRef first = FromUtf8("first");
    CFStringRef second = FromUtf8("second");
    CFDictionarySetValue(dictionary, key, first);
    CFDictionarySetValue(dictionary, again, second);
    CHECK(CFDictionaryGetCount(dictionary) == 1);
    CHECK(CFDictionaryGetValue(dictionary, key) == second);
    CHECK(TimesHeld(key) == 0);
    CHECK(TimesHeld(again) == 1);
    CHECK(TimesHeld(first) == 0);
    CHECK(TimesHeld(second) == 1);
    // What is there already survives being set again.
    CFRelease(again);
    CFRelease(second);
    CFDictionarySetValue(dictionary, again, second);
    CHECK(Bytes(second, kCFStringEncodingUTF8) == "second");
    CHECK(g_held.size() == 2);
    CFRelease(dictionary);
    CHECK(g_held.empty());
    CFRelease(key);
    CFRelease(first);
}

TEST_CASE("a copy of a dictionary does not follow the original")
{
    CFMutableDictionaryRef dictionary = NewDictionary();
    for (const char *text : {"a", "b", "c"}) {
        CFStringRef string = FromUtf8(text);
        CFDictionarySetValue(dictionary, string, string);
        CFRelease(string);
    }
    CFDictionaryRef copy = CFDictionaryCreateCopy(kCFAllocatorDefault, dictionary);
    CHECK(CFEqual(copy, dictionary));
    CHECK(CFHash(copy) == CFHash(dictionary));
    CFDictionarySetValue(dictionary, CFSTR("a"), CFSTR("changed"));
    CHECK(!CFEqual(copy, dictionary));
    CHECK(CFDictionaryGetCount(copy) == 3);
    CHECK(CFEqual(CFDictionaryGetValue(copy, CFSTR("a")), CFSTR("a")));
    CFDictionarySetValue(dictionary, CFSTR("d"), CFSTR("d"));
    CHECK(CFDictionaryGetCount(copy) == 3);
    CHECK(!CFEqual(copy, dictionary));
    CFRelease(dictionary);
    CHECK(CFEqual(CFDictionaryGetValue(copy, CFSTR("c")), CFSTR("c")));
    CFRelease(copy);
}

TEST_CASE("a dictionary without call backs compares pointers and holds nothing")
{
    CFMutableDictionaryRef dictionary =
        CFDictionaryCreateMutable(kCFAllocatorDefault, 4, nullptr, nullptr);
    CFStringRef key = FromUtf8("key");
    CFStringRef same = FromUtf8("key");
    CFDictionarySetValue(dictionary, key, same);
    CHECK(CFDictionaryGetValue(dictionary, key) == same);
    CHECK(CFDictionaryGetValue(dictionary, same) == nullptr);
    CFRelease(key);
    CFRelease(same);
    CFRelease(dictionary);
}

// ---- Null ----

// True if the call ends the process that makes it.
static bool Halts(void (*call)())
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        for (int number : {SIGABRT, SIGBUS, SIGILL, SIGSEGV, SIGTRAP})
            signal(number, SIG_DFL);
        close(STDERR_FILENO);
        call();
        _exit(0);
    }
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    return WIFSIGNALED(status);
}

TEST_CASE("a null where an object must be ends the process")
{
    CHECK(!Halts([] { CFRelease(CFRetain(CFRunLoopGetCurrent())); }));
    CHECK(Halts([] { CFRetain(nullptr); }));
    CHECK(Halts([] { CFRelease(nullptr); }));
    CHECK(Halts([] { CFEqual(nullptr, nullptr); }));
    CHECK(Halts([] { CFEqual(CFSTR("text"), nullptr); }));
    CHECK(Halts([] { CFEqual(nullptr, CFSTR("text")); }));
    CHECK(Halts([] { CFHash(nullptr); }));
    CHECK(Halts([] { CFDictionarySetValue(nullptr, CFSTR("key"), CFSTR("value")); }));
    CHECK(Halts([] { CFDictionaryGetValue(nullptr, CFSTR("key")); }));
    CHECK(Halts([] { CFDictionaryGetCount(nullptr); }));
    CHECK(Halts([] { CFDictionaryCreateCopy(kCFAllocatorDefault, nullptr); }));
    CHECK(Halts([] { CFDictionarySetValue(NewDictionary(), nullptr, CFSTR("value")); }));
    CHECK(Halts([] { CFDictionarySetValue(NewDictionary(), CFSTR("key"), nullptr); }));
    CHECK(Halts([] { FromUtf8(nullptr); }));
    CHECK(Halts([] {
        char buffer[8];
        CFStringGetCString(nullptr, buffer, sizeof buffer, kCFStringEncodingUTF8);
    }));
    CHECK(Halts([] { CFRunLoopStop(nullptr); }));
}
