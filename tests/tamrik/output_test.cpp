// What a caller of snprintf_s and vsnprintf_s sees: argument checks, truncation, conversions.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <clocale>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>

namespace
{

constexpr std::size_t kNoLimit = SIZE_MAX;
constexpr std::size_t kLargest = 0x7FFFFFFF;
constexpr std::size_t kRoom = 1024;
constexpr int kErrnoBefore = 4711;

// What a call returned and what it printed.
struct Printed {
    int result;
    std::string text;
    bool operator==(const Printed &other) const = default;
};

std::ostream &operator<<(std::ostream &out, const Printed &printed)
{
    return out << printed.result << " \"" << printed.text << '"';
}

// Formats into a buffer with room to spare, and checks that nothing after the text has changed.
template <class... Arguments>
Printed Print(const char *format, Arguments... arguments)
{
    const Guarded buffer(kRoom);
    errno = kErrnoBefore;
    const int result = snprintf_s(buffer.Text(), kRoom, kRoom - 1, format, arguments...);
    CHECK(errno == kErrnoBefore);
    CHECK(buffer.FrontIntact());
    const std::string held = buffer.Held();
    const std::size_t length = result >= 0 ? static_cast<std::size_t>(result) : held.find('\0');
    if (result >= 0) {
        CHECK(held.substr(length) == '\0' + Canaries(kRoom - 1 - length));
    }
    return {result, held.substr(0, length)};
}

Printed Good(const std::string &text)
{
    return {static_cast<int>(text.size()), text};
}

const Printed kRefused = {-1, ""};

std::string Bytes(const char *text, std::size_t count)
{
    return {text, count};
}

int PrintList(char *to, std::size_t destMax, std::size_t count, const char *format, ...)
{
    va_list argList;
    va_start(argList, format);
    const int result = vsnprintf_s(to, destMax, count, format, argList);
    va_end(argList);
    return result;
}

// What a buffer of eight canaries holds after a call of either function.
template <class... Arguments>
std::string HeldAfter(std::size_t destMax, std::size_t count, int expected, const char *format,
                      Arguments... arguments)
{
    const Guarded buffer(8);
    CHECK(snprintf_s(buffer.Text(), destMax, count, format, arguments...) == expected);
    CHECK(buffer.FrontIntact());
    const Guarded second(8);
    CHECK(PrintList(second.Text(), destMax, count, format, arguments...) == expected);
    CHECK(second.FrontIntact());
    CHECK(second.Held() == buffer.Held());
    return buffer.Held();
}

struct LocaleOf {
    explicit LocaleOf(const char *name)
    {
        CHECK(std::setlocale(LC_ALL, name) != nullptr);
    }
    ~LocaleOf()
    {
        std::setlocale(LC_ALL, "C");
    }
};

}  // namespace

// ---- Argument checks ----

TEST_CASE("a bad size, pointer or count gives -1 and clears the first byte where there is one")
{
    const std::string cleared = '\0' + Canaries(7);
    CHECK(HeldAfter(0, 0, -1, "abc") == Canaries(8));
    CHECK(HeldAfter(0, 7, -1, "abc") == Canaries(8));
    CHECK(HeldAfter(0, kNoLimit, -1, "abc") == Canaries(8));
    CHECK(HeldAfter(kLargest + 1, 7, -1, "abc") == cleared);
    CHECK(HeldAfter(SIZE_MAX, 7, -1, "abc") == cleared);
    CHECK(HeldAfter(8, 7, -1, nullptr) == cleared);
    CHECK(HeldAfter(0, 7, -1, nullptr) == Canaries(8));
    CHECK(HeldAfter(8, kLargest, -1, "abc") == cleared);
    CHECK(HeldAfter(8, kLargest + 1, -1, "abc") == cleared);
    CHECK(HeldAfter(8, SIZE_MAX - 1, -1, "abc") == cleared);
    CHECK(snprintf_s(nullptr, 8, 7, "abc") == -1);
    CHECK(snprintf_s(nullptr, 0, 0, nullptr) == -1);
    CHECK(PrintList(nullptr, 8, 7, "abc") == -1);
    CHECK(PrintList(nullptr, 0, 0, nullptr) == -1);
}

TEST_CASE("the largest size and the largest counts are good")
{
    const std::string text = "abc" + Bytes("\0", 1) + Canaries(4);
    CHECK(HeldAfter(kLargest, 7, 3, "abc") == text);
    CHECK(HeldAfter(kLargest, kLargest - 1, 3, "abc") == text);
    CHECK(HeldAfter(8, kLargest - 1, 3, "abc") == "abc" + Bytes("\0", 1) + Canaries(3) + '\0');
    CHECK(HeldAfter(8, kNoLimit, 3, "abc") == "abc" + Bytes("\0", 1) + Canaries(3) + '\0');
}

// ---- Truncation ----

TEST_CASE("an empty format returns 0 and stores only the terminator")
{
    CHECK(HeldAfter(8, 7, 0, "") == '\0' + Canaries(7));
    CHECK(HeldAfter(8, 0, 0, "") == '\0' + Canaries(7));
    CHECK(HeldAfter(1, 0, 0, "") == '\0' + Canaries(7));
}

TEST_CASE("output longer than count keeps its first count characters and returns -1")
{
    CHECK(HeldAfter(8, 7, -1, "%d", 123456789) == WithTerminator("1234567"));
    CHECK(HeldAfter(8, 7, 7, "%d", 1234567) == WithTerminator("1234567"));
    CHECK(HeldAfter(8, 7, 2, "%d", 42) == WithTerminator("42") + Canaries(5));
    CHECK(HeldAfter(8, 3, -1, "abcd") == WithTerminator("abc") + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "%5d", 1) == WithTerminator("   ") + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "%-5d", 1) == WithTerminator("1  ") + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "%05d", -1) == WithTerminator("-00") + Canaries(4));
    CHECK(HeldAfter(8, 1, -1, "%#x", 15) == WithTerminator("0") + Canaries(6));
    CHECK(HeldAfter(8, 3, -1, "%f", 1.25) == WithTerminator("1.2") + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "%ls", L"wide") == WithTerminator("wid") + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "%s%s%s", "ab", "cd", "ef") == WithTerminator("abc") + Canaries(4));
}

