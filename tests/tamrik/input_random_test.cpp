// The engines beside the platform's own scanf functions: random formats and random text, wherever
// the rules of both are the same. Left out are texts in which a number only begins ("0x", "1e",
// "nan("): the platform takes them, the rules do not; fields that do not fit; and a suppressed
// conversion in front of all others, after which the platform tells the end of the input otherwise.
#include "tests/tamrik/input_support.h"

#include "tests/support/random.h"
#include "tests/support/rounds.h"

#include <doctest/doctest.h>

#include <unistd.h>

#include <array>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

static const int kScans = Rounds(1'000'000);
static const int kFileScans = Rounds(100'000);

static constexpr std::size_t kMostFields = 4;
static constexpr std::size_t kRoom = 256;  // characters; more than any text has

struct Field {
    alignas(16) std::array<char, kRoom * sizeof(wchar_t)> bytes;
};
using Fields = std::array<Field, kMostFields>;

// How a field's bytes are compared.
enum class Kind {
    Integer,
    Pointer,
    Float,
    Double,
    LongDouble,
    Text,
    WideText,
    Characters,
    Position
};

struct Case {
    std::string ours;    // the format for our engines
    std::string theirs;  // the same for the platform
    std::string text;
    std::vector<Kind> kinds;  // of each field that stores, in their order
    bool readsHex = false;
    bool readsFloat = false;
};

static std::string Pick(Random &random, const std::vector<const char *> &from)
{
    return from[random.Below(from.size())];
}

static std::string FloatText(Random &random)
{
    return Pick(random, {"0",
                         "1",
                         "-1.5",
                         "3.14159",
                         "1e3",
                         "-2.5E-3",
                         ".5",
                         "7.",
                         "1e400",
                         "-1e400",
                         "1e-400",
                         "inf",
                         "-Infinity",
                         "NaN",
                         "0x1p4",
                         "0x1.8p-2",
                         "123456789.123456789",
                         "00012",
                         "4.9e-324",
                         "1.7976931348623157e308",
                         "+8",
                         ".",
                         "x",
                         "-",
                         "e5",
                         "3.4028236e38",
                         "16777217",
                         "0.1",
                         "1000000000000000000000000000000000000000000000000"});
}

static std::string IntegerText(Random &random)
{
    std::string text = Pick(random, {"", "", "-", "+"});
    if (random.OneIn(4))
        return text + Pick(random, {"0", "08", "019", "9223372036854775807", "9223372036854775808",
                                    "18446744073709551615", "18446744073709551616", "2147483648",
                                    "99999999999999999999999", "777", "abc", "0x1F", "0XfF", "x",
                                    "1777777777777777777777", "2000000000000000000000"});
    for (std::size_t digits = 1 + random.Below(12); digits > 0; --digits)
        text += static_cast<char>('0' + random.Below(10));
    return text;
}

static std::string WordText(Random &random)
{
    std::string text;
    for (std::size_t length = random.Below(12); length > 0; --length)
        text += "abcxyz-]^_09 .,"[random.Below(15)];
    return text;
}

static void AddBoth(Case *made, const std::string &text)
{
    made->ours += text;
    made->theirs += text;
}

static std::string Width(Random &random)
{
    return random.OneIn(3) ? std::to_string(1 + random.Below(9)) : "";
}

static void AddText(Random &random, Case *made, const std::string &star)
{
    const std::string type =
        Pick(random, {"s", "s", "c", "[a-z]", "[^ ]", "[abc]", "[]x-z]", "[^]a-f]", "[0-9-]",
                      "[-a]", "[z-a]", "[a-c-e]", "[^a-y]", "[^-x]"});
    const bool isWide = random.OneIn(3);
    AddBoth(made, "%" + star + Width(random) + (isWide ? "l" : "") + type);
    made->text += WordText(random);
    if (star.empty())
        made->kinds.push_back(type == "c" ? Kind::Characters
                                          : (isWide ? Kind::WideText : Kind::Text));
}

static void AddFloat(Random &random, Case *made, const std::string &star)
{
    const std::string type(1, "aefgEG"[random.Below(6)]);
    const std::size_t size = random.Below(3);
    // A float is the double made smaller.
    made->ours += "%" + star + (size == 0 ? "" : (size == 1 ? "l" : "L")) + type;
    made->theirs += "%" + star + (size == 2 ? "L" : "l") + type;
    made->text += FloatText(random);
    made->readsFloat = true;
    if (star.empty())
        made->kinds.push_back(size == 0 ? Kind::Float
                                        : (size == 1 ? Kind::Double : Kind::LongDouble));
}

static void AddInteger(Random &random, Case *made, const std::string &star)
{
    const char type = "dduoixX"[random.Below(7)];
    const bool isHex = type == 'i' || type == 'x' || type == 'X';
    made->readsHex |= isHex;
    AddBoth(made, "%" + star + (isHex ? "" : Width(random)) +
                      Pick(random, {"", "", "hh", "h", "l", "ll", "j", "z", "t"}) + type);
    made->text += IntegerText(random);
    if (star.empty())
        made->kinds.push_back(Kind::Integer);
}

static void AddConversion(Random &random, Case *made, bool standsAlone)
{
    const std::string star = made->kinds.empty() || !random.OneIn(6) ? "" : "*";
    switch (random.Below(10)) {
    case 0:
        AddBoth(made, "%" + star + "p");
        made->text += Pick(random, {"0x7fff1234", "(nil)", "abc", "(nix", "-1"});
        made->readsHex = true;
        if (star.empty())
            made->kinds.push_back(Kind::Pointer);
        return;
    case 1:
    case 2: AddFloat(random, made, star); return;
    case 3:
    case 4:
    case 5: AddText(random, made, star); return;
    case 6:
        // At the end of the input only a position that follows directly is stored.
        if (standsAlone) {
            AddBoth(made, Pick(random, {"%n", "%hhn", "%ln"}));
            made->kinds.push_back(Kind::Position);
            return;
        }
        [[fallthrough]];
    default: AddInteger(random, made, star);
    }
}

static Case MakeCase(Random &random)
{
    Case made;
    for (std::size_t fields = 1 + random.Below(kMostFields); fields > 0; --fields) {
        const std::string between = Pick(random, {"", " ", " ", "", ",", " :", "%%", "ab"});
        AddBoth(&made, between);
        made.text += random.OneIn(8) ? " " : (between == "%%" ? "%" : between);
        if (random.OneIn(4))
            made.text += Pick(random, {" ", "\t\n", "  "});
        AddConversion(random, &made, between.empty() && made.ours.ends_with("n"));
    }
    if (random.OneIn(3))
        made.text += Pick(random, {" ", "x", "\n", "12", "~"});
    if (random.OneIn(20))
        made.text.resize(random.Below(made.text.size() + 1));
    return made;
}

static bool IsDigit(char ch)
{
    return std::isdigit(static_cast<unsigned char>(ch)) != 0;
}

// Whether the text at that place goes on with the word, in either case.
static bool GoesOn(const std::string &text, std::size_t at, const std::string &word)
{
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (at + i >= text.size() || (text[at + i] | 0x20) != word[i])
            return false;
    }
    return true;
}

