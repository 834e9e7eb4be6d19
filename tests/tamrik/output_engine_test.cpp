// What is behind snprintf_s: the state machine's table, the engine on a stream of its own, its
// wide twin, the helper and the checked writers.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <ostream>
#include <string>

namespace
{

// ---- The printed table, once more ----

enum State { Normal, Percent, Flag, Width, Dot, Precision, Size, Type, Invalid };

struct ClassRow {
    const char *name;
    const char *characters;
    State next[8];  // from Normal, Percent, Flag, Width, Dot, Precision, Size, Type
};

// clang-format off
const ClassRow kClasses[9] = {
    {"Other",    "",                  {Normal,  Invalid, Invalid, Invalid, Invalid,   Invalid,   Invalid, Normal}},
    {"Percent",  "%",                 {Percent, Normal,  Invalid, Invalid, Invalid,   Invalid,   Invalid, Percent}},
    {"Dot",      ".",                 {Normal,  Dot,     Dot,     Dot,     Invalid,   Invalid,   Invalid, Normal}},
    {"Star",     "*",                 {Normal,  Width,   Width,   Invalid, Precision, Invalid,   Invalid, Normal}},
    {"Zero",     "0",                 {Normal,  Flag,    Flag,    Width,   Precision, Precision, Invalid, Normal}},
    {"Digit",    "123456789",         {Normal,  Width,   Width,   Width,   Precision, Precision, Invalid, Normal}},
    {"FlagChar", " #+-",              {Normal,  Flag,    Flag,    Flag,    Invalid,   Invalid,   Invalid, Normal}},
    {"SizeChar", "ILNZhjlqtwz",       {Normal,  Size,    Size,    Size,    Size,      Size,      Size,    Normal}},
    {"TypeChar", "CEFGSXcdefgiopsux", {Normal,  Type,    Type,    Type,    Type,      Type,      Type,    Normal}},
};
// clang-format on

int ClassOf(int ch)
{
    for (int row = 1; row < 9; row++)
        if (ch != 0 && std::strchr(kClasses[row].characters, ch) != nullptr)
            return row;
    return 0;
}

// ---- Engines on a stream ----

// What an engine did with a stream of so many bytes.
struct Run {
    int result;
    int count;         // what the stream's room came to
    std::string text;  // what was written
    bool operator==(const Run &other) const = default;
};

std::ostream &operator<<(std::ostream &out, const Run &run)
{
    return out << run.result << ' ' << run.count << " \"" << run.text << '"';
}

Run Narrow(int room, const char *format, ...)
{
    const Guarded buffer(room > 0 ? static_cast<std::size_t>(room) : 0);
    OutputStream stream = {room, buffer.Text()};
    va_list argList;
    va_start(argList, format);
    const int result = tamrik_output_s(&stream, format, argList);
    va_end(argList);
    CHECK(buffer.FrontIntact());
    const auto written = static_cast<std::size_t>(stream.cur - buffer.Text());
    CHECK(buffer.Held().substr(written) == Canaries(buffer.size - written));
    return {result, stream.count, buffer.Held().substr(0, written)};
}

// The same for the wide twin; its text is compared character by character, each in a byte, those
// above 0x7F as '?'. The target is not aligned for wide characters where the room is odd.
Run Wide(int room, const wchar_t *format, ...)
{
    const Guarded buffer(room > 0 ? static_cast<std::size_t>(room) : 0);
    OutputStream stream = {room, buffer.Text()};
    va_list argList;
    va_start(argList, format);
    const int result = tamrik_woutput_s(&stream, format, argList);
    va_end(argList);
    CHECK(buffer.FrontIntact());
    const auto written = static_cast<std::size_t>(stream.cur - buffer.Text());
    CHECK(written % sizeof(wchar_t) == 0);
    CHECK(buffer.Held().substr(written) == Canaries(buffer.size - written));
    std::string text;
    for (std::size_t at = 0; at < written; at += sizeof(wchar_t)) {
        wchar_t ch = 0;
        std::memcpy(&ch, buffer.Text() + at, sizeof ch);
        text += ch <= 0x7F && ch >= 0 ? static_cast<char>(ch) : '?';
    }
    return {result, stream.count, text};
}

// Runs a format in every room, from none to far more than its text takes.
template <class... Arguments>
void RunInEveryRoom(const std::string &whole, const char *format, Arguments... arguments)
{
    constexpr int kBehind = 400;
    const int length = static_cast<int>(whole.size());
    for (int room = 0; room < length + kBehind; room++) {
        CAPTURE(whole);
        CAPTURE(room);
        const Run run = Narrow(room, format, arguments...);
        CHECK(run.result == (room < length ? -1 : length));
        CHECK(run.text == whole.substr(0, static_cast<std::size_t>(room)));
        // A padding that finds no room and the text after it are an attempt each.
        CHECK((room < length ? run.count < 0 : run.count == room - length));
    }
}

constexpr int kRoom = 1024;
constexpr int kWideRoom = kRoom * static_cast<int>(sizeof(wchar_t));

// A good run with room to spare.
Run Good(const std::string &text)
{
    const int length = static_cast<int>(text.size());
    return {length, kRoom - length, text};
}

Run WideGood(const std::string &text)
{
    const int length = static_cast<int>(text.size());
    return {length, kWideRoom - length * static_cast<int>(sizeof(wchar_t)), text};
}

int Helper(char *dest, std::size_t size, const char *format, ...)
{
    va_list argList;
    va_start(argList, format);
    const int result = vsnprintf_helper(dest, size, format, argList);
    va_end(argList);
    return result;
}

}  // namespace

