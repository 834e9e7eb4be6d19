// Copies and appends of strings of 1 to 1024 bytes, the terminator included, aligned and not,
// beside the checked functions of libsafec and libbsd and the C library's unchecked ones.
#include "benchmarks/harness.h"
#include "benchmarks/peers/safec.h"
#include "tamrik/tamrik.h"

#include <cstring>

#ifdef HAVE_LIBBSD
#include <bsd/string.h>
#endif

namespace
{

constexpr std::size_t kLargest = 1024;
constexpr std::size_t kSizes[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
constexpr std::size_t kPrefix =
    8;  // characters that stand in a destination before text is appended
constexpr std::size_t kRoom = kLargest + 2 * kPrefix;
alignas(64) char g_dest[kRoom + 64];
alignas(
    64) char g_sources[2][std::size(kSizes)][kLargest + 64];  // aligned and not, a string a size

std::string Result(const char *dest)
{
    return std::string(dest, strnlen(dest, kRoom) + 1);
}

void Clear()
{
    std::memset(g_dest, 'x', sizeof g_dest);
}

void AddStrcpy(char *dest, const char *src, const std::string &name)
{
    Case &work = AddCase({.name = "strcpy/" + name,
                          .prepare = Clear,
                          .result = [=] { return Result(dest); },
                          .expected = Result(src)});
    AddCandidate(work, "libc strcpy", [=] { std::strcpy(Hidden(dest), Hidden(src)); });
    AddCandidate(work, "strcpy_s",
                 [=] { benchmark::DoNotOptimize(strcpy_s(Hidden(dest), kRoom, Hidden(src))); });
    if (const SafecTable *safec = Safec())
        AddCandidate(work, "libsafec", [=, call = safec->strcpy] {
            benchmark::DoNotOptimize(call(Hidden(dest), kRoom, Hidden(src), kSafecUnknown));
        });
#ifdef HAVE_LIBBSD
    AddCandidate(work, "libbsd strlcpy",
                 [=] { benchmark::DoNotOptimize(strlcpy(Hidden(dest), Hidden(src), kRoom)); });
#endif
}

void AddStrncpy(char *dest, const char *src, const std::string &name)
{
    const std::size_t count = kRoom - 1;  // as the daemon passes it: the buffer's size less one
    Case &work = AddCase({.name = "strncpy/" + name,
                          .prepare = Clear,
                          .result = [=] { return Result(dest); },
                          .expected = Result(src)});
    AddCandidate(work, "libc strncpy", [=] {
        std::strncpy(Hidden(dest), Hidden(src), Hidden(count));
        dest[count] = '\0';
    });
    AddCandidate(work, "strncpy_s", [=] {
        benchmark::DoNotOptimize(strncpy_s(Hidden(dest), kRoom, Hidden(src), Hidden(count)));
    });
    if (const SafecTable *safec = Safec())
        AddCandidate(work, "libsafec", [=, call = safec->strncpy] {
            benchmark::DoNotOptimize(call(Hidden(dest), kRoom, Hidden(src), Hidden(count),
                                          kSafecUnknown, kSafecUnknown));
        });
#ifdef HAVE_LIBBSD
    AddCandidate(work, "libbsd strlcpy",
                 [=] { benchmark::DoNotOptimize(strlcpy(Hidden(dest), Hidden(src), kRoom)); });
#endif
}

void AddStrncat(char *dest, const char *src, const std::string &name)
{
    const std::size_t count = kLargest;
    const std::string prefix(kPrefix, 'p');
    // The append's start is set anew by every candidate alike: one byte.
    char *end = dest + kPrefix;
    Case &work = AddCase({.name = "strncat/" + name,
                          .prepare =
                              [=] {
                                  Clear();
                                  std::memset(dest, 'p', kPrefix);
                              },
                          .result = [=] { return Result(dest); },
                          .expected = prefix + Result(src)});
    AddCandidate(work, "libc strncat", [=] {
        *end = '\0';
        std::strncat(Hidden(dest), Hidden(src), Hidden(count));
    });
    AddCandidate(work, "strncat_s", [=] {
        *end = '\0';
        benchmark::DoNotOptimize(strncat_s(Hidden(dest), kRoom, Hidden(src), Hidden(count)));
    });
    if (const SafecTable *safec = Safec())
        AddCandidate(work, "libsafec", [=, call = safec->strncat] {
            *end = '\0';
            benchmark::DoNotOptimize(call(Hidden(dest), kRoom, Hidden(src), Hidden(count),
                                          kSafecUnknown, kSafecUnknown));
        });
#ifdef HAVE_LIBBSD
    AddCandidate(work, "libbsd strlcat", [=] {
        *end = '\0';
        benchmark::DoNotOptimize(strlcat(Hidden(dest), Hidden(src), kRoom));
    });
#endif
}

}  // namespace

void AddStringCases()
{
#ifndef HAVE_LIBBSD
    LeaveOut("libbsd", "libbsd-dev is not installed");
#endif
    for (std::size_t i = 0; i < std::size(kSizes); i++) {
        for (std::size_t shift = 0; shift < 2; shift++) {
            char *src = g_sources[shift][i] + shift * 5;
            for (std::size_t at = 0; at + 1 < kSizes[i]; at++)
                src[at] = static_cast<char>('a' + at % 26);
            char *dest = g_dest + shift * 3;
            const std::string name =
                std::to_string(kSizes[i]) + (shift == 0 ? " aligned" : " unaligned");
            AddStrcpy(dest, src, name);
            AddStrncpy(dest, src, name);
            AddStrncat(dest, src, name);
        }
    }
}
