// Random formats, arguments, sizes and counts, compared with the platform's snprintf where its
// rules and ours agree.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"
#include "tests/support/rounds.h"

#include <doctest/doctest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

const int kRounds = Rounds(1100000);

std::mt19937_64 g_random(20081117);

int Below(int bound)
{
    return static_cast<int>(g_random() % static_cast<unsigned>(bound));
}

bool OneIn(int bound)
{
    return Below(bound) == 0;
}

// Numbers of every length, and the edges of every type.
std::uint64_t RandomInteger()
{
    switch (Below(6)) {
    case 0: return 0;
    case 1: return static_cast<std::uint64_t>(Below(300)) - 150;
    case 2: return 1ULL << Below(64);
    case 3: return (1ULL << Below(64)) - 1;
    default: return g_random() >> Below(64);
    }
}

double RandomDouble()
{
    switch (Below(5)) {
    case 0: return Below(2001) - 1000;
    case 1: return (Below(2000001) - 1000000) / 1000.0;
    case 2: return OneIn(2) ? std::numeric_limits<double>::infinity() : 0.0;
    default: {
        const std::uint64_t bits = g_random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    }
}

std::string RandomText()
{
    std::string text;
    for (int length = Below(OneIn(8) ? 200 : 12); length > 0; length--)
        text += static_cast<char>(1 + Below(255));
    return text;
}

std::string RandomLiteral()
{
    std::string text;
    for (int length = Below(OneIn(8) ? 100 : 6); length > 0; length--) {
        const char ch = static_cast<char>(1 + Below(255));
        text += ch == '%' ? "%%" : std::string(1, ch);
    }
    return text;
}

// One directive and what it takes: `stars` integers and then a value of its kind.
enum Kind { kInteger, kLong, kDouble, kLongDouble, kText, kWideText, kPointer, kKinds };

struct Directive {
    std::string text;
    int stars = 0;
    int numbers[2] = {0, 0};
    Kind kind = kInteger;
    std::uint64_t integer = 0;
    double real = 0;
    std::string string;
    std::wstring wide;

    const void *Pointer() const
    {
        if (kind == kPointer)
            return reinterpret_cast<const void *>(integer);
        return kind == kText ? static_cast<const void *>(string.c_str()) : wide.c_str();
    }
};

std::string RandomFlags(const char *allowed)
{
    std::string flags;
    const int count = static_cast<int>(std::strlen(allowed));
    while (OneIn(2))
        flags += allowed[Below(count)];
    return flags;
}

// Appends a width or precision, as digits or as a star.
void AddNumber(Directive *spec, int bound, int lowest)
{
    if (!OneIn(3)) {
        const int number = Below(bound);
        // A width of 0 would be a flag.
        if (number > 0 || spec->text.back() == '.')
            spec->text += std::to_string(number);
        return;
    }
    spec->text += '*';
    spec->numbers[spec->stars++] = lowest + Below(bound - lowest);
}

Directive RandomDirective(bool *isWidthStale)
{
    static const char *const kFlags[kKinds] = {"-+ 0", "-+ 0", "-+ 0#", "-+ 0#", "-", "-", "-"};
    static const char *const kSizes[] = {"ll", "l", "j", "z", "t"};
    Directive spec;
    spec.kind = static_cast<Kind>(OneIn(3) ? Below(kKinds) : Below(2));
    const bool isNumber = spec.kind == kInteger || spec.kind == kLong;
    const bool isFloat = spec.kind == kDouble || spec.kind == kLongDouble;
    const bool isSigned = OneIn(2);
    const char unsignedConversion = "uoxX"[Below(4)];

    spec.text = "%";
    if (isNumber && !isSigned)
        spec.text += RandomFlags(unsignedConversion == 'u' ? "-0" : "-0#");
    else
        spec.text += RandomFlags(kFlags[spec.kind]);
    if (OneIn(3)) {
        // A negative width from the arguments does not left-justify a floating value here.
        AddNumber(&spec, OneIn(20) ? 700 : 30, isFloat ? 0 : -30);
        *isWidthStale = spec.stars == 1 || (*isWidthStale && spec.text.find_first_of("123456789") ==
                                                                 std::string::npos);
    }
    // An earlier star changes a floating conversion with a star of its own for the precision alone.
    const bool isPrecisionSafe = !isFloat || !*isWidthStale || spec.stars == 1;
    if (OneIn(3) && isPrecisionSafe && spec.kind != kPointer) {
        spec.text += '.';
        if (!OneIn(5))
            AddNumber(&spec, OneIn(20) ? 300 : 20, -5);
    }

    spec.integer = RandomInteger();
    spec.real = RandomDouble();
    spec.string = RandomText();
    for (int length = Below(20); length > 0; length--)
        spec.wide += static_cast<wchar_t>(1 + Below(127));

    switch (spec.kind) {
    case kInteger:
        spec.text += OneIn(3) ? (OneIn(2) ? "h" : "hh") : "";
        spec.text += isSigned ? "di"[Below(2)] : unsignedConversion;
        if (OneIn(12)) {
            spec.text = "%" + RandomFlags("-") + (OneIn(2) ? "c" : "5c");
            spec.stars = 0;
        }
        break;
    case kLong:
        spec.text += kSizes[Below(5)];
        spec.text += isSigned ? "di"[Below(2)] : unsignedConversion;
        break;
    case kDouble:
        spec.text += OneIn(4) ? "l" : "";
        spec.text += "eEfFgG"[Below(6)];
        break;
    case kLongDouble:
        spec.text += 'L';
        spec.text += "eEfFgG"[Below(6)];
        break;
    case kText: spec.text += 's'; break;
    case kWideText: spec.text += "ls"; break;
    case kPointer:
        spec.text += 'p';
        spec.integer = OneIn(4) ? 0 : spec.integer;
        break;
    case kKinds: break;
    }
    return spec;
}

// Calls `next` with the arguments before it and the value that the directive takes.
template <class Next, class... Before>
void WithValue(const Directive &spec, Next next, Before... before)
{
    switch (spec.kind) {
    case kInteger: next(before..., static_cast<int>(spec.integer)); break;
    case kLong: next(before..., static_cast<long long>(spec.integer)); break;
    case kDouble: next(before..., spec.real); break;
    case kLongDouble: next(before..., static_cast<long double>(spec.real)); break;
    default: next(before..., spec.Pointer()); break;
    }
}

template <class Next, class... Before>
void WithArguments(const Directive &spec, Next next, Before... before)
{
    switch (spec.stars) {
    case 0: WithValue(spec, next, before...); break;
    case 1: WithValue(spec, next, before..., spec.numbers[0]); break;
    default: WithValue(spec, next, before..., spec.numbers[0], spec.numbers[1]); break;
    }
}

constexpr std::size_t kPlatformRoom = 16384;

// What our function must leave in a buffer of destMax canaries when the whole text is `whole`.
std::string Expected(const std::string &whole, std::size_t destMax, std::size_t count, int *result)
{
    const bool isCutting = count < destMax;
    const std::size_t most = isCutting ? count : destMax - 1;
    const bool isFitting = whole.size() <= most;
    *result = isFitting ? static_cast<int>(whole.size()) : -1;
    std::string held = whole.substr(0, most) + '\0';
    held += Canaries(destMax - held.size());
    if (!isCutting) {
        held[destMax - 1] = '\0';
        if (!isFitting)
            held[0] = '\0';
    }
    return held;
}

// Buffers before an unreadable page, made once.
const Guarded &Buffer(std::size_t size)
{
    static std::vector<std::unique_ptr<Guarded>> buffers(4096);
    if (buffers[size] == nullptr)
        buffers[size] = std::make_unique<Guarded>(size);
    std::memset(buffers[size]->Bytes(), kCanary, size);
    return *buffers[size];
}

// One comparison: what the platform printed, and the buffer, size and count that ours is given.
struct Trial {
    char platform[kPlatformRoom];
    std::string whole;
    const Guarded *buffer;
    std::size_t destMax;
    std::size_t count;
};

Trial g_trial;  // large, and one for all

struct Count {
    int compared = 0;
    int differing = 0;
};

// Chooses the size and the count for a text of so many characters. False when there is none.
bool Prepare(Trial *trial, int length)
{
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof trial->platform)
        return false;
    trial->whole.assign(trial->platform, static_cast<std::size_t>(length));
    const int most = length + 1 < 4000 ? length + 1 : 4000;
    const int size = OneIn(3) ? 1 + Below(most + 40) : most + Below(40);
    trial->destMax = static_cast<std::size_t>(size);
    const std::size_t counts[] = {trial->destMax - 1, trial->destMax, SIZE_MAX, trial->destMax / 2,
                                  trial->whole.size()};
    trial->count = counts[Below(5)];
    trial->buffer = &Buffer(trial->destMax);
    return true;
}

