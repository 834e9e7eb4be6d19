// What a caller of snprintf_s sees: arguments, truncation and every conversion.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t kNoLimit = SIZE_MAX;
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

// Formats into a buffer with room to spare, and checks that nothing behind the text has changed.
template <class... Arguments>
Printed Print(const char *format, Arguments... arguments)
{
    const Guarded buffer(1024);
    errno = kErrnoBefore;
    const int result = snprintf_s(buffer.Text(), 1024, 1023, format, arguments...);
    CHECK(errno == kErrnoBefore);
    CHECK(buffer.FrontIntact());
    const std::string held = buffer.Held();
    const std::size_t length = result >= 0 ? static_cast<std::size_t>(result) : held.find('\0');
    if (result >= 0) {
        CHECK(held.substr(length) == '\0' + Canaries(1023 - length));
    }
    return {result, held.substr(0, length)};
}

Printed Good(const std::string &text)
{
    return {static_cast<int>(text.size()), text};
}

const Printed kRefused = {-1, ""};

}  // namespace

TEST_CASE("an empty format stores only the terminator")
{
    CHECK(Print("") == Good(""));
}

TEST_CASE("output longer than count keeps its first count characters and returns -1")
{
    const Guarded buffer(8);
    CHECK(snprintf_s(buffer.Text(), 8, 7, "%d", 123456789) == -1);
    CHECK(buffer.Held() == WithTerminator("1234567"));
    CHECK(snprintf_s(buffer.Text(), 8, 7, "%d", 42) == 2);
    CHECK(buffer.FrontIntact());
}

TEST_CASE("output that does not fit destMax where count does not cut leaves an empty string")
{
    const Guarded buffer(4);
    CHECK(snprintf_s(buffer.Text(), 4, 10, "%s", "abcd") == -1);
    CHECK(buffer.Held() == std::string("\0bc\0", 4));
    CHECK(snprintf_s(buffer.Text(), 4, 10, "%s", "abc") == 3);
    CHECK(buffer.Held() == WithTerminator("abc"));
    CHECK(buffer.FrontIntact());
}

TEST_CASE("null pointers have names")
{
    const char *none = nullptr;
    CHECK(Print("%s", none) == Good("(null)"));
    CHECK(Print("%.3s", none) == Good("(nu"));
    CHECK(Print("%p", static_cast<void *>(nullptr)) == Good("(nil)"));
    CHECK(Print("%08p", reinterpret_cast<void *>(0xabc)) == Good("0x000abc"));
}

TEST_CASE("zero has no prefix, and no digit where the precision is 0")
{
    CHECK(Print("%#o", 0) == Good("0"));
    CHECK(Print("%#x", 0) == Good("0"));
    CHECK(Print("%.0d", 0) == Good(""));
}

TEST_CASE("odd sizes and orders are taken")
{
    CHECK(Print("%hhd", 300) == Good("44"));
    CHECK(Print("%I64d", 1LL << 40) == Good("1099511627776"));
    CHECK(Print("%lld", 1LL << 40) == Good("1099511627776"));
    CHECK(Print("%qd", 1LL << 40) == Good("1099511627776"));
    CHECK(Print("%Lf", 1.5L) == Good("1.500000"));
    CHECK(Print("%I5d") == Good("I5d"));
    CHECK(Print("%5-d", 3) == Good("3    "));
    CHECK(Print("%*d", -5, 3) == Good("3    "));
    CHECK(Print("%*f", -10, 1.0) == Good("  1.000000"));
}

TEST_CASE("a refused conversion fails the whole call")
{
    CHECK(Print("text %n") == kRefused);
    CHECK(Print("text %y") == kRefused);
}

TEST_CASE("a width takes digits up to 214748369")
{
    CHECK(Print("%214748369d", 1) == Printed{-1, std::string(1023, ' ')});
    CHECK(Print("%2147483690d", 1) == kRefused);
}
