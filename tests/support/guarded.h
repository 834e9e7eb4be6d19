// Buffers that end where memory ends: the byte behind the last one is on a page that can neither be
// read nor written, so that one step too far ends the test program. Before the buffer stand canary
// bytes, up to the start of its pages.
#ifndef TESTS_SUPPORT_GUARDED_H
#define TESTS_SUPPORT_GUARDED_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

constexpr unsigned char kCanary = 0xC5;

// Memory whose last byte is followed by an unreadable page. Movable by nobody, freed at its end.
struct Guarded {
    explicit Guarded(std::size_t bytes) : size(bytes)
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        room = (size + page - 1) / page * page;
        room = room == 0 ? page : room;
        mapped = room + page;
        void *pages =
            mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            std::abort();
        base = static_cast<unsigned char *>(pages);
        if (mprotect(base + room, page, PROT_NONE) != 0)
            std::abort();
        Fill();
    }
    // Memory that holds just these bytes; a terminator counts when it is among them.
    explicit Guarded(const std::string &bytes) : Guarded(bytes.size())
    {
        std::memcpy(Bytes(), bytes.data(), bytes.size());
    }
    ~Guarded()
    {
        munmap(base, mapped);
    }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    // The size bytes in front of the unreadable page.
    unsigned char *Bytes() const
    {
        return base + room - size;
    }
    char *Text() const
    {
        return reinterpret_cast<char *>(Bytes());
    }
    // What the bytes hold now.
    std::string Held() const
    {
        return {Text(), size};
    }
    // Sets everything that is writable to the canary byte.
    void Fill() const
    {
        std::memset(base, kCanary, room);
    }
    // Whether all that stands before the buffer still is the canary byte.
    bool FrontIntact() const
    {
        for (const unsigned char *byte = base; byte < Bytes(); byte++)
            if (*byte != kCanary)
                return false;
        return true;
    }

    std::size_t size;        // of the buffer itself
    std::size_t room = 0;    // all that is writable
    std::size_t mapped = 0;  // with the unreadable page
    unsigned char *base = nullptr;
};

// A string with its terminator, standing right before an unreadable page.
inline std::string WithTerminator(const std::string &text)
{
    return text + '\0';
}

// count canary bytes, for what a buffer holds where nothing was written.
inline std::string Canaries(std::size_t count)
{
    return std::string(count, static_cast<char>(kCanary));
}

#endif
