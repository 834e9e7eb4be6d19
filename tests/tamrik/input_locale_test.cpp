// The engines in locales that this machine need not have: a decimal point of several bytes, and
// white space beyond that of C. The linker's --wrap puts the functions below between the library
// and the C library.
#include "tests/tamrik/input_support.h"

#include <doctest/doctest.h>

#include <langinfo.h>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

static const char *g_point = nullptr;  // the locale's decimal point; null: the real one
static int g_space = -1;               // a byte that is white space in this locale too
static bool g_hasMemory = true;
static std::vector<std::string> *g_converted = nullptr;  // the texts that strtod was given

extern "C" {
char *__real_nl_langinfo(nl_item item);
char *__wrap_nl_langinfo(nl_item item);
const unsigned short **__real___ctype_b_loc();
const unsigned short **__wrap___ctype_b_loc();
int __real_isspace(int ch);
int __wrap_isspace(int ch);
double __real_strtod(const char *text, char **end);
double __wrap_strtod(const char *text, char **end);
void *__real_malloc(std::size_t size);
void *__wrap_malloc(std::size_t size);

char *__wrap_nl_langinfo(nl_item item)
{
    if (g_point == nullptr || item != RADIXCHAR)
        return __real_nl_langinfo(item);
    return const_cast<char *>(g_point);
}

// Optimised, isspace looks into this table: the classes of the characters from -128 on.
const unsigned short **__wrap___ctype_b_loc()
{
    static unsigned short classes[384];
    static const unsigned short *table = classes + 128;
    const unsigned short **real = __real___ctype_b_loc();
    if (g_space < 0)
        return real;
    std::memcpy(classes, *real - 128, sizeof classes);
    classes[128 + g_space] |= _ISspace;
    return &table;
}

int __wrap_isspace(int ch)
{
    return ch == g_space ? 1 : __real_isspace(ch);
}

double __wrap_strtod(const char *text, char **end)
{
    if (g_converted != nullptr)
        g_converted->emplace_back(text);
    return __real_strtod(text, end);
}

void *__wrap_malloc(std::size_t size)
{
    return g_hasMemory ? __real_malloc(size) : nullptr;
}
}

// The Arabic decimal separator, as Persian locales have it.
static const std::string kPoint = "\xD9\xAB";
static const std::wstring kWidePoint = L"\u066B";

struct PersianPoint {
    PersianPoint()
    {
        REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
        g_point = kPoint.c_str();
        g_converted = &converted;
    }
    ~PersianPoint()
    {
        g_point = nullptr;
        g_converted = nullptr;
        std::setlocale(LC_ALL, "C");
    }
    PersianPoint(const PersianPoint &) = delete;
    PersianPoint &operator=(const PersianPoint &) = delete;

    std::vector<std::string> converted;
};

TEST_CASE("a decimal point of several bytes is given to strtod as the locale writes it")
{
    struct Row {
        std::string before;
        std::string after;
        std::string rest;
    };
    const Row rows[] = {
        {"1", "5", ""}, {"-12", "25e1", " x"}, {"", "5", ""}, {"7", "", "x"}, {"0x1", "8p2", ""},
    };
    for (const Row &row : rows) {
        CAPTURE(row.before);
        const PersianPoint persian;
        double value = 0;
        CHECK(Scan(row.before + kPoint + row.after + row.rest, "%lf", &value) ==
              Scanned<char>{1, row.rest});
        CHECK(WideScan(Widened(row.before) + kWidePoint + Widened(row.after + row.rest), L"%lf",
                       &value) == Scanned<wchar_t>{1, Widened(row.rest)});
        const std::string text = row.before + kPoint + row.after;
        CHECK(persian.converted == std::vector<std::string>{text, text});
    }
}

TEST_CASE("the first byte of a decimal point without the second is no float")
{
    const PersianPoint persian;
    double value = 4711;
    CHECK(Scan("1\xD9x5", "%lf", &value) == Scanned<char>{0, "x5"});
    CHECK(Scan("1\xD9", "%lf", &value) == Scanned<char>{0, ""});
    CHECK(value == 4711);
    CHECK(persian.converted.empty());
}

TEST_CASE("another locale's decimal point ends the float")
{
    const PersianPoint persian;
    double value = 0;
    CHECK(Scan("1.5", "%lf", &value) == Scanned<char>{1, ".5"});
    CHECK(value == 1);
    CHECK(WideScan(L"2.5", L"%lf", &value) == Scanned<wchar_t>{1, L".5"});
    CHECK(value == 2);
}

TEST_CASE("a decimal point that is no character of the encoding ends a wide format's float")
{
    const PersianPoint persian;
    g_point = "\xD9";
    double value = 0;
    CHECK(WideScan(L"1" + kWidePoint + L"5", L"%lf", &value) ==
          Scanned<wchar_t>{1, kWidePoint + L"5"});
    CHECK(value == 1);
}

TEST_CASE("a float whose decimal point finds no memory is no field")
{
    const std::size_t local = 350;  // characters that a float may have without memory of the heap
    for (std::size_t digits = local - 6; digits <= local + 2; digits++) {
        CAPTURE(digits);
        const std::string before(digits, '0');
        const bool fits = digits + kPoint.size() + 1 < local;
        for (const bool hasMemory : {true, false}) {
            const PersianPoint persian;
            const std::string text = before + kPoint + "5";
            const std::wstring wideText = Widened(before) + kWidePoint + L"5";
            double value = 0;
            double wideValue = 0;
            const Guarded held(text);
            InputSource source = StringSource(held);
            const Guarded wideHeld(BytesOf(wideText));
            InputSource wideSource = StringSource(wideHeld);
            const Guarded format(std::string("%lf", 4));
            const Guarded wideFormat(BytesOf(std::wstring(L"%lf", 4)));
            const auto scan = [&](InputSource *from, int isWide, ...) {
                va_list arguments;
                va_start(arguments, isWide);
                g_hasMemory = hasMemory;
                const int result =
                    isWide != 0
                        ? tamrik_winput_s(
                              from, reinterpret_cast<const wchar_t *>(wideFormat.Text()), arguments)
                        : tamrik_input_s(from, format.Text(), arguments);
                g_hasMemory = true;
                va_end(arguments);
                return result;
            };
            const int expected = fits || hasMemory ? 1 : 0;
            CHECK(scan(&source, 0, &value) == expected);
            CHECK(scan(&wideSource, 1, &wideValue) == expected);
            CHECK(persian.converted == std::vector<std::string>(expected == 1 ? 2 : 0, text));
        }
    }
}

TEST_CASE("what the locale calls white space above 127 is skipped and ends a string")
{
    g_space = 0xA0;
    int value = 0;
    char word[4];
    CHECK(Scan("\xA0 \xA0"
               "12",
               "%d", &value) == Scanned<char>{1, ""});
    CHECK(value == 12);
    CHECK(Scan("ab\xA0"
               "cd",
               "%s", word, 4U) == Scanned<char>{1, "\xA0"
                                                   "cd"});
    CHECK(std::string(word) == "ab");
    CHECK(Scan("x\xA0\xA0y", "x\xA0y") == Scanned<char>{0, ""});
    g_space = -1;
    CHECK(Scan("\xA0"
               "12",
               "%d", &value) == Scanned<char>{0, "\xA0"
                                                 "12"});
}