// Whether a number that begins here is whole, or none does. Where one stops in its midst the
// platform takes what there is, or takes one character more.
static bool IsWholeAt(const Case &made, std::size_t at)
{
    const std::string &text = made.text;
    const char ch = static_cast<char>(text[at] | 0x20);
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    const char third = at + 2 < text.size() ? text[at + 2] : '\0';
    if (made.readsHex && ch == '(')
        return GoesOn(text, at, "(nil)");
    if ((made.readsHex || made.readsFloat) && text[at] == '0' && (next | 0x20) == 'x')
        return std::isxdigit(static_cast<unsigned char>(third)) != 0;
    if (!made.readsFloat)
        return true;
    if (ch == 'e' || ch == 'p')
        return IsDigit(next) || ((next == '-' || next == '+') && IsDigit(third));
    if (ch == 'n')
        return GoesOn(text, at, "nan") && !GoesOn(text, at, "nan(");
    if (ch == 'i')
        return GoesOn(text, at, "infinity") ||
               (GoesOn(text, at, "inf") && !GoesOn(text, at, "infi"));
    return true;
}

static bool HasWholeNumbers(const Case &made)
{
    for (std::size_t at = 0; at < made.text.size(); ++at) {
        if (!IsWholeAt(made, at))
            return false;
    }
    return true;
}

