// Which functions of the C library the small fills and copies call (none), and what the memory and
// string functions take from the heap (nothing). This program has a memset and a memcpy of its own.
#include "tamrik/tamrik.h"

#include "tests/support/allocations.h"

#include <doctest/doctest.h>

#include <cstring>
#include <initializer_list>

namespace
{

unsigned long g_memsets = 0;  // calls so far
unsigned long g_memcpys = 0;  // calls so far

}  // namespace

extern "C" void *memset(void *dest, int c, std::size_t count)
{
    g_memsets++;
    // Volatile, or the compiler would see the purpose of the loop and call this function.
    volatile unsigned char *byte = static_cast<unsigned char *>(dest);
    while (count-- > 0)
        *byte++ = static_cast<unsigned char>(c);
    return dest;
}

extern "C" void *memcpy(void *dest, const void *src, std::size_t count)
{
    g_memcpys++;
    volatile unsigned char *byte = static_cast<unsigned char *>(dest);
    for (const unsigned char *from = static_cast<const unsigned char *>(src); count-- > 0;)
        *byte++ = *from++;
    return dest;
}

namespace
{

constexpr std::size_t kSize = 128;
alignas(16) unsigned char g_dest[kSize + 16];
alignas(16) unsigned char g_src[kSize + 16];

// How many calls of both kinds work() makes.
template <typename Work>
unsigned long CallsOf(Work work)
{
    const unsigned long before = g_memsets + g_memcpys;
    work();
    return g_memsets + g_memcpys - before;
}

}  // namespace

TEST_CASE("memset_sOptAsm and memset_sOptTc fill up to 32 bytes without a call, more with one")
{
    for (const auto fill : {memset_sOptAsm, memset_sOptTc}) {
        for (std::size_t count = 0; count <= kSize; count++) {
            for (const int c : {0, 255, -1, 42}) {
                for (const std::size_t lead : {0u, 1u, 8u, 15u}) {
                    const unsigned long calls =
                        CallsOf([&] { fill(g_dest + lead, kSize, c, count); });
                    if (calls != (count <= 32 ? 0u : 1u))
                        FAIL_CHECK("count " << count << " c " << c << ": " << calls);
                }
            }
        }
    }
}

TEST_CASE("memcpy_sOptAsm and memcpy_sOptTc copy up to 64 bytes without a call, more with one")
{
    for (const auto copy : {memcpy_sOptAsm, memcpy_sOptTc}) {
        for (std::size_t count = 0; count <= kSize; count++) {
            for (const std::size_t lead : {0u, 1u, 8u, 15u}) {
                const unsigned long calls =
                    CallsOf([&] { copy(g_dest + lead, kSize, g_src + 16 - lead, count); });
                if (calls != (count <= 64 ? 0u : 1u))
                    FAIL_CHECK("count " << count << ": " << calls);
            }
        }
    }
}

TEST_CASE("memset_s and memcpy_s use the system's routine for every size")
{
    for (std::size_t count = 1; count <= kSize; count++) {
        CHECK(CallsOf([&] { memset_s(g_dest, kSize, 42, count); }) == 1);
        CHECK(CallsOf([&] { memcpy_s(g_dest, kSize, g_src, count); }) == 1);
    }
}

TEST_CASE("strcpy_s copies up to 32 bytes without a call, more with one block copy")
{
    char text[kSize] = {};
    char copy[kSize];
    for (std::size_t length = 0; length < kSize - 1; length++) {
        const unsigned long calls = CallsOf([&] { strcpy_s(copy, sizeof copy, text); });
        if (calls != (length + 1 <= 32 ? 0u : 1u))
            FAIL_CHECK("length " << length << ": " << calls);
        text[length] = 'x';
    }
}

TEST_CASE("the memory and string functions take nothing from the heap")
{
    void *(*volatile take)(std::size_t) = std::malloc;  // volatile, or the pair is left out
    REQUIRE(AllocationsOf([&] { std::free(take(100)); }) == 1);
    char text[kSize];
    unsigned short number = 0;
    int results = 0;
    const unsigned long taken = AllocationsOf([&] {
        for (std::size_t count = 0; count <= kSize + 1; count++) {
            for (const auto fill : {memset_s, memset_sOptAsm, memset_sOptTc})
                results += fill(g_dest, kSize, 42, count);
            for (const auto copy : {memcpy_s, memcpy_sOptAsm, memcpy_sOptTc, memmove_s})
                results += copy(g_dest, kSize, g_src, count);
            results += memmove_s(g_dest, kSize, g_dest + 1, count);
            results += memcpy_s(g_dest, kSize, g_dest + 1, count);
            util_memmove(g_dest, g_dest + 3, count % kSize);
            results += strcpy_s(text, sizeof text, "a text to copy and to append");
            results += strncpy_s(text, count, "a text to copy and to append", 10);
            results += strncpy_s(text, sizeof text, "a text to copy and to append", count);
            results += strncat_s(text, sizeof text, "a text to copy and to append", count);
        }
        getQvTamrikVersion(text, static_cast<int>(sizeof text), &number);
    });
    CHECK(taken == 0);
    CHECK(results != 0);
}