TEST_CASE("with a count of 0 any output at all is too long")
{
    CHECK(HeldAfter(8, 0, -1, "a") == '\0' + Canaries(7));
    CHECK(HeldAfter(1, 0, -1, "%d", 1) == '\0' + Canaries(7));
}

TEST_CASE("output that does not fit destMax where count does not cut leaves an empty string")
{
    CHECK(HeldAfter(4, 10, -1, "%s", "abcd") == Bytes("\0bc\0", 4) + Canaries(4));
    CHECK(HeldAfter(4, 4, -1, "%s", "abcd") == Bytes("\0bc\0", 4) + Canaries(4));
    CHECK(HeldAfter(4, kNoLimit, -1, "%s", "abcdefgh") == Bytes("\0bc\0", 4) + Canaries(4));
    CHECK(HeldAfter(4, 10, 3, "%s", "abc") == WithTerminator("abc") + Canaries(4));
    CHECK(HeldAfter(4, 10, 1, "%s", "a") == WithTerminator("a") + Canaries(1) + '\0' + Canaries(4));
    CHECK(HeldAfter(1, 1, 0, "") == '\0' + Canaries(7));
}

TEST_CASE("an invalid format empties the string unless the output was cut before it")
{
    CHECK(HeldAfter(8, 7, -1, "abc%y") == Bytes("\0bc", 3) + Canaries(4) + '\0');
    CHECK(HeldAfter(8, 3, -1, "abc%y") == Bytes("\0bc\0", 4) + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "abcd%y") == Bytes("\0bc\0", 4) + Canaries(4));
    CHECK(HeldAfter(8, 3, -1, "abcde%y") == Bytes("abc\0", 4) + Canaries(4));
    CHECK(HeldAfter(8, 8, -1, "abc%y") == Bytes("\0bc", 3) + Canaries(4) + '\0');
}

TEST_CASE("every count and every size cuts where it says")
{
    const std::string whole = "one 2 three";
    for (std::size_t destMax = 1; destMax <= 16; destMax++) {
        for (std::size_t count = 0; count <= 17; count++) {
            CAPTURE(destMax);
            CAPTURE(count);
            const Guarded buffer(destMax);
            const int result =
                snprintf_s(buffer.Text(), destMax, count, "%s %d %s", "one", 2, "three");
            CHECK(buffer.FrontIntact());
            const bool isCutting = count < destMax;
            const std::size_t most = isCutting ? count : destMax - 1;
            CHECK(result == (whole.size() <= most ? static_cast<int>(whole.size()) : -1));
            std::string text = whole.substr(0, most);
            if (result < 0 && !isCutting)
                text = "";
            CHECK(buffer.Held().substr(0, text.size() + 1) == WithTerminator(text));
        }
    }
}

TEST_CASE("vsnprintf_s leaves the caller's argument list as it was")
{
    const auto twice = [](char *to, std::size_t size, const char *format, ...) {
        va_list argList;
        va_start(argList, format);
        vsnprintf_s(to, size, size - 1, format, argList);
        const int result = vsnprintf_s(to, size, size - 1, format, argList);
        va_end(argList);
        return result;
    };
    char buffer[32];
    CHECK(twice(buffer, sizeof buffer, "%d %s %.1f", 1, "two", 3.0) == 9);
    CHECK(std::string(buffer) == "1 two 3.0");
}

// ---- Literal text ----

TEST_CASE("literal text of any length and any bytes comes out as it stands")
{
    CHECK(Print("%%") == Good("%"));
    CHECK(Print("100%%!") == Good("100%!"));
    CHECK(Print("%%%%%d%%", 1) == Good("%%1%"));
    CHECK(Print("\x01\x7f\x80\xff{}~") == Good("\x01\x7f\x80\xff{}~"));
    for (std::size_t length = 0; length <= 100; length++) {
        const Guarded format(WithTerminator(std::string(length, 'x')));
        CHECK(Print(format.Text()) == Good(std::string(length, 'x')));
        const Guarded after(WithTerminator("%d" + std::string(length, 'y')));
        CHECK(Print(after.Text(), 5) == Good("5" + std::string(length, 'y')));
        const Guarded before(WithTerminator(std::string(length, 'z') + "%%"));
        CHECK(Print(before.Text()) == Good(std::string(length, 'z') + "%"));
    }
}

// ---- Integers ----

TEST_CASE("integer conversions take the sign and the radix of their letter")
{
    CHECK(Print("%d", 0) == Good("0"));
    CHECK(Print("%d", INT_MAX) == Good("2147483647"));
    CHECK(Print("%d", INT_MIN) == Good("-2147483648"));
    CHECK(Print("%i", -7) == Good("-7"));
    CHECK(Print("%u", UINT_MAX) == Good("4294967295"));
    CHECK(Print("%u", -1) == Good("4294967295"));
    CHECK(Print("%o", 8U) == Good("10"));
    CHECK(Print("%o", -1) == Good("37777777777"));
    CHECK(Print("%x", 0xdeadbeefU) == Good("deadbeef"));
    CHECK(Print("%X", 0xdeadbeefU) == Good("DEADBEEF"));
    CHECK(Print("%x", 0x12345678U) == Good("12345678"));
    CHECK(Print("%x", 0x9abcdefU) == Good("9abcdef"));
}

