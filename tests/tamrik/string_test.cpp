// The string functions: each row of their contracts with every byte of the buffer, what they may
// read at the edge of memory, and a million random calls against models that go character by
// character.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"
#include "tests/support/random.h"
#include "tests/support/rounds.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <limits>

namespace
{

constexpr std::size_t kAboveLimit = 0x80000000;  // the smallest size or count that is too large
constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
constexpr int kErrno = 4711;  // no real error number: stays unless somebody sets errno

// A buffer of size bytes that starts with text, its terminator included, and canaries after it.
void Hold(const Guarded &buffer, const std::string &text)
{
    buffer.Fill();
    std::memcpy(buffer.Bytes(), text.c_str(), text.size() + 1);
}

// What an emptied buffer of size bytes holds that held canaries alone.
std::string Emptied(std::size_t size)
{
    return '\0' + Canaries(size - 1);
}

}  // namespace

TEST_CASE("strcpy_s reports what its contract says and leaves behind what it says")
{
    struct Row {
        const char *claim;
        std::size_t destMax;
        const char *src;
        int result;
        std::string held;  // all 8 bytes of the buffer
    };
    // clang-format off
    const Row rows[] = {
        {"fits with room",                        8, "abc", 0,   WithTerminator("abc") + Canaries(4)},
        {"fits exactly",                          5, "abcd", 0,  WithTerminator("abcd") + Canaries(3)},
        {"lacks room for the terminator",         4, "abcd", 162, Emptied(8)},
        {"lacks far more",                        1, "abcdefghijkl", 162, Emptied(8)},
        {"the empty string in one byte",          1, "", 0,      Emptied(8)},
        {"size 0",                                0, "abc", 34,  Canaries(8)},
        {"size above the limit",        kAboveLimit, "abc", 34,  Canaries(8)},
        {"the largest size",                  kHuge, "abc", 34,  Canaries(8)},
        {"size at the limit",       MAX_BUFFER_SIZE, "abc", 0,   WithTerminator("abc") + Canaries(4)},
        {"no source",                             8, nullptr, 150, Emptied(8)},
        {"no source, size 0",                     0, nullptr, 34,  Canaries(8)},
        {"no source, size above the limit", kAboveLimit, nullptr, 34, Canaries(8)},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.claim);
        const Guarded buffer(8);
        CHECK(strcpy_s(buffer.Text(), row.destMax, row.src) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
        // The error routine gives the same result, and never copies.
        if (row.result == 0)
            continue;
        buffer.Fill();
        CHECK(strcpy_error(buffer.Text(), row.destMax, row.src) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
    }
    CHECK(strcpy_s(nullptr, 8, "abc") == 22);
    CHECK(strcpy_s(nullptr, 8, nullptr) == 22);
    CHECK(strcpy_s(nullptr, 0, "abc") == 34);
    CHECK(strcpy_s(nullptr, kAboveLimit, nullptr) == 34);
    CHECK(strcpy_error(nullptr, 8, "abc") == 22);
    CHECK(strcpy_error(nullptr, 0, "abc") == 34);
}

TEST_CASE("strcpy_error writes nothing for a string that fits")
{
    const Guarded buffer(8);
    CHECK(strcpy_error(buffer.Text(), 4, "abc") == 0);
    CHECK(buffer.Held() == Canaries(8));
    CHECK(strcpy_error(buffer.Text(), 3, "abc") == 162);
    CHECK(buffer.Held() == Emptied(8));
}

TEST_CASE("strcpy_s onto itself changes nothing when the string fits, and empties it when not")
{
    const Guarded buffer(8);
    Hold(buffer, "abcdef");
    CHECK(strcpy_s(buffer.Text(), 8, buffer.Text()) == 0);
    CHECK(strcpy_s(buffer.Text(), 7, buffer.Text()) == 0);
    CHECK(buffer.Held() == WithTerminator("abcdef") + Canaries(1));
    CHECK(strcpy_s(buffer.Text(), 6, buffer.Text()) == 162);
    CHECK(buffer.Held() == '\0' + WithTerminator("bcdef") + Canaries(1));
    CHECK(strcpy_s(buffer.Text(), 0, buffer.Text()) == 34);
    CHECK(strcpy_s(buffer.Text(), kAboveLimit, buffer.Text()) == 34);
}

TEST_CASE("strcpy_s between overlapping places empties the destination, touching places are fine")
{
    const Guarded buffer(12);
    Hold(buffer, "abcd");
    CHECK(strcpy_s(buffer.Text() + 4, 8, buffer.Text()) == 182);  // onto the terminator
    CHECK(buffer.Held() == WithTerminator("abcd") + Canaries(7));
    CHECK(strcpy_s(buffer.Text() + 5, 7, buffer.Text()) == 0);  // right after it
    CHECK(buffer.Held() == WithTerminator("abcd") + WithTerminator("abcd") + Canaries(2));
    CHECK(strcpy_s(buffer.Text(), 12, buffer.Text() + 5) == 0);  // right in front of it
    CHECK(strcpy_s(buffer.Text() + 1, 11, buffer.Text() + 5) == 182);
    CHECK(buffer.Held() == std::string("a\0cd\0", 5) + WithTerminator("abcd") + Canaries(2));
    // What does not fit is 162 before any overlap is looked for.
    Hold(buffer, "abcdefgh");
    CHECK(strcpy_s(buffer.Text() + 1, 4, buffer.Text()) == 162);
}

TEST_CASE("strcpy_s copies strings of every length at every alignment and nothing more")
{
    for (std::size_t length = 0; length <= 70; length++) {
        std::string text;
        for (std::size_t i = 0; i < length; i++)
            text += static_cast<char>('!' + i % 90);
        for (std::size_t from = 0; from < 9; from++) {
            for (std::size_t to = 0; to < 9; to++) {
                const Guarded src(Canaries(from) + WithTerminator(text));
                const Guarded dest(to + length + 1 + 9);
                const int result = strcpy_s(dest.Text() + to, length + 1, src.Text() + from);
                if (result != 0 || !dest.FrontIntact() ||
                    dest.Held() != Canaries(to) + WithTerminator(text) + Canaries(9))
                    FAIL_CHECK(length << " from " << from << " to " << to);
            }
        }
        const Guarded src(WithTerminator(text));
        const Guarded tight(length + 1);
        if (strcpy_s(tight.Text(), length + 1, src.Text()) != 0 || tight.Held() != src.Held())
            FAIL_CHECK(length << " at the end");
    }
}

TEST_CASE("strcpy_s decides on destMax characters, even where memory ends after them")
{
    const Guarded src(std::string("abcdefgh"));  // no terminator
    const Guarded buffer(8);
    for (std::size_t size = 1; size <= 8; size++) {
        buffer.Fill();
        CHECK(strcpy_s(buffer.Text(), size, src.Text() + 8 - size) == 162);
        CHECK(buffer.Held() == Emptied(8));
    }
}

TEST_CASE("strncpy_s reports what its contract says and leaves behind what it says")
{
    struct Row {
        const char *claim;
        std::size_t destMax;
        const char *src;
        std::size_t count;
        int result;
        std::string held;  // all 8 bytes of the buffer
    };
    const std::string abc = WithTerminator("abc") + Canaries(4);
    // clang-format off
    const Row rows[] = {
        {"count and string as long as the buffer",    8, "abcdefgh", 8,    162, Emptied(8)},
        {"the string is longer than the buffer",      8, "abcdefghij", 100, 162, Emptied(8)},
        {"cut to what fits",                          8, "abcdefgh", 7,    0,  WithTerminator("abcdefg")},
        {"cut to one character",                      8, "abcdefgh", 1,    0,  WithTerminator("a") + Canaries(6)},
        {"exactly count characters",                  8, "abc", 3,         0,  abc},
        {"count is larger than the buffer",           8, "abc", 100,       0,  abc},
        {"count equals the size and the string fits", 8, "abcdefg", 8,     0,  WithTerminator("abcdefg")},
        {"count at the limit",                        8, "abc", MAX_BUFFER_SIZE, 0, abc},
        {"count above the limit",                     8, "abc", kAboveLimit, 162, Emptied(8)},
        {"the largest count",                         8, "abc", kHuge,     162, Emptied(8)},
        {"count with a bit above 32",                 8, "abc", 0x100000003, 162, Emptied(8)},
        {"count 0",                                   8, "abc", 0,         0,  Emptied(8)},
        {"the empty string",                          8, "", 5,            0,  Emptied(8)},
        {"the empty string in one byte",              1, "", 5,            0,  Emptied(8)},
        {"one character in one byte",                 1, "a", 1,           162, Emptied(8)},
        {"size 0",                                    0, "abc", 3,         34, Canaries(8)},
        {"size 0 and count 0",                        0, "abc", 0,         34, Canaries(8)},
        {"size above the limit",            kAboveLimit, "abc", 3,         34, Canaries(8)},
        {"size and count above the limit",  kAboveLimit, "abc", kAboveLimit, 34, Canaries(8)},
        {"size at the limit",           MAX_BUFFER_SIZE, "abc", 3,         0,  abc},
        {"no source",                                 8, nullptr, 3,       150, Emptied(8)},
        {"no source, count 0",                        8, nullptr, 0,       150, Emptied(8)},
        {"no source, count above the limit",          8, nullptr, kHuge,   150, Emptied(8)},
        {"no source, size 0",                         0, nullptr, 3,       34, Canaries(8)},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.claim);
        const Guarded buffer(8);
        CHECK(strncpy_s(buffer.Text(), row.destMax, row.src, row.count) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
        // The error routine gives the same result, and never copies.
        if (row.result == 0 && row.count != 0)
            continue;
        buffer.Fill();
        CHECK(strncpy_error(buffer.Text(), row.destMax, row.src, row.count) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
    }
    CHECK(strncpy_s(nullptr, 8, "abc", 3) == 22);
    CHECK(strncpy_s(nullptr, 8, nullptr, 3) == 22);
    CHECK(strncpy_s(nullptr, 8, "abc", kHuge) == 22);
    CHECK(strncpy_s(nullptr, 8, "abc", 0) == 22);
    CHECK(strncpy_s(nullptr, 0, "abc", 3) == 34);
    CHECK(strncpy_s(nullptr, kAboveLimit, nullptr, 0) == 34);
}

TEST_CASE("strncpy_error writes nothing for what fits")
{
    const Guarded buffer(8);
    CHECK(strncpy_error(buffer.Text(), 4, "abc", 100) == 0);
    CHECK(strncpy_error(buffer.Text(), 4, "abc", MAX_BUFFER_SIZE) == 0);
    CHECK(strncpy_error(buffer.Text(), 4, "abcdef", 3) == 0);
    CHECK(buffer.Held() == Canaries(8));
    CHECK(strncpy_error(buffer.Text(), 4, "abcdef", 4) == 162);
    CHECK(buffer.Held() == Emptied(8));
}

TEST_CASE("strncpy_s onto itself cuts the string where it stands")
{
    const Guarded buffer(8);
    Hold(buffer, "abcdef");
    CHECK(strncpy_s(buffer.Text(), 8, buffer.Text(), 7) == 0);
    CHECK(buffer.Held() == WithTerminator("abcdef") + Canaries(1));
    CHECK(strncpy_s(buffer.Text(), 8, buffer.Text(), 3) == 0);
    CHECK(buffer.Held() == std::string("abc\0ef\0", 7) + Canaries(1));
    Hold(buffer, "abcdef");
    CHECK(strncpy_s(buffer.Text(), 4, buffer.Text(), 4) == 162);
    CHECK(buffer.Held() == '\0' + WithTerminator("bcdef") + Canaries(1));
    Hold(buffer, "abcdef");
    CHECK(strncpy_s(buffer.Text(), 8, buffer.Text(), 0) == 0);
    CHECK(buffer.Held() == '\0' + WithTerminator("bcdef") + Canaries(1));
}

TEST_CASE("strncpy_s between overlapping places empties the destination, touching places are fine")
{
    const Guarded buffer(12);
    Hold(buffer, "abcd");
    CHECK(strncpy_s(buffer.Text() + 4, 8, buffer.Text(), 100) == 182);  // onto the terminator
    CHECK(buffer.Held() == WithTerminator("abcd") + Canaries(7));
    CHECK(strncpy_s(buffer.Text() + 5, 7, buffer.Text(), 100) == 0);  // right after it
    CHECK(buffer.Held() == WithTerminator("abcd") + WithTerminator("abcd") + Canaries(2));
    CHECK(strncpy_s(buffer.Text() + 1, 11, buffer.Text() + 5, 100) == 182);
    CHECK(buffer.Held() == std::string("a\0cd\0", 5) + WithTerminator("abcd") + Canaries(2));
    // A cut string counts one byte more than it gives, on both sides.
    Hold(buffer, "abcdefgh");
    CHECK(strncpy_s(buffer.Text() + 3, 9, buffer.Text(), 3) == 182);
    CHECK(buffer.Held() == std::string("abc\0efgh\0", 9) + Canaries(3));
    Hold(buffer, "abcdefgh");
    CHECK(strncpy_s(buffer.Text() + 4, 8, buffer.Text(), 3) == 0);
    CHECK(buffer.Held() == WithTerminator("abcdabc") + WithTerminator("") + Canaries(3));
    Hold(buffer, "abcdefgh");
    CHECK(strncpy_s(buffer.Text(), 12, buffer.Text() + 3, 3) == 182);
    CHECK(strncpy_s(buffer.Text(), 12, buffer.Text() + 4, 3) == 0);
    CHECK(buffer.Held() == WithTerminator("efg") + WithTerminator("efgh") + Canaries(3));
}

TEST_CASE("strncpy_s copies strings of every length, cut and whole, and nothing more")
{
    for (std::size_t length = 0; length <= 140; length++) {
        std::string text;
        for (std::size_t i = 0; i < length; i++)
            text += static_cast<char>('!' + i % 90);
        for (std::size_t shift = 0; shift < 9; shift++) {
            const Guarded whole(WithTerminator(text));
            const Guarded unterminated(text);
            const Guarded dest(shift + length + 1);
            const std::string expected = Canaries(shift) + WithTerminator(text);
            char *to = dest.Text() + shift;
            if (strncpy_s(to, length + 1, whole.Text(), length + 1) != 0 || dest.Held() != expected)
                FAIL_CHECK(length << " shifted by " << shift);
            dest.Fill();
            if (strncpy_s(to, length + 1, unterminated.Text(), length) != 0 ||
                (length != 0 ? dest.Held() != expected : to[0] != '\0'))
                FAIL_CHECK(length << " cut, shifted by " << shift);
            if (!dest.FrontIntact())
                FAIL_CHECK(length << " wrote in front, shifted by " << shift);
        }
    }
}

TEST_CASE("strncpy_s reads neither past count nor past destMax characters")
{
    const Guarded src(std::string("abcdefgh"));  // no terminator before memory ends
    const Guarded buffer(9);
    for (std::size_t count = 1; count <= 8; count++) {
        const std::string tail = std::string("abcdefgh").substr(8 - count);
        buffer.Fill();
        CHECK(strncpy_s(buffer.Text(), 9, src.Text() + 8 - count, count) == 0);
        CHECK(buffer.Held() == WithTerminator(tail) + Canaries(8 - count));
        buffer.Fill();
        CHECK(strncpy_s(buffer.Text(), count, src.Text() + 8 - count, 1000) == 162);
        CHECK(buffer.Held() == Emptied(9));
        CHECK(strncpy_error(buffer.Text(), count, src.Text() + 8 - count, 1000) == 162);
    }
}

TEST_CASE("strncat_s reports what its contract says and leaves behind what it says")
{
    struct Row {
        const char *claim;
        std::string before;  // the string that the buffer holds first
        std::size_t destMax;
        const char *src;
        std::size_t count;
        int result;
        std::string held;  // all 8 bytes of the buffer
    };
    const std::string abcd = WithTerminator("abcd") + Canaries(3);
    const std::string emptied = '\0' + WithTerminator("bcd") + Canaries(3);
    // clang-format off
    const Row rows[] = {
        {"fits exactly",                  "abcd", 8, "xyz", 3, 0,   WithTerminator("abcdxyz")},
        {"lacks room for the terminator", "abcde", 8, "xyz", 3, 162, std::string("\0bcdexyz", 8)},
        {"lacks more, the rest is left",  "abcde", 8, "xyz123", 100, 162, std::string("\0bcdexyz", 8)},
        {"cut by count",                  "ab", 8, "xyz", 2, 0,     WithTerminator("abxy") + Canaries(3)},
        {"count beyond the string",       "ab", 8, "xyz", 100, 0,   WithTerminator("abxyz") + Canaries(2)},
        {"count 0",                       "abcd", 8, "xyz", 0, 0,   abcd},
        {"the empty string",              "abcd", 8, "", 5, 0,      abcd},
        {"to the empty string",           "", 8, "xyz", 5, 0,       WithTerminator("xyz") + Canaries(4)},
        {"to the empty string in one byte", "", 1, "x", 5, 162,     Emptied(8)},
        {"nothing to a full buffer",      "abcdefg", 8, "", 5, 0,   WithTerminator("abcdefg")},
        {"count 0 to a full buffer",      "abcdefg", 8, "x", 0, 0,  WithTerminator("abcdefg")},
        {"one too many for a full buffer", "abcdefg", 8, "x", 1, 162, std::string("\0bcdefgx", 8)},
        {"the string is longer than destMax", "abcd", 4, "x", 1, 150, emptied},
        {"the same with count 0",         "abcd", 4, "x", 0, 150,   emptied},
        {"size 0",                        "abcd", 0, "xyz", 3, 34,  abcd},
        {"size above the limit",          "abcd", kAboveLimit, "xyz", 3, 34, abcd},
        {"the largest size",              "abcd", kHuge, "xyz", 3, 34, abcd},
        {"size at the limit",             "abcd", MAX_BUFFER_SIZE, "xyz", 3, 0, WithTerminator("abcdxyz")},
        {"no source",                     "abcd", 8, nullptr, 3, 150, emptied},
        {"no source, count 0",            "abcd", 8, nullptr, 0, 150, emptied},
        {"no source, count above the limit", "abcd", 8, nullptr, kHuge, 150, emptied},
        {"no source, size 0",             "abcd", 0, nullptr, 3, 34, abcd},
        {"count above the limit",         "abcd", 8, "xyz", kAboveLimit, 162, emptied},
        {"the largest count",             "abcd", 8, "xyz", kHuge, 162, emptied},
        {"count at the limit",            "abcd", 8, "xyz", MAX_BUFFER_SIZE, 0, WithTerminator("abcdxyz")},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.claim);
        const Guarded buffer(8);
        Hold(buffer, row.before);
        CHECK(strncat_s(buffer.Text(), row.destMax, row.src, row.count) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
    }
    CHECK(strncat_s(nullptr, 8, "abc", 3) == 22);
    CHECK(strncat_s(nullptr, 8, nullptr, kHuge) == 22);
    CHECK(strncat_s(nullptr, 0, "abc", 3) == 34);
    CHECK(strncat_s(nullptr, kAboveLimit, nullptr, 3) == 34);
}

TEST_CASE("strncat_s on a buffer without any zero byte is 150")
{
    const Guarded buffer(8);
    CHECK(strncat_s(buffer.Text(), 8, "xyz", 3) == 150);
    CHECK(buffer.Held() == Emptied(8));
    CHECK(buffer.FrontIntact());
}

TEST_CASE("strncat_s finds an overlap when it gets there, and leaves what it appended until then")
{
    const Guarded buffer(16);
    const auto set = [&](const std::string &bytes) {
        std::memcpy(buffer.Bytes(), bytes.data(), bytes.size());
    };
    const std::string image("ab\0..xyz\0.......", 16);
    // The source stands after the string: three places free in front of it.
    set(image);
    CHECK(strncat_s(buffer.Text(), 16, buffer.Text() + 5, 3) ==
          182);  // the last of count is checked
    CHECK(buffer.Held() == std::string("\0bxyzxyz\0.......", 16));
    set(image);
    CHECK(strncat_s(buffer.Text(), 16, buffer.Text() + 5, 2) == 0);
    CHECK(buffer.Held() == std::string("abxy\0xyz\0.......", 16));
    // A terminator that falls into the last free place is no overlap.
    set(std::string("ab\0..xy\0........", 16));
    CHECK(strncat_s(buffer.Text(), 16, buffer.Text() + 5, 100) == 0);
    CHECK(buffer.Held() == std::string("abxy\0xy\0........", 16));
    // Both at the same character: the range comes first.
    set(image);
    CHECK(strncat_s(buffer.Text(), 5, buffer.Text() + 5, 100) == 162);
    CHECK(buffer.Held() == std::string("\0bxyzxyz\0.......", 16));
    // The source stands below and runs into the destination.
    set(std::string("abcdef\0.........", 16));
    CHECK(strncat_s(buffer.Text() + 4, 12, buffer.Text(), 100) == 182);
    CHECK(buffer.Held() == std::string("abcd\0fabcd......", 16));
    set(std::string("abcdef\0.........", 16));
    CHECK(strncat_s(buffer.Text() + 4, 12, buffer.Text(), 3) == 0);
    CHECK(buffer.Held() == std::string("abcdefabc\0......", 16));
    set(std::string("abc\0ef\0.........", 16));
    CHECK(strncat_s(buffer.Text() + 4, 12, buffer.Text(), 100) == 0);
    CHECK(buffer.Held() == std::string("abc\0efabc\0......", 16));
}

TEST_CASE("strncat_s with its source inside the destination's string is 182")
{
    const Guarded buffer(8);
    for (std::size_t at = 1; at <= 4; at++) {  // 4 is the terminator
        CAPTURE(at);
        Hold(buffer, "abcd");
        CHECK(strncat_s(buffer.Text(), 8, buffer.Text() + at, 3) == 182);
        CHECK(buffer.Held() == '\0' + WithTerminator("bcd") + Canaries(3));
    }
}

TEST_CASE("strncat_s looks for the destination's end no further than to a source after it")
{
    // No zero byte before the source, whose own terminator is the last byte of all memory there is.
    const Guarded buffer(std::string("abcdefg\0", 8));
    CHECK(strncat_s(buffer.Text(), 1000, buffer.Text() + 7, 3) == 182);
    CHECK(buffer.Held() == std::string("\0bcdefg\0", 8));
    // A source without any zero byte in it.
    const Guarded none(std::string("abcdefgh"));
    CHECK(strncat_s(none.Text(), 1000, none.Text() + 7, 1) == 182);
    CHECK(none.Held() == std::string("\0bcdefgh", 8));
}

TEST_CASE("strncat_s reads no more of the source than count and the room allow")
{
    const Guarded src(std::string("abcdefgh"));  // no terminator before memory ends
    const Guarded buffer(12);
    for (std::size_t count = 1; count <= 8; count++) {
        Hold(buffer, "xyz");
        CHECK(strncat_s(buffer.Text(), 12, src.Text() + 8 - count, count) == 0);
        CHECK(std::string(buffer.Text()) == "xyz" + std::string("abcdefgh").substr(8 - count));
        Hold(buffer, "xyz");
        CHECK(strncat_s(buffer.Text(), 3 + count, src.Text() + 8 - count, 1000) == 162);
        CHECK(buffer.Held() == std::string("\0yz", 3) + std::string("abcdefgh").substr(8 - count) +
                                   Canaries(9 - count));
    }
}

TEST_CASE("strncat_s reads no more of the destination than destMax bytes")
{
    for (std::size_t size = 1; size <= 40; size++) {
        const Guarded buffer(size);  // canaries without a zero byte up to the end of memory
        CHECK(strncat_s(buffer.Text(), size, "xyz", 3) == 150);
        CHECK(buffer.Held() == Emptied(size));
    }
}

TEST_CASE("strncat_s appends a string to itself until count or the buffer's end stops it")
{
    const Guarded buffer(12);
    Hold(buffer, "abc");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 3) == 0);
    CHECK(buffer.Held() == WithTerminator("abcabc") + Canaries(5));
    Hold(buffer, "abc");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 5) == 0);
    CHECK(buffer.Held() == WithTerminator("abcabcab") + Canaries(3));
    Hold(buffer, "abc");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 8) == 0);
    CHECK(buffer.Held() == WithTerminator("abcabcabcab"));
    Hold(buffer, "abc");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 9) == 162);
    CHECK(buffer.Held() == std::string("\0bcabcabcabc", 12));
    Hold(buffer, "abc");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 0) == 0);
    CHECK(buffer.Held() == WithTerminator("abc") + Canaries(8));
    Hold(buffer, "");
    CHECK(strncat_s(buffer.Text(), 12, buffer.Text(), 5) == 0);
    CHECK(buffer.Held() == Emptied(12));
    CHECK(buffer.FrontIntact());
}

