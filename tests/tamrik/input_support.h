// Calls of the formatted-input engines for tests: text and format stand right before unreadable
// pages.
#ifndef TESTS_TAMRIK_INPUT_SUPPORT_H
#define TESTS_TAMRIK_INPUT_SUPPORT_H

#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <cstdarg>
#include <cstring>
#include <string>

// The bits of InputSource.kind that a caller sets.
constexpr int kStringSource = 0x1;
constexpr int kFileSource = 0x2;
constexpr int kStdinSource = 0x4;

// What a call gave back, and the text that it left unread.
template <typename Char>
struct Scanned {
    int result;
    std::basic_string<Char> rest;
    bool operator==(const Scanned &) const = default;
};

// The bytes of a value, as they stand in memory.
template <typename Type>
std::string Of(Type value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

template <typename Char>
std::string BytesOf(const std::basic_string<Char> &text)
{
    std::string bytes(text.size() * sizeof(Char), '\0');
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

inline std::wstring Widened(const std::string &text)
{
    std::wstring wide;
    for (const char ch : text)
        wide += static_cast<wchar_t>(static_cast<unsigned char>(ch));
    return wide;
}

inline InputSource StringSource(const Guarded &text)
{
    InputSource source = {};
    source.kind = kStringSource;
    source.cur = text.Text();
    source.count = static_cast<int>(text.size);
    return source;
}

inline InputSource FileSource(FILE *stream)
{
    InputSource source = {};
    source.kind = kFileSource;
    source.stream = stream;
    return source;
}

inline int Engine(InputSource *source, const char *format, va_list arguments)
{
    return tamrik_input_s(source, format, arguments);
}

inline int Engine(InputSource *source, const wchar_t *format, va_list arguments)
{
    return tamrik_winput_s(source, format, arguments);
}

template <typename Char>
int VScanSource(InputSource *source, const std::basic_string<Char> &format, va_list arguments)
{
    const Guarded guarded(BytesOf(format + Char{}));
    return Engine(source, reinterpret_cast<const Char *>(guarded.Text()), arguments);
}

inline int ScanSource(InputSource *source, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = VScanSource(source, std::string(format), arguments);
    va_end(arguments);
    return result;
}

inline int WideScanSource(InputSource *source, const wchar_t *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = VScanSource(source, std::wstring(format), arguments);
    va_end(arguments);
    return result;
}

template <typename Char>
Scanned<Char> VScan(const std::basic_string<Char> &text, const std::basic_string<Char> &format,
                    va_list arguments)
{
    const Guarded guarded(BytesOf(text));
    InputSource source = StringSource(guarded);
    Scanned<Char> scanned = {VScanSource(&source, format, arguments), {}};
    // count and cur go hand in hand, and the text itself is not written.
    if (source.cur + source.count != guarded.Text() + guarded.size ||
        guarded.Held() != BytesOf(text))
        std::abort();
    scanned.rest.resize(static_cast<std::size_t>(source.count) / sizeof(Char));
    std::memcpy(scanned.rest.data(), source.cur, scanned.rest.size() * sizeof(Char));
    return scanned;
}

inline Scanned<char> Scan(const std::string &text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const Scanned<char> scanned = VScan(text, std::string(format), arguments);
    va_end(arguments);
    return scanned;
}

inline Scanned<wchar_t> WideScan(const std::wstring &text, const wchar_t *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const Scanned<wchar_t> scanned = VScan(text, std::wstring(format), arguments);
    va_end(arguments);
    return scanned;
}

// The same scan through both engines. Text and format are ASCII; the wide result is told in it too.
inline Scanned<char> ScanWith(bool wide, const std::string &text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Scanned<char> scanned = {};
    if (wide) {
        const Scanned<wchar_t> found = VScan(Widened(text), Widened(format), arguments);
        scanned.result = found.result;
        for (const wchar_t ch : found.rest)
            scanned.rest += static_cast<char>(ch);
    } else {
        scanned = VScan(text, std::string(format), arguments);
    }
    va_end(arguments);
    return scanned;
}

#endif
