// commands.cpp - programs that a scenario runs in the daemon's world, and the claim about what they
// print. A program is run again until it says what is expected or the time is over, as every
// expectation is looked at again.
#include <algorithm>
#include <cmath>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "modem/children.h"
#include "modem/masking.h"
#include "modem/player.h"

namespace modem
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
    Redirect(output);
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
    ran.status = ExitStatusOf(child);
    return ran;
}

bool StartsWith(const std::string &text, size_t at, const char *begin)
{
    return text.compare(at, strlen(begin), begin) == 0;
}

// Takes one part of the pattern other than kAny, and what of the output it stands for. False when
// the output does not go on so, or the pattern is over.
bool TakePart(const std::string &pattern, size_t *from, const std::string &output, size_t *at)
{
    if (*from >= pattern.size() || *at >= output.size())
        return false;
    if (!StartsWith(pattern, *from, kNumber))
        return pattern[(*from)++] == output[(*at)++];
    const size_t end = std::min(output.find_first_not_of("0123456789", *at), output.size());
    const bool digits = end > *at;
    *from += strlen(kNumber);
    *at = end;
    return digits;
}

}  // namespace

bool OutputMatches(const std::string &pattern, const std::string &output)
{
    size_t from = 0;
    size_t at = 0;
    size_t anyFrom = std::string::npos;  // behind the last kAny
    size_t anyAt = 0;                    // the end of what it stands for
    while (from < pattern.size() || at < output.size()) {
        if (StartsWith(pattern, from, kAny)) {
            from += strlen(kAny);
            anyFrom = from;
            anyAt = at;
            continue;
        }
        if (TakePart(pattern, &from, output, &at))
            continue;
        // What kAny stands for is one character longer then.
        if (anyFrom == std::string::npos || anyAt >= output.size() || output[anyAt] == '\n')
            return false;
        from = anyFrom;
        at = ++anyAt;
    }
    return true;
}

void ExpectRun(Player *player, const Step &step, double within)
{
    if (player->world.kind == WorldKind::Real) {
        GiveUp(player, "nothing is really mounted at the real paths");
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

}  // namespace modem