// ---- The state machine ----

TEST_CASE("the packed table holds the class of every character")
{
    for (int ch = ' '; ch <= 'z'; ch++) {
        CAPTURE(ch);
        CHECK((tamrik__lookuptable_s[ch - ' '] & 0xF) == ClassOf(ch));
    }
    CHECK(sizeof tamrik__lookuptable_s == 'z' - ' ' + 1);
}

TEST_CASE("the packed table holds the next state of every class and state")
{
    for (int row = 0; row < 9; row++) {
        for (int from = 0; from < 8; from++) {
            CAPTURE(kClasses[row].name);
            CAPTURE(from);
            CHECK((tamrik__lookuptable_s[row * 9 + from] >> 4) == kClasses[row].next[from]);
        }
    }
}

TEST_CASE("the engines go from every state by every character as the printed table says")
{
    // How to come into each state, without an argument; the text printed until then.
    const char *const entry[8] = {"x", "%", "%-", "%5", "%.", "%.5", "%l", "%5%d"};
    const char *const printed[8] = {"x", "", "", "", "", "", "", "    "};
    for (int from = 0; from < 8; from++) {
        for (int ch = 1; ch < 256; ch++) {
            if (from == Type) {
                // Reached by a conversion; what follows then is as from Normal.
                continue;
            }
            const State next = kClasses[ClassOf(ch)].next[from];
            std::string format = std::string(entry[from]) + static_cast<char>(ch);
            CAPTURE(format);
            // What the conversions take: a number, but text for 's' and a value for 'f'.
            const bool isWide = std::strchr("S", ch) != nullptr || (ch == 's' && from == Size);
            const bool isFloat = ClassOf(ch) == 8 && std::strchr("eEfFgG", ch) != nullptr;
            const auto run = [&](const std::string &text) {
                const std::wstring wide(text.begin(), text.end());
                if (isFloat)
                    return Narrow(kRoom, text.c_str(), 1.0).result;
                if (isWide)
                    return Narrow(kRoom, text.c_str(), L"t", 1).result;
                if (ch == 's')
                    return Narrow(kRoom, text.c_str(), "t", 1).result;
                return Narrow(kRoom, text.c_str(), 1, 1, 1).result;
            };
            const bool isAtEnd = next == Normal || next == Type;
            // "%I" before the end prints the letter and is good.
            const bool isLetter = next == Size && ch == 'I';
            CHECK((run(format) >= 0) == (isAtEnd || isLetter));
            if (!isAtEnd)
                CHECK((run(format + 'd') >= 0) == (next != Invalid));
            if (next == Normal && from == Normal)
                CHECK(Narrow(kRoom, format.c_str()) ==
                      Good(std::string(printed[from]) + static_cast<char>(ch)));
        }
    }
}

