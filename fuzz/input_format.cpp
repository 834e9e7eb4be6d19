// Any format over any text in a string, through both engines: nothing outside of the destinations
// is touched, texts are terminated, the source stays in order, the result is one of those promised.
#include "fuzz/scan_case.h"

#include <cerrno>
#include <clocale>

template <typename Char>
static void Check(ScanCase made, const std::basic_string<Char> &text,
                  std::basic_string<Char> (*widen)(const std::string &))
{
    const std::vector<Destination> all = MakeDestinations(&made);
    const auto exact = Exact(text);
    InputSource source = {};
    source.kind = 0x1;
    source.cur = reinterpret_cast<const char *>(exact.get());
    source.count = static_cast<int>(text.size() * sizeof(Char));
    errno = 77;
    const int result = ScanInto(&source, widen(made.format), all);
    FUZZ_CHECK(errno == 77);
    FUZZ_CHECK(result >= -2 && result <= static_cast<int>(all.size()));
    FUZZ_CHECK(source.count >= 0 && source.count % static_cast<int>(sizeof(Char)) == 0);
    FUZZ_CHECK(source.cur + source.count ==
               reinterpret_cast<const char *>(exact.get() + text.size()));
    FUZZ_CHECK(std::memcmp(exact.get(), text.data(), text.size() * sizeof(Char)) == 0);
    for (const Destination &one : all)
        FUZZ_CHECK(IsSound(one));
}

static std::string AsIs(const std::string &text)
{
    return text;
}

// Whether a destination is as it was, or only its first byte is zero; its first wide character
// where that is wide and the size, taken as bytes, has room for it.
static bool IsAtMostCleared(const Destination &one)
{
    const std::size_t most = one.isWide && one.size >= sizeof(wchar_t) ? sizeof(wchar_t) : 1;
    std::size_t cleared = 0;
    while (cleared < most && one.bytes[cleared] == 0)
        ++cleared;
    bool isUntouched = true;
    for (std::size_t i = cleared; i < one.byteCount; ++i)
        isUntouched &= one.bytes[i] == kFill;
    return isUntouched && (cleared == 0 || (cleared == most && one.isText && one.size > 0));
}

static void CheckClearing(ScanCase made)
{
    std::vector<Destination> all = MakeDestinations(&made);
    const auto slots = ArgumentsFor(all);
    const auto clear = [](const char *format, const wchar_t *wide, ...) {
        va_list arguments;
        va_start(arguments, wide);
        clearDestBuf(nullptr, format, arguments);
        clearwDestBuf(nullptr, wide, arguments);
        va_end(arguments);
    };
    clear(Exact(made.format + '\0').get(), Exact(Widened(made.format) + L'\0').get(),
          FUZZ_SLOTS(slots));
    for (std::size_t i = 0; i < all.size(); ++i)
        FUZZ_CHECK(i == 0 ? IsAtMostCleared(all[i]) : all[i].bytes[0] == kFill);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    ScanCase made;
    if (!MakeCase(data, size, &made))
        return 0;
    std::setlocale(LC_ALL, made.isUtf8 ? "C.UTF-8" : "C");
    Check<char>(made, made.text, AsIs);
    Check<wchar_t>(made, Widened(made.text), Widened);
    // Any bytes as wide characters.
    std::wstring raw(made.text.size() / sizeof(wchar_t), L'\0');
    std::memcpy(raw.data(), made.text.data(), raw.size() * sizeof(wchar_t));
    Check<wchar_t>(made, raw, Widened);
    CheckClearing(made);
    return 0;
}