// One argument slot each for a pointer and a size.
struct Arguments {
    std::array<std::uintptr_t, 2 *kMostFields> slots = {};
};

static Arguments OurArguments(const Case &made, Fields *fields)
{
    Arguments arguments;
    std::size_t slot = 0;
    for (std::size_t i = 0; i < made.kinds.size(); ++i) {
        arguments.slots[slot++] = reinterpret_cast<std::uintptr_t>((*fields)[i].bytes.data());
        if (made.kinds[i] == Kind::Text || made.kinds[i] == Kind::WideText ||
            made.kinds[i] == Kind::Characters)
            arguments.slots[slot++] = kRoom;
    }
    return arguments;
}

// The bytes of a "%c" that ends early are followed by a terminator of ours, so zeros go in front.
static void Prefill(const Case &made, Fields *fields)
{
    for (std::size_t i = 0; i < made.kinds.size(); ++i)
        (*fields)[i].bytes.fill(made.kinds[i] == Kind::Characters ? '\0' : '\x5A');
}

template <typename Type>
static Type ValueIn(const Field &field)
{
    Type value = {};
    std::memcpy(&value, field.bytes.data(), sizeof value);
    return value;
}

static std::wstring WideTextIn(const Field &field)
{
    std::array<wchar_t, kRoom> text = {};
    std::memcpy(text.data(), field.bytes.data(), sizeof text);
    return text.data();
}

static bool IsSameField(Kind kind, const Field &our, const Field &their)
{
    if (kind == Kind::Float) {
        const auto value = static_cast<float>(ValueIn<double>(their));
        return Of(value) == Of(ValueIn<float>(our));
    }
    if (kind == Kind::LongDouble) {
        const auto a = ValueIn<long double>(our);
        const auto b = ValueIn<long double>(their);
        return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
    }
    // Behind the terminator the platform may write another.
    if (kind == Kind::Text)
        return std::string(our.bytes.data()) == std::string(their.bytes.data());
    if (kind == Kind::WideText)
        return WideTextIn(our) == WideTextIn(their);
    return our.bytes == their.bytes;
}

// Fields that were not reached are not compared, positions always are.
static bool IsSame(const Case &made, int result, const Fields &our, const Fields &their)
{
    int stored = 0;
    for (std::size_t i = 0; i < made.kinds.size(); ++i) {
        const bool isPosition = made.kinds[i] == Kind::Position;
        if (!isPosition && stored++ >= result)
            continue;
        if (!IsSameField(made.kinds[i], our[i], their[i]))
            return false;
    }
    return true;
}

static std::string Told(const Case &made, int our, int their)
{
    return "\"" + made.ours + "\" of \"" + made.text + "\": " + std::to_string(our) +
           " fields, the platform " + std::to_string(their);
}

// Pushes the arguments of a call.
#define SLOTS(a) a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]
#define PLACES(fields)                                                                             \
    fields[0].bytes.data(), fields[1].bytes.data(), fields[2].bytes.data(), fields[3].bytes.data()

// Puts the bytes right before the unreadable page of memory that is used again and again.
template <typename Char>
static const Char *PutAtEnd(const Guarded &memory, const std::basic_string<Char> &text)
{
    const std::string bytes = BytesOf(text);
    char *place = memory.Text() + memory.size - bytes.size();
    std::memcpy(place, bytes.data(), bytes.size());
    return reinterpret_cast<const Char *>(place);
}

template <typename Char>
static int ScanAtEnd(const std::basic_string<Char> &text, const std::basic_string<Char> *format,
                     ...)
{
    static const Guarded texts(1024 * sizeof(wchar_t));
    static const Guarded formats(1024 * sizeof(wchar_t));
    InputSource source = {};
    source.kind = kStringSource;
    source.cur = reinterpret_cast<const char *>(PutAtEnd(texts, text));
    source.count = static_cast<int>(text.size() * sizeof(Char));
    va_list arguments;
    va_start(arguments, format);
    const int result = Engine(&source, PutAtEnd(formats, *format + Char{}), arguments);
    va_end(arguments);
    return result;
}