TEST_CASE("after a conversion every character is text again, but for the percent sign")
{
    for (int ch = 1; ch < 256; ch++) {
        const std::string format = std::string("%d") + static_cast<char>(ch) + "%d";
        CAPTURE(format);
        if (ch == '%')
            CHECK(Narrow(kRoom, format.c_str(), 1, 2) == Good("1%d"));
        else
            CHECK(Narrow(kRoom, format.c_str(), 1, 2) ==
                  Good(std::string("1") + static_cast<char>(ch) + "2"));
    }
}

TEST_CASE("a wide format's characters beyond the table are of no class")
{
    for (const wchar_t ch :
         {wchar_t{0x7B}, wchar_t{0x80}, wchar_t{0xFF}, wchar_t{0x125}, wchar_t{0x10064},
          static_cast<wchar_t>(-1), static_cast<wchar_t>(INT_MIN)}) {
        const wchar_t alone[] = {L'a', ch, L'b', 0};
        CHECK(Wide(kWideRoom, alone).result == 3);
        const wchar_t after[] = {L'%', ch, L'd', 0};
        CHECK(Wide(kWideRoom, after, 1) == Run{-1, kWideRoom, ""});
    }
}

// ---- The engine on a stream ----

TEST_CASE("the engine counts the room down and writes no terminator")
{
    CHECK(Narrow(8, "") == Run{0, 8, ""});
    CHECK(Narrow(8, "abc%d", 42) == Run{5, 3, "abc42"});
    CHECK(Narrow(5, "abc%d", 42) == Run{5, 0, "abc42"});
    CHECK(Narrow(0, "") == Run{0, 0, ""});
}

TEST_CASE("what finds no room fails the call and lowers the room below zero")
{
    CHECK(Narrow(4, "abcde") == Run{-1, -1, "abcd"});
    CHECK(Narrow(0, "a") == Run{-1, -1, ""});
    CHECK(Narrow(-3, "a") == Run{-1, -4, ""});
    CHECK(Narrow(INT_MIN, "a") == Run{-1, INT_MIN, ""});
    CHECK(Narrow(3, "%s and more", "abcdef") == Run{-1, -1, "abc"});
    CHECK(Narrow(3, "%5.1f", 1.0) == Run{-1, -1, "  1"});
    CHECK(Narrow(4, "ab%y") == Run{-1, 2, "ab"});
    CHECK(Narrow(2, "ab%y") == Run{-1, 0, "ab"});
}

TEST_CASE("whatever room is left, what fits comes out whole and what does not is cut at its end")
{
    RunInEveryRoom("abcdef", "abcdef");
    RunInEveryRoom("abcdefg", "abcdefg");
    RunInEveryRoom(std::string(70, 'x'), std::string(70, 'x').c_str());
    RunInEveryRoom("1" + std::string(70, 'x'), ("%i" + std::string(70, 'x')).c_str(), 1);
    RunInEveryRoom("abcdef-2147483648", "abcdef%d", INT_MIN);
    RunInEveryRoom("abcdef-9223372036854775808.", "abcdef%lld.", LLONG_MIN);
    RunInEveryRoom("1 23 456 7890 12345 -6", "%d %d %d %d %d %d", 1, 23, 456, 7890, 12345, -6);
    RunInEveryRoom("abcdefdeadbeef", "abcdef%x", 0xDEADBEEFU);
    RunInEveryRoom("abcdef", "%s%s", "abc", "def");
    RunInEveryRoom("a" + std::string(40, 'y') + "b", "a%sb", std::string(40, 'y').c_str());
    RunInEveryRoom("Orvanta             |    123456", "%-20s|%10d", "Orvanta", 123456);
    RunInEveryRoom(std::string(40, 'z') + "7", "%3s%1d", std::string(40, 'z').c_str(), 7);
    RunInEveryRoom("abcdef0.500000!", "abcdef%f!", 0.5);
    RunInEveryRoom("5.000000e-01-0.5", "%e%g", 0.5, -0.5);
    RunInEveryRoom("-7     |    -1234567890", "%-7d|%15ld", -7, -1234567890L);
    RunInEveryRoom("50% of 8", "%d%% of %d", 50, 8);
}

