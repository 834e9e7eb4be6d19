// Any format through both output engines, with a readable text at each pointer: nothing outside of
// the destination is touched, it is terminated, and a small buffer gets the beginning of what a
// large one gets. Left out are '*' and long doubles, whose arguments have other places.
#include "fuzz/scan_case.h"

#include <cerrno>
#include <clocale>

constexpr std::size_t kMostPercents = 6;
constexpr std::size_t kMostDigits = 3;
constexpr std::size_t kLargeSize = 65536;

static bool IsWanted(const std::string &format)
{
    std::size_t percents = 0;
    std::size_t digits = 0;
    for (const char ch : format) {
        percents += ch == '%' ? 1 : 0;
        digits = ch >= '0' && ch <= '9' ? digits + 1 : 0;
        if (ch == '*' || ch == 'L' || ch == 'q' || digits > kMostDigits)
            return false;
    }
    return percents <= kMostPercents;
}

static int FormatInto(char *dest, std::size_t size, std::size_t count, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = vsnprintf_s(dest, size, count, format, arguments);
    va_end(arguments);
    return result;
}

static int WideInto(OutputStream *stream, const wchar_t *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = tamrik_woutput_s(stream, format, arguments);
    va_end(arguments);
    return result;
}

#define FUZZ_SIX(a)  a, a, a, a, a, a
#define FUZZ_DOUBLES 0.0, -1.5, 1e300, 0.1, 123456789.0, -0.0

static void CheckNarrow(const std::string &format, const wchar_t *text, std::size_t size,
                        bool isCut)
{
    const auto exact = Exact(format + '\0');
    const std::size_t count = isCut ? size - 1 : size;
    const auto large = std::make_unique<char[]>(kLargeSize);
    const int whole = FormatInto(large.get(), kLargeSize, kLargeSize - 1, exact.get(),
                                 FUZZ_SIX(text), FUZZ_DOUBLES);
    const auto small = std::make_unique<char[]>(size);
    std::memset(small.get(), kFill, size);
    errno = 77;
    const int result =
        FormatInto(small.get(), size, count, exact.get(), FUZZ_SIX(text), FUZZ_DOUBLES);
    FUZZ_CHECK(errno == 77);
    FUZZ_CHECK(result >= -1 && result < static_cast<int>(size));
    FUZZ_CHECK(std::memchr(small.get(), '\0', size) != nullptr);
    if (whole < 0)
        return;
    if (static_cast<std::size_t>(whole) < size) {
        FUZZ_CHECK(result == whole);
        FUZZ_CHECK(std::memcmp(small.get(), large.get(), static_cast<std::size_t>(whole) + 1) == 0);
        return;
    }
    FUZZ_CHECK(result == -1);
    FUZZ_CHECK(isCut ? std::memcmp(small.get(), large.get(), count) == 0 && small[count] == '\0'
                     : small[0] == '\0');
}

static void CheckWide(const std::string &format, const wchar_t *text, std::size_t size)
{
    const auto exact = Exact(Widened(format) + L'\0');
    const auto dest = std::make_unique<wchar_t[]>(size);
    OutputStream stream = {static_cast<int>(size * sizeof(wchar_t)),
                           reinterpret_cast<char *>(dest.get())};
    errno = 77;
    const int result = WideInto(&stream, exact.get(), FUZZ_SIX(text), FUZZ_DOUBLES);
    FUZZ_CHECK(errno == 77);
    FUZZ_CHECK(result <= static_cast<int>(size));
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    ScanCase made;
    if (!MakeCase(data, size, &made) || !IsWanted(made.format))
        return 0;
    std::setlocale(LC_ALL, made.isUtf8 ? "C.UTF-8" : "C");
    // Behind each pointer: the bytes of the text, terminated also when read as wide characters.
    std::array<wchar_t, 32> text = {};
    std::memcpy(text.data(), made.text.data(),
                std::min(made.text.size(), (text.size() - 1) * sizeof(wchar_t)));
    const std::size_t room = 1 + std::size_t{made.sizes[0]};
    CheckNarrow(made.format, text.data(), room, (made.sizes[1] & 1) != 0);
    CheckWide(made.format, text.data(), room);
    return 0;
}