// How often each result, from -1 on, was seen.
using Results = std::array<int, kMostFields + 2>;

static std::string CompareStrings(bool wide, const Case &made, Results *results)
{
    Fields our;
    Fields their;
    Prefill(made, &our);
    Prefill(made, &their);
    const Arguments arguments = OurArguments(made, &our);
    const std::wstring wideFormat = Widened(made.ours);
    const int result = wide ? ScanAtEnd(Widened(made.text), &wideFormat, SLOTS(arguments.slots))
                            : ScanAtEnd(made.text, &made.ours, SLOTS(arguments.slots));
    // The formats are made for this.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int expected =
        wide ? std::swscanf(Widened(made.text).c_str(), Widened(made.theirs).c_str(), PLACES(their))
             : std::sscanf(made.text.c_str(), made.theirs.c_str(), PLACES(their));
#pragma GCC diagnostic pop
    ++results->at(static_cast<std::size_t>(expected + 1));
    const bool isSame = result == expected && IsSame(made, result, our, their);
    return isSame ? "" : Told(made, result, expected);
}

static void CompareMany(bool wide, int scans)
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    Random random;
    Results results = {};
    for (int done = 0; done < scans;) {
        const Case made = MakeCase(random);
        if (!HasWholeNumbers(made))
            continue;
        ++done;
        const std::string difference = CompareStrings(wide, made, &results);
        if (!difference.empty()) {
            FAIL_CHECK(difference);
            break;
        }
    }
    // The cases are worth something: each result comes up.
    for (const int times : results)
        CHECK(times > scans / 1000);
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("tamrik_input_s reads what the platform's sscanf reads")
{
    CompareMany(false, kScans);
}

TEST_CASE("tamrik_winput_s reads what the platform's swscanf reads")
{
    CompareMany(true, kScans / 4);
}

// Both scan the same file, after so many blanks that the fields lie around the border of a block.
static std::string CompareFiles(Case made, std::size_t blanks, FILE *file)
{
    made.text.insert(0, blanks, ' ');
    made.ours.insert(0, " ");
    made.theirs.insert(0, " ");
    std::rewind(file);
    std::fwrite(made.text.data(), 1, made.text.size(), file);
    std::fflush(file);
    if (ftruncate(fileno(file), static_cast<off_t>(made.text.size())) != 0)
        return "no room for a file";

    Fields our;
    Fields their;
    Prefill(made, &our);
    Prefill(made, &their);
    const Arguments arguments = OurArguments(made, &our);
    std::rewind(file);
    InputSource source = FileSource(file);
    const int result = ScanSource(&source, made.ours.c_str(), SLOTS(arguments.slots));
    const long position = std::ftell(file);
    std::rewind(file);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int expected = std::fscanf(file, made.theirs.c_str(), PLACES(their));
#pragma GCC diagnostic pop
    const long expectedPosition = std::ftell(file);
    if (result == expected && position == expectedPosition && source.consumed == position &&
        IsSame(made, result, our, their))
        return "";
    return Told(made, result, expected) + ", then at " + std::to_string(position) +
           ", the platform " + std::to_string(expectedPosition);
}

TEST_CASE("a file is read as fscanf reads it and left where fscanf leaves it, at any block border")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    FILE *file = std::tmpfile();
    REQUIRE(file != nullptr);
    Random random;
    for (int done = 0; done < kFileScans;) {
        const Case made = MakeCase(random);
        if (!HasWholeNumbers(made))
            continue;
        ++done;
        const std::size_t blanks = random.OneIn(2) ? random.Below(4) : 1025 - random.Below(50);
        const std::string difference = CompareFiles(made, blanks, file);
        if (!difference.empty()) {
            FAIL_CHECK(difference);
            break;
        }
    }
    std::fclose(file);
    std::setlocale(LC_ALL, "C");
}
