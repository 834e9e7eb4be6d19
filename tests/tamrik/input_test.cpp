#include "tests/tamrik/input_support.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <cfenv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

// Both engines; the rows of a test are run with each.
static constexpr bool kEngines[] = {false, true};

// What a destination of 16 bytes holds when value was stored in its first bytes.
static std::string Stored(const std::string &value)
{
    return value + Canaries(16 - value.size());
}

static const std::string kUntouched = Canaries(16);

// ---- Integers ----

struct NumberRow {
    const char *format;
    const char *text;
    int result;
    std::string dest;  // all 16 bytes of it
    const char *rest;
};

static void CheckNumbers(const std::vector<NumberRow> &rows)
{
    for (const bool wide : kEngines) {
        for (const NumberRow &row : rows) {
            CAPTURE(wide);
            CAPTURE(row.format);
            CAPTURE(row.text);
            const Guarded dest(16);
            errno = 77;
            const Scanned<char> scanned = ScanWith(wide, row.text, row.format, dest.Text());
            CHECK(scanned == Scanned<char>{row.result, row.rest});
            CHECK(dest.Held() == row.dest);
            CHECK(dest.FrontIntact());
            CHECK(errno == 77);
        }
    }
}

TEST_CASE("integers are read in the base of their conversion")
{
    CheckNumbers({
        {"%d", "42", 1, Stored(Of<int>(42)), ""},
        {"%d", "-42x", 1, Stored(Of<int>(-42)), "x"},
        {"%d", "+7 ", 1, Stored(Of<int>(7)), " "},
        {"%d", " \t\n\v\f\r 5", 1, Stored(Of<int>(5)), ""},
        {"%d", "010", 1, Stored(Of<int>(10)), ""},
        {"%d", "0x10", 1, Stored(Of<int>(0)), "x10"},
        {"%u", "4294967295", 1, Stored(Of<unsigned>(4294967295U)), ""},
        {"%u", "-1", 1, Stored(Of<unsigned>(4294967295U)), ""},
        {"%o", "0778", 1, Stored(Of<int>(63)), "8"},
        {"%o", "8", 0, kUntouched, "8"},
        {"%x", "fFg", 1, Stored(Of<int>(255)), "g"},
        {"%X", "0XfF", 1, Stored(Of<int>(255)), ""},
        {"%x", "-0x1f", 1, Stored(Of<int>(-31)), ""},
        {"%i", "0x1F", 1, Stored(Of<int>(31)), ""},
        {"%i", "017", 1, Stored(Of<int>(15)), ""},
        {"%i", "17", 1, Stored(Of<int>(17)), ""},
        {"%i", "0", 1, Stored(Of<int>(0)), ""},
        {"%i", "-08", 1, Stored(Of<int>(0)), "8"},
        {"%i", "09", 1, Stored(Of<int>(0)), "9"},
        {"%i", "+0xAz", 1, Stored(Of<int>(10)), "z"},
    });
}

TEST_CASE("what only begins like an integer does not match and is used up to the wrong character")
{
    CheckNumbers({
        {"%d", "-", 0, kUntouched, ""},
        {"%d", "-x", 0, kUntouched, "x"},
        {"%d", "+-1", 0, kUntouched, "-1"},
        {"%d", "x", 0, kUntouched, "x"},
        {"%x", "0x", 0, kUntouched, ""},
        {"%x", "0xg", 0, kUntouched, "g"},
        {"%i", "0X ", 0, kUntouched, " "},
        {"%2x", "0x1", 0, kUntouched, "1"},
    });
}

