// What the formatted output asks of the platform: vsprintf, wctomb, mbtowc, malloc and free. This
// program takes the place of the first three by defining them; the linker leads malloc and free
// here.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

// ---- What was asked ----

struct Asked {
    std::string subFormat;
    std::vector<int> numbers;  // as many as the sub-format has '*'
    long double value;
    bool operator==(const Asked &other) const = default;
};

std::vector<Asked> g_asked;
int g_forcedResult = INT_MIN;  // what vsprintf returns instead of printing, unless INT_MIN
std::vector<std::size_t> g_allocations;
int g_held = 0;            // allocations not freed yet
int g_failAllocation = 0;  // the how-manieth allocation fails, from 1
bool g_isWatching = false;
int g_resets = 0;
bool g_failConversion = false;
std::size_t g_lookedAt = 0;          // how many bytes mbtowc was last given
std::size_t g_longestCharacter = 1;  // of the encoding, in bytes

// Forgets what was asked before and watches while it lives.
struct Watch {
    explicit Watch(int failAllocation = 0, int forcedResult = INT_MIN)
    {
        g_asked.clear();
        g_allocations.clear();
        g_held = 0;
        g_resets = 0;
        g_failAllocation = failAllocation;
        g_forcedResult = forcedResult;
        g_isWatching = true;
    }
    ~Watch()
    {
        g_isWatching = false;
        g_forcedResult = INT_MIN;
    }
};

constexpr int kErrnoBefore = 4711;
constexpr std::size_t kRoom = 8192;

template <class... Arguments>
std::string Print(const char *format, Arguments... arguments)
{
    static char buffer[kRoom];
    errno = kErrnoBefore;
    const int result = snprintf_s(buffer, kRoom, kRoom - 1, format, arguments...);
    CHECK(errno == kErrnoBefore);
    CHECK(g_held == 0);
    return result < 0 ? "refused" : std::string(buffer, static_cast<std::size_t>(result));
}

// The one sub-format that a format leads to, and the numbers before its value.
template <class... Arguments>
Asked AskedBy(const char *format, Arguments... arguments)
{
    const Watch watch;
    Print(format, arguments...);
    return g_asked.size() == 1 ? g_asked[0] : Asked{};
}

}  // namespace

extern "C" {

int vsprintf(char *buffer, const char *format, va_list argList) noexcept
{
    if (g_isWatching) {
        Asked asked = {format, {}, 0};
        va_list copy;
        va_copy(copy, argList);
        for (const char *at = format; *at != '\0'; at++)
            if (*at == '*')
                asked.numbers.push_back(va_arg(copy, int));
        asked.value = std::strchr(format, 'L') != nullptr
                          ? va_arg(copy, long double)
                          : static_cast<long double>(va_arg(copy, double));
        va_end(copy);
        g_asked.push_back(asked);
    }
    if (g_forcedResult != INT_MIN) {
        errno = ERANGE;
        return g_forcedResult;
    }
    return vsnprintf(buffer, INT_MAX, format, argList);
}

int wctomb(char *to, wchar_t ch) noexcept
{
    // Takes no null place: the library never passes one.
    g_resets += ch == L'\0' ? 1 : 0;
    if (g_failConversion) {
        errno = EILSEQ;
        return -1;
    }
    *to = static_cast<char>(ch);
    return 1;
}

int mbtowc(wchar_t *to, const char *text, std::size_t size) noexcept
{
    if (text == nullptr) {
        g_resets++;
        return 0;
    }
    g_lookedAt = size;
    if (g_failConversion || size == 0) {
        errno = EILSEQ;
        return -1;
    }
    *to = static_cast<unsigned char>(*text);
    return *text != '\0' ? 1 : 0;
}

// What MB_CUR_MAX asks.
std::size_t __ctype_get_mb_cur_max() noexcept
{
    return g_longestCharacter;
}

void *__real_malloc(std::size_t size);
void __real_free(void *memory);
void *__wrap_malloc(std::size_t size);
void __wrap_free(void *memory);

void *__wrap_malloc(std::size_t size)
{
    if (!g_isWatching)
        return __real_malloc(size);
    g_isWatching = false;
    g_allocations.push_back(size);
    g_isWatching = true;
    if (static_cast<int>(g_allocations.size()) == g_failAllocation) {
        errno = ENOMEM;
        return nullptr;
    }
    g_held++;
    return __real_malloc(size);
}

void __wrap_free(void *memory)
{
    if (g_isWatching && memory != nullptr)
        g_held--;
    __real_free(memory);
}
}

// ---- The sub-format ----