// ---- The wide twin ----

TEST_CASE("the wide twin writes wide characters, counts them, and its room in bytes")
{
    CHECK(Wide(kWideRoom, L"") == WideGood(""));
    CHECK(Wide(kWideRoom, L"abc%%") == WideGood("abc%"));
    CHECK(Wide(20, L"abcde") == Run{5, 0, "abcde"});
    CHECK(Wide(19, L"abcde") == Run{-1, -1, "abcd"});
    CHECK(Wide(16, L"abcde") == Run{-1, -4, "abcd"});
    CHECK(Wide(3, L"a") == Run{-1, -1, ""});
    CHECK(Wide(0, L"a") == Run{-1, -4, ""});
    CHECK(Wide(INT_MIN, L"a") == Run{-1, INT_MIN, ""});
    CHECK(Wide(27, L"%5d", 42) == Run{5, 7, "   42"});
    CHECK(Wide(10, L"%*d", INT_MAX, 42) == Run{-1, -6, "  "});
    CHECK(Wide(kWideRoom, L"%y") == Run{-1, kWideRoom, ""});
    CHECK(Wide(kWideRoom, L"ab%5") == Run{-1, kWideRoom - 8, "ab"});
}

TEST_CASE("the wide twin converts as the narrow engine does")
{
    CHECK(Wide(kWideRoom, L"%d|%5u|%-5o|%05x|%#X", -42, 42, 8, 255, 255) ==
          WideGood("-42|   42|10   |000ff|0XFF"));
    CHECK(Wide(kWideRoom, L"%+d|% d|%.3d|%lld|%hhd", 1, 2, 3, 1LL << 40, 300) ==
          WideGood("+1| 2|003|1099511627776|44"));
    CHECK(Wide(kWideRoom, L"%p|%p|%08p", nullptr, reinterpret_cast<void *>(0xabc),
               reinterpret_cast<void *>(0xabc)) == WideGood("(nil)|0xabc|0x000abc"));
    CHECK(Wide(kWideRoom, L"%*d|%-*d|%.*d", 4, 1, 4, 2, 2, 3) == WideGood("   1|2   |03"));
    CHECK(Wide(kWideRoom, L"%I5d%I64d", 1LL) == WideGood("I5d1"));
    CHECK(Wide(kWideRoom, L"%f|%8.2f|%-8.1f|%Lg|%llf", 1.5, 1.5, 1.5, 2.0L, 2.5) ==
          WideGood("1.500000|    1.50|1.5     |2|2.500000"));
    CHECK(Wide(kWideRoom, L"%*d|%.*f", 3, 1, 2, 1.5) == WideGood("  1|2"));
    CHECK(Wide(kWideRoom, L"%*5f|%.300f", 1, 1.0, 1.0) ==
          WideGood("       1.000000|1." + std::string(300, '0')));
    CHECK(Wide(kWideRoom, L"%.512d", 7) == WideGood(std::string(511, '0') + "7"));
}

TEST_CASE("in the wide twin the capitals without a size are narrow, as s and c are")
{
    CHECK(Wide(kWideRoom, L"%s|%S|%hs|%lls", "a", "b", "c", "d") == WideGood("a|b|c|d"));
    CHECK(Wide(kWideRoom, L"%ls|%lS|%ws|%wS", L"a", L"b", L"c", L"d") == WideGood("a|b|c|d"));
    CHECK(Wide(kWideRoom, L"%c%C%hc%lc%wC", 'a', 'b', 'c', L'd', L'e') == WideGood("abcde"));
    CHECK(Wide(kWideRoom, L"%s|%ls|%.2s|%.2ls", nullptr, nullptr, nullptr, nullptr) ==
          WideGood("(null)|(null)|(n|(n"));
    CHECK(Wide(kWideRoom, L"%5s|%-5ls|%05s|%3c|%-3lc|", "ab", L"ab", "ab", 'a', L'b') ==
          WideGood("   ab|ab   |   ab|  a|b  |"));
    CHECK(Wide(kWideRoom, L"%c|", 0) == WideGood(std::string("\0|", 2)));
}

