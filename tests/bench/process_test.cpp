// process_test.cpp - what is read from the memory of another process.
#include "bench/process.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <doctest/doctest.h>

namespace
{

const long kRecords = 400;  // some thirty of them cross from one block of the file into the next

// The text of a record, of another length each time.
std::string RecordOf(long number)
{
    const auto length = static_cast<size_t>(number * 37 % 120);
    return "line " + std::to_string(number) + "===2026-11-21 9:4:6   Kestrun:main --- " +
           std::string(length, static_cast<char>('a' + number % 26)) + "\n";
}

// As the daemon does it: to the end of the file, its size, the record.
void WriteRecord(FILE *log, const std::string &record)
{
    if (fseek(log, 0, SEEK_END) == 0 && ftell(log) >= 0)
        (void)fwrite(record.data(), 1, record.size(), log);
}

// Writes one record for each byte that it is sent, and answers when it is done. On its stack stands
// something under the next number, like what is left of a call and was overwritten in part.
[[noreturn]] void WriteOnRequest(const std::string &path, int requests, int answers)
{
    FILE *log = fopen(path.c_str(), "a+");
    char byte = 0;
    for (long number = 1; read(requests, &byte, 1) == 1; ++number) {
        char remains[64];
        (void)snprintf(remains, sizeof remains, "line %ld=== --- remains\n", number + 1);
        asm volatile("" : : "r"(remains) : "memory");
        WriteRecord(log, RecordOf(number));
        (void)!write(answers, &byte, 1);
        (void)!read(requests, &byte, 1);  // its memory is looked at meanwhile
    }
    _exit(0);
}

struct Writer {
    bench::Process process;
    int requests = -1;
    int answers = -1;
};

Writer StartWriter(const std::string &path)
{
    int requests[2];
    int answers[2];
    REQUIRE(pipe(requests) == 0);
    REQUIRE(pipe(answers) == 0);
    Writer writer;
    writer.process.pid = fork();
    REQUIRE(writer.process.pid >= 0);
    if (writer.process.pid == 0) {
        close(requests[1]);
        close(answers[0]);
        WriteOnRequest(path, requests[0], answers[1]);
    }
    close(requests[0]);
    close(answers[1]);
    writer.requests = requests[1];
    writer.answers = answers[0];
    return writer;
}

void StopWriter(Writer *writer)
{
    close(writer->requests);
    close(writer->answers);
    bench::KillProcess(&writer->process);
}

void Send(const Writer &writer)
{
    const char byte = 0;
    REQUIRE(write(writer.requests, &byte, 1) == 1);
}

}  // namespace

TEST_CASE("a record that the file does not hold yet, or not whole, is read from memory as it is")
{
    char folder[] = "/tmp/process_test.XXXXXX";
    REQUIRE(mkdtemp(folder) != nullptr);
    const std::string path = std::string(folder) + "/log";
    Writer writer = StartWriter(path);
    long begunOnes = 0;
    for (long number = 1; number <= kRecords; ++number) {
        CAPTURE(number);
        Send(writer);
        char byte = 0;
        REQUIRE(read(writer.answers, &byte, 1) == 1);
        const std::string file = bench::ReadFile(path);
        const std::string begun = file.substr(file.rfind('\n') + 1);
        begunOnes += begun.empty() ? 0 : 1;
        const std::string found =
            bench::UnwrittenLine(&writer.process, number, begun, static_cast<long>(file.size()));
        CHECK(found == RecordOf(number));
        if (number == kRecords)
            CHECK(bench::UnwrittenLine(&writer.process, number + 1, "", 0).empty());
        Send(writer);
    }
    CHECK(begunOnes >= 5);
    StopWriter(&writer);
    std::filesystem::remove_all(folder);
}
