// Formatted input from strings, beside the platform's sscanf and a scan written by hand. The scan
// sets the text destinations' sizes, as both take them or not.
#include "benchmarks/harness.h"
#include "benchmarks/peers/scans.h"
#include "tamrik/tamrik.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace
{

constexpr unsigned kTextSize = 128;
int g_numbers[6];
long long g_long;
double g_double;
char g_texts[2][kTextSize];

// The call that a sscanf over an engine is: a source over the text, which is measured first.
template <Scanner Engine>
int ScanWith(const char *input, const char *format, ...)
{
    InputSource source = {};
    source.kind = 0x1;
    source.cur = input;
    source.count = static_cast<int>(std::strlen(input));
    va_list arguments;
    va_start(arguments, format);
    const int fields = Engine(&source, format, arguments);
    va_end(arguments);
    return fields;
}

std::string Scanned()
{
    std::string all;
    for (const int number : g_numbers)
        all += std::to_string(number) + ' ';
    return all + std::to_string(g_long) + ' ' + std::to_string(g_double) + ' ' + g_texts[0] + ' ' +
           g_texts[1];
}

void Forget()
{
    std::memset(g_numbers, 0, sizeof g_numbers);
    std::memset(g_texts, 0, sizeof g_texts);
    g_long = 0;
    g_double = 0;
}

// platform() and bounded(), which is given the call to make, scan the same text into the same
// places.
template <Scanner ByHand, typename Platform, typename Bounded>
void AddScan(const std::string &name, Platform platform, Bounded bounded)
{
    Forget();
    platform();
    Case &work = AddCase(
        {.name = "scan/" + name, .prepare = Forget, .result = Scanned, .expected = Scanned()});
    AddCandidate(work, "sscanf", platform);
    AddCandidate(work, "tamrik_input_s", [=] { bounded(ScanWith<tamrik_input_s>); });
    AddCandidate(work, "a scan by hand", [=] { bounded(ScanWith<ByHand>); });
}

}  // namespace

void AddInputCases()
{
    char *first = g_texts[0], *second = g_texts[1];
    int *n = g_numbers;

    AddScan<ScanNumber>(
        "number", [=] { std::sscanf(Hidden("12345"), Hidden("%d"), n); },
        [=](auto *scan) { scan(Hidden("12345"), Hidden("%d"), n); });
    AddScan<ScanThreeNumbers>(
        "three numbers",
        [=] { std::sscanf(Hidden("12 -345 6789"), Hidden("%d %d %d"), n, n + 1, n + 2); },
        [=](auto *scan) { scan(Hidden("12 -345 6789"), Hidden("%d %d %d"), n, n + 1, n + 2); });
    AddScan<ScanTimeStamp>(
        "time stamp",
        [=] {
            std::sscanf(Hidden("2026-11-20 9:5:37"), Hidden("%d-%d-%d %d:%d:%d"), n, n + 1, n + 2,
                        n + 3, n + 4, n + 5);
        },
        [=](auto *scan) {
            scan(Hidden("2026-11-20 9:5:37"), Hidden("%d-%d-%d %d:%d:%d"), n, n + 1, n + 2, n + 3,
                 n + 4, n + 5);
        });
    AddScan<ScanHexadecimal>(
        "hexadecimal", [=] { std::sscanf(Hidden("0xdeadbeef"), Hidden("%x"), n); },
        [=](auto *scan) { scan(Hidden("0xdeadbeef"), Hidden("%x"), n); });
    AddScan<ScanLongNumber>(
        "long number",
        [=] { std::sscanf(Hidden("-1234567890123456789"), Hidden("%lld"), &g_long); },
        [=](auto *scan) { scan(Hidden("-1234567890123456789"), Hidden("%lld"), &g_long); });
    AddScan<ScanWord>(
        "word",
        [=] { std::sscanf(Hidden("/usr/local/Tarnwell/Kestrun.log"), Hidden("%127s"), first); },
        [=](auto *scan) {
            scan(Hidden("/usr/local/Tarnwell/Kestrun.log"), Hidden("%127s"), first, kTextSize);
        });
    AddScan<ScanTwoWords>(
        "two words",
        [=] { std::sscanf(Hidden("Orvanta Modem"), Hidden("%127s %127s"), first, second); },
        [=](auto *scan) {
            scan(Hidden("Orvanta Modem"), Hidden("%127s %127s"), first, kTextSize, second,
                 kTextSize);
        });
    AddScan<ScanKeyAndValue>(
        "key and value",
        [=] {
            std::sscanf(Hidden("path1=/Volumes/Orvanta"), Hidden("%127[^=]=%127[^\n]"), first,
                        second);
        },
        [=](auto *scan) {
            scan(Hidden("path1=/Volumes/Orvanta"), Hidden("%127[^=]=%127[^\n]"), first, kTextSize,
                 second, kTextSize);
        });
    AddScan<ScanFloat>(
        "float", [=] { std::sscanf(Hidden("3.14159265358979"), Hidden("%lf"), &g_double); },
        [=](auto *scan) { scan(Hidden("3.14159265358979"), Hidden("%lf"), &g_double); });
}
