// Formatted output: the formats that the daemon uses and four others, beside the platform's
// snprintf, stb_sprintf, libsafec and fmt (its own language and its printf one, both read at run
// time).
#include "benchmarks/harness.h"
#include "benchmarks/peers/bounds.h"
#include "benchmarks/peers/safec.h"
#include "tamrik/tamrik.h"

#include <cstdio>
#include <cstring>
#include <string>

#ifdef HAVE_STB
#include "benchmarks/peers/stb.h"
#endif
#ifdef HAVE_FMT
#include <fmt/format.h>
#include <fmt/printf.h>
#endif

namespace
{

constexpr std::size_t kSize = 2048;
char g_buffer[kSize];

// The same arguments for every candidate. The format is hidden from the compiler, so that none of
// them is worked out before the program runs; fmtFormat says the same in fmt's language.
template <typename... Arguments>
Case &AddFormat(const std::string &name, const char *format, [[maybe_unused]] const char *fmtFormat,
                Arguments... arguments)
{
    char expected[kSize];
    std::snprintf(expected, sizeof expected, Hidden(format), arguments...);
    Case &work = AddCase({.name = "format/" + name,
                          .prepare = [] { g_buffer[0] = '\0'; },
                          .result = [] { return std::string(g_buffer); },
                          .expected = expected});
    AddCandidate(work, "snprintf", [=] {
        benchmark::DoNotOptimize(std::snprintf(g_buffer, kSize, Hidden(format), arguments...));
    });
    AddCandidate(work, "snprintf_s", [=] {
        benchmark::DoNotOptimize(
            snprintf_s(g_buffer, kSize, kSize - 1, Hidden(format), arguments...));
    });
    if (const SafecTable *safec = Safec())
        AddCandidate(work, "libsafec", [=, call = safec->snprintf] {
            benchmark::DoNotOptimize(
                call(g_buffer, kSize, kSafecUnknown, Hidden(format), arguments...));
        });
#ifdef HAVE_STB
    AddCandidate(work, "stb_sprintf", [=] {
        benchmark::DoNotOptimize(
            stbsp_snprintf(g_buffer, static_cast<int>(kSize), Hidden(format), arguments...));
    });
#endif
#ifdef HAVE_FMT
    AddCandidate(work, "fmt", [=] {
        const auto end =
            fmt::format_to_n(g_buffer, kSize - 1, fmt::runtime(Hidden(fmtFormat)), arguments...);
        *end.out = '\0';
    });
    AddCandidate(work, "fmt printf", [=] {
        const std::string text = fmt::sprintf(Hidden(format), arguments...);
        std::memcpy(g_buffer, text.c_str(), text.size() + 1);
    });
#endif
    return work;
}

}  // namespace

void AddOutputCases()
{
#ifndef HAVE_STB
    LeaveOut("stb_sprintf", "libstb-dev is not installed");
#endif
#ifndef HAVE_FMT
    LeaveOut("fmt", "libfmt-dev is not installed");
#endif
    AddFormat("log line", "line %d===%d-%d-%d %d:%d:%d   %s:%s --- %s\n",
              "line {}==={}-{}-{} {}:{}:{}   {}:{} --- {}\n", 1234, 2026, 11, 20, 9, 5, 37,
              "Kestrun", "DiskPeekCallback",
              "----------------------Device inserted!---------------");
    AddFormat("redirection", "%s > %s", "{} > {}", "ps -A | grep 'Finder[.]'",
              "/usr/local/Tarnwell/cmd.txt");
    AddFormat("owner command", "ps aux | awk -v PID=%d '$2 == PID { print $1 }'",
              "ps aux | awk -v PID={} '$2 == PID {{ print $1 }}'", 4711);
    AddFormat("section", "[%s]", "[{}]", "SD_THIRDPARTY_SETUP");
    AddFormat("number", "%d", "{}", 17);
    AddFormat("setup command", "%s%s%s/%s\"", "{}{}{}/{}\"", "open \"", "/Volumes/", "Orvanta",
              "ThirdPartySetup.dmg");
    AddFormat("plain message", "DiskMountApproval exit success", "DiskMountApproval exit success");
    AddFormat("literal text", "no conversions here", "no conversions here");
    Case &floating = AddFormat("float", "%f", "{:f}", 3.14159265358979);
    AddCandidate(floating, "checks, vsprintf, copy", [] {
        benchmark::DoNotOptimize(
            BareFloat(g_buffer, kSize, kSize - 1, Hidden("%f"), 3.14159265358979));
    });
    AddFormat("hexadecimal", "%x", "{:x}", 0xDEADBEEFu);
    AddFormat("long number", "%lld", "{}", -1234567890123456789LL);
    AddFormat("fields", "%-20s|%10d", "{:<20}|{:>10}", "Orvanta", 123456);
}