TEST_CASE("every number of digits comes out right in every radix")
{
    unsigned long long power = 1;
    for (int digits = 1; digits <= 20; digits++) {
        CHECK(Print("%llu", power) == Good(std::to_string(power)));
        CHECK(Print("%llu", power - 1) == Good(std::to_string(power - 1)));
        if (power <= LLONG_MAX) {
            CHECK(Print("%lld", power) == Good(std::to_string(power)));
            CHECK(Print("%lld", 0 - power) == Good("-" + std::to_string(power)));
        }
        if (power <= INT_MAX) {
            const int value = static_cast<int>(power);
            CHECK(Print("%d", value) == Good(std::to_string(value)));
            CHECK(Print("%d", value - 1) == Good(std::to_string(value - 1)));
            CHECK(Print("%d", -value) == Good(std::to_string(-value)));
            CHECK(Print("%1d", value) == Good(std::to_string(value)));
        }
        power *= digits < 20 ? 10 : 1;
    }
    for (int bit = 0; bit < 64; bit++) {
        const unsigned long long value = 1ULL << bit;
        const std::string hex =
            "1248"[bit % 4] + std::string(static_cast<std::size_t>(bit / 4), '0');
        const std::string octal =
            "124"[bit % 3] + std::string(static_cast<std::size_t>(bit / 3), '0');
        CHECK(Print("%llx", value) == Good(hex));
        if (value <= UINT_MAX) {
            CHECK(Print("%x", static_cast<unsigned>(value)) == Good(hex));
        }
        CHECK(Print("%llo", value) == Good(octal));
    }
    CHECK(Print("%lld", LLONG_MIN) == Good("-9223372036854775808"));
    CHECK(Print("%llo", ULLONG_MAX) == Good("1777777777777777777777"));
    CHECK(Print("%#llo", ULLONG_MAX) == Good("01777777777777777777777"));
}

TEST_CASE("each size prefix chooses the integer that is read")
{
    constexpr long long wide = 0x1234567890ABCDEF;  // 0x90ABCDEF, 0xCDEF and 0xEF below
    const struct {
        const char *format;
        const char *text;
    } rows[] = {
        {"%hhx", "ef"},
        {"%hhd", "-17"},
        {"%hhu", "239"},
        {"%hx", "cdef"},
        {"%hd", "-12817"},
        {"%hu", "52719"},
        {"%x", "90abcdef"},
        {"%d", "-1867788817"},
        {"%u", "2427178479"},
        {"%lx", "1234567890abcdef"},
        {"%llx", "1234567890abcdef"},
        {"%jx", "1234567890abcdef"},
        {"%tx", "1234567890abcdef"},
        {"%zx", "1234567890abcdef"},
        {"%Lx", "1234567890abcdef"},
        {"%qx", "1234567890abcdef"},
        {"%Ix", "1234567890abcdef"},
        {"%I64x", "1234567890abcdef"},
        {"%IX", "1234567890ABCDEF"},
        {"%Id", "1311768467294899695"},
        {"%Ii", "1311768467294899695"},
        {"%Iu", "1311768467294899695"},
        {"%Io", "110642547422052746757"},
        {"%I32x", "90abcdef"},
        {"%I64I32x", "90abcdef"},
        {"%wx", "90abcdef"},
        {"%Nx", "90abcdef"},
        {"%Zx", "90abcdef"},
        {"%ZNx", "90abcdef"},
        // The first match of the list wins, whatever the order in the format.
        {"%hhzx", "ef"},
        {"%zhhx", "ef"},
        {"%hzx", "cdef"},
        {"%zhx", "cdef"},
        {"%hjd", "-12817"},
        {"%lhx", "1234567890abcdef"},
        {"%hhlx", "1234567890abcdef"},
        {"%hlx", "1234567890abcdef"},
        {"%lI32x", "1234567890abcdef"},
        {"%hI64x", "1234567890abcdef"},
        {"%hhhx", "ef"},
        {"%hllx", "1234567890abcdef"},
        {"%lllx", "1234567890abcdef"},
        {"%hhtd", "-17"},
        {"%I64d", "1311768467294899695"},
        {"%lld", "1311768467294899695"},
        {"%qd", "1311768467294899695"},
        {"%.3lx", "1234567890abcdef"},
    };
    for (const auto &row : rows) {
        CAPTURE(row.format);
        CHECK(Print(row.format, wide) == Good(row.text));
    }
    CHECK(Print("%hhd", 300) == Good("44"));
    CHECK(Print("%hd", 65535) == Good("-1"));
    CHECK(Print("%hhd", -129) == Good("127"));
}

TEST_CASE("an I that is no size is printed with all that follows it")
{
    CHECK(Print("%I5d") == Good("I5d"));
    CHECK(Print("%I") == Good("I"));
    CHECK(Print("%I6d") == Good("I6d"));
    CHECK(Print("%I3d") == Good("I3d"));
    CHECK(Print("%I63") == Good("I63"));
    CHECK(Print("%If") == Good("If"));
    CHECK(Print("%Is") == Good("Is"));
    CHECK(Print("%Ip|%d", 4) == Good("Ip|4"));
    CHECK(Print("%II64d") == Good("II64d"));
    CHECK(Print("<%-+5.3lI!>%d", 4) == Good("<I!>4"));
    CHECK(Print("%I%d", 4) == Good("I4"));
    CHECK(Print("%I64") == kRefused);
    CHECK(Print("%I32") == kRefused);
}

