// What the layer alone says of objects, beside core_foundation_test.cpp, which holds for
// CoreFoundation too: counts of references, constants that survive, small buffers, and the last
// words of a process that passed null.
#include <CoreFoundation/CoreFoundation.h>

#include <doctest/doctest.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static CFMutableDictionaryRef NewDictionary()
{
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

TEST_CASE("references are counted, and a constant survives any release")
{
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, "abc", kCFStringEncodingUTF8);
    CHECK(CFGetRetainCount(string) == 1);
    CHECK(CFRetain(string) == string);
    CHECK(CFGetRetainCount(string) == 2);
    CFRelease(string);
    CHECK(CFGetRetainCount(string) == 1);
    CFRelease(string);

    CFStringRef constant = CFSTR("constant");
    for (int i = 0; i < 1000; i++)
        CFRelease(constant);
    CHECK(CFEqual(constant, CFSTR("constant")));
    CHECK(CFGetRetainCount(constant) == LONG_MAX);
    CFRelease(kCFRunLoopDefaultMode);
    CFRelease(CFRunLoopGetCurrent());
}

TEST_CASE("a buffer of any size gets the text, or an empty one and nothing behind its end")
{
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, "\xC3\xA4", kCFStringEncodingUTF8);
    for (CFStringEncoding encoding : {kCFStringEncodingUTF8, kCFStringEncodingMacRoman}) {
        const CFIndex needed = encoding == kCFStringEncodingUTF8 ? 3 : 2;
        for (CFIndex size = -1; size < 5; size++) {
            CAPTURE(size);
            char buffer[8];
            std::memset(buffer, 0x5A, sizeof buffer);
            CHECK(CFStringGetCString(string, buffer, size, encoding) == (size >= needed));
            if (size > 0 && size < needed)
                CHECK(buffer[0] == '\0');
            for (size_t i = size < 0 ? 0 : static_cast<size_t>(size); i < sizeof buffer; i++)
                CHECK(buffer[i] == 0x5A);
        }
        CHECK(!CFStringGetCString(string, nullptr, 8, encoding));
    }
    CFRelease(string);
}

TEST_CASE("an encoding other than the two is not known")
{
    for (CFStringEncoding encoding : {0x0100U, 0x0201U, 0x0600U})
        CHECK(CFStringCreateWithCString(kCFAllocatorDefault, "abc", encoding) == nullptr);
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
        {[] { CFHash(nullptr); }, "CFHash"},
        {[] { CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8); },
         "CFStringCreateWithCString"},
        {[] { CFStringGetCString(nullptr, nullptr, 0, kCFStringEncodingUTF8); },
         "CFStringGetCString"},
        {[] { CFRunLoopStop(nullptr); }, "CFRunLoopStop"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.function);
        CHECK(LastWords(row.act) == std::string(row.function) + ": called with null\n");
    }
}
