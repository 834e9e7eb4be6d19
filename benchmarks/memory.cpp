// Fills and copies of 1 to 1024 bytes, aligned and not, beside the C library's own and libsafec's.
#include "benchmarks/harness.h"
#include "benchmarks/peers/bounds.h"
#include "benchmarks/peers/safec.h"
#include "tamrik/tamrik.h"

#include <cstring>

namespace
{

constexpr std::size_t kLargest = 1024;
constexpr std::size_t kSizes[] = {1, 2, 4, 8, 12, 16, 24, 32, 48, 64, 128, 256, 512, 1024};
alignas(64) unsigned char g_dest[kLargest + 64];
alignas(64) unsigned char g_src[kLargest + 64];

void AddFills(std::size_t size, std::size_t lead, const std::string &name)
{
    unsigned char *dest = g_dest + lead;
    Case &fill = AddCase({.name = "memset/" + name,
                          .prepare = [] { std::memset(g_dest, 'x', sizeof g_dest); },
                          .result = [=] { return std::string(dest, dest + size + 1); },
                          .expected = std::string(size, '\0') + 'x'});
    AddCandidate(fill, "libc",
                 [=] { benchmark::DoNotOptimize(std::memset(Hidden(dest), 0, Hidden(size))); });
    AddCandidate(fill, "memset_s", [=] {
        benchmark::DoNotOptimize(memset_s(Hidden(dest), kLargest, 0, Hidden(size)));
    });
    AddCandidate(fill, "memset_sOptAsm", [=] {
        benchmark::DoNotOptimize(memset_sOptAsm(Hidden(dest), kLargest, 0, Hidden(size)));
    });
    AddCandidate(fill, "memset_sOptTc", [=] {
        benchmark::DoNotOptimize(memset_sOptTc(Hidden(dest), kLargest, 0, Hidden(size)));
    });
    AddCandidate(fill, "a call without checks", [=] {
        benchmark::DoNotOptimize(UncheckedFill(Hidden(dest), kLargest, 0, Hidden(size)));
    });
    if (const SafecTable *safec = Safec())
        AddCandidate(fill, "libsafec", [=, call = safec->fill] {
            benchmark::DoNotOptimize(call(Hidden(dest), kLargest, 0, Hidden(size), kSafecUnknown));
        });
}

void AddCopies(std::size_t size, std::size_t destLead, std::size_t srcLead, const std::string &name)
{
    unsigned char *dest = g_dest + destLead;
    const unsigned char *src = g_src + srcLead;
    Case &copy = AddCase({.name = "memcpy/" + name,
                          .prepare = [] { std::memset(g_dest, 'x', sizeof g_dest); },
                          .result = [=] { return std::string(dest, dest + size + 1); },
                          .expected = std::string(src, src + size) + 'x'});
    AddCandidate(copy, "libc", [=] {
        benchmark::DoNotOptimize(std::memcpy(Hidden(dest), Hidden(src), Hidden(size)));
    });
    AddCandidate(copy, "memcpy_s", [=] {
        benchmark::DoNotOptimize(memcpy_s(Hidden(dest), kLargest, Hidden(src), Hidden(size)));
    });
    AddCandidate(copy, "memcpy_sOptAsm", [=] {
        benchmark::DoNotOptimize(memcpy_sOptAsm(Hidden(dest), kLargest, Hidden(src), Hidden(size)));
    });
    AddCandidate(copy, "memcpy_sOptTc", [=] {
        benchmark::DoNotOptimize(memcpy_sOptTc(Hidden(dest), kLargest, Hidden(src), Hidden(size)));
    });
    AddCandidate(copy, "a call without checks", [=] {
        benchmark::DoNotOptimize(UncheckedCopy(Hidden(dest), kLargest, Hidden(src), Hidden(size)));
    });
    if (const SafecTable *safec = Safec())
        AddCandidate(copy, "libsafec", [=, call = safec->copy] {
            benchmark::DoNotOptimize(call(Hidden(dest), kLargest, Hidden(src), Hidden(size),
                                          kSafecUnknown, kSafecUnknown));
        });
}

}  // namespace

void AddMemoryCases()
{
    for (std::size_t i = 0; i < sizeof g_src; i++)
        g_src[i] = static_cast<unsigned char>(i * 31 + 7);
    for (const std::size_t size : kSizes) {
        AddFills(size, 0, std::to_string(size) + " aligned");
        AddFills(size, 3, std::to_string(size) + " unaligned");
        AddCopies(size, 0, 0, std::to_string(size) + " aligned");
        AddCopies(size, 3, 5, std::to_string(size) + " unaligned");
    }
}
