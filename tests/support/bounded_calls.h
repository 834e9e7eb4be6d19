// Looks at every call of the bounded library that the modules under test make. For programs whose
// target `watch_bounded_calls` was told of: the linker sends the calls here (--wrap).
//
// A size that is not the destination's own does no harm as long as everything fits, so no result
// shows it. What shows is the call: a text always leaves one place for the zero behind it, a fill
// is as large as it says its buffer is, and nothing is copied from nowhere.
#ifndef TESTS_SUPPORT_BOUNDED_CALLS_H
#define TESTS_SUPPORT_BOUNDED_CALLS_H

#include <doctest/doctest.h>

#include <stdarg.h>
#include <stddef.h>
#include <string.h>

#include <string>
#include <vector>

// The sizes of the buffers that were cleared, in order, while it is not null.
inline std::vector<size_t> *g_cleared;

// The size of the log's own buffers, which it clears for every line.
constexpr size_t kLogLineSize = 2048;

// The buffers that `work` has cleared: their sizes in order, but for those of the size `except`.
template <class Work>
std::vector<size_t> ClearedBy(Work work, size_t except = 0)
{
    std::vector<size_t> cleared;
    g_cleared = &cleared;
    work();
    g_cleared = nullptr;
    std::erase(cleared, except);
    return cleared;
}

inline void Expect(bool holds, const char *what, size_t destMax, size_t count)
{
    if (!holds)
        FAIL_CHECK(std::string(what)
                   << ": a destination of " << destMax << " and a count of " << count);
}

extern "C" {

int __real_memset_s(void *dest, size_t destMax, int c, size_t count);
int __real_memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int __real_memmove_s(void *dest, size_t destMax, const void *src, size_t count);
int __real_strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
int __real_strncat_s(char *dest, size_t destMax, const char *src, size_t count);
int __real_vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list list);

[[gnu::used]] inline int __wrap_memset_s(void *dest, size_t destMax, int c, size_t count)
{
    Expect(count == destMax, "memset_s", destMax, count);
    if (g_cleared != nullptr && c == 0)
        g_cleared->push_back(count);
    return __real_memset_s(dest, destMax, c, count);
}

[[gnu::used]] inline int __wrap_memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    Expect(destMax > 0 && count <= destMax && src != nullptr, "memcpy_s", destMax, count);
    return __real_memcpy_s(dest, destMax, src, count);
}

[[gnu::used]] inline int __wrap_memmove_s(void *dest, size_t destMax, const void *src, size_t count)
{
    Expect(count == destMax && src != nullptr, "memmove_s", destMax, count);
    return __real_memmove_s(dest, destMax, src, count);
}

[[gnu::used]] inline int __wrap_strncpy_s(char *dest, size_t destMax, const char *src, size_t count)
{
    Expect(count == destMax - 1 && dest != nullptr && src != nullptr, "strncpy_s", destMax, count);
    return __real_strncpy_s(dest, destMax, src, count);
}

[[gnu::used]] inline int __wrap_strncat_s(char *dest, size_t destMax, const char *src, size_t count)
{
    Expect(count == destMax - 1 - strlen(dest) && src != nullptr, "strncat_s", destMax, count);
    return __real_strncat_s(dest, destMax, src, count);
}

[[gnu::used]] inline int __wrap_vsnprintf_s(char *dest, size_t destMax, size_t count,
                                            const char *format, va_list list)
{
    Expect(count == destMax - 1, "vsnprintf_s", destMax, count);
    return __real_vsnprintf_s(dest, destMax, count, format, list);
}

[[gnu::used]] inline int __wrap_snprintf_s(char *dest, size_t destMax, size_t count,
                                           const char *format, ...)
{
    Expect(count == destMax - 1, "snprintf_s", destMax, count);
    va_list list;
    va_start(list, format);
    const int result = __real_vsnprintf_s(dest, destMax, count, format, list);
    va_end(list);
    return result;
}

}  // extern "C"

#endif
