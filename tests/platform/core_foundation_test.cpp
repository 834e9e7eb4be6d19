// Strings, their encodings, dictionaries, and what retains and releases them.
#include <CoreFoundation/CoreFoundation.h>

#include "mac_roman_table.h"

#include <doctest/doctest.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <string>

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

TEST_CASE(
    "a character that Mac OS Roman does not have ends the text there and makes the conversion false")
{
    for (const std::string text : {"\xCE\xB1", "abc\xE2\x98\x83", "\xF0\x9F\x98\x80", "a\xCC\x88z",
                                   "\xC2\xA4", "\xE2\x84\xA6", "\xC2\x80", "\xEF\xBF\xBD"}) {
        CAPTURE(text);
        const size_t plain = text.find_first_not_of("abcz");
        CFStringRef string = FromUtf8(text.c_str());
        REQUIRE(string != nullptr);
        char buffer[32];
        std::memset(buffer, 0x5A, sizeof buffer);
        CHECK(!CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingMacRoman));
        CHECK(buffer == text.substr(0, plain));
        for (size_t i = plain + 1; i < sizeof buffer; i++)
            CHECK(buffer[i] == 0x5A);
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

TEST_CASE("an encoding other than the two makes no string and no text")
{
    CFStringRef string = FromUtf8("abc");
    for (CFStringEncoding encoding : {1U, 0x0100U, 0x0201U, 0x0600U, 0x08000101U, 0xFFFFFFFFU}) {
        CHECK(CFStringCreateWithCString(kCFAllocatorDefault, "abc", encoding) == nullptr);
        char buffer[8] = "zzzzzzz";
        CHECK(!CFStringGetCString(string, buffer, sizeof buffer, encoding));
        CHECK(std::memcmp(buffer, "\0zzzzzz", sizeof buffer) == 0);
    }
    CFRelease(string);
    CHECK(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8) ==
          nullptr);
}

