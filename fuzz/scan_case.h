// One scan made from a fuzzer's bytes: a format, the destinations that it asks for, each in memory
// of just its size, and the text.
#ifndef FUZZ_SCAN_CASE_H
#define FUZZ_SCAN_CASE_H

#include "fuzz/check.h"
#include "tamrik/tamrik.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

constexpr std::size_t kMostConversions = 6;
constexpr unsigned char kFill = 0xC5;

struct Destination {
    std::unique_ptr<unsigned char[]> bytes;
    std::size_t byteCount;
    unsigned int size;  // of a text, in its characters; 0 beside numbers
    bool isText;
    bool isWide;
    char type;
};

struct ScanCase {
    std::string format;
    std::string text;
    std::vector<unsigned char> sizes;  // of the texts, one after the other, over and over
    bool isUtf8 = false;
};

// The first byte picks the locale, the next ones sizes; then come the format, a zero, and the text.
inline bool MakeCase(const std::uint8_t *data, std::size_t size, ScanCase *made)
{
    constexpr std::size_t kHead = 4;
    if (size < kHead)
        return false;
    made->isUtf8 = (data[0] & 1) != 0;
    made->sizes.assign(data + 1, data + kHead);
    const std::string rest(reinterpret_cast<const char *>(data) + kHead, size - kHead);
    const std::size_t zero = rest.find('\0');
    if (zero == std::string::npos)
        return false;
    made->format = rest.substr(0, zero);
    made->text = rest.substr(zero + 1);
    return true;
}

// Where the conversion character of the directive stands whose '%' is in front of at.
struct Directive {
    std::size_t at;
    int wideLetters = 0;
    bool isSuppressed = false;
};

inline Directive FindType(const std::string &format, std::size_t at)
{
    Directive spec{at};
    for (; spec.at < format.size(); ++spec.at) {
        const char ch = format[spec.at];
        if (ch == 'I') {
            if (format.compare(spec.at, 3, "I64") == 0 || format.compare(spec.at, 3, "I32") == 0)
                spec.at += 2;
            continue;
        }
        if (ch == '*')
            spec.isSuppressed = true;
        else if (ch == 'l' || ch == 'w')
            ++spec.wideLetters;
        else if (ch == 'h')
            --spec.wideLetters;
        else if (std::strchr("0123456789LqjtzFN", ch) == nullptr)
            break;
    }
    return spec;
}

// The destinations of all conversions, in order; a format with too many is cut after the last.
inline std::vector<Destination> MakeDestinations(ScanCase *made)
{
    std::vector<Destination> all;
    for (std::size_t at = made->format.find('%'); at != std::string::npos;
         at = made->format.find('%', at)) {
        const Directive spec = FindType(made->format, at + 1);
        if (spec.at >= made->format.size())
            break;
        const char type = made->format[spec.at];
        at = spec.at + 1;
        if (type == '[') {
            // Up to the ']' that closes the set.
            at += at < made->format.size() && made->format[at] == '^' ? 1 : 0;
            at += at < made->format.size() && made->format[at] == ']' ? 1 : 0;
            at = made->format.find(']', at);
            if (at == std::string::npos)
                at = made->format.size();
        }
        if (spec.isSuppressed || std::strchr("sScC[ndiuoxXpaAeEfgG", type) == nullptr)
            continue;
        Destination one = {nullptr, 16, 0, std::strchr("sScC[", type) != nullptr, false, type};
        if (one.isText) {
            one.isWide =
                spec.wideLetters > 0 || (spec.wideLetters == 0 && (type == 'S' || type == 'C'));
            one.size = made->sizes[all.size() % made->sizes.size()] % 40;
            // A size of 0 gets a terminator all the same.
            one.byteCount = (one.size == 0 ? 1 : one.size) * (one.isWide ? sizeof(wchar_t) : 1);
        }
        one.bytes = std::make_unique<unsigned char[]>(one.byteCount);
        std::memset(one.bytes.get(), kFill, one.byteCount);
        all.push_back(std::move(one));
        if (all.size() == kMostConversions) {
            made->format.resize(at < made->format.size() ? at + (type == '[' ? 1 : 0) : at);
            break;
        }
    }
    return all;
}

// A slot for each pointer and each size, as the arguments of a call lie.
inline std::array<std::uintptr_t, 2 * kMostConversions>
ArgumentsFor(const std::vector<Destination> &all)
{
    std::array<std::uintptr_t, 2 *kMostConversions> slots = {};
    std::size_t next = 0;
    for (const Destination &one : all) {
        slots[next++] = reinterpret_cast<std::uintptr_t>(one.bytes.get());
        if (one.isText)
            slots[next++] = one.size;
    }
    return slots;
}

// A copy in memory of just its size, so that a step too far is seen.
template <typename Char>
std::unique_ptr<Char[]> Exact(const std::basic_string<Char> &text)
{
    auto copy = std::make_unique<Char[]>(text.size());
    std::memcpy(copy.get(), text.data(), text.size() * sizeof(Char));
    return copy;
}

inline std::wstring Widened(const std::string &text)
{
    std::wstring wide;
    for (const char ch : text)
        wide += static_cast<wchar_t>(static_cast<unsigned char>(ch));
    return wide;
}

inline int Call(InputSource *source, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = tamrik_input_s(source, format, arguments);
    va_end(arguments);
    return result;
}

inline int WideCall(InputSource *source, const wchar_t *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = tamrik_winput_s(source, format, arguments);
    va_end(arguments);
    return result;
}

#define FUZZ_SLOTS(a) a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11]

// The engine that fits the width of the format.
inline int ScanInto(InputSource *source, const std::string &format,
                    const std::vector<Destination> &all)
{
    const auto exact = Exact(format + '\0');
    const auto slots = ArgumentsFor(all);
    return Call(source, exact.get(), FUZZ_SLOTS(slots));
}

inline int ScanInto(InputSource *source, const std::wstring &format,
                    const std::vector<Destination> &all)
{
    const auto exact = Exact(format + L'\0');
    const auto slots = ArgumentsFor(all);
    return WideCall(source, exact.get(), FUZZ_SLOTS(slots));
}

// Whether a text destination is as it was or holds a terminated text.
inline bool IsSound(const Destination &one)
{
    if (!one.isText || one.type == 'c' || one.type == 'C')
        return true;
    const std::size_t width = one.isWide ? sizeof(wchar_t) : 1;
    bool isUntouched = true;
    for (std::size_t i = 0; i < one.byteCount; ++i)
        isUntouched &= one.bytes[i] == kFill;
    if (isUntouched)
        return true;
    const std::string zero(width, '\0');
    for (std::size_t i = 0; i < one.byteCount; i += width) {
        if (std::memcmp(one.bytes.get() + i, zero.data(), width) == 0)
            return true;
    }
    return false;
}

#endif
