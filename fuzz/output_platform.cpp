// Formats made of the parts where the platform's rules and ours agree, with any values: the text,
// the result and what comes after it are those of the platform's snprintf.
#include "fuzz/check.h"
#include "tamrik/tamrik.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

// The bytes of the input, in order; zeros when they are used up.
struct Bytes {
    const std::uint8_t *next;
    std::size_t left;

    unsigned Below(unsigned bound)
    {
        if (left == 0)
            return 0;
        left--;
        return *next++ % bound;
    }
    template <typename Number>
    Number Take()
    {
        Number number = 0;
        const std::size_t length = left < sizeof number ? left : sizeof number;
        std::memcpy(&number, next, length);
        next += length;
        left -= length;
        return number;
    }
    // Up to most characters without a zero; percent signs doubled if wanted.
    std::string Text(unsigned most, bool isFormat)
    {
        std::string text;
        for (unsigned length = Below(most); length > 0 && left > 0; length--) {
            const char ch = static_cast<char>(Take<std::uint8_t>());
            if (ch == '\0')
                continue;
            text += ch;
            if (ch == '%' && isFormat)
                text += ch;
        }
        return text;
    }
};

static std::string Flags(Bytes *bytes, const std::string &allowed)
{
    std::string flags;
    for (unsigned bits = bytes->Below(1U << allowed.size()), i = 0; bits != 0; bits >>= 1, i++) {
        if ((bits & 1) != 0)
            flags += allowed[i];
    }
    return flags;
}

// A width and a precision, each perhaps; a width of 0 would be a flag.
static std::string Numbers(Bytes *bytes)
{
    const unsigned width = bytes->Below(200);
    const unsigned precision = bytes->Below(120);
    std::string text = width < 100 && width > 0 ? std::to_string(width) : "";
    if (precision < 60)
        text += "." + (precision == 59 ? "" : std::to_string(precision * (precision > 50 ? 7 : 1)));
    return text;
}

template <typename Value>
static void Compare(const std::string &format, std::size_t room, bool isCut, Value value)
{
    static char platform[16384];
    const int length = std::snprintf(platform, sizeof platform, format.c_str(), value);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof platform)
        return;
    const auto whole = static_cast<std::size_t>(length);
    const auto dest = std::make_unique<char[]>(room);
    std::memset(dest.get(), 'c', room);
    const int result = snprintf_s(dest.get(), room, isCut ? room - 1 : room, format.c_str(), value);
    if (whole < room) {
        FUZZ_CHECK(result == length);
        FUZZ_CHECK(std::memcmp(dest.get(), platform, whole + 1) == 0);
        for (std::size_t i = whole + 1; i + 1 < room; i++)
            FUZZ_CHECK(dest[i] == 'c');
        return;
    }
    FUZZ_CHECK(result == -1);
    FUZZ_CHECK(isCut ? std::memcmp(dest.get(), platform, room - 1) == 0 && dest[room - 1] == '\0'
                     : dest[0] == '\0');
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const char *const kShort[] = {"", "h", "hh"};
    static const char *const kLong[] = {"l", "ll", "j", "z", "t"};
    Bytes bytes = {data, size};
    const std::size_t room = 1 + bytes.Take<std::uint16_t>() % 1024;
    const bool isCut = bytes.Below(2) == 0;
    const std::string before = bytes.Text(12, true) + "%";
    switch (bytes.Below(4)) {
    case 0: {
        const std::string flags = Flags(&bytes, "-+ 0") + Numbers(&bytes);
        Compare(before + flags + kShort[bytes.Below(3)] + "di"[bytes.Below(2)] + "|", room, isCut,
                bytes.Take<int>());
        break;
    }
    case 1: {
        const char type = "uoxX"[bytes.Below(4)];
        const std::string flags = Flags(&bytes, type == 'u' ? "-0" : "-0#") + Numbers(&bytes);
        Compare(before + flags + kLong[bytes.Below(5)] + type + "|", room, isCut,
                bytes.Take<unsigned long>());
        break;
    }
    case 2: {
        const std::string flags = Flags(&bytes, "-+ 0#") + Numbers(&bytes);
        Compare(before + flags + "eEfFgG"[bytes.Below(6)] + "|", room, isCut, bytes.Take<double>());
        break;
    }
    default: {
        const std::string flags = Flags(&bytes, "-") + Numbers(&bytes);
        const std::string text = bytes.Text(250, false);
        Compare(before + flags + "s|", room, isCut, text.c_str());
        break;
    }
    }
    return 0;
}