namespace
{

// Memory as the models see it. What a call would read or write outside of it is no legal call.
struct Arena {
    std::string bytes;
    bool left = false;  // whether an access was outside

    char Get(std::size_t index)
    {
        left = left || index >= bytes.size();
        return left ? '\0' : bytes[index];
    }
    void Put(std::size_t index, char ch)
    {
        left = left || index >= bytes.size();
        if (!left)
            bytes[index] = ch;
    }
};

constexpr std::size_t kNone = kHuge;  // a null pointer instead of an index

struct Call {
    std::size_t dest, destMax, src, count;
};

bool IsBad(std::size_t size)
{
    return size == 0 || size > MAX_BUFFER_SIZE;
}

int Empty(Arena &arena, const Call &call, int code)
{
    arena.Put(call.dest, '\0');
    return code;
}

bool Overlap(const Call &call, std::size_t n)
{
    return (call.dest < call.src && call.dest + n > call.src) ||
           (call.dest > call.src && call.src + n > call.dest);
}

int StrcpyModel(Arena &arena, const Call &call)
{
    if (IsBad(call.destMax))
        return 34;
    if (call.dest == kNone)
        return 22;
    if (call.src == kNone)
        return Empty(arena, call, 150);
    std::size_t n = 0;
    while (n < call.destMax && arena.Get(call.src + n) != '\0')
        n++;
    if (n == call.destMax)
        return Empty(arena, call, 162);
    if (call.dest == call.src)
        return 0;
    if (Overlap(call, n + 1))
        return Empty(arena, call, 182);
    for (std::size_t i = 0; i <= n; i++)
        arena.Put(call.dest + i, arena.Get(call.src + i));
    return 0;
}

int StrncpyModel(Arena &arena, const Call &call)
{
    if (IsBad(call.destMax))
        return 34;
    if (call.dest == kNone)
        return 22;
    if (call.src == kNone)
        return Empty(arena, call, 150);
    if (call.count > MAX_BUFFER_SIZE)
        return Empty(arena, call, 162);
    if (call.count == 0)
        return Empty(arena, call, 0);
    std::size_t n = 0;
    for (; n < call.count && arena.Get(call.src + n) != '\0'; n++)
        if (n == call.destMax - 1)
            return Empty(arena, call, 162);
    if (Overlap(call, n + 1))
        return Empty(arena, call, 182);
    for (std::size_t i = 0; i < n; i++)
        arena.Put(call.dest + i, arena.Get(call.src + i));
    arena.Put(call.dest + n, '\0');
    return 0;
}

int StrncatModel(Arena &arena, const Call &call)
{
    if (IsBad(call.destMax))
        return 34;
    if (call.dest == kNone)
        return 22;
    if (call.src == kNone)
        return Empty(arena, call, 150);
    if (call.count > MAX_BUFFER_SIZE)
        return Empty(arena, call, 162);
    std::size_t k = 0;
    for (;; k++) {
        if (k == call.destMax)
            return Empty(arena, call, 150);
        if (call.dest < call.src && call.dest + k == call.src)
            return Empty(arena, call, 182);
        if (arena.Get(call.dest + k) == '\0')
            break;
    }
    for (std::size_t j = 0; j < call.count; j++) {
        const char ch = arena.Get(call.src + j);
        arena.Put(call.dest + k + j, ch);
        if (ch == '\0')
            return 0;
        if (k + j == call.destMax - 1)
            return Empty(arena, call, 162);
        if (call.dest < call.src ? call.dest + k + j + 1 == call.src
                                 : call.src + j + 1 == call.dest)
            return Empty(arena, call, 182);
    }
    arena.Put(call.dest + k + call.count, '\0');
    return 0;
}

// A call within an arena of size bytes: mostly in order, every way of being wrong now and then.
Call AnyCall(Random &random, std::size_t size)
{
    Call call;
    call.dest = random.Below(size);
    call.src = random.OneIn(16) ? call.dest : random.Below(size);
    call.destMax = random.Below(size - call.dest + 1);
    call.count = random.Below(random.OneIn(3) ? size + 8 : 12);
    if (random.OneIn(64))
        call.destMax = random.OneIn(2) ? kAboveLimit : MAX_BUFFER_SIZE;
    if (random.OneIn(64))
        call.count = random.OneIn(2) ? kAboveLimit : MAX_BUFFER_SIZE;
    if (random.OneIn(128))
        call.dest = kNone;
    if (random.OneIn(128))
        call.src = kNone;
    return call;
}

struct Compared {
    const char *name;
    int (*model)(Arena &, const Call &);
    int (*call)(char *, std::size_t, const char *, std::size_t);
};
const Compared kCompared[] = {
    {"strcpy_s", StrcpyModel,
     [](char *dest, std::size_t destMax, const char *src, std::size_t) {
         return strcpy_s(dest, destMax, src);
     }},
    {"strncpy_s", StrncpyModel, strncpy_s},
    {"strncat_s", StrncatModel, strncat_s},
};

}  // namespace