TEST_CASE("flags change an integer as the table says")
{
    const struct {
        const char *format;
        int value;
        const char *text;
    } rows[] = {
        {"%+d", 5, "+5"},
        {"%+d", -5, "-5"},
        {"%+d", 0, "+0"},
        {"% d", 5, " 5"},
        {"% d", -5, "-5"},
        {"% +d", 5, "+5"},
        {"%+ d", 5, "+5"},
        {"%+u", 5, "5"},
        {"% u", 5, "5"},
        {"%+x", 5, "5"},
        {"%5d", 42, "   42"},
        {"%-5d", 42, "42   "},
        {"%05d", 42, "00042"},
        {"%05d", -42, "-0042"},
        {"%-05d", 42, "42   "},
        {"%0-5d", 42, "42   "},
        {"%+05d", 42, "+0042"},
        {"% 05d", 42, " 0042"},
        {"%+5d", 42, "  +42"},
        {"%-+5d|", 42, "+42  |"},
        {"%1d", 42, "42"},
        {"%00005d", 42, "00042"},
        {"%#x", 255, "0xff"},
        {"%#X", 255, "0XFF"},
        {"%#o", 8, "010"},
        {"%#d", 8, "8"},
        {"%#u", 8, "8"},
        {"%#x", 0, "0"},
        {"%#X", 0, "0"},
        {"%#o", 0, "0"},
        {"%#8x", 255, "    0xff"},
        {"%#08x", 255, "0x0000ff"},
        {"%-#8x", 255, "0xff    "},
        {"%#08X", 255, "0X0000FF"},
        {"%#08o", 8, "00000010"},
        {"%#.3o", 8, "010"},
        {"%#.2o", 8, "010"},
        {"%#.0o", 0, "0"},
        {"%.0d", 0, ""},
        {"%.d", 0, ""},
        {"%5.0d", 0, "     "},
        {"%+.0d", 0, "+"},
        {"%.0d", 1, "1"},
        {"%.0x", 0, ""},
        {"%#.0x", 0, ""},
        {"%.5d", 42, "00042"},
        {"%.5d", -42, "-00042"},
        {"%8.5d", 42, "   00042"},
        {"%08.5d", 42, "   00042"},
        {"%-8.5d", 42, "00042   "},
        {"%+08.5d", 42, "  +00042"},
        {"%#8.5x", 255, " 0x000ff"},
        {"%.1d", 42, "42"},
        {"%5-d", 3, "3    "},
        {"%5-6d", 3, "3     "},
        {"%5+d", 3, "   +3"},
        {"%5 d", 3, "    3"},
        {"%5#x", 3, "  0x3"},
        {"%5-+#d", 3, "+3   "},
        {"%---5d", 3, "3    "},
        {"%.03d", 3, "003"},
    };
    for (const auto &row : rows) {
        CAPTURE(row.format);
        CHECK(Print(row.format, row.value) == Good(row.text));
    }
}

TEST_CASE("an integer is filled up to a precision of 512 at most")
{
    CHECK(Print("%.512d", 1) == Good(std::string(511, '0') + "1"));
    CHECK(Print("%.513d", 1) == Good(std::string(511, '0') + "1"));
    CHECK(Print("%.214748369d", -1) == Good("-" + std::string(511, '0') + "1"));
    CHECK(Print("%#.512o", 1) == Good(std::string(511, '0') + "1"));
    CHECK(Print("%#.600x", 1) == Good("0x" + std::string(511, '0') + "1"));
    CHECK(Print("%600.512x", 1) == Good(std::string(88 + 0, ' ') + std::string(511, '0') + "1"));
}

// ---- Widths and precisions from the arguments ----

TEST_CASE("a width from the arguments left-justifies when it is negative")
{
    CHECK(Print("%*d", 5, 3) == Good("    3"));
    CHECK(Print("%*d", -5, 3) == Good("3    "));
    CHECK(Print("%-*d", -5, 3) == Good("3    "));
    CHECK(Print("%0*d", 5, 3) == Good("00003"));
    CHECK(Print("%0*d", -5, 3) == Good("3    "));
    CHECK(Print("%*d", 0, 3) == Good("3"));
    CHECK(Print("%*s|", -5, "ab") == Good("ab   |"));
    CHECK(Print("%*-*d|", 9, 4, 3) == Good("3   |"));
}

TEST_CASE("the most negative width pads nothing")
{
    CHECK(Print("%*d|", INT_MIN, 3) == Good("3|"));
    CHECK(Print("%*s|", INT_MIN, "ab") == Good("ab|"));
    CHECK(Print("%#*x|", INT_MIN, 3) == Good("0x3|"));
    CHECK(Print("%*5d|", INT_MIN, 3) == Good("3|"));
    CHECK(Print("%*9999999999d|", INT_MIN, 3) == Good("3|"));
    CHECK(Print("%*f|", INT_MIN, 1.0) == Good("1.000000|"));
    CHECK(Print("%*5f|", INT_MIN, 1.0) == Good("1.000000|"));
}

TEST_CASE("a width of nearly 2147483648 ends where the room ends")
{
    CHECK(Print("%*d", INT_MAX, 3) == Printed{-1, std::string(kRoom - 1, ' ')});
    CHECK(Print("%*d", -INT_MAX, 3) == Printed{-1, "3" + std::string(kRoom - 2, ' ')});
    CHECK(Print("%0*d", INT_MAX, -3) == Printed{-1, "-" + std::string(kRoom - 2, '0')});
    CHECK(Print("%*s", INT_MAX, "abc") == Printed{-1, std::string(kRoom - 1, ' ')});
    CHECK(Print("%*ls", INT_MAX, L"abc") == Printed{-1, std::string(kRoom - 1, ' ')});
    CHECK(Print("%-*ls", INT_MAX, L"abc") == Printed{-1, "abc" + std::string(kRoom - 4, ' ')});
    CHECK(Print("%*c", INT_MAX, 'c') == Printed{-1, std::string(kRoom - 1, ' ')});
}

