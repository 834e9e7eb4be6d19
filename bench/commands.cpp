// commands.cpp - programs that a scenario runs in the daemon's world, and the claim about what they
// print. A program is run again until it says what is expected or the time is over, as every
// expectation is looked at again.
#include <cerrno>
#include <cmath>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/masking.h"
#include "bench/player.h"

namespace bench
{
namespace
{

const useconds_t kRunEvery = 50000;  // microseconds
const char kNumber[] = "<number>";   // stands for digits
const char kAny[] = "<any>";         // stands for anything within the line

struct Ran {
    int status = -1;  // the exit status; -1 when it did not end by itself
    std::string output;
};

[[noreturn]] void BecomeCommand(const World &world, const std::string &command, int output)
{
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)dup2(in, STDIN_FILENO);
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
    SetWorldEnvironment(world);
    (void)execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

Ran RunInWorld(const World &world, const std::string &command)
{
    Ran ran;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return ran;
    const pid_t child = fork();
    if (child == 0)
        BecomeCommand(world, command, ends[1]);
    (void)close(ends[1]);
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        ran.output.append(buffer, static_cast<size_t>(got));
    (void)close(ends[0]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    ran.status = child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ran;
}

bool StartsWith(const std::string &text, size_t at, const char *begin)
{
    return text.compare(at, strlen(begin), begin) == 0;
}

// Whether the output's rest from `at` on is what the pattern's rest from `from` on describes.
bool Matches(const std::string &pattern, size_t from, const std::string &output, size_t at)
{
    while (from < pattern.size()) {
        if (StartsWith(pattern, from, kNumber)) {
            const size_t end = output.find_first_not_of("0123456789", at);
            if (at >= output.size() || end == at)
                return false;
            at = end == std::string::npos ? output.size() : end;
            from += strlen(kNumber);
        } else if (StartsWith(pattern, from, kAny)) {
            from += strlen(kAny);
            for (; !Matches(pattern, from, output, at); ++at) {
                if (at >= output.size() || output[at] == '\n')
                    return false;
            }
            return true;
        } else if (at >= output.size() || pattern[from++] != output[at++]) {
            return false;
        }
    }
    return at == output.size();
}

}  // namespace

bool OutputMatches(const std::string &pattern, const std::string &output)
{
    return Matches(pattern, 0, output, 0);
}

void ExpectRun(Player *player, const Step &step, double within)
{
    if (player->world.kind == WorldKind::Real) {
        player->result = Result::NotPlayable;
        player->problem = "nothing is really mounted at the real paths";
        return;
    }
    const int wanted = step.numbers.empty() ? 0 : static_cast<int>(lround(step.numbers[0]));
    Ran ran;
    const auto come = [&] {
        ran = RunInWorld(player->world, step.strings[0]);
        const bool said = step.block.empty() || OutputMatches(step.block, ran.output);
        if (ran.status == wanted && said)
            return true;
        (void)usleep(kRunEvery);
        return false;
    };
    if (WaitFor(player, step.text, within, true, come)) {
        ++player->expectations;
        Say(&player->timeLine, Kind::Good, step.text);
        return;
    }
    std::string why = "line " + std::to_string(step.place.line) + ": " + step.text +
                      "\ncame: exit status " + std::to_string(ran.status) + ", expected " +
                      std::to_string(wanted);
    if (!step.block.empty())
        why += "; " + DescribeDifference(step.block, ran.output);
    FailScenario(player, why + "\nit said:\n" + ran.output);
}

}  // namespace bench
