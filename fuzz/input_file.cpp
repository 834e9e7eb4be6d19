// Any format over any bytes in a stream, with a position and without: what is read and what is left
// in the stream is what the same bytes give as a string. A wide format, whose strings are of
// another kind, is held against itself: both streams give the same.
#include "fuzz/scan_case.h"

#include <clocale>
#include <cstdio>

// A stream over bytes in memory.
struct Bytes {
    const std::string *content;
    std::size_t at;
};

static ssize_t ReadBytes(void *cookie, char *buffer, std::size_t size)
{
    auto *bytes = static_cast<Bytes *>(cookie);
    const std::size_t count = bytes->content->copy(buffer, size, bytes->at);
    bytes->at += count;
    return static_cast<ssize_t>(count);
}

static int SeekBytes(void *cookie, off64_t *offset, int whence)
{
    auto *bytes = static_cast<Bytes *>(cookie);
    const auto size = static_cast<off64_t>(bytes->content->size());
    const off64_t from = whence == SEEK_SET   ? 0
                         : whence == SEEK_CUR ? static_cast<off64_t>(bytes->at)
                                              : size;
    if (from + *offset < 0 || from + *offset > size)
        return -1;
    *offset += from;
    bytes->at = static_cast<std::size_t>(*offset);
    return 0;
}

struct Outcome {
    int result;
    std::vector<std::string> stored;
    std::string rest;
    bool operator==(const Outcome &) const = default;
};

static std::vector<std::string> Stored(const std::vector<Destination> &all)
{
    std::vector<std::string> stored;
    for (const Destination &one : all)
        stored.emplace_back(reinterpret_cast<const char *>(one.bytes.get()), one.byteCount);
    return stored;
}

static Outcome OfString(ScanCase made, const std::string &text)
{
    const std::vector<Destination> all = MakeDestinations(&made);
    InputSource source = {};
    source.kind = 0x1;
    source.cur = text.data();
    source.count = static_cast<int>(text.size());
    const int result = ScanInto(&source, made.format, all);
    return {result, Stored(all), std::string(source.cur, static_cast<std::size_t>(source.count))};
}

template <typename Char>
static Outcome OfStream(ScanCase made, std::basic_string<Char> (*widen)(const std::string &),
                        bool hasPosition)
{
    const std::vector<Destination> all = MakeDestinations(&made);
    Bytes bytes = {&made.text, 0};
    const cookie_io_functions_t functions = {ReadBytes, nullptr, hasPosition ? SeekBytes : nullptr,
                                             nullptr};
    FILE *stream = fopencookie(&bytes, "r", functions);
    FUZZ_CHECK(stream != nullptr);
    InputSource source = {};
    source.kind = 0x2;
    source.stream = stream;
    const int result = ScanInto(&source, widen(made.format), all);
    FUZZ_CHECK(source.base == nullptr && source.kind == 0x2);
    FUZZ_CHECK(result >= -2 && result <= static_cast<int>(all.size()));
    for (const Destination &one : all)
        FUZZ_CHECK(IsSound(one));
    if (hasPosition) {
        // The source tells where the stream stands, the mark left out.
        const long beyond = std::ftell(stream) - source.startOffset - source.consumed;
        FUZZ_CHECK(beyond == 0 || (beyond == 3 && made.text.compare(0, 3, "\xEF\xBB\xBF") == 0));
    }
    std::string rest;
    for (int ch = std::getc(stream); ch != EOF; ch = std::getc(stream))
        rest += static_cast<char>(ch);
    std::fclose(stream);
    return {result, Stored(all), rest};
}

static std::string AsIs(const std::string &text)
{
    return text;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    ScanCase made;
    if (!MakeCase(data, size, &made))
        return 0;
    std::setlocale(LC_ALL, made.isUtf8 ? "C.UTF-8" : "C");
    // So that block borders are reached.
    if ((data[0] & 2) != 0)
        made.text.insert(0, 1000 + data[0], ' ');
    const bool hasMark = made.text.compare(0, 3, "\xEF\xBB\xBF") == 0;
    const Outcome expected = OfString(made, made.text.substr(hasMark ? 3 : 0));
    const Outcome seekable = OfStream<char>(made, AsIs, true);
    const Outcome pipe = OfStream<char>(made, AsIs, false);
    // A scan that read nothing has not met the mark.
    const bool isUnread = hasMark && seekable.rest == made.text;
    FUZZ_CHECK(seekable.result == expected.result && seekable.stored == expected.stored);
    FUZZ_CHECK(isUnread || seekable.rest == expected.rest);
    FUZZ_CHECK(pipe == seekable);
    FUZZ_CHECK(OfStream<wchar_t>(made, Widened, true) == OfStream<wchar_t>(made, Widened, false));
    return 0;
}