TEST_CASE("a negative precision from the arguments is none")
{
    CHECK(Print("%.*d", 3, 5) == Good("005"));
    CHECK(Print("%.*d", 0, 0) == Good(""));
    CHECK(Print("%.*d", -1, 0) == Good("0"));
    CHECK(Print("%.*d", -2, 5) == Good("5"));
    CHECK(Print("%.*d", INT_MIN, 5) == Good("5"));
    CHECK(Print("%05.*d", -1, 5) == Good("00005"));
    CHECK(Print("%05.*d", 0, 5) == Good("    5"));
    CHECK(Print("%.*s", -1, "abc") == Good("abc"));
    CHECK(Print("%.*s", 2, "abc") == Good("ab"));
    CHECK(Print("%.*f", -1, 1.0) == Good("1.000000"));
    CHECK(Print("%.*d", INT_MAX, 1) == Good(std::string(511, '0') + "1"));
    CHECK(Print("%.*s", INT_MAX, "abc") == Good("abc"));
}

TEST_CASE("digits after a star continue its number")
{
    CHECK(Print("%*5d|", 3, 7) == Good(std::string(34, ' ') + "7|"));
    CHECK(Print("%*5d|", 0, 7) == Good("    7|"));
    CHECK(Print("%*0d|", 1, 7) == Good(std::string(9, ' ') + "7|"));
    CHECK(Print("%*5d|", -3, 7) == Good("7" + std::string(34, ' ') + "|"));
    CHECK(Print("%.*2d|", 1, 7) == Good(std::string(11, '0') + "7|"));
    CHECK(Print("%.*2d|", -1, 7) == Good("7|"));
    CHECK(Print("%.*99999999999d|", -1, 7) == Good("7|"));
    CHECK(Print("%*5d", 21474837, 7) == kRefused);
    CHECK(Print("%.*5d", 21474837, 7) == kRefused);
    CHECK(Print("%*1d", INT_MAX, 7) == kRefused);
}

TEST_CASE("a width or precision takes digits up to 214748369")
{
    CHECK(Print("%214748369d", 1) == Printed{-1, std::string(kRoom - 1, ' ')});
    CHECK(Print("%2147483690d", 1) == kRefused);
    CHECK(Print("%2147483699d", 1) == kRefused);
    CHECK(Print("%214748370d", 1) == kRefused);
    CHECK(Print("%99999999999999999999d", 1) == kRefused);
    CHECK(Print("%.214748369s", "abc") == Good("abc"));
    CHECK(Print("%.2147483690s", "abc") == kRefused);
    CHECK(Print("%.214748370s", "abc") == kRefused);
    CHECK(Print("%.99999999999999999999s", "abc") == kRefused);
}

// ---- Pointers ----

TEST_CASE("a pointer is printed in lower-case hexadecimal with 0x, a null pointer by name")
{
    void *const none = nullptr;
    void *const some = reinterpret_cast<void *>(0xABC);
    CHECK(Print("%p", none) == Good("(nil)"));
    CHECK(Print("%8p|%-8p|", none, none) == Good("   (nil)|(nil)   |"));
    CHECK(Print("%08p", none) == Good("   (nil)"));
    CHECK(Print("%.3p", none) == Good("(nil)"));
    CHECK(Print("%p", some) == Good("0xabc"));
    CHECK(Print("%#p", some) == Good("0xabc"));
    CHECK(Print("%+p", some) == Good("0xabc"));
    CHECK(Print("%08p", some) == Good("0x000abc"));
    CHECK(Print("%8p|%-8p|", some, some) == Good("   0xabc|0xabc   |"));
    CHECK(Print("%.9p", some) == Good("0xabc"));
    CHECK(Print("%08.9p", some) == Good("0x000abc"));
    CHECK(Print("%hhp", some) == Good("0xabc"));
    CHECK(Print("%p", reinterpret_cast<void *>(UINTPTR_MAX)) == Good("0xffffffffffffffff"));
}

// ---- Characters and strings ----

TEST_CASE("a character is the low byte of its argument, whatever the precision")
{
    CHECK(Print("%c", 'x') == Good("x"));
    CHECK(Print("%c", 0x178) == Good("x"));
    CHECK(Print("%c", -1) == Good("\xff"));
    CHECK(Print("%c|", 0) == Good(Bytes("\0|", 2)));
    CHECK(Print("%3c|%-3c|%03c|", 'a', 'b', 'c') == Good("  a|b  |  c|"));
    CHECK(Print("%.0c%.5c", 'a', 'b') == Good("ab"));
    CHECK(Print("%hc%hC", 'a', 'b') == Good("ab"));
    CHECK(Print("%llc", 'a') == Good("a"));
}

TEST_CASE("a string is cut by its precision, padded by blanks, and has a name when it is null")
{
    const char *none = nullptr;
    CHECK(Print("%s", "text") == Good("text"));
    CHECK(Print("%s", "") == Good(""));
    CHECK(Print("%s", none) == Good("(null)"));
    CHECK(Print("%.3s", none) == Good("(nu"));
    CHECK(Print("%8s", none) == Good("  (null)"));
    CHECK(Print("%.0s", none) == Good(""));
    CHECK(Print("%6s|%-6s|%06s|", "abc", "abc", "abc") == Good("   abc|abc   |   abc|"));
    CHECK(Print("%.2s|%.9s|%.s|", "abc", "abc", "abc") == Good("ab|abc||"));
    CHECK(Print("%5.2s|%-5.2s|", "abc", "abc") == Good("   ab|ab   |"));
    CHECK(Print("%2s", "abc") == Good("abc"));
    CHECK(Print("%+#s", "abc") == Good("abc"));
    CHECK(Print("%hs|%hS|%lls|%hhS|", "a", "b", "c", "d") == Good("a|b|c|d|"));
    CHECK(Print("%20s%s", "", "") == Good(std::string(20, ' ')));
}

TEST_CASE("strings of every length come out whole")
{
    for (std::size_t length = 0; length <= 300; length++) {
        std::string text;
        for (std::size_t i = 0; i < length; i++)
            text += static_cast<char>('a' + i % 26);
        const Guarded source(WithTerminator(text));
        CHECK(Print("%s", source.Text()) == Good(text));
        CHECK(Print("<%s>", source.Text()) == Good("<" + text + ">"));
    }
}

