// Runs the cases and writes what it measured as JSON; benchmarks/report.py reads it.
//
//   kestrun-benchmarks --out=FILE [--rounds=N] [--only=TEXT]    times, to FILE
//   kestrun-benchmarks --count [--only=TEXT]                    instructions, under callgrind
//
// A round runs every candidate of a case once, each time beginning with another one. Times are CPU
// time. For the instruction counts each candidate dumps callgrind's statistics under its own name.
#include "benchmarks/harness.h"

#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace
{

std::vector<Case> g_cases;                       // in the order in which they were added
std::map<std::string, std::string> g_leftOut;    // peer and reason
std::map<std::string, std::string> g_wrong;      // "case/candidate" and what it gave
constexpr std::size_t kCountedRepetitions = 20;  // calls whose instructions are counted

// Takes the CPU time of one run from Google Benchmark.
struct TakeTime : benchmark::BenchmarkReporter {
    double nanoseconds = 0;

    bool ReportContext(const Context &) override
    {
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration)
                nanoseconds = run.cpu_accumulated_time / double(run.iterations) * 1e9;
    }
};

std::string Quoted(const std::string &text)
{
    std::string quoted = "\"";
    for (const char ch : text) {
        char escaped[8];
        if (ch == '"' || ch == '\\' || static_cast<unsigned char>(ch) < ' ' || ch & 0x80) {
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(ch));
            quoted += escaped;
        } else {
            quoted += ch;
        }
    }
    return quoted + '"';
}

// Whether the candidate gives what the case expects; says so when not.
bool IsRight(const Case &work, const Candidate &candidate)
{
    work.prepare();
    candidate.repeat(1);
    const std::string result = work.result();
    if (result == work.expected)
        return true;
    const std::string name = work.name + "/" + candidate.name;
    if (g_wrong.emplace(name, result.substr(0, 80)).second)
        std::fprintf(stderr, "wrong output, no ratio: %s gives %s instead of %s\n", name.c_str(),
                     Quoted(result.substr(0, 80)).c_str(),
                     Quoted(work.expected.substr(0, 80)).c_str());
    return false;
}

double Time(const Case &work, const Candidate &candidate)
{
    work.prepare();
    benchmark::ClearRegisteredBenchmarks();
    benchmark::RegisterBenchmark("work", candidate.measure)->MinTime(work.seconds);
    TakeTime reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter, "all");
    return reporter.nanoseconds;
}

// Writes {"case": ..., "times": {candidate: [a number a round]}}.
void MeasureCase(const Case &work, int rounds, std::FILE *out)
{
    std::vector<const Candidate *> right;
    for (const Candidate &candidate : work.candidates)
        if (IsRight(work, candidate))
            right.push_back(&candidate);

    std::vector<std::vector<double>> times(right.size());
    for (int round = 0; round < rounds; round++)
        for (std::size_t i = 0; i < right.size(); i++) {
            const std::size_t which = (i + static_cast<std::size_t>(round)) % right.size();
            times[which].push_back(Time(work, *right[which]));
        }

    std::fprintf(out, "{\"case\": %s, \"times\": {", Quoted(work.name).c_str());
    for (std::size_t i = 0; i < right.size(); i++) {
        std::fprintf(out, "%s%s: [", i == 0 ? "" : ", ", Quoted(right[i]->name).c_str());
        for (std::size_t round = 0; round < times[i].size(); round++)
            std::fprintf(out, "%s%.4g", round == 0 ? "" : ", ", times[i][round]);
        std::fprintf(out, "]");
    }
    std::fprintf(out, "}}");
}

void WriteNotes(std::FILE *out, const char *key, const std::map<std::string, std::string> &notes)
{
    std::fprintf(out, "\"%s\": {", key);
    const char *separator = "";
    for (const auto &[name, text] : notes) {
        std::fprintf(out, "%s%s: %s", separator, Quoted(name).c_str(), Quoted(text).c_str());
        separator = ", ";
    }
    std::fprintf(out, "}");
}

int MeasureAll(const char *path, int rounds, const char *only)
{
    std::FILE *out = std::fopen(path, "w");
    if (out == nullptr) {
        std::perror(path);
        return 1;
    }
    std::fprintf(out, "{\"rounds\": %d, \"cases\": [\n", rounds);
    const char *separator = "";
    for (const Case &work : g_cases) {
        if (work.name.find(only) == std::string::npos)
            continue;
        if (isatty(STDERR_FILENO))
            std::fprintf(stderr, "\r%-40.40s\r", work.name.c_str());
        std::fprintf(out, "%s", separator);
        MeasureCase(work, rounds, out);
        separator = ",\n";
    }
    std::fprintf(out, "],\n");
    WriteNotes(out, "wrong", g_wrong);
    std::fprintf(out, ",\n");
    WriteNotes(out, "left_out", g_leftOut);
    std::fprintf(out, "}\n");
    return std::fclose(out) == 0 ? 0 : 1;
}

int CountAll(const char *only)
{
    for (const Case &work : g_cases) {
        if (!work.isCounted || work.name.find(only) == std::string::npos)
            continue;
        for (const Candidate &candidate : work.candidates) {
            if (!IsRight(work, candidate))
                continue;
            const std::string name = work.name + "/" + candidate.name;
            work.prepare();
            CALLGRIND_START_INSTRUMENTATION;
            CALLGRIND_ZERO_STATS;
            candidate.repeat(kCountedRepetitions);
            CALLGRIND_DUMP_STATS_AT(name.c_str());
            CALLGRIND_STOP_INSTRUMENTATION;
        }
    }
    return 0;
}

}  // namespace

Case &AddCase(Case added)
{
    g_cases.push_back(std::move(added));
    return g_cases.back();
}

void LeaveOut(const std::string &peer, const std::string &why)
{
    if (g_leftOut.emplace(peer, why).second)
        std::fprintf(stderr, "left out: %s (%s)\n", peer.c_str(), why.c_str());
}

int main(int argc, char **argv)
{
    const char *out = nullptr;
    const char *only = "";
    int rounds = 9;
    bool isCounting = false;
    for (int i = 1; i < argc; i++) {
        const std::string argument = argv[i];
        if (argument.rfind("--out=", 0) == 0)
            out = argv[i] + std::strlen("--out=");
        else if (argument.rfind("--only=", 0) == 0)
            only = argv[i] + std::strlen("--only=");
        else if (argument.rfind("--rounds=", 0) == 0)
            rounds = std::atoi(argv[i] + std::strlen("--rounds="));
        else if (argument == "--count")
            isCounting = true;
        else
            rounds = 0;
    }
    if ((out == nullptr && !isCounting) || rounds < 1) {
        std::fprintf(stderr, "usage: %s --out=FILE [--rounds=N] [--only=TEXT] | --count\n",
                     argv[0]);
        return 2;
    }

    AddMemoryCases();
    AddStringCases();
    AddOutputCases();
    AddInputCases();
    AddLogCases();
    AddIniCases();

    char *none[] = {argv[0], nullptr};
    int count = 1;
    benchmark::Initialize(&count, none);
    return isCounting ? CountAll(only) : MeasureAll(out, rounds, only);
}