TEST_CASE("random calls do what the models do character by character")
{
    const auto kCalls =
        static_cast<unsigned long>(Rounds(1200000));  // legal ones, that were made and compared
    constexpr std::size_t kArena = 96;
    Random random;
    const Guarded memory(kArena);
    const auto at = [&](std::size_t index) {
        return index == kNone ? nullptr : memory.Text() + index;
    };
    unsigned long called[std::size(kCompared)] = {};
    unsigned long results[256] = {};

    errno = kErrno;
    for (unsigned long round = 0; called[0] + called[1] + called[2] < kCalls; round++) {
        const std::size_t zeros = 2 + random.Below(40);  // one byte in so many ends a string
        for (std::size_t i = 0; i < kArena; i++)
            memory.Text()[i] = random.OneIn(zeros) ? '\0' : static_cast<char>(random.Next() | 1);

        const std::size_t which = round % std::size(kCompared);
        const Compared &compared = kCompared[which];
        const Call call = AnyCall(random, kArena);
        Arena arena{memory.Held()};
        const int expected = compared.model(arena, call);
        if (arena.left)
            continue;  // it would read or write where nothing is: not for a caller to ask
        const int result = compared.call(at(call.dest), call.destMax, at(call.src), call.count);
        if (result != expected || memory.Held() != arena.bytes || errno != kErrno)
            FAIL(compared.name << " dest " << call.dest << " destMax " << call.destMax << " src "
                               << call.src << " count " << call.count << ": " << result
                               << ", expected " << expected);
        called[which]++;
        results[result]++;
    }
    CHECK(memory.FrontIntact());
    // The calls were of all kinds: each function, and each result often enough to mean something.
    for (const unsigned long calls : called)
        CHECK(calls > kCalls / 6);
    for (const int result : {0, 22, 34, 150, 162, 182})
        CHECK(results[result] > kCalls / 500);
}
