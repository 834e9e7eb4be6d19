// Counts what the test program takes from the heap. Include it in one source of a program; it takes
// the place of the C library's malloc, calloc and realloc there, or hooks into a sanitizer's.
#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>
#include <cstdlib>

inline unsigned long g_allocations = 0;  // how often memory was taken so far, by any function

#if defined(__SANITIZE_ADDRESS__)

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*taken)(const volatile void *,
                                                                       std::size_t),
                                                         void (*given)(const volatile void *));

inline const int g_allocationHooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, std::size_t) { g_allocations++; }, [](const volatile void *) {});

#elif defined(__GLIBC__)

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);
extern "C" void *__libc_realloc(void *memory, std::size_t size);

extern "C" void *malloc(std::size_t size) noexcept
{
    g_allocations++;
    return __libc_malloc(size);
}

extern "C" void *calloc(std::size_t count, std::size_t size) noexcept
{
    g_allocations++;
    return __libc_calloc(count, size);
}

extern "C" void *realloc(void *memory, std::size_t size) noexcept
{
    g_allocations++;
    return __libc_realloc(memory, size);
}

#else
#error "counting allocations needs the GNU C library or AddressSanitizer"
#endif

// How many allocations work() makes. The count is proved alive by the caller, with one that
// allocates.
template <class Work>
unsigned long AllocationsOf(Work work)
{
    const unsigned long before = g_allocations;
    work();
    return g_allocations - before;
}

#endif