TEST_CASE("a string is read no further than its precision")
{
    for (std::size_t length = 0; length <= 70; length++) {
        const Guarded source(std::string(length, 'q'));
        const Printed good = Good(std::string(length, 'q'));
        CHECK(Print("%.*s", static_cast<int>(length), source.Text()) == good);
        const std::string format = "%." + std::to_string(length) + "s";
        CHECK(Print(format.c_str(), source.Text()) == good);

        const Guarded wideBytes(length * sizeof(wchar_t));
        auto *wide = reinterpret_cast<wchar_t *>(wideBytes.Bytes());
        for (std::size_t i = 0; i < length; i++)
            wide[i] = L'q';
        CHECK(Print("%.*ls", static_cast<int>(length), wide) == good);
    }
    CHECK(Print("%.0s|", reinterpret_cast<const char *>(16)) == Good("|"));
}

TEST_CASE("a format is read no further than its end, inside a directive too")
{
    for (const char *text : {"%", "%5", "%l", "%h", "%I", "%I6", "%I3", "%.", "%*", "%-", "abc"}) {
        const Guarded format(WithTerminator(text));
        const Printed printed = Print(format.Text(), 1);
        CAPTURE(text);
        CHECK(((printed.result >= 0) == (text[0] == 'a' || text[1] == 'I')));
    }
}

// ---- Wide characters and strings ----

TEST_CASE("l, w and the capitals make a string or a character wide")
{
    for (const char *format :
         {"%ls", "%ws", "%S", "%lS", "%wS", "%llS", "%LS", "%lhS", "%hlS", "%zS"}) {
        CAPTURE(format);
        CHECK(Print(format, L"wide") == Good("wide"));
    }
    for (const char *format : {"%lc", "%wc", "%C", "%lC", "%wC", "%llC", "%lhC", "%jC"}) {
        CAPTURE(format);
        CHECK(Print(format, L'w') == Good("w"));
    }
    const wchar_t *none = nullptr;
    CHECK(Print("%ls|%S|%.2ls|%8ls", none, none, none, none) == Good("(null)|(null)|(n|  (null)"));
    CHECK(Print("%6ls|%-6S|%06ls|%.2ls|%.0ls|", L"abc", L"abc", L"abc", L"abc", L"abc") ==
          Good("   abc|abc   |   abc|ab||"));
    CHECK(Print("%lc|", 0) == Good(Bytes("\0|", 2)));
}

TEST_CASE("wide strings are padded and cut by their characters, wide characters by their bytes")
{
    const LocaleOf utf8("C.UTF-8");
    CHECK(Print("%10ls", L"é") == Good(std::string(9, ' ') + "é"));
    CHECK(Print("%-4ls|", L"€€") == Good("€€  |"));
    CHECK(Print("%.1ls", L"€€") == Good("€"));
    CHECK(Print("%S", L"a\u00e9\u20ac\U0001F600") == Good("aé€\xf0\x9f\x98\x80"));
    CHECK(Print("%5lc|", 0xE9) == Good("   é|"));
    CHECK(Print("%-5C|", 0x20AC) == Good("€  |"));
    CHECK(HeldAfter(8, 4, -1, "%ls", L"€€") == Bytes("\xe2\x82\xac\xe2\0", 5) + Canaries(3));
}

TEST_CASE("a character that the locale does not have prints nothing, and the call goes on")
{
    CHECK(Print("<%lc>", 0x20AC) == Good("<>"));
    CHECK(Print("<%5C>%d", 0x20AC, 7) == Good("<>7"));
    CHECK(Print("<%lc>", -1) == Good("<>"));
}

TEST_CASE("a wide string with a character that the locale does not have fails the call")
{
    CHECK(Print("abc%ls", L"x\u20acy") == kRefused);
    CHECK(Print("abc%5S", L"\u20ac") == kRefused);
    CHECK(Print("abc%.1ls|", L"x\u20acy") == Good("abcx|"));
    CHECK(HeldAfter(8, 2, -1, "abcd%ls", L"\u20ac") == Bytes("ab\0", 3) + Canaries(5));
}

// ---- Refusals ----

TEST_CASE("every other conversion or order is refused, also after good text")
{
    static int stored = 0;
    CHECK(Print("%n", &stored) == kRefused);
    CHECK(Print("%hhn", &stored) == kRefused);
    CHECK(Print("%lln", &stored) == kRefused);
    CHECK(stored == 0);
    for (const char *format :
         {"%y",     "%a",    "%A",   "%b",    "%D",    "%O",    "%U",   "%!",   "%$",    "%1$d",
          "%k",     "%r",    "%'d",  "%{",    "%\x80", "%\xff", "%\n",  "%5%",  "%-%",   "%.%",
          "%l%",    "%.-5d", "%. d", "%.+d",  "%.#d",  "%5.-d", "%5*d", "%**d", "%.5*d", "%.**d",
          "%.5.5d", "%..5d", "%l5d", "%l.5d", "%l*d",  "%l-d",  "%h0d", "%l d"}) {
        CAPTURE(format);
        CHECK(Print(format, 1, 1, 1) == kRefused);
        const std::string after = std::string("text %d ") + format;
        CHECK(Print(after.c_str(), 1, 1, 1, 1) == kRefused);
    }
}

TEST_CASE("a format that ends inside a directive is refused")
{
    for (const char *format : {"%", "abc%", "%5", "%-", "%0", "%.", "%.5", "%*", "%.*", "%l", "%hh",
                               "%ll", "%I64", "%d%", "%%%"}) {
        CAPTURE(format);
        CHECK(Print(format, 1, 1) == kRefused);
    }
}

// ---- Floating values ----