TEST_CASE("CFStringGetCString writes whole characters as long as they fit, and a zero byte")
{
    struct Row {
        const char *utf8;
        CFStringEncoding encoding;
        CFIndex bytes;  // of the text in the encoding
    };
    const Row rows[] = {
        {"", kCFStringEncodingUTF8, 0},
        {"Orvanta", kCFStringEncodingUTF8, 7},
        {"Orvanta", kCFStringEncodingMacRoman, 7},
        {"Orv\xC3\xA4nta", kCFStringEncodingUTF8, 8},
        {"Orv\xC3\xA4nta", kCFStringEncodingMacRoman, 7},
        {"\xE2\x82\xAC", kCFStringEncodingUTF8, 3},
        {"\xE2\x82\xAC", kCFStringEncodingMacRoman, 1},
    };
    for (const Row &row : rows) {
        CFStringRef string = FromUtf8(row.utf8);
        for (CFIndex size = 0; size <= row.bytes + 3; size++) {
            CAPTURE(row.utf8);
            CAPTURE(size);
            char buffer[16];
            std::memset(buffer, 0x5A, sizeof buffer);
            const bool fits = CFStringGetCString(string, buffer, size, row.encoding);
            CHECK(fits == (size > row.bytes));
            // As many whole characters as leave room for the zero byte.
            std::string whole = Bytes(string, row.encoding);
            while (static_cast<CFIndex>(whole.size()) > (size > 0 ? size - 1 : 0)) {
                while (row.encoding == kCFStringEncodingUTF8 && (whole.back() & 0xC0) == 0x80)
                    whole.pop_back();
                whole.pop_back();
            }
            const CFIndex written = size > 0 ? static_cast<CFIndex>(whole.size()) + 1 : 0;
            if (written > 0)
                CHECK(buffer == whole);
            for (CFIndex i = written; i < static_cast<CFIndex>(sizeof buffer); i++)
                CHECK(buffer[i] == 0x5A);
        }
        CHECK(!CFStringGetCString(string, nullptr, 16, row.encoding));
        char buffer[2] = "z";
        CHECK(!CFStringGetCString(string, buffer, -1, row.encoding));
        CHECK(buffer[0] == 'z');
        CFRelease(string);
    }
    char buffer[2] = "z";
    CHECK(!CFStringGetCString(nullptr, buffer, sizeof buffer, kCFStringEncodingUTF8));
    CHECK(buffer[0] == '\0');
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

TEST_CASE("references are counted, and a constant survives any release")
{
    CFStringRef string = FromUtf8("abc");
    CHECK(CFGetRetainCount(string) == 1);
    CHECK(CFRetain(string) == string);
    CHECK(CFGetRetainCount(string) == 2);
    CFRelease(string);
    CHECK(CFGetRetainCount(string) == 1);
    CHECK(Bytes(string, kCFStringEncodingUTF8) == "abc");
    CFRelease(string);

    CFStringRef constant = CFSTR("constant");
    for (int i = 0; i < 1000; i++)
        CFRelease(constant);
    CHECK(Bytes(constant, kCFStringEncodingUTF8) == "constant");
    CHECK(CFGetRetainCount(constant) == LONG_MAX);
    CHECK(CFSTR("constant") == constant);
    CHECK(CFSTR("constanT") != constant);
    CFRelease(kCFRunLoopDefaultMode);
    CFRelease(CFRunLoopGetCurrent());
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
    CFRelease(one);
    CFRelease(same);
    CFRelease(longer);
}

static CFMutableDictionaryRef NewDictionary()
{
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

TEST_CASE("a dictionary holds its keys and values, and gives them back with itself")
{
    CFMutableDictionaryRef dictionary = NewDictionary();
    CFStringRef key = FromUtf8("key");
    CFStringRef value = FromUtf8("value");
    CFDictionarySetValue(dictionary, key, value);
    CHECK(CFGetRetainCount(key) == 2);
    CHECK(CFGetRetainCount(value) == 2);
    CHECK(CFDictionaryGetCount(dictionary) == 1);
    CHECK(CFDictionaryGetValue(dictionary, CFSTR("key")) == value);
    CHECK(CFGetRetainCount(value) == 2);
    CHECK(CFDictionaryGetValue(dictionary, CFSTR("other")) == nullptr);
    CFRelease(dictionary);
    CHECK(CFGetRetainCount(key) == 1);
    CHECK(CFGetRetainCount(value) == 1);
    CFRelease(key);
    CFRelease(value);
}

TEST_CASE("an equal key takes the place of the first one, with its value")
{
    CFMutableDictionaryRef dictionary = NewDictionary();
    CFStringRef key = FromUtf8("key");
    CFStringRef again = FromUtf8("key");
    CFStringRef first = FromUtf8("first");
    CFStringRef second = FromUtf8("second");
    CFDictionarySetValue(dictionary, key, first);
    CFDictionarySetValue(dictionary, again, second);
    CHECK(CFDictionaryGetCount(dictionary) == 1);
    CHECK(CFDictionaryGetValue(dictionary, key) == second);
    CHECK(CFGetRetainCount(first) == 1);
    CHECK(CFGetRetainCount(key) == 1);
    CHECK(CFGetRetainCount(again) == 2);
    // The value that is there already survives being set again.
    CFRelease(second);
    CFDictionarySetValue(dictionary, key, second);
    CHECK(Bytes(second, kCFStringEncodingUTF8) == "second");
    CHECK(CFGetRetainCount(second) == 1);
    CFRelease(dictionary);
    CFRelease(key);
    CFRelease(again);
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
    CHECK(CFGetRetainCount(key) == 1);
    CHECK(CFDictionaryGetValue(dictionary, key) == same);
    CHECK(CFDictionaryGetValue(dictionary, same) == nullptr);
    CFRelease(dictionary);
    CFRelease(key);
    CFRelease(same);
}

TEST_CASE("a dictionary of less than no room is none")
{
    CHECK(CFDictionaryCreateMutable(kCFAllocatorDefault, -1, nullptr, nullptr) == nullptr);
}

// What a process says on standard error before `act` has ended it by SIGABRT.
static std::string LastWords(void (*act)())
{
    int errors[2];
    REQUIRE(pipe(errors) == 0);
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        signal(SIGABRT, SIG_DFL);
        dup2(errors[1], STDERR_FILENO);
        act();
        _exit(0);
    }
    close(errors[1]);
    std::string words;
    for (char c; read(errors[0], &c, 1) == 1;)
        words += c;
    close(errors[0]);
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFSIGNALED(status));
    CHECK(WTERMSIG(status) == SIGABRT);
    return words;
}

TEST_CASE("null where an object has to be halts the process, with a line that names the function")
{
    struct Row {
        void (*act)();
        const char *function;
    };
    const Row rows[] = {
        {[] { CFRetain(nullptr); }, "CFRetain"},
        {[] { CFRelease(nullptr); }, "CFRelease"},
        {[] { CFGetRetainCount(nullptr); }, "CFGetRetainCount"},
        {[] { CFEqual(nullptr, CFSTR("a")); }, "CFEqual"},
        {[] { CFEqual(CFSTR("a"), nullptr); }, "CFEqual"},
        {[] { CFEqual(nullptr, nullptr); }, "CFEqual"},
        {[] { CFDictionarySetValue(nullptr, CFSTR("a"), CFSTR("b")); }, "CFDictionarySetValue"},
        {[] { CFDictionarySetValue(NewDictionary(), CFSTR("a"), nullptr); }, "CFRetain"},
        {[] { CFDictionarySetValue(NewDictionary(), nullptr, CFSTR("b")); }, "CFRetain"},
        {[] { CFDictionaryGetValue(nullptr, CFSTR("a")); }, "CFDictionaryGetValue"},
        {[] { CFDictionaryGetCount(nullptr); }, "CFDictionaryGetCount"},
        {[] { CFDictionaryCreateCopy(kCFAllocatorDefault, nullptr); }, "CFDictionaryCreateCopy"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.function);
        CHECK(LastWords(row.act) == std::string(row.function) + ": called with null\n");
    }
}