TEST_CASE("the wide twin reads strings no further than the precision")
{
    const Guarded narrow(std::string(5, 'q'));
    CHECK(Wide(kWideRoom, L"%.5s", narrow.Text()) == WideGood("qqqqq"));
    const Guarded wideBytes(5 * sizeof(wchar_t));
    auto *wide = reinterpret_cast<wchar_t *>(wideBytes.Bytes());
    for (int i = 0; i < 5; i++)
        wide[i] = L'q';
    CHECK(Wide(kWideRoom, L"%.5ls", wide) == WideGood("qqqqq"));
}

TEST_CASE("narrow text in the wide twin is of the locale, and fails the call where it is not")
{
    CHECK(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    CHECK(Wide(kWideRoom, L"%s|", "a\xc3\xa9\xe2\x82\xac") == WideGood("a??|"));
    CHECK(Wide(kWideRoom, L"%5s|", "\xc3\xa9") == WideGood("   ?|"));
    CHECK(Wide(kWideRoom, L"ab%s|", "\xc3\xa9\xff").result == -1);
    CHECK(Wide(kWideRoom, L"ab%.1s|", "\xc3\xa9").result == -1);
    CHECK(Wide(kWideRoom, L"<%c>", 0xFF) == WideGood("<>"));
    CHECK(Wide(kWideRoom, L"<%5c>%d", 0xC3, 7) == WideGood("<>7"));
    CHECK(Wide(kWideRoom, L"<%lc>", 0x20AC) == WideGood("<?>"));
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a byte that begins a character without its rest spoils nothing that comes later")
{
    CHECK(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (const int byte : {0xC3, 0xE2, 0xF0, 0xFF}) {
        CAPTURE(byte);
        CHECK(Wide(kWideRoom, L"%c%s|", byte, "abc") == WideGood("abc|"));
        CHECK(Wide(kWideRoom, L"%c%s|", byte, "\xc3\xa9") == WideGood("?|"));
        CHECK(Wide(kWideRoom, L"%c%c%c|", byte, byte, 'x') == WideGood("x|"));
    }
    CHECK(Wide(kWideRoom, L"%s", "ab\xc3").result == -1);
    CHECK(Wide(kWideRoom, L"%s|", "ab") == WideGood("ab|"));
    // The caller's own conversions begin afresh as well.
    wchar_t ch = 0;
    CHECK(Wide(kWideRoom, L"%c", 0xC3) == WideGood(""));
    CHECK(std::mbtowc(&ch, "a", 1) == 1);
    CHECK(ch == L'a');
    std::setlocale(LC_ALL, "C");
}

// ---- The helper ----

TEST_CASE("the helper terminates what fits and tells what does not from what is refused")
{
    const Guarded buffer(4);
    CHECK(Helper(buffer.Text(), 4, "abc") == 3);
    CHECK(buffer.Held() == WithTerminator("abc"));
    buffer.Fill();
    CHECK(Helper(buffer.Text(), 4, "a") == 1);
    CHECK(buffer.Held() == WithTerminator("a") + Canaries(2));
    CHECK(Helper(buffer.Text(), 4, "abcd") == -2);
    CHECK(buffer.Held() == WithTerminator("abc"));
    CHECK(Helper(buffer.Text(), 4, "efghijk") == -2);
    CHECK(buffer.Held() == WithTerminator("efg"));
    CHECK(Helper(buffer.Text(), 4, "x%y") == -1);
    CHECK(buffer.Held() == WithTerminator("xfg"));
    CHECK(Helper(buffer.Text(), 4, "abcd%y") == -1);
    CHECK(Helper(buffer.Text(), 4, "abcde%y") == -2);
    CHECK(Helper(buffer.Text(), 1, "") == 0);
    CHECK(Helper(buffer.Text(), 4, "%d%s", 4, "yz") == 3);
    CHECK(buffer.Held() == WithTerminator("4yz"));
    CHECK(buffer.FrontIntact());
}

TEST_CASE("the helper stores nothing where there is no room at all")
{
    const Guarded buffer(4);
    CHECK(Helper(buffer.Text(), 0, "") == -2);
    CHECK(Helper(buffer.Text(), 0, "abc") == -2);
    CHECK(Helper(buffer.Text(), 0, "%y") == -1);
    CHECK(buffer.Held() == Canaries(4));
    CHECK(buffer.FrontIntact());
    CHECK(Helper(nullptr, 8, "abc") == -2);
    CHECK(Helper(nullptr, 8, "") == -2);
    CHECK(Helper(nullptr, 0, "%d", 1) == -2);
}

// ---- The checked writers ----

TEST_CASE("the writers store while there is room, then fail the count and lower the room once more")
{
    const struct {
        int room;
        int n;
        int result;  // what the count of characters, 10 before, comes to
        int left;
        std::size_t written;
    } rows[] = {
        {5, 0, 10, 5, 0},
        {5, -1, 10, 5, 0},
        {5, INT_MIN, 10, 5, 0},
        {5, 1, 11, 4, 1},
        {5, 4, 14, 1, 4},
        {5, 5, 15, 0, 5},
        {5, 6, -1, -1, 5},
        {5, INT_MAX, -1, -1, 5},
        {0, 1, -1, -1, 0},
        {0, 0, 10, 0, 0},
        {-4, 3, -1, -5, 0},
        {INT_MIN, 3, -1, INT_MIN, 0},
        {INT_MIN + 1, 3, -1, INT_MIN, 0},
    };
    for (const auto &row : rows) {
        CAPTURE(row.room);
        CAPTURE(row.n);
        const Guarded buffer(5);
        OutputStream stream = {row.room, buffer.Text()};
        int charsOut = 10;
        write_multi_char_a('x', row.n, &stream, &charsOut);
        CHECK(charsOut == row.result);
        CHECK(stream.count == row.left);
        CHECK(stream.cur == buffer.Text() + row.written);
        CHECK(buffer.Held() == std::string(row.written, 'x') + Canaries(5 - row.written));

        buffer.Fill();
        stream = {row.room, buffer.Text()};
        charsOut = 10;
        const Guarded source(std::string("abcdef"));
        write_string_a(source.Text(), row.n, &stream, &charsOut);
        CHECK(charsOut == row.result);
        CHECK(stream.count == row.left);
        CHECK(stream.cur == buffer.Text() + row.written);
        CHECK(buffer.Held() == std::string("abcdef", row.written) + Canaries(5 - row.written));
        CHECK(buffer.FrontIntact());
    }
}

TEST_CASE("one character is written while there is room for one")
{
    const Guarded buffer(2);
    OutputStream stream = {2, buffer.Text()};
    int charsOut = 0;
    write_char_a('a', &stream, &charsOut);
    write_char_a('b', &stream, &charsOut);
    CHECK(charsOut == 2);
    CHECK(stream.count == 0);
    write_char_a('c', &stream, &charsOut);
    CHECK(charsOut == -1);
    CHECK(stream.count == -1);
    CHECK(stream.cur == buffer.Text() + 2);
    CHECK(buffer.Held() == "ab");
}

TEST_CASE("putWcharStrEndingZero writes as many zero bytes as there is room for")
{
    const struct {
        int room;
        int n;
        int result;
        int left;
        std::size_t written;
    } rows[] = {
        {5, 4, 1, 1, 4}, {5, 5, 1, 0, 5},  {5, 6, 0, -1, 5}, {0, 1, 0, -1, 0},
        {5, 0, 1, 5, 0}, {5, -1, 0, 5, 0}, {0, 0, 1, 0, 0},  {-1, 1, 0, -2, 0},
    };
    for (const auto &row : rows) {
        CAPTURE(row.room);
        CAPTURE(row.n);
        const Guarded buffer(5);
        OutputStream stream = {row.room, buffer.Text()};
        CHECK(putWcharStrEndingZero(&stream, row.n) == row.result);
        CHECK(stream.count == row.left);
        CHECK(buffer.Held() == std::string(row.written, '\0') + Canaries(5 - row.written));
    }
}

TEST_CASE("indirectSprintf is the platform's vsprintf")
{
    const Guarded buffer(16);
    CHECK(indirectSprintf(buffer.Text(), "%d %s %.1f", 1, "two", 3.0) == 9);
    CHECK(buffer.Held() == WithTerminator("1 two 3.0") + Canaries(6));
}