TEST_CASE("floating conversions print what the platform prints")
{
    CHECK(Print("%f", 1.5) == Good("1.500000"));
    CHECK(Print("%.2f|%8.2f|%-8.2f|%08.2f|%+.1f|% .1f", 1.5, 1.5, 1.5, 1.5, 1.5, 1.5) ==
          Good("1.50|    1.50|1.50    |00001.50|+1.5| 1.5"));
    CHECK(Print("%e|%E|%g|%G|%F", 1e10, 1e10, 1e10, 1e-10, 1.0) ==
          Good("1.000000e+10|1.000000E+10|1e+10|1E-10|1.000000"));
    CHECK(Print("%#.0f|%.0f|%.f", 1.0, 1.0, 2.0) == Good("1.|1|2"));
    CHECK(Print("%.0g|%.0G|%.*g", 123.0, 123.0, 0, 123.0) == Good("1e+02|1E+02|1e+02"));
    CHECK(Print("%f|%F|%f", HUGE_VAL, HUGE_VAL, -HUGE_VAL) == Good("inf|INF|-inf"));
    CHECK(Print("%Lf|%.1Lg|%LE", 1.5L, 2.0L, 1.0L) == Good("1.500000|2|1.000000E+00"));
    CHECK(Print("%qf|%.2qe", 1.5L, 1.5L) == Good("1.500000|1.50e+00"));
    CHECK(Print("%*.*f|", 8, 2, 1.5) == Good("    1.50|"));
    CHECK(Print("%.*f|%.*f", 2, 1.5, 3, 1.5) == Good("1.50|1.500"));
}

TEST_CASE("whatever size letters stand there, the text is that of the value passed")
{
    for (const char *format : {"%f", "%lf", "%hf", "%hhf", "%llf", "%lllf", "%jf", "%tf", "%zf",
                               "%wf", "%Nf", "%Zf", "%I64f", "%I32f", "%hlf", "%llhjzf"}) {
        CAPTURE(format);
        CHECK(Print(format, 2.5) == Good("2.500000"));
    }
    for (const char *format : {"%Lf", "%qf", "%LLf", "%hLf", "%lLf", "%Llf", "%qqf", "%qhf"}) {
        CAPTURE(format);
        CHECK(Print(format, 2.5L) == Good("2.500000"));
    }
}

TEST_CASE("orders that C does not know are brought into its own")
{
    CHECK(Print("%9-f|", 1.0) == Good("1.000000 |"));
    CHECK(Print("%9+.1f|", 1.0) == Good("     +1.0|"));
    CHECK(Print("%5-9f|", 1.0) == Good("1.000000 |"));
    CHECK(Print("%9-0.1f|", 1.0) == Good("1.0      |"));
    CHECK(Print("%*-f|", 9, 1.0) == Good("1.000000 |"));
    CHECK(Print("%*-*f|", 20, 9, 1.0) == Good("1.000000 |"));
    CHECK(Print("%*5f|", 1, 1.0) == Good("       1.000000|"));
    CHECK(Print("%.*2f|", 0, 1.0) == Good("1.00|"));
    CHECK(Print("%.*0f|", 1, 1.0) == Good("1.0000000000|"));
    CHECK(Print("%.*2f|", -1, 1.0) == Good("1.000000|"));
    CHECK(Print("%*0.*1f|", 1, 0, 1.0) == Good("       1.0|"));
    CHECK(Print("%*5.*f|", 1, 2, 1.0) == Good("           1.00|"));
    CHECK(Print("%.05f|%.0005f", 1.0, 1.0) == Good("1.00000|1.00000"));
}

TEST_CASE("a negative width from the arguments does not left-justify a floating conversion")
{
    CHECK(Print("%*f", -10, 1.0) == Good("  1.000000"));
    CHECK(Print("%-*f|", -10, 1.0) == Good("1.000000  |"));
    CHECK(Print("%*.1Lf|", -10, 1.0L) == Good("       1.0|"));
}

TEST_CASE("a star in an earlier directive changes a later floating conversion")
{
    // The stale width, 0, stands where the platform looks for the precision.
    CHECK(Print("%*d|%.*f", 3, 1, 2, 1.5) == Good("  1|2"));
    CHECK(Print("%*d|%.*Lf", 3, 1, 2, 1.5L) == Good("  1|2"));
    CHECK(Print("%*s|%.*e", 3, "a", 2, 1.5) == Good("  a|2e+00"));
    // A digit of any later width clears the marker, one of a precision does not.
    CHECK(Print("%*d|%5d|%.*f", 3, 1, 1, 2, 1.5) == Good("  1|    1|1.50"));
    CHECK(Print("%*d|%.5d|%.*f", 3, 1, 1, 2, 1.5) == Good("  1|00001|2"));
    CHECK(Print("%*d|%6.*f", 3, 1, 2, 1.5) == Good("  1|  1.50"));
    CHECK(Print("%*d|%*.*f", 3, 1, 6, 2, 1.5) == Good("  1|  1.50"));
    // What the sub-format does not read changes nothing.
    CHECK(Print("%*d|%f", 3, 1, 1.5) == Good("  1|1.500000"));
    CHECK(Print("%*d|%.1f", 3, 1, 1.5) == Good("  1|1.5"));
    CHECK(Print("%.*d|%f|%5f", 3, 1, 1.5, 2.5) == Good("001|1.500000|2.500000"));
    CHECK(Print("%.*d|%*f", 3, 1, 9, 1.5) == Good("001| 1.500000"));
    CHECK(Print("%*.*d|%f|%Lf", 4, 3, 1, 1.5, 2.5L) == Good(" 001|1.500000|2.500000"));
    // The markers end with the call.
    CHECK(Print("%.*f", 2, 1.5) == Good("1.50"));
}