void Judge(Count *counter, const Trial &trial, const char *format, int result)
{
    int expectedResult = 0;
    const std::string expected = Expected(trial.whole, trial.destMax, trial.count, &expectedResult);
    counter->compared++;
    if (result == expectedResult && trial.buffer->Held() == expected)
        return;
    counter->differing++;
    if (counter->differing < 10)
        MESSAGE("format " << format << ": " << result << " instead of " << expectedResult
                          << ", destMax " << trial.destMax << ", count " << trial.count << "\n"
                          << trial.buffer->Held() << "\n"
                          << trial.whole);
}

template <class... Arguments>
void Compare(Count *counter, const char *format, Arguments... arguments)
{
    if (!Prepare(&g_trial,
                 std::snprintf(g_trial.platform, sizeof g_trial.platform, format, arguments...)))
        return;
    Judge(counter, g_trial, format,
          snprintf_s(g_trial.buffer->Text(), g_trial.destMax, g_trial.count, format, arguments...));
}

}  // namespace

TEST_CASE("random formats print what the platform prints")
{
    Count counter;
    for (int round = 0; round < kRounds; round++) {
        bool isWidthStale = false;
        const Directive first = RandomDirective(&isWidthStale);
        std::string format = RandomLiteral() + first.text + RandomLiteral();
        if (OneIn(2)) {
            WithArguments(first,
                          [&](auto... values) { Compare(&counter, format.c_str(), values...); });
            continue;
        }
        const Directive second = RandomDirective(&isWidthStale);
        format += second.text + RandomLiteral();
        WithArguments(first, [&](auto... values) {
            WithArguments(
                second, [&](auto... all) { Compare(&counter, format.c_str(), all...); }, values...);
        });
    }
    CHECK(counter.differing == 0);
    CHECK(counter.compared > kRounds * 95 / 100);
    MESSAGE(counter.compared << " strings compared");
}