TEST_CASE(
    "an integer beyond 64 bits becomes the nearest one, and a small destination takes its low part")
{
    CheckNumbers({
        {"%lld", "9223372036854775807", 1, Stored(Of<long long>(LLONG_MAX)), ""},
        {"%lld", "9223372036854775808", 1, Stored(Of<long long>(LLONG_MAX)), ""},
        {"%lld", "-9223372036854775808", 1, Stored(Of<long long>(LLONG_MIN)), ""},
        {"%lld", "-9223372036854775809", 1, Stored(Of<long long>(LLONG_MIN)), ""},
        {"%lld", "99999999999999999999999999999999999999999", 1, Stored(Of<long long>(LLONG_MAX)),
         ""},
        {"%llu", "18446744073709551615", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llu", "18446744073709551616", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llu", "-18446744073709551616", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llu", "-2", 1, Stored(Of<unsigned long long>(ULLONG_MAX - 1)), ""},
        {"%llx", "ffffffffffffffff", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llx", "10000000000000000", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llo", "1777777777777777777777", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%llo", "2000000000000000000000", 1, Stored(Of<unsigned long long>(ULLONG_MAX)), ""},
        {"%lli", "0x8000000000000000", 1, Stored(Of<long long>(LLONG_MAX)), ""},
        {"%d", "4294967298", 1, Stored(Of<int>(2)), ""},
        {"%d", "9223372036854775808", 1, Stored(Of<int>(-1)), ""},
        {"%d", "-9223372036854775809", 1, Stored(Of<int>(0)), ""},
        {"%hd", "65537", 1, Stored(Of<short>(1)), ""},
        {"%hhd", "300", 1, Stored(Of<signed char>(44)), ""},
    });
}

TEST_CASE("size letters choose how many bytes of an integer are stored")
{
    CheckNumbers({
        {"%hhd", "-1", 1, Stored(Of<signed char>(-1)), ""},
        {"%hd", "-1", 1, Stored(Of<short>(-1)), ""},
        {"%d", "-1", 1, Stored(Of<int>(-1)), ""},
        {"%ld", "-1", 1, Stored(Of<long>(-1)), ""},
        {"%lld", "-1", 1, Stored(Of<long long>(-1)), ""},
        {"%jd", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%qd", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%Ld", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%td", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%zd", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%I64d", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%I32d", "-1", 1, Stored(Of<int>(-1)), ""},
        {"%Id", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%Ii", "-1", 1, Stored(Of<std::int64_t>(-1)), ""},
        {"%Io", "7", 1, Stored(Of<std::int64_t>(7)), ""},
        {"%Ix", "f", 1, Stored(Of<std::int64_t>(15)), ""},
        {"%IX", "f", 1, Stored(Of<std::int64_t>(15)), ""},
        {"%Iu", "7", 0, kUntouched, "7"},
        {"%I6d", "7", 0, kUntouched, "7"},
        {"%I3d", "7", 0, kUntouched, "7"},
        {"%wd", "-1", 1, Stored(Of<int>(-1)), ""},
        {"%Fd", "-1", 1, Stored(Of<int>(-1)), ""},
        {"%Nd", "-1", 1, Stored(Of<int>(-1)), ""},
        {"%FNhd", "-1", 1, Stored(Of<short>(-1)), ""},
        {"%h3d", "1234", 1, Stored(Of<short>(123)), "4"},
    });
}

TEST_CASE("a width counts the sign and the prefix, and leaves the rest")
{
    CheckNumbers({
        {"%3d", "12345", 1, Stored(Of<int>(123)), "45"},
        {"%3d", "   12345", 1, Stored(Of<int>(123)), "45"},
        {"%3d", "-12345", 1, Stored(Of<int>(-12)), "345"},
        {"%1d", "-1", 0, kUntouched, "1"},
        {"%4x", "0x123", 1, Stored(Of<int>(0x12)), "3"},
        {"%1x", "0x1", 1, Stored(Of<int>(0)), "x1"},
        {"%3i", "0x1f", 1, Stored(Of<int>(1)), "f"},
        {"%99999999999d", "12", 1, Stored(Of<int>(12)), ""},
        {"%2147483648d", "12", 1, Stored(Of<int>(12)), ""},
        {"%007d", "123", 1, Stored(Of<int>(123)), ""},
        {"%1w2d", "0000000000123", 1, Stored(Of<int>(12)), "3"},
    });
}

TEST_CASE("a width of several digits is just that wide")
{
    for (const bool wide : kEngines) {
        char word[20];
        CHECK(ScanWith(wide, "abcdefghijklmnop", "%12s", word, 20U) == Scanned<char>{1, "mnop"});
        CHECK(std::string(word) == "abcdefghijkl");
    }
}

TEST_CASE("as many l as h make text narrow, one more wide")
{
    const struct {
        const char *format;
        bool isWide;
    } rows[] = {{"%hls", false},   {"%lhs", false},   {"%hlls", true},   {"%lhhs", false},
                {"%hhlls", false}, {"%llhhs", false}, {"%hhllls", true}, {"%llhs", true},
                {"%llhhls", true}, {"%lllhhs", true}, {"%hhllhs", false}};
    for (const auto &row : rows) {
        for (const bool wide : kEngines) {
            CAPTURE(row.format);
            const Guarded dest(4 * sizeof(wchar_t));
            CHECK(ScanWith(wide, "ab", row.format, dest.Text(), 4U) == Scanned<char>{1, ""});
            const std::string held =
                row.isWide ? BytesOf(std::wstring(L"ab") + L'\0') : std::string("ab\0", 3);
            CHECK(dest.Held() == held + Canaries(dest.size - held.size()));
        }
    }
}

TEST_CASE("a width written as 0 skips blanks, gives the next character back and ends the scan")
{
    CheckNumbers({
        {"%0d", "  5", 0, kUntouched, "5"},
        {"%00d", "5", 0, kUntouched, "5"},
        {"%0lf", "  5", 0, kUntouched, "5"},
        {"%0n", "5", 0, kUntouched, "5"},
        {"%0d", "  ", -1, kUntouched, ""},
    });
}

TEST_CASE("a width written as 0 at the input's end gives EOF, and text is as it was")
{
    for (const bool wide : kEngines) {
        for (const char *format : {"%0s", "%0c", "%0[a]"}) {
            CAPTURE(format);
            const Guarded dest(16);
            CHECK(ScanWith(wide, "", format, dest.Text(), 16U) == Scanned<char>{-1, ""});
            CHECK(dest.Held() == kUntouched);
        }
    }
    CheckNumbers({{"%0d", "", -1, kUntouched, ""}});
}

TEST_CASE("pointers are hexadecimal or the text of the null pointer")
{
    CheckNumbers({
        {"%p", "0x7ffe01", 1, Stored(Of<std::uintptr_t>(0x7ffe01)), ""},
        {"%p", "dead beef", 1, Stored(Of<std::uintptr_t>(0xdead)), " beef"},
        {"%hp", "12345678abc", 1, Stored(Of<std::uintptr_t>(0x12345678abc)), ""},
        {"%p", " (nil)x", 1, Stored(Of<std::uintptr_t>(0)), "x"},
        {"%p", "(NIL)", 1, Stored(Of<std::uintptr_t>(0)), ""},
        {"%p", "(nix)", 0, kUntouched, "x)"},
        {"%3p", "(nil)", 0, kUntouched, "l)"},
        {"%p", "(nil\t", 0, kUntouched, "\t"},
        {"%x", "(nil)", 0, kUntouched, "(nil)"},
    });
}

// ---- Floating point ----

TEST_CASE("floats are read as strtod reads them, in the size that the letters say")
{
    const double big = 1234567890123456789.0;
    CheckNumbers({
        {"%f", "1.5", 1, Stored(Of<float>(1.5F)), ""},
        {"%lf", "1.5x", 1, Stored(Of<double>(1.5)), "x"},
        {"%le", "-2.5e-3", 1, Stored(Of<double>(-2.5e-3)), ""},
        {"%lg", "+.5", 1, Stored(Of<double>(0.5)), ""},
        {"%lE", "5.", 1, Stored(Of<double>(5)), ""},
        {"%lG", "1E+2", 1, Stored(Of<double>(100)), ""},
        {"%la", "0x1.8p1", 1, Stored(Of<double>(3)), ""},
        {"%lA", "0X.8P1", 1, Stored(Of<double>(1)), ""},
        {"%lf", "1234567890123456789", 1, Stored(Of<double>(big)), ""},
        {"%lf", "1e999", 1, Stored(Of<double>(INFINITY)), ""},
        {"%lf", "-1e999", 1, Stored(Of<double>(-INFINITY)), ""},
        {"%lf", "1e-999", 1, Stored(Of<double>(0)), ""},
        {"%lf", "-0", 1, Stored(Of<double>(-0.0)), ""},
        {"%lf", "inf", 1, Stored(Of<double>(INFINITY)), ""},
        {"%lf", "-INFinity", 1, Stored(Of<double>(-INFINITY)), ""},
        {"%f", "1e300", 1, Stored(Of<float>(std::numeric_limits<float>::infinity())), ""},
        {"%llf", "2", 1, Stored(Of<double>(2)), ""},
        {"%jf", "2", 1, Stored(Of<double>(2)), ""},
        {"%I64f", "2", 1, Stored(Of<double>(2)), ""},
        {"%hf", "2", 1, Stored(Of<float>(2)), ""},
        {"%F", "2", 0, kUntouched, "2"},
    });
    for (const bool wide : kEngines) {
        double value = 0;
        CHECK(ScanWith(wide, "nan", "%lf", &value) == Scanned<char>{1, ""});
        CHECK(std::isnan(value));
        value = 0;
        for (const char *text : {"NAN2", "nan(azAZ09)2", "-nan(ab_1)2"}) {
            CAPTURE(text);
            value = 0;
            CHECK(ScanWith(wide, text, "%lf", &value) == Scanned<char>{1, "2"});
            CHECK(std::isnan(value));
        }
        CHECK(std::signbit(value));
    }
}

TEST_CASE("a long double has the precision of its type")
{
    for (const bool wide : kEngines) {
        for (const char *format : {"%Lf", "%qf"}) {
            long double value = 0;
            CHECK(ScanWith(wide, "0.1", format, &value) == Scanned<char>{1, ""});
            CHECK(value == 0.1L);
        }
    }
}

TEST_CASE("a float is the double made smaller")
{
    // Directly to float this text rounds up; by way of double it is a tie that goes to the even
    // one.
    const char *text = "1.00000005960464477540";
    float value = 0;
    CHECK(Scan(text, "%f", &value) == Scanned<char>{1, ""});
    CHECK(value == static_cast<float>(std::strtod(text, nullptr)));
    CHECK(value != std::strtof(text, nullptr));
}

TEST_CASE("what only begins like a float does not match")
{
    CheckNumbers({
        {"%lf", "100ergs", 0, kUntouched, "rgs"},
        {"%lf", "1e", 0, kUntouched, ""},
        {"%lf", "1e+", 0, kUntouched, ""},
        {"%lf", "1e+x", 0, kUntouched, "x"},
        {"%lf", "-", 0, kUntouched, ""},
        {"%lf", ".", 0, kUntouched, ""},
        {"%lf", ".e1", 0, kUntouched, "e1"},
        {"%lf", "--1", 0, kUntouched, "-1"},
        {"%lf", "0x", 0, kUntouched, ""},
        {"%lf", "0xp1", 0, kUntouched, "p1"},
        {"%lf", "0x1p", 0, kUntouched, ""},
        {"%lf", "0x.p1", 0, kUntouched, "p1"},
        {"%lf", "in", 0, kUntouched, ""},
        {"%lf", "infin", 0, kUntouched, ""},
        {"%lf", "nab", 0, kUntouched, "b"},
        {"%lf", "nan(1", 0, kUntouched, ""},
        {"%lf", "nan(1-)", 0, kUntouched, "-)"},
        {"%lf", "nan(a{)", 0, kUntouched, "{)"},
        {"%lf", "nan(a@)", 0, kUntouched, "@)"},
        {"%lf", "1.2.3", 1, Stored(Of<double>(1.2)), ".3"},
    });
}

TEST_CASE("a float ends where its width ends")
{
    CheckNumbers({
        {"%3lf", "1.2345", 1, Stored(Of<double>(1.2)), "345"},
        {"%2lf", "1.2345", 1, Stored(Of<double>(1)), "2345"},
        {"%3lf", "-1e5", 0, kUntouched, "5"},
        {"%4lf", "infinity", 0, kUntouched, "nity"},
        {"%3lf", "infinity", 1, Stored(Of<double>(INFINITY)), "inity"},
    });
}

TEST_CASE("a float of any length is read, around the size of the text buffer and far beyond it")
{
    for (const bool wide : kEngines) {
        for (const std::size_t length :
             {348UL, 349UL, 350UL, 351UL, 699UL, 700UL, 701UL, 1400UL, 100000UL}) {
            CAPTURE(length);
            const std::string text = "0." + std::string(length - 3, '0') + "7";
            double value = 0;
            CHECK(ScanWith(wide, text, "%lf", &value) == Scanned<char>{1, ""});
            CHECK(value == std::strtod(text.c_str(), nullptr));
            // A short one after it uses the same buffer.
            double second = 0;
            CHECK(ScanWith(wide, text + " 2.5", "%lf%lf", &value, &second) == Scanned<char>{2, ""});
            CHECK(second == 2.5);
        }
    }
}

// ---- Strings, characters, sets ----

struct TextRow {
    const char *format;
    const char *text;
    unsigned int size;
    int result;
    std::string dest;  // all size bytes of it
    const char *rest;
};

// The conversion is the only one in the format, and narrow.
static void CheckTexts(const std::vector<TextRow> &rows)
{
    for (const bool wide : kEngines) {
        for (const TextRow &row : rows) {
            CAPTURE(wide);
            CAPTURE(row.format);
            CAPTURE(row.text);
            CAPTURE(row.size);
            const Guarded dest(row.size);
            const Scanned<char> scanned =
                ScanWith(wide, row.text, row.format, dest.Text(), row.size);
            CHECK(scanned == Scanned<char>{row.result, row.rest});
            CHECK(dest.Held() == row.dest);
            CHECK(dest.FrontIntact());
        }
    }
}

TEST_CASE("strings end at white space, at their width and at the end of the input")
{
    CheckTexts({
        {"%s", "  abc def", 8, 1, WithTerminator("abc") + Canaries(4), " def"},
        {"%s", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%2s", "abc", 4, 1, WithTerminator("ab") + Canaries(1), "c"},
        {"%3s", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%9s", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%s", "a\tb", 4, 1, WithTerminator("a") + Canaries(2), "\tb"},
        {"%hs", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%hS", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%hhS", "abc", 4, 1, WithTerminator("abc"), ""},
    });
}

TEST_CASE("a word ends at each white space and at no other character, wherever that stands")
{
    constexpr std::size_t kLength = 20;
    for (int ch = 0; ch <= 255; ++ch) {
        const bool isBlank = ch == ' ' || (ch >= '\t' && ch <= '\r');
        for (std::size_t at = 0; at < kLength; ++at) {
            CAPTURE(ch);
            CAPTURE(at);
            std::string text(kLength, 'a');
            text[at] = static_cast<char>(ch);
            const std::size_t begin = isBlank && at == 0 ? 1 : 0;
            const std::size_t end = isBlank && at > 0 ? at : kLength;
            const Guarded dest(kLength + 1);
            const Scanned<char> scanned = Scan(text, "%s", dest.Text(), dest.size);
            CHECK(scanned == Scanned<char>{1, text.substr(end)});
            CHECK(dest.Held() == WithTerminator(text.substr(begin, end - begin)) +
                                     Canaries(kLength - (end - begin)));
        }
    }
}

TEST_CASE(
    "a field that does not fit its size leaves an empty string and the character that had no room")
{
    CheckTexts({
        {"%s", "abcdef", 4, 0, '\0' + std::string("bc") + Canaries(1), "def"},
        {"%s", "abcd", 4, 0, '\0' + std::string("bc") + Canaries(1), "d"},
        {"%4s", "abcdef", 4, 0, '\0' + std::string("bc") + Canaries(1), "def"},
        {"%s", "a", 1, 0, WithTerminator(""), "a"},
        {"%[a-z]", "abcdef", 4, 0, '\0' + std::string("bc") + Canaries(1), "def"},
        {"%5c", "abcdef", 4, 0, '\0' + std::string("bcd"), "ef"},
    });
}

TEST_CASE("a missing field empties no text: what the destination held stays")
{
    CheckTexts({
        {"%s", "", 4, -1, Canaries(4), ""},
        {"%s", "   ", 4, -1, Canaries(4), ""},
        {"%5s", "   ", 4, -1, Canaries(4), ""},
        {"%s", "", 1, -1, Canaries(1), ""},
        {"%c", "", 4, -1, Canaries(4), ""},
        {"%3c", "", 4, -1, Canaries(4), ""},
        {"%[a]", "", 4, -1, Canaries(4), ""},
        {"%[a]", "b", 4, 0, Canaries(4), "b"},
        {"%[0-9]", "xyz", 4, 0, Canaries(4), "xyz"},
        {"%5[0-9]", "xyz", 4, 0, Canaries(4), "xyz"},
        {"%[^x]", "xyz", 1, 0, Canaries(1), "xyz"},
        {"%0s", " b", 4, 0, Canaries(4), "b"},
        {"%0c", " b", 4, 0, Canaries(4), " b"},
        {"%0[b]", "b", 4, 0, Canaries(4), "b"},
        {"%[abc", "abc", 4, 0, Canaries(4), "abc"},
        {"%[", "abc", 4, 0, Canaries(4), "abc"},
        {"%[]", "]", 4, 0, Canaries(4), "]"},
        {"%[^]", "a", 4, 0, Canaries(4), "a"},
    });
}

TEST_CASE("a missing field of wide text leaves its destination as it was too")
{
    for (const bool wide : kEngines) {
        const Guarded dest(4 * sizeof(wchar_t));
        for (const char *format : {"%ls", "%5ls", "%S", "%lc", "%C", "%l[0-9]", "%0ls"}) {
            CAPTURE(format);
            CHECK(ScanWith(wide, "", format, dest.Text(), 4U) == Scanned<char>{-1, ""});
        }
        CHECK(ScanWith(wide, "  ", "%ls", dest.Text(), 4U) == Scanned<char>{-1, ""});
        CHECK(ScanWith(wide, "xyz", "%l[0-9]", dest.Text(), 4U) == Scanned<char>{0, "xyz"});
        CHECK(ScanWith(wide, "x", "%l[x", dest.Text(), 4U) == Scanned<char>{0, "x"});
        CHECK(dest.Held() == Canaries(dest.size));
    }
}

TEST_CASE("characters are stored without a terminator, unless the input ends before the width")
{
    CheckTexts({
        {"%c", " b", 4, 1, " " + Canaries(3), "b"},
        {"%c", "ab", 1, 1, "a", "b"},
        {"%3c", "a bc", 4, 1, "a b" + Canaries(1), "c"},
        {"%4c", "abcd", 4, 1, "abcd", ""},
        {"%4c", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%9c", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%hC", "abc", 4, 1, "a" + Canaries(3), "bc"},
    });
}

TEST_CASE("characters cut short by the input's end need room for the terminator")
{
    CheckTexts({
        {"%5c", "abc", 4, 1, WithTerminator("abc"), ""},
        {"%5c", "abcd", 4, 0, '\0' + std::string("bcd"), ""},
        {"%2c", "a", 1, 0, WithTerminator(""), ""},
    });
}

TEST_CASE("sets know ranges, negation and a ']' that comes first")
{
    CheckTexts({
        {"%[a-c]", "abcd", 8, 1, WithTerminator("abc") + Canaries(4), "d"},
        {"%[^a-c]", "xyzb", 8, 1, WithTerminator("xyz") + Canaries(4), "b"},
        {"%[]a]", "]a]x", 8, 1, WithTerminator("]a]") + Canaries(4), "x"},
        {"%[^]a]", "xy]", 8, 1, WithTerminator("xy") + Canaries(5), "]"},
        {"%[a-]", "a-b", 8, 1, WithTerminator("a-") + Canaries(5), "b"},
        {"%[-a]", "-ab", 8, 1, WithTerminator("-a") + Canaries(5), "b"},
        {"%[^-a]", "b-", 8, 1, WithTerminator("b") + Canaries(6), "-"},
        {"%[z-a]", "z-ab", 8, 1, WithTerminator("z-a") + Canaries(4), "b"},
        {"%[a-c-e]", "dex", 8, 1, WithTerminator("de") + Canaries(5), "x"},
        {"%[a-a]", "aab", 8, 1, WithTerminator("aa") + Canaries(5), "b"},
        {"%[a^]", "^ab", 8, 1, WithTerminator("^a") + Canaries(5), "b"},
        {"%[ a]", " a b", 8, 1, WithTerminator(" a ") + Canaries(4), "b"},
        {"%[%d]", "%dx", 8, 1, WithTerminator("%d") + Canaries(5), "x"},
        {"%2[a-c]", "abc", 8, 1, WithTerminator("ab") + Canaries(5), "c"},
    });
}

TEST_CASE("a range from a character to itself is that character alone")
{
    for (const bool wide : kEngines) {
        char text[8];
        CHECK(ScanWith(wide, "aa-a", "%[a-a]", text, 8U) == Scanned<char>{1, "-a"});
        CHECK(std::string(text) == "aa");
    }
}

TEST_CASE("every byte is a member of the sets that name it and of no other")
{
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        const bool isPlain = byte != ']' && byte != '^';
        const Guarded dest(2);
        CAPTURE(byte);
        if (isPlain) {
            CHECK(Scan(text, ("%[" + text + "]").c_str(), dest.Text(), 2U).result == 1);
            CHECK(dest.Held() == WithTerminator(text));
            CHECK(Scan(text, ("%[^" + text + "]").c_str(), dest.Text(), 2U).result == 0);
        }
        CHECK(Scan(text, "%[\x01-\xFF]", dest.Text(), 2U).result == 1);
        CHECK(Scan(text, "%[^\x01-\xFF]", dest.Text(), 2U).result == 0);
    }
}

TEST_CASE("a zero in the text of a string source is a character like others")
{
    const Guarded dest(8);
    CHECK(Scan(std::string("a\0b c", 5), "%s", dest.Text(), 8U) == Scanned<char>{1, " c"});
    CHECK(dest.Held() == std::string("a\0b\0", 4) + Canaries(4));
}

// ---- Parameters ----

TEST_CASE("a size of 0 stores an empty string, narrow or wide, and ends the scan with -2")
{
    for (const bool wide : kEngines) {
        for (const char *format : {"%s", "%c", "%[a]", "%5s", "%hS"}) {
            CAPTURE(format);
            const Guarded dest(4);
            CHECK(ScanWith(wide, "  a", format, dest.Text(), 0U) == Scanned<char>{-2, "  a"});
            CHECK(dest.Held() == '\0' + Canaries(3));
        }
        for (const char *format : {"%ls", "%ws", "%S", "%C", "%lc", "%l[a]"}) {
            CAPTURE(format);
            const Guarded dest(8);
            CHECK(ScanWith(wide, "  a", format, dest.Text(), 0U) == Scanned<char>{-2, "  a"});
            CHECK(dest.Held() == std::string(4, '\0') + Canaries(4));
        }
    }
}

TEST_CASE("a size that is too large ends the scan with -2 and the destination untouched")
{
    for (const bool wide : kEngines) {
        const Guarded dest(8);
        for (const char *format : {"%s", "%c", "%[a]"}) {
            CHECK(ScanWith(wide, " a", format, dest.Text(), 0x80000000U) ==
                  Scanned<char>{-2, " a"});
            CHECK(ScanWith(wide, " a", format, dest.Text(), 0xFFFFFFFFU) ==
                  Scanned<char>{-2, " a"});
        }
        for (const char *format : {"%ls", "%S", "%lc", "%l[a]"})
            CHECK(ScanWith(wide, " a", format, dest.Text(), 0x20000000U) ==
                  Scanned<char>{-2, " a"});
        CHECK(dest.Held() == Canaries(8));
        CHECK(ScanWith(wide, "a", "%s", dest.Text(), 0x7FFFFFFFU) == Scanned<char>{1, ""});
        CHECK(dest.Held() == WithTerminator("a") + Canaries(6));
        dest.Fill();
        CHECK(ScanWith(wide, "a", "%ls", dest.Text(), 0x1FFFFFFFU) == Scanned<char>{1, ""});
        CHECK(dest.Held() == BytesOf(std::wstring(L"a") + L'\0'));
    }
}

TEST_CASE("of a size given in 64 bits the low 32 count")
{
    const Guarded dest(4);
    CHECK(Scan("abcd", "%s", dest.Text(), 0x100000004UL) == Scanned<char>{0, "d"});
    CHECK(Scan("abc", "%s", dest.Text(), 0x100000004UL) == Scanned<char>{1, ""});
    CHECK(dest.Held() == WithTerminator("abc"));
}

TEST_CASE("a null destination ends the scan with -2 before blanks are skipped")
{
    for (const bool wide : kEngines) {
        for (const char *format : {"%d", "%lf", "%s", "%c", "%[a]", "%p", "%n", "%ls"}) {
            CAPTURE(format);
            CHECK(ScanWith(wide, "  1", format, nullptr, 4U) == Scanned<char>{-2, "  1"});
        }
        int first = 0;
        CHECK(ScanWith(wide, "1 2", "%d%d", &first, nullptr) == Scanned<char>{-2, " 2"});
        CHECK(first == 1);
    }
}

TEST_CASE("a source or format that is missing or of no kind gives -2")
{
    InputSource source = {};
    int value = 7;
    CHECK(ScanSource(nullptr, "%d", &value) == -2);
    CHECK(WideScanSource(nullptr, L"%d", &value) == -2);
    CHECK(ScanSource(&source, "%d", &value) == -2);
    CHECK(WideScanSource(&source, L"%d", &value) == -2);
    source.kind = kStringSource;
    source.count = 1;
    CHECK(ScanSource(&source, "%d", &value) == -2);
    source = FileSource(nullptr);
    CHECK(ScanSource(&source, "%d", &value) == -2);
    CHECK(WideScanSource(&source, L"%d", &value) == -2);

    const Guarded text(std::string("1"));
    source = StringSource(text);
    va_list none = {};
    CHECK(tamrik_input_s(&source, nullptr, none) == -2);
    CHECK(tamrik_winput_s(&source, nullptr, none) == -2);
    CHECK(value == 7);

    source = {};
    source.kind = kStringSource;
    CHECK(ScanSource(&source, "%d", &value) == -1);
    CHECK(WideScanSource(&source, L"%d", &value) == -1);
}

// ---- Formats ----

TEST_CASE("the result counts the fields stored")
{
    for (const bool wide : kEngines) {
        int a = 0;
        int b = 0;
        CHECK(ScanWith(wide, "1 2", "%d %d", &a, &b) == Scanned<char>{2, ""});
        CHECK(a == 1);
        CHECK(b == 2);
        CHECK(ScanWith(wide, "1", "%d %d", &a, &b) == Scanned<char>{1, ""});
        CHECK(ScanWith(wide, "1 ", "%d %d", &a, &b) == Scanned<char>{1, ""});
        CHECK(ScanWith(wide, "1 x", "%d %d", &a, &b) == Scanned<char>{1, "x"});
        CHECK(ScanWith(wide, "x", "%d", &a) == Scanned<char>{0, "x"});
        CHECK(ScanWith(wide, "x", "") == Scanned<char>{0, "x"});
        CHECK(ScanWith(wide, "", "") == Scanned<char>{0, ""});
        CHECK(ScanWith(wide, "", " ") == Scanned<char>{0, ""});
    }
}

TEST_CASE("a field that met the input's end is the last, one that its width ended there is not")
{
    const struct {
        const char *text;
        const char *format;
        bool isLast;
    } rows[] = {{"abc", "%s%s", true},   {"abc", "%3s%s", false},  {"ab", "%ls%s", true},
                {"ab", "%2ls%s", false}, {"ab", "%[a-b]%s", true}, {"ab", "%2[a-b]%s", false}};
    for (const auto &row : rows) {
        for (const bool wide : kEngines) {
            CAPTURE(row.format);
            const Guarded first(4 * sizeof(wchar_t));
            const Guarded second(4);
            // A size of 0 tells whether the second conversion was begun.
            CHECK(ScanWith(wide, row.text, row.format, first.Text(), 4U, second.Text(), 0U) ==
                  Scanned<char>{row.isLast ? 1 : -2, ""});
            CHECK(second.Held() == (row.isLast ? Canaries(4) : '\0' + Canaries(3)));
        }
    }
}

TEST_CASE("input that ends before the first conversion gives EOF")
{
    for (const bool wide : kEngines) {
        int a = 0;
        CHECK(ScanWith(wide, "", "%d", &a) == Scanned<char>{-1, ""});
        CHECK(ScanWith(wide, " \n", "%d", &a) == Scanned<char>{-1, ""});
        CHECK(ScanWith(wide, "ab", "abc%d", &a) == Scanned<char>{-1, ""});
        CHECK(ScanWith(wide, "", "%%") == Scanned<char>{-1, ""});
        CHECK(ScanWith(wide, "", "%n%d", &a, &a) == Scanned<char>{-1, ""});
        // A suppressed conversion is one: none is missing in front of it.
        CHECK(ScanWith(wide, "5", "%*d%d", &a) == Scanned<char>{0, ""});
        CHECK(ScanWith(wide, "5 ", "%*d%d", &a) == Scanned<char>{0, ""});
    }
}

TEST_CASE("white space in the format skips any amount of it, and none")
{
    for (const bool wide : kEngines) {
        int a = 0;
        CHECK(ScanWith(wide, " \t\n\v\f\r1", " %d", &a) == Scanned<char>{1, ""});
        CHECK(ScanWith(wide, "x  \n  yz", "x y") == Scanned<char>{0, "z"});
        CHECK(ScanWith(wide, "xyz", "x\t\n y") == Scanned<char>{0, "z"});
        CHECK(ScanWith(wide, "  x", " ") == Scanned<char>{0, "x"});
    }
}

TEST_CASE("literal text must be the next in the input; what differs is given back")
{
    for (const bool wide : kEngines) {
        int a = 0;
        CHECK(ScanWith(wide, "ab1", "ab%d", &a) == Scanned<char>{1, ""});
        CHECK(ScanWith(wide, "ac1", "ab%d", &a) == Scanned<char>{0, "c1"});
        CHECK(ScanWith(wide, " ab1", "ab%d", &a) == Scanned<char>{0, " ab1"});
        CHECK(ScanWith(wide, "AB", "ab") == Scanned<char>{0, "AB"});
        CHECK(ScanWith(wide, "1,2", "%d,%d", &a, &a) == Scanned<char>{2, ""});
        CHECK(ScanWith(wide, "1 ,2", "%d,%d", &a, &a) == Scanned<char>{1, " ,2"});
    }
}

TEST_CASE("a doubled percent sign matches one, after blanks")
{
    for (const bool wide : kEngines) {
        int a = 0;
        CHECK(ScanWith(wide, "5%x", "%d%%", &a) == Scanned<char>{1, "x"});
        CHECK(ScanWith(wide, "5  %x", "%d%%x", &a) == Scanned<char>{1, ""});
        CHECK(ScanWith(wide, "5x", "%d%%", &a) == Scanned<char>{1, "x"});
    }
}

TEST_CASE("a percent sign with a width of 0 is not matched: blanks are skipped and the scan ends")
{
    for (const bool wide : kEngines) {
        int a = 7;
        CHECK(ScanWith(wide, "  %5", "%0%%d", &a) == Scanned<char>{0, "%5"});
        CHECK(ScanWith(wide, "%5", "%*0%%d", &a) == Scanned<char>{0, "%5"});
        CHECK(ScanWith(wide, "  ", "%0%%d", &a) == Scanned<char>{-1, ""});
        CHECK(a == 7);
        CHECK(ScanWith(wide, "%5", "%1%%d", &a) == Scanned<char>{1, ""});
        CHECK(a == 5);
    }
}

TEST_CASE("a star reads a field without an argument")
{
    for (const bool wide : kEngines) {
        int a = 0;
        for (const char *format : {"%*d %d", "%*s%d", "%*lf%d", "%*[0-9]%d", "%*2c%d", "%*i%d",
                                   "%*ls%d", "%*lc %d", "%*Lf%d", "%2*d %d"}) {
            CAPTURE(format);
            a = 0;
            CHECK(ScanWith(wide, "1 2", format, &a) == Scanned<char>{1, ""});
            CHECK(a == 2);
        }
        a = 7;
        CHECK(ScanWith(wide, "1", "%d%*n%n", &a, &a) == Scanned<char>{1, ""});
        int n = -7;
        CHECK(ScanWith(wide, "1 ", "%d%*n%n", &a, &n) == Scanned<char>{1, " "});
        CHECK(n == 1);
    }
}

TEST_CASE("a directive that makes no sense ends the scan with the fields so far")
{
    for (const bool wide : kEngines) {
        int a = 0;
        for (const char *format : {"%d%{ab}", "%d%y", "%d%", "%d%5", "%d%*", "%d%l", "%d%b", "%d%D",
                                   "%d%I", "%d%Is", "%d%.3d", "%d%-d", "%d%m", "%d%&", "%d%5:d"}) {
            CAPTURE(format);
            CHECK(ScanWith(wide, "1 2", format, &a, &a, 4U) == Scanned<char>{1, " 2"});
        }
        CHECK(ScanWith(wide, "1", "%y") == Scanned<char>{0, "1"});
        CHECK(ScanWith(wide, "1", "%{") == Scanned<char>{0, "1"});
    }
}

TEST_CASE("a position is the number of characters read, in every size, and is no field")
{
    CheckNumbers({
        {" ab %n", " ab c", 0, Stored(Of<int>(4)), "c"},
        {"ab%hhn", "abc", 0, Stored(Of<signed char>(2)), "c"},
        {"ab%hn", "abc", 0, Stored(Of<short>(2)), "c"},
        {"ab%ln", "abc", 0, Stored(Of<long>(2)), "c"},
        {"ab%lln", "abc", 0, Stored(Of<long long>(2)), "c"},
        {"%n", "", 0, Stored(Of<int>(0)), ""},
        {"%5n", "abc", 0, Stored(Of<int>(0)), "abc"},
    });
}

TEST_CASE(
    "after a conversion that met the end of the input only a directly following position is stored")
{
    for (const bool wide : kEngines) {
        int a = 0;
        int n = -7;
        CHECK(ScanWith(wide, "12", "%d%n", &a, &n) == Scanned<char>{1, ""});
        CHECK(n == 2);
        n = -7;
        CHECK(ScanWith(wide, "12", "%d %n", &a, &n) == Scanned<char>{1, ""});
        CHECK(n == -7);
        // Here the number ended before the input did.
        CHECK(ScanWith(wide, "12 ", "%d %n", &a, &n) == Scanned<char>{1, ""});
        CHECK(n == 3);
        n = -7;
        CHECK(ScanWith(wide, "12", "%2d %n", &a, &n) == Scanned<char>{1, ""});
        CHECK(n == 2);
    }
}

TEST_CASE("a string source can be scanned again where the scan before ended")
{
    const Guarded text(std::string("12 34x"));
    InputSource source = StringSource(text);
    int a = 0;
    char word[4];
    CHECK(ScanSource(&source, "%d", &a) == 1);
    CHECK(a == 12);
    CHECK(ScanSource(&source, "%d", &a) == 1);
    CHECK(a == 34);
    CHECK(ScanSource(&source, "%s", word, 4U) == 1);
    CHECK(std::string(word) == "x");
    CHECK(ScanSource(&source, "%d", &a) == -1);
}

// ---- Wide text ----

TEST_CASE("wide destinations take the characters of the locale's encoding")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const std::string text = "h\xC3\xA4\xE6\x97\xA5\xF0\x9F\x98\x80 x";  // 1 to 4 bytes
    const std::wstring wideText = L"h\u00E4\u65E5\U0001F600 x";
    const std::string expected = BytesOf(std::wstring(L"h\u00E4\u65E5\U0001F600") + L'\0');
    for (const char *format : {"%ls", "%S", "%ws", "%l[^ ]", "%lls", "%4ls", "%w[^ ]"}) {
        CAPTURE(format);
        const Guarded dest(5 * sizeof(wchar_t));
        CHECK(Scan(text, format, dest.Text(), 5U) == Scanned<char>{1, " x"});
        CHECK(dest.Held() == expected);
        dest.Fill();
        CHECK(WideScan(wideText, Widened(format).c_str(), dest.Text(), 5U) ==
              Scanned<wchar_t>{1, L" x"});
        CHECK(dest.Held() == expected);
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("the width of wide text counts whole characters, a position the bytes")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const std::string text = "\xC3\xA4\xE6\x97\xA5x";
    const Guarded dest(3 * sizeof(wchar_t));
    int n = 0;
    CHECK(Scan(text, "%2ls%n", dest.Text(), 3U, &n) == Scanned<char>{1, "x"});
    CHECK(dest.Held() == BytesOf(std::wstring(L"\u00E4\u65E5") + L'\0'));
    CHECK(n == 5);
    dest.Fill();
    CHECK(Scan(text, "%2lc%n", dest.Text(), 2U, &n) == Scanned<char>{1, "x"});
    CHECK(dest.Held() == BytesOf(std::wstring(L"\u00E4\u65E5")) + Canaries(sizeof(wchar_t)));
    CHECK(n == 5);
    dest.Fill();
    CHECK(Scan(text, "%C", dest.Text(), 1U) == Scanned<char>{1, "\xE6\x97\xA5x"});
    CHECK(dest.Held() == BytesOf(std::wstring(L"\u00E4")) + Canaries(2 * sizeof(wchar_t)));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a wide field that does not fit is empty, and its character is given back whole")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const Guarded dest(2 * sizeof(wchar_t));
    CHECK(Scan("a\xC3\xA4", "%ls", dest.Text(), 2U) == Scanned<char>{0, "\xC3\xA4"});
    CHECK(dest.Held() == std::string(4, '\0') + Canaries(4));
    dest.Fill();
    CHECK(WideScan(L"a\u00E4", L"%ls", dest.Text(), 2U) == Scanned<wchar_t>{0, L"\u00E4"});
    CHECK(dest.Held() == std::string(4, '\0') + Canaries(4));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a byte that cannot be in a set ends wide text before it is decoded")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    struct Row {
        const char *text;
        const char *format;
        const wchar_t *stored;
        const char *rest;
    };
    for (const Row &row :
         {Row{"abc\xFF", "%l[a-z]", L"abc", "\xFF"}, Row{"abc\xC3(", "%l[a-z]", L"abc", "\xC3("},
          Row{"abc\xC3", "%w[a-z]", L"abc", "\xC3"},
          Row{"abc\xE6\x97", "%5l[^\x80-\xFF]", L"abc", "\xE6\x97"},
          Row{"a\xC3\xA4\xC3\xBC", "%l[a\xC3\xA4]", L"a\u00E4", "\xC3\xBC"}}) {
        CAPTURE(row.text);
        CAPTURE(row.format);
        const std::string held = BytesOf(std::wstring(row.stored) + L'\0');
        const Guarded dest(4 * sizeof(wchar_t));
        CHECK(Scan(row.text, row.format, dest.Text(), 4U) == Scanned<char>{1, row.rest});
        CHECK(dest.Held() == held + Canaries(dest.size - held.size()));
        // The scan goes on with that byte.
        char next = '\0';
        CHECK(Scan(row.text, (row.format + std::string("%c")).c_str(), dest.Text(), 4U, &next,
                   1U) == Scanned<char>{2, row.rest + 1});
        CHECK(next == *row.rest);
    }
    const Guarded untouched(4);
    CHECK(Scan("\xFF", "%l[a-z]", untouched.Text(), 1U) == Scanned<char>{0, "\xFF"});
    CHECK(untouched.Held() == Canaries(4));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("bytes that are no character end wide text that they could belong to, the field empty")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const std::string held = BytesOf(std::wstring(L"\0b", 2)) + Canaries(2 * sizeof(wchar_t));
    for (const char *bytes : {"\xFF", "\xC3", "\xC3(", "\xC3 x"}) {
        CAPTURE(bytes);
        for (const char *format : {"%ls", "%l[^x]", "%l[a-z\xC3(\xFF ]"}) {
            CAPTURE(format);
            const Guarded dest(4 * sizeof(wchar_t));
            CHECK(Scan(std::string("ab") + bytes, format, dest.Text(), 4U) ==
                  Scanned<char>{0, bytes});
            CHECK(dest.Held() == held);
        }
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("bytes that are no character end the scan, the field empty")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (const char *text :
         {"\xFF", "\xC3", "\xC3(", "\xE6\x97", "\xE6\x97x", "\xED\xA0\x80", "\xC0\x80"}) {
        CAPTURE(text);
        for (const char *format : {"%ls", "%lc", "%l[^x]", "%5lc"}) {
            const Guarded dest(4 * sizeof(wchar_t));
            errno = 77;
            CHECK(Scan(std::string("a") + text, (std::string("a") + format).c_str(), dest.Text(),
                       4U) == Scanned<char>{0, text});
            CHECK(dest.Held() == std::string(4, '\0') + Canaries(12));
            CHECK(errno == 77);
        }
        // Narrow text takes any bytes.
        const Guarded bytes(8);
        CHECK(Scan(text, "%s", bytes.Text(), 8U) == Scanned<char>{1, ""});
        CHECK(bytes.Held().substr(0, std::strlen(text) + 1) == WithTerminator(text));
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("the wide engine stores narrow text in the locale's encoding, whole characters only")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const Guarded dest(4);
    CHECK(WideScan(L"a\u00E4 x", L"%s", dest.Text(), 4U) == Scanned<wchar_t>{1, L" x"});
    CHECK(dest.Held() == WithTerminator("a\xC3\xA4"));
    dest.Fill();
    CHECK(WideScan(L"ab\u00E4", L"%s", dest.Text(), 4U) == Scanned<wchar_t>{0, L"\u00E4"});
    CHECK(dest.Held() == '\0' + std::string("b") + Canaries(2));
    dest.Fill();
    CHECK(WideScan(L"ab\u00E4c", L"%3c", dest.Text(), 4U) == Scanned<wchar_t>{1, L"c"});
    CHECK(dest.Held() == "ab\xC3\xA4");
    dest.Fill();
    CHECK(WideScan(L"\u65E5\u672C", L"%[^x]", dest.Text(), 4U) == Scanned<wchar_t>{0, L"\u672C"});
    CHECK(dest.Held() == '\0' + std::string("\x97\xA5") + Canaries(1));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a wide character that the locale has not ends the scan, the field empty")
{
    std::setlocale(LC_ALL, "C");
    const Guarded dest(4);
    CHECK(WideScan(L"a\u65E5", L"%s", dest.Text(), 4U) == Scanned<wchar_t>{0, L"\u65E5"});
    CHECK(dest.Held() == '\0' + Canaries(3));
    const Guarded wide(8);
    CHECK(WideScan(L"\u65E5", L"%ls", wide.Text(), 2U) == Scanned<wchar_t>{1, L""});
    CHECK(wide.Held() == BytesOf(std::wstring(L"\u65E5") + L'\0'));
}

TEST_CASE("sets of the wide engine know every character")
{
    const Guarded dest(4 * sizeof(wchar_t));
    CHECK(WideScan(L"\u65E5\u672Cx", L"%l[\u6500-\u67FF]", dest.Text(), 4U) ==
          Scanned<wchar_t>{1, L"x"});
    CHECK(WideScan(L"ab\u65E5", L"%l[^\u65E5]", dest.Text(), 4U) == Scanned<wchar_t>{1, L"\u65E5"});
    CHECK(WideScan(L"\u0100", L"%l[\u00FF-\u0101]", dest.Text(), 4U) == Scanned<wchar_t>{1, L""});
    CHECK(WideScan(L"\u0102", L"%l[\u00FF-\u0101]", dest.Text(), 4U) ==
          Scanned<wchar_t>{0, L"\u0102"});
    CHECK(WideScan(L"\u00FE", L"%l[\u00FF-\u0101]", dest.Text(), 4U) ==
          Scanned<wchar_t>{0, L"\u00FE"});
}

TEST_CASE("a range of far characters holds both its ends and nothing beyond")
{
    struct Row {
        const wchar_t *text;
        int result;
        const wchar_t *rest;
    };
    for (const Row &row : {Row{L"\u0400\u0427\u0450", 1, L""}, Row{L"\u03FF", 0, L"\u03FF"},
                           Row{L"\u0451", 0, L"\u0451"}, Row{L"\u0430\u0300", 1, L"\u0300"}}) {
        wchar_t wide[8];
        CHECK(WideScan(row.text, L"%l[\u0400-\u0450]", wide, 8U) ==
              Scanned<wchar_t>{row.result, row.rest});
        const bool isOutside = row.result == 0;
        CHECK(WideScan(row.text, L"%l[^\u0400-\u0450]", wide, 8U).result == (isOutside ? 1 : 0));
    }
}

TEST_CASE("the highest bytes are no conversion letters and no digits")
{
    for (const char *high : {"\xFD", "\xFE", "\xFF"}) {
        const std::string text(high);
        const std::string format = "%" + text;
        const std::wstring wideFormat = Widened(format);
        int value = 4711;
        CHECK(Scan("12", format.c_str(), &value) == Scanned<char>{0, "12"});
        CHECK(WideScan(L"12", wideFormat.c_str(), &value) == Scanned<wchar_t>{0, L"12"});
        for (const bool isHex : {false, true}) {
            CHECK(Scan(text + "1", isHex ? "%x" : "%d", &value) == Scanned<char>{0, text + "1"});
            CHECK(WideScan(Widened(text) + L"1", isHex ? L"%x" : L"%d", &value) ==
                  Scanned<wchar_t>{0, Widened(text) + L"1"});
        }
        CHECK(value == 4711);
    }
}

TEST_CASE("the character that ends wide text is not counted by a position after it")
{
    wchar_t wide[4];
    int n = -1;
    CHECK(Scan("ab c", "%ls%n", wide, 4U, &n) == Scanned<char>{1, " c"});
    CHECK(std::wstring(wide) == L"ab");
    CHECK(n == 2);
}

TEST_CASE("a conversion letter beyond the narrow characters makes no sense")
{
    int a = 0;
    for (const wchar_t *format : {L"%d%\u0164", L"%d%\u65E5", L"%d%\U0010FFFF"})
        CHECK(WideScan(L"1 2", format, &a, &a) == Scanned<wchar_t>{1, L" 2"});
}

TEST_CASE("characters no encoding has stand in wide strings all the same")
{
    const std::wstring text = {static_cast<wchar_t>(0xFFFFFFFF), static_cast<wchar_t>(0x80000000),
                               L'x'};
    const Guarded dest(4 * sizeof(wchar_t));
    CHECK(WideScan(text, L"%ls", dest.Text(), 4U) == Scanned<wchar_t>{1, L""});
    CHECK(dest.Held() == BytesOf(text + L'\0'));
}

TEST_CASE("in a set, bytes of one character count one by one; the character is given back whole")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    const Guarded dest(4 * sizeof(wchar_t));
    const char *text =
        "\xC3\xA4\xC3\xB6\xC3\xBC";  // the last shares its first byte with the others
    CHECK(Scan(text, "%l[\xC3\xA4\xB6]", dest.Text(), 4U) == Scanned<char>{1, "\xC3\xBC"});
    CHECK(dest.Held() == BytesOf(std::wstring(L"\u00E4\u00F6") + L'\0') + Canaries(4));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a literal of several bytes matches as a whole or is given back as a whole")
{
    int a = 0;
    for (const char *locale : {"C", "C.UTF-8"}) {
        REQUIRE(std::setlocale(LC_ALL, locale) != nullptr);
        CHECK(Scan("\xC3\xA4\x31", "\xC3\xA4%d", &a) == Scanned<char>{1, ""});
        CHECK(Scan("\xE6\x97\xA5\x31", "\xE6\x97\xA5%d", &a) == Scanned<char>{1, ""});
        CHECK(Scan("\xF0\x9F\x98\x80\x31", "\xF0\x9F\x98\x80%d", &a) == Scanned<char>{1, ""});
    }
    CHECK(Scan("\xC3\xA5", "\xC3\xA4%d", &a) == Scanned<char>{0, "\xC3\xA5"});
    CHECK(Scan("\xE6\x97\xA6", "\xE6\x97\xA5%d", &a) == Scanned<char>{0, "\xE6\x97\xA6"});
    CHECK(Scan("\xC3", "\xC3\xA4%d", &a) == Scanned<char>{-1, "\xC3"});
    std::setlocale(LC_ALL, "C");
    // Without such characters each byte is one.
    CHECK(Scan("\xC3\xA5", "\xC3\xA4%d", &a) == Scanned<char>{0, "\xA5"});
    CHECK(Scan("\xFF\x31", "\xFF%d", &a) == Scanned<char>{1, ""});
}

TEST_CASE("the wide engine's white space is that of wide characters")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    int a = 0;
    CHECK(WideScan(L"\u2003\u30001", L"%d", &a) == Scanned<wchar_t>{1, L""});
    CHECK(WideScan(L"x\u3000y", L"x\u2003y") == Scanned<wchar_t>{0, L""});
    CHECK(Scan("\xE3\x80\x80\x31", "%d", &a) == Scanned<char>{0, "\xE3\x80\x80\x31"});
    std::setlocale(LC_ALL, "C");
}

// ---- State ----

TEST_CASE("errno is what it was, also where numbers overflow")
{
    double value = 0;
    errno = 77;
    CHECK(Scan("1e999", "%lf", &value).result == 1);
    CHECK(Scan("1e-999", "%lf", &value).result == 1);
    CHECK(errno == 77);
}

TEST_CASE("scans in several threads do not know of each other")
{
    std::vector<std::thread> threads;
    std::vector<int> right(4, 0);
    for (std::size_t thread = 0; thread < right.size(); ++thread)
        threads.emplace_back([thread, &right] {
            for (int round = 0; round < 300; ++round) {
                const std::string text = std::to_string(thread) + " w 0." + std::string(400, '3');
                int number = -1;
                char word[4] = {};
                double value = 0;
                const int result = Scan(text, "%d %s %lf", &number, word, 4U, &value).result;
                right[thread] += result == 3 && number == static_cast<int>(thread) &&
                                 std::string(word) == "w" && value == 1.0 / 3;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const int count : right)
        CHECK(count == 300);
}

// ---- The helpers of the engine ----

TEST_CASE("_inc hands out the bytes of a string, then EOF while count and cur go on")
{
    const Guarded text(std::string("a\xFF", 2));
    InputSource source = StringSource(text);
    CHECK(_inc(&source) == 'a');
    CHECK(source.count == 1);
    CHECK(_inc(&source) == 0xFF);
    CHECK(source.count == 0);
    CHECK(_inc(&source) == EOF);
    CHECK(source.count == -1);
    CHECK(source.cur == text.Text() + 3);
    CHECK(_inc(&source) == EOF);
    CHECK(source.count == -2);
    CHECK(source.cur == text.Text() + 4);
    CHECK(source.consumed == 0);
}

TEST_CASE("no count of a source runs over its type's ends")
{
    InputSource source = {};
    source.kind = kStringSource;
    CHECK(_inc(&source) == EOF);  // there is no text at all
    CHECK(source.cur == nullptr);
    CHECK(source.count == -1);

    const char text[] = "ab";
    source.cur = text;
    source.count = INT_MIN;
    CHECK(_inc(&source) == EOF);
    CHECK(source.count == INT_MIN);
    CHECK(source.cur == text + 1);

    source.count = INT_MAX;
    _un_inc('a', &source);
    CHECK(source.count == INT_MAX);
    CHECK(source.cur == text + 1);

    source.cur = text;
    source.count = 2;
    int counter = INT_MAX;
    CHECK(_whiteout(&counter, &source) == 'a');
    CHECK(counter == INT_MAX);
}

TEST_CASE("_un_inc gives one character of a string back, and ignores EOF")
{
    const Guarded text(std::string("ab"));
    InputSource source = StringSource(text);
    CHECK(_inc(&source) == 'a');
    _un_inc('a', &source);
    CHECK(source.count == 2);
    CHECK(source.cur == text.Text());
    _un_inc(EOF, &source);
    CHECK(source.count == 2);
    CHECK(_inc(&source) == 'a');
    CHECK(_inc(&source) == 'b');
    CHECK(_inc(&source) == EOF);
    _un_inc(EOF, &source);
    CHECK(source.count == -1);
    CHECK(source.consumed == 0);
}

TEST_CASE("_un_inc does not step in front of a buffer's start")
{
    const Guarded text(std::string("ab"));
    InputSource source = StringSource(text);
    source.base = text.Text();
    _un_inc('x', &source);
    CHECK(source.cur == text.Text());
    CHECK(source.count == 2);
}

TEST_CASE("_whiteout counts the blanks and the character after them")
{
    const Guarded text(std::string(" \t\n\v\f\rx y"));
    InputSource source = StringSource(text);
    int counter = 5;
    CHECK(_whiteout(&counter, &source) == 'x');
    CHECK(counter == 5 + 7);
    counter = 0;
    CHECK(_whiteout(&counter, &source) == 'y');
    CHECK(counter == 2);
    CHECK(_whiteout(&counter, &source) == EOF);
    CHECK(counter == 2);
}

// Calls clearDestBuf or its wide twin; text and format are ASCII, or null.
static void Clear(bool wide, const char *input, const char *format, ...)
{
    const Guarded narrowFormat(WithTerminator(format != nullptr ? format : ""));
    const Guarded wideFormat(BytesOf(Widened(narrowFormat.Held())));
    const std::wstring wideInput = Widened(input != nullptr ? input : "");
    va_list arguments;
    va_start(arguments, format);
    if (wide)
        clearwDestBuf(input != nullptr ? wideInput.c_str() : nullptr,
                      format != nullptr ? reinterpret_cast<wchar_t *>(wideFormat.Text()) : nullptr,
                      arguments);
    else
        clearDestBuf(input, format != nullptr ? narrowFormat.Text() : nullptr, arguments);
    va_end(arguments);
}

TEST_CASE("clearDestBuf empties the destination of the first conversion if that is string-like")
{
    struct Row {
        const char *input;
        const char *format;
        unsigned int size;
        std::size_t cleared;  // bytes
    };
    const std::vector<Row> rows = {
        {nullptr, "%s", 8, 1},
        {"", "%s", 8, 1},
        {"abc", "%s", 8, 1},
        {nullptr, "%c", 8, 1},
        {"", "%c", 8, 1},
        {"abc", "%c", 8, 0},
        {nullptr, "%[a]", 8, 1},
        {"", "%[a]", 8, 1},
        {"abc", "%[a]", 8, 0},
        {"abc", "%S", 8, 4},
        {nullptr, "%S", 8, 4},
        {nullptr, "%C", 8, 4},
        {"abc", "%C", 8, 0},
        {nullptr, "%ls", 8, 4},
        {nullptr, "%ws", 8, 4},
        {nullptr, "%lc", 8, 4},
        {nullptr, "%l[a]", 8, 4},
        {nullptr, "%hS", 8, 1},
        {nullptr, "%hC", 8, 1},
        {nullptr, "%hs", 8, 1},
        {nullptr, "%hls", 8, 1},
        {nullptr, "%12s", 8, 1},
        {nullptr, "%90s", 8, 1},
        {nullptr, "%12ls", 8, 4},
        {nullptr, "ab %s", 8, 1},
        {nullptr, "%[]a]", 8, 1},
        {nullptr, "%[^]a]", 8, 1},
        {nullptr, "%[a", 8, 0},
        {nullptr, "%[]", 8, 0},
        {nullptr, "%[^]", 8, 0},
        {nullptr, "%[", 8, 0},
        {nullptr, "%{", 8, 0},
        {nullptr, "%{a}", 8, 0},
        {nullptr, "%d%s", 8, 0},
        {nullptr, "%%s", 8, 0},
        {nullptr, "%*s", 8, 0},
        {nullptr, "%", 8, 0},
        {nullptr, "", 8, 0},
        {nullptr, "abc", 8, 0},
        {nullptr, "%n", 8, 0},
        {nullptr, "%s", 0, 0},
        {nullptr, "%s", 1, 1},
        {nullptr, "%s", 0x7FFFFFFF, 1},
        {nullptr, "%s", 0x80000000, 0},
        {nullptr, "%s", 0xFFFFFFFF, 0},
    };
    for (const Row &row : rows) {
        CAPTURE(row.format);
        CAPTURE(row.size);
        const std::string expected = std::string(row.cleared, '\0') + Canaries(8 - row.cleared);
        for (const bool wide : kEngines) {
            const Guarded dest(8);
            Clear(wide, row.input, row.format, dest.Text(), row.size);
            CHECK(dest.Held() == expected);
            dest.Fill();
            Clear(wide, row.input, row.format, nullptr, row.size);  // nothing to clear
            Clear(wide, row.input, nullptr, dest.Text(), row.size);
            CHECK(dest.Held() == Canaries(8));
        }
    }
}

TEST_CASE("clearDestBuf stores a wide zero where the size is 4 and more, below that a single byte")
{
    for (const bool wide : kEngines) {
        for (const char *format : {"%S", "%C", "%ls", "%wc", "%l[a]"}) {
            for (unsigned int size = 0; size <= 5; ++size) {
                CAPTURE(format);
                CAPTURE(size);
                const Guarded dest(size);  // nothing is written past the size read as bytes
                const std::size_t cleared = size < 4 ? (size > 0 ? 1 : 0) : sizeof(wchar_t);
                Clear(wide, nullptr, format, dest.Text(), size);
                CHECK(dest.Held() == std::string(cleared, '\0') + Canaries(size - cleared));
            }
        }
    }
}