TEST_CASE("long floating texts come out whole")
{
    CHECK(Print("%.300f", 1.0) == Good("1." + std::string(300, '0')));
    CHECK(Print("%700f|", 1.0) == Good(std::string(692, ' ') + "1.000000|"));
    CHECK(Print("%-700.1f|", 1.0) == Good("1.0" + std::string(697, ' ') + "|"));
    CHECK(Print("%*.*f|", 600, 500, 1.0) ==
          Good(std::string(98, ' ') + "1." + std::string(500, '0') + "|"));
    CHECK(Print("%f", -1.7976931348623157e308).result == 317);
    CHECK(Print("%.100f", -1.7976931348623157e308).result == 411);
    CHECK(Print("%.0Lf", 2e1000L).text.size() == 1001);
}

TEST_CASE("a precision too large to reckon a buffer from prints nothing and the call goes on")
{
    CHECK(Print("<%.*f>%d", 2147483299, 1.0, 7) == Good("<>7"));
    CHECK(Print("<%.*f>%.1f", INT_MAX, 1.0, 2.0) == Good("<>2.0"));
    CHECK(Print("<%.*Lf>%.1Lf", 2147478676, 1.0L, 2.0L) == Good("<>2.0"));
}

// ---- Formats without arguments ----

namespace
{

// What snprintf_text made of a format in a buffer of so many bytes, and where it stopped.
struct Text {
    int result;
    std::string text;
    int rest;  // how far into the format; -1 where there is none
    bool operator==(const Text &other) const = default;
};

std::ostream &operator<<(std::ostream &out, const Text &text)
{
    return out << text.result << " \"" << text.text << "\" " << text.rest;
}

Text FormatText(const std::string &format, std::size_t destMax = kRoom)
{
    const Guarded buffer(destMax);
    const Guarded own(format.size() + 1);  // a read past the end of the format would be noticed
    std::memcpy(own.Text(), format.c_str(), format.size() + 1);
    const char *rest = "";
    errno = kErrnoBefore;
    const int result = snprintf_text(buffer.Text(), destMax, own.Text(), &rest);
    CHECK(errno == kErrnoBefore);
    CHECK(buffer.FrontIntact());
    const std::string text = buffer.Text();
    if (result >= 0) {
        CHECK(buffer.Held() == text + '\0' + Canaries(destMax - 1 - text.size()));
    }
    return {result, text, rest != nullptr ? static_cast<int>(rest - own.Text()) : -1};
}

}  // namespace

TEST_CASE("a format is formatted up to the first conversion that needs an argument")
{
    const struct {
        const char *format;
        const char *text;
        int rest;
    } rows[] = {
        {"", "", 0},
        {"abc", "abc", 3},
        {"100%%", "100%", 5},
        {"%%%%a%%", "%%a%", 7},
        {"%I", "I", 2},
        {"a%-08.3I6d", "aI6d", 10},
        {"%lIy%%", "Iy%", 6},
        {"%d", "", 0},
        {"abc%sdef", "abc", 3},
        {"a%%b%sc%%d", "a%b", 4},
        {"%%%-+ #05.3lld%y", "%", 2},
        {"a%*d", "a", 1},
        {"a%-*y", "a", 1},
        {"a%.*f", "a", 1},
        {"a%5.*", "a", 1},
        {"a%I64d", "a", 1},
        {"a%I32I64x", "a", 1},
        {"a%214748369d", "a", 1},
        {"a%.214748369s", "a", 1},
        {"%d%y", "", 0},
        {"%s%n%", "", 0},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.format));
        CHECK(FormatText(row.format) ==
              Text{static_cast<int>(std::strlen(row.text)), row.text, row.rest});
    }
    for (const char conversion : std::string("CEFGSXcdefgiopsux")) {
        CAPTURE(conversion);
        CHECK(FormatText(std::string("ab%%%") + conversion) == Text{3, "ab%", 4});
    }
}

TEST_CASE("without arguments an invalid directive empties the string as it does with them")
{
    for (const char *const format :
         {"a%y", "a%n", "a%", "a%5", "a%.", "a%ll", "%%%", "a%5%", "a%.5.d", "a%5*d", "a%l5d",
          "a%214748370d", "a%.2147483690d", "a%I64", "a%I32y", "a%y%s", "%I%y", "a%\x80"}) {
        CAPTURE(std::string(format));
        CHECK(FormatText(format) == Text{-1, "", -1});
    }
}

TEST_CASE("without arguments every size cuts where it says, and what was cut before a fault stays")
{
    const std::string whole = "abcdefghijkl%nopqrstuvwxyz";
    const std::string format = "abcdefghijkl%%nopqrstuvwxyz";
    const int length = static_cast<int>(whole.size());
    for (int size = 1; size < length + 40; size++) {
        CAPTURE(size);
        const auto destMax = static_cast<std::size_t>(size);
        const bool fits = size > length;
        const Text expected = {fits ? length : -1, whole.substr(0, destMax - 1),
                               fits ? length + 1 : -1};
        CHECK(FormatText(format, destMax) == expected);
        CHECK(FormatText(format + "%d%y", destMax) == expected);
        // The fault is met when all before it had a place, be it that of the terminator.
        CHECK(FormatText(format + "%y", destMax) ==
              Text{-1, size < length ? whole.substr(0, destMax - 1) : "", -1});
    }
}

TEST_CASE("without arguments a bad size or pointer is refused as it is with them")
{
    const std::string cleared = '\0' + Canaries(7);
    const auto held = [](std::size_t destMax, const char *format) {
        const Guarded buffer(8);
        const char *rest = "";
        CHECK(snprintf_text(buffer.Text(), destMax, format, &rest) == -1);
        CHECK(rest == nullptr);
        return buffer.Held();
    };
    CHECK(held(0, "abc") == Canaries(8));
    CHECK(held(0, nullptr) == Canaries(8));
    CHECK(held(kLargest + 1, "abc") == cleared);
    CHECK(held(SIZE_MAX, "abc") == cleared);
    CHECK(held(8, nullptr) == cleared);
    const char *rest = "";
    CHECK(snprintf_text(nullptr, 8, "abc", &rest) == -1);
    CHECK(rest == nullptr);
}