TEST_CASE("an ordinary floating directive reaches the platform as it was written")
{
    for (const char *format :
         {"%f",   "%lf",    "%e",        "%E",     "%F",      "%g",      "%G",  "%5f",
          "%-5f", "%05f",   "%+f",       "% f",    "%#f",     "%-+ #0f", "%.f", "%.0f",
          "%.3f", "%12.3f", "%-012.3lf", "%.007f", "%00012f", "%--5.2e"}) {
        CAPTURE(format);
        CHECK(AskedBy(format, 1.5) == Asked{format, {}, 1.5L});
    }
    for (const char *format : {"%Lf", "%12.3Lf", "%-Le", "%LG"}) {
        CAPTURE(format);
        CHECK(AskedBy(format, 1.5L) == Asked{format, {}, 1.5L});
    }
    CHECK(AskedBy("text %d %5.2f more", 1, 1.5) == Asked{"%5.2f", {}, 1.5L});
}

TEST_CASE("a star reaches the platform with the number that is passed for it")
{
    CHECK(AskedBy("%*f", 9, 1.5) == Asked{"%*f", {9}, 1.5L});
    CHECK(AskedBy("%.*f", 3, 1.5) == Asked{"%.*f", {3}, 1.5L});
    CHECK(AskedBy("%-*.*lf", 9, 3, 1.5) == Asked{"%-*.*lf", {9, 3}, 1.5L});
    CHECK(AskedBy("%*.*Lf", 9, 3, 1.5L) == Asked{"%*.*Lf", {9, 3}, 1.5L});
    CHECK(AskedBy("%5.*f", 3, 1.5) == Asked{"%5.*f", {3}, 1.5L});
    CHECK(AskedBy("%*.5f", 9, 1.5) == Asked{"%*.5f", {9}, 1.5L});
    // The magnitude of a width, the precision that holds.
    CHECK(AskedBy("%*f", -9, 1.5) == Asked{"%*f", {9}, 1.5L});
    CHECK(AskedBy("%*f", 1, 1.5) == Asked{"%*f", {1}, 1.5L});
    CHECK(AskedBy("%*f", INT_MIN, 1.5) == Asked{"%*f", {0}, 1.5L});
    CHECK(AskedBy("%.*f", -3, 1.5) == Asked{"%.*f", {6}, 1.5L});
    CHECK(AskedBy("%.*g", 0, 1.5) == Asked{"%.*g", {1}, 1.5L});
    CHECK(AskedBy("%.*G", 0, 1.5) == Asked{"%.*G", {1}, 1.5L});
    CHECK(AskedBy("%.*e", 0, 1.5) == Asked{"%.*e", {0}, 1.5L});
}

TEST_CASE("a marker of an earlier directive adds its number before those of the sub-format")
{
    CHECK(AskedBy("%*d%.*f", 4, 1, 3, 1.5) == Asked{"%.*f", {0}, 1.5L});
    CHECK(AskedBy("%*d%.*Lf", 4, 1, 3, 1.5L) == Asked{"%.*Lf", {0}, 1.5L});
    CHECK(AskedBy("%*d%f", 4, 1, 1.5) == Asked{"%f", {}, 1.5L});
    CHECK(AskedBy("%*d%5.*f", 4, 1, 3, 1.5) == Asked{"%5.*f", {3}, 1.5L});
    CHECK(AskedBy("%*d%*.*f", 4, 1, 9, 3, 1.5) == Asked{"%*.*f", {9, 3}, 1.5L});
    CHECK(AskedBy("%.*d%*f", 4, 1, 9, 1.5) == Asked{"%*f", {9}, 1.5L});
    CHECK(AskedBy("%*.*d%Lf", 4, 1, 1, 1.5L) == Asked{"%Lf", {}, 1.5L});
    CHECK(AskedBy("%*5d%.*f", 4, 1, 3, 1.5) == Asked{"%.*f", {3}, 1.5L});
}

