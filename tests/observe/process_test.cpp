// process_test.cpp - what is read from the memory of another process.
#include "modem/daemon.h"
#include "observe/files.h"
#include "observe/process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/prctl.h>
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
    pid_t pid = -1;
    unsigned long page = 0;
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
    writer.pid = fork();
    REQUIRE(writer.pid >= 0);
    if (writer.pid == 0) {
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

void Kill(pid_t pid)
{
    (void)kill(pid, SIGKILL);
    (void)waitpid(pid, nullptr, 0);
}

void StopWriter(Writer *writer)
{
    close(writer->requests);
    close(writer->answers);
    Kill(writer->pid);
}

void Send(const Writer &writer)
{
    const char byte = 0;
    REQUIRE(write(writer.requests, &byte, 1) == 1);
}

}  // namespace

TEST_CASE(
    "the daemons are those that bear the name and are no children of another, the oldest first")
{
    const std::vector<long> none;
    CHECK(observe::DaemonsAmong({}) == none);
    CHECK(observe::DaemonsAmong({{700, 1, 50}}) == std::vector<long>{700});
    CHECK(observe::DaemonsAmong({{700, 0, 50}}) == std::vector<long>{700});
    // The numbers of processes begin anew some time: a child may have the smaller one.
    CHECK(observe::DaemonsAmong({{40, 32000, 90}, {32000, 1, 50}}) == std::vector<long>{32000});
    CHECK(observe::DaemonsAmong({{40, -1, 0}, {32000, 1, 50}}) == std::vector<long>{32000});
    CHECK(observe::DaemonsAmong({{40, 1, 90}, {32000, 1, 50}}) == std::vector<long>{32000, 40});
    CHECK(observe::DaemonsAmong({{32000, -1, 0}}) == none);
}

TEST_CASE("the daemon of this system is found by its name, its child is not")
{
    const std::vector<long> before = observe::FindDaemons();
    int ready[2];
    REQUIRE(pipe(ready) == 0);
    const pid_t daemon = fork();
    REQUIRE(daemon >= 0);
    if (daemon == 0) {
        (void)prctl(PR_SET_NAME, "Kestrun");
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (fork() == 0)
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        (void)!write(ready[1], "", 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    for (int i = 0; i < 2; ++i)
        REQUIRE(read(ready[0], &byte, 1) == 1);
    std::vector<long> found = observe::FindDaemons();
    std::erase_if(found, [&](long pid) { return std::ranges::find(before, pid) != before.end(); });
    CHECK(found == std::vector<long>{daemon});
    close(ready[0]);
    close(ready[1]);
    Kill(daemon);
}

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
        const std::string file = observe::ReadFile(path);
        const std::string begun = file.substr(file.rfind('\n') + 1);
        begunOnes += begun.empty() ? 0 : 1;
        const std::string found = observe::UnwrittenLine(writer.pid, &writer.page, number, begun,
                                                         static_cast<long>(file.size()));
        CHECK(found == RecordOf(number));
        if (number == kRecords)
            CHECK(observe::UnwrittenLine(writer.pid, &writer.page, number + 1, "", 0).empty());
        Send(writer);
    }
    CHECK(begunOnes >= 5);
    StopWriter(&writer);
    std::filesystem::remove_all(folder);
}

// True when the process comes to wait so within a second.
static bool Comes(pid_t pid, observe::Sleep sleep)
{
    for (int tries = 1000; tries > 0 && observe::SleepOf(pid) != sleep; --tries)
        (void)usleep(1000);
    return observe::SleepOf(pid) == sleep;
}

TEST_CASE("a process that was stopped waits afterwards as it did before")
{
    struct Row {
        void (*wait)();
        observe::Sleep sleep;
    };
    const Row rows[] = {
        {[] { (void)poll(nullptr, 0, -1); }, observe::Sleep::Endless},
        {[] { (void)sleep(1000); }, observe::Sleep::Timed},
    };
    for (const Row &row : rows) {
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            row.wait();
            _exit(0);
        }
        CHECK(Comes(child, row.sleep));
        for (const int number : {SIGSTOP, SIGCONT}) {
            REQUIRE(kill(child, number) == 0);
            int status = 0;
            REQUIRE(waitpid(child, &status, WUNTRACED | WCONTINUED) == child);
        }
        CHECK(Comes(child, row.sleep));
        CHECK(observe::IsIdle(child) == (row.sleep == observe::Sleep::Endless));
        (void)kill(child, SIGKILL);
        CHECK(waitpid(child, nullptr, 0) == child);
    }
}