TEST_CASE("what the platform does not know is said in words that it knows")
{
    for (const char *format : {"%hf", "%hhf", "%llf", "%jf", "%tf", "%zf", "%wf", "%Nf", "%Zf",
                               "%I64f", "%I32f", "%hlf", "%lhf"}) {
        CAPTURE(format);
        CHECK(AskedBy(format, 1.5) == Asked{"%f", {}, 1.5L});
    }
    for (const char *format : {"%qf", "%LLf", "%lLf", "%qlf"}) {
        CAPTURE(format);
        CHECK(AskedBy(format, 1.5L) == Asked{"%Lf", {}, 1.5L});
    }
    CHECK(AskedBy("%5-f", 1.5) == Asked{"%-5f", {}, 1.5L});
    CHECK(AskedBy("%5-+7.2f", 1.5) == Asked{"%-+7.2f", {}, 1.5L});
    CHECK(AskedBy("%*-f", 9, 1.5) == Asked{"%-*f", {9}, 1.5L});
    CHECK(AskedBy("%*-*f", 9, 8, 1.5) == Asked{"%-*f", {8}, 1.5L});
    CHECK(AskedBy("%*-5f", 9, 1.5) == Asked{"%-5f", {}, 1.5L});
    CHECK(AskedBy("%*5f", 3, 1.5) == Asked{"%35f", {}, 1.5L});
    CHECK(AskedBy("%*5.*2f", 3, 1, 1.5) == Asked{"%35.12f", {}, 1.5L});
    CHECK(AskedBy("%*5.*f", 3, 1, 1.5) == Asked{"%35.*f", {1}, 1.5L});
    CHECK(AskedBy("%.*2f", -1, 1.5) == Asked{"%f", {}, 1.5L});
    CHECK(AskedBy("%.*00f", 0, 1.5) == Asked{"%.f", {}, 1.5L});
    CHECK(AskedBy("%*5f", INT_MIN, 1.5) == Asked{"%f", {}, 1.5L});
}

template <std::size_t size>
static int PrintWide(wchar_t (&buffer)[size], const wchar_t *format, ...)
{
    OutputStream stream = {sizeof buffer, reinterpret_cast<char *>(buffer)};
    va_list argList;
    va_start(argList, format);
    const int result = tamrik_woutput_s(&stream, format, argList);
    va_end(argList);
    return result;
}

TEST_CASE("the wide twin asks in narrow words")
{
    const Watch watch;
    wchar_t buffer[64];
    CHECK(PrintWide(buffer, L"ab%-9.2lf|", 1.5) == 12);
    CHECK(g_asked == std::vector<Asked>{{"%-9.2lf", {}, 1.5L}});
    CHECK(std::wstring(buffer, 12) == L"ab1.50     |");
}

TEST_CASE("a narrow character of the wide twin is one byte, whatever stands after it")
{
    const Watch watch;
    wchar_t buffer[8];
    CHECK(PrintWide(buffer, L"%c", 'x') == 1);
    CHECK(buffer[0] == L'x');
    CHECK(g_lookedAt == 1);
}

// ---- Memory ----

TEST_CASE("nothing is allocated but for long floating conversions")
{
    const auto allocated = [](const char *format, auto... arguments) {
        const Watch watch;
        Print(format, arguments...);
        return g_allocations;
    };
    using Sizes = std::vector<std::size_t>;
    CHECK(allocated("%s%d%.512d%500s%c", "abc", 1, 2, "def", 'x') == Sizes{});
    CHECK(allocated("%*ls%lc%p", 2000, L"abc", L'x', nullptr) == Sizes{});
    CHECK(allocated("%f", 1.5) == Sizes{});
    // The text of 512 bytes and more: precision + 349, or the width, and two.
    CHECK(allocated("%.162f", 1.5) == Sizes{});
    CHECK(allocated("%.163f", 1.5) == Sizes{514});
    CHECK(allocated("%511f", 1.5) == Sizes{});
    CHECK(allocated("%512f", 1.5) == Sizes{514});
    CHECK(allocated("%*f", -600, 1.5) == Sizes{602});
    CHECK(allocated("%600.300f", 1.5) == Sizes{651});
    // A long double: precision + 4972, 6 where none is given.
    CHECK(allocated("%Lf", 1.5L) == Sizes{4980});
    CHECK(allocated("%.0Lf", 1.5L) == Sizes{4974});
    CHECK(allocated("%.0Lg", 1.5L) == Sizes{4975});
    // A directive of more than 15 characters.
    CHECK(allocated("%-----------.1f", 1.5) == Sizes{});
    CHECK(allocated("%------------.1f", 1.5).size() == 1);
    CHECK(allocated("%-----------------.200f", 1.5).size() == 2);
}

TEST_CASE("without memory a floating conversion prints nothing and the call goes on")
{
    {
        const Watch watch(1);
        CHECK(Print("<%.200f>%d %.1f", 1.5, 7, 2.5) == "<>7 2.5");
    }
    {
        const Watch watch(1);
        CHECK(Print("<%-------------------.1f>%.1f", 1.5, 2.5) == "<>2.5");
    }
    {
        const Watch watch(2);
        CHECK(Print("<%-------------------.200f>%.1f", 1.5, 2.5) == "<>2.5");
    }
    {
        const Watch watch(1);
        CHECK(Print("<%.1Lf>%s", 1.5L, "abc") == "<>abc");
        CHECK(g_asked.empty());
    }
}

TEST_CASE("a precision too large for the sum allocates and asks for nothing")
{
    const Watch watch(1);  // just below the limit there is a request for memory, which fails
    CHECK(Print("<%.*f>", 2147483299, 1.5) == "<>");
    CHECK(Print("<%.*Lf>", 2147478676, 1.5L) == "<>");
    CHECK(g_allocations.empty());
    CHECK(Print("<%.*f>", 2147483298, 1.5) == "<>");
    CHECK(g_allocations == std::vector<std::size_t>{2147483649});
    CHECK(g_asked.empty());
}

TEST_CASE("the same holds for the largest long double precision")
{
    const Watch watch(1);
    CHECK(Print("<%.*Lf>", 2147478675, 1.5L) == "<>");
    CHECK(g_allocations == std::vector<std::size_t>{2147483649});
}

TEST_CASE("the largest width asks for its memory and no more")
{
    const Watch watch(1);
    CHECK(Print("<%*f>", INT_MAX, 1.5) == "<>");
    CHECK(g_allocations == std::vector<std::size_t>{2147483649});
}

// ---- Results ----

TEST_CASE("a text longer than reckoned is discarded, one of just that length is not")
{
    {
        const Watch watch(0, 356);
        CHECK(Print("<%f>", 1.5) == "<>");
    }
    {
        const Watch watch(0, 355);
        CHECK(Print("<%f>", 1.5).size() == 357);
    }
    {
        const Watch watch(0, 701);
        CHECK(Print("<%700f>", 1.5) == "<>");
    }
    {
        const Watch watch(0, INT_MAX);
        CHECK(Print("<%.200Lf>", 1.5L) == "<>");
    }
}

TEST_CASE("a negative result lowers the count and fails the call below zero")
{
    static char buffer[1024];
    const Watch watch(0, -2);
    for (const std::size_t size : {std::size_t{16}, sizeof buffer}) {
        CAPTURE(size);
        CHECK(snprintf_s(buffer, size, size - 1, "abcd%f!", 1.5) == 3);
        CHECK(std::string(buffer) == "abcd!");
        CHECK(snprintf_s(buffer, size, size - 1, "abcd%f%s", 1.5, "efgh") == 6);
        CHECK(std::string(buffer) == "abcdefgh");
        CHECK(snprintf_s(buffer, size, size - 1, "abcd%i%f!", 1, 1.5) == 4);
        CHECK(std::string(buffer) == "abcd1!");
        CHECK(snprintf_s(buffer, size, size - 1, "ab%f!", 1.5) == 1);
        CHECK(std::string(buffer) == "ab!");
        CHECK(snprintf_s(buffer, size, size - 1, "ab%f", 1.5) == 0);
        CHECK(std::string(buffer) == "ab");
        CHECK(snprintf_s(buffer, size, size - 1, "a%f!", 1.5) == -1);
        CHECK(buffer[0] == '\0');
        CHECK(snprintf_s(buffer, size, size - 1, "a%f%f", 1.5, 2.5) == -1);
        CHECK(buffer[0] == '\0');
    }
    // No room comes back: four characters fill the room for four.
    CHECK(snprintf_s(buffer, sizeof buffer, 4, "abcd%f", 1.5) == 2);
    CHECK(snprintf_s(buffer, sizeof buffer, 4, "abcd%fe", 1.5) == -1);
    CHECK(std::string(buffer) == "abcd");
}

// ---- Characters ----

TEST_CASE("the shift state is reset once in each call that converts characters")
{
    for (const std::size_t longest : {std::size_t{2}, std::size_t{6}}) {
        const Watch watch;
        g_longestCharacter = longest;
        CHECK(Print("%d%s%c", 1, "abc", 'x') == "1abcx");
        CHECK(g_resets == 0);
        CHECK(Print("%ls%lc%S", L"abc", L'd', L"ef") == "abcdef");
        CHECK(g_resets == 1);
        CHECK(Print("%lc", L'd') == "d");
        CHECK(g_resets == 2);
    }
    g_longestCharacter = 1;
}

TEST_CASE("an encoding of single bytes has no shift state to reset")
{
    const Watch watch;
    CHECK(Print("%ls%lc", L"abc", L'd') == "abcd");
    CHECK(g_resets == 0);
}

TEST_CASE("a failing conversion leaves errno alone")
{
    const Watch watch;
    g_failConversion = true;
    CHECK(Print("<%lc>%d", L'x', 7) == "<>7");
    CHECK(Print("<%5lc>", L'x') == "<>");
    CHECK(Print("<%ls>", L"x") == "refused");
    CHECK(Print("<%ls>", L"") == "<>");
    CHECK(Print("<%.0ls>", L"x") == "<>");
    wchar_t wide[16];
    errno = kErrnoBefore;
    CHECK(PrintWide(wide, L"<%s>", "x") < 0);
    CHECK(errno == kErrnoBefore);
    g_failConversion = false;
}
