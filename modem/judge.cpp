// judge.cpp - what was observed, judged. Nothing here waits: the player asks again.
#include "modem/judge.h"

#include <cstdlib>
#include <sstream>

#include <sys/stat.h>

#include "modem/masking.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"

namespace modem
{
namespace
{

Finding True()
{
    return {Verdict::True, "", -1};
}

Finding NotYet(const std::string &came)
{
    return {Verdict::NotYet, came, -1};
}

std::string Times(long count)
{
    return count == 1 ? "once" : std::to_string(count) + " times";
}

// A count that must be reached, and not passed.
Finding JudgeCount(long wanted, long count)
{
    if (count == wanted)
        return True();
    return {count > wanted ? Verdict::Never : Verdict::NotYet, "it came " + Times(count), -1};
}

Finding JudgeLog(const Step &step, const Observed &observed)
{
    const std::string &text = step.strings[0];
    if (step.times >= 0)
        return JudgeCount(step.times, CountInLog(observed.log, text));
    const long line = FindInLog(observed.log, text, observed.logFrom);
    if (line >= 0)
        return {Verdict::True, "", line};
    return NotYet(FindInLog(observed.log, text, 0) < 0
                      ? "the log does not say it"
                      : "the log says it, but only before the line that was expected before it");
}

Finding JudgeNoLog(const Step &step, const Observed &observed)
{
    const long line = FindInLog(observed.log, step.strings[0], 0);
    return line < 0
               ? True()
               : Finding{Verdict::Never,
                         "the log says: " +
                             observe::Printable(observed.log.lines[static_cast<size_t>(line)].text),
                         -1};
}

const observe::Mounted *FindMounted(const Observed &observed, const std::string &place)
{
    const observe::Mounted *found = nullptr;
    for (const observe::Mounted &mounted : observed.mounts) {
        if (mounted.place == place)
            found = &mounted;
    }
    return found;
}

// The options of what is mounted there: the kernel's, and those that mount was called with last.
std::string OptionsOf(const observe::Mounted &mounted, const Observed &observed)
{
    std::string asked;
    for (const Call &call : observed.calls) {
        if (call.program == "mount" && call.status == 0 && !call.arguments.empty() &&
            call.arguments.back() == mounted.place) {
            asked = MountOptions(call);
        }
    }
    return mounted.options + (asked.empty() ? "" : "," + asked);
}

std::string MountedPlaces(const Observed &observed)
{
    std::string places;
    for (const observe::Mounted &mounted : observed.mounts)
        places += (places.empty() ? "" : ", ") + observe::Printable(mounted.place);
    return places.empty() ? "nothing is mounted" : "mounted: " + places;
}

Finding JudgeMounted(const Step &step, const Observed &observed)
{
    const observe::Mounted *mounted = FindMounted(observed, step.strings[0]);
    if (mounted == nullptr)
        return NotYet(MountedPlaces(observed));
    if (step.strings.size() < 2)
        return True();
    const std::string options = OptionsOf(*mounted, observed);
    std::istringstream wanted(step.strings[1]);
    for (std::string option; std::getline(wanted, option, ',');) {
        if (!observe::HasOption(options, option))
            return NotYet("it is mounted with " + observe::Printable(options));
    }
    return True();
}

Finding JudgeNotMounted(const Step &step, const Observed &observed)
{
    return FindMounted(observed, step.strings[0]) == nullptr ? True()
                                                             : NotYet(MountedPlaces(observed));
}

long CountOpened(const Observed &observed, const std::string &target)
{
    long count = 0;
    for (const Call &call : observed.calls) {
        count += call.program == "open" && call.status == 0 && !call.arguments.empty() &&
                 (target.empty() || call.arguments.back() == target);
    }
    return count;
}

std::string OpenedTargets(const Observed &observed)
{
    std::string targets;
    for (const Call &call : observed.calls) {
        if (call.program == "open")
            targets += "\n    " + observe::Printable(CallText(call)) +
                       (call.status == 0 ? "" : " (failed)");
    }
    return targets.empty() ? "open was not called" : "open was called so:" + targets;
}

Finding JudgeOpened(const Step &step, const Observed &observed)
{
    const long count = CountOpened(observed, step.strings[0]);
    if (step.times < 0)
        return count > 0 ? True() : NotYet(OpenedTargets(observed));
    Finding finding = JudgeCount(step.times, count);
    finding.came += finding.verdict == Verdict::True ? "" : "; " + OpenedTargets(observed);
    return finding;
}

Finding JudgeFile(const Step &step)
{
    const std::string content = observe::ReadFile(step.strings[0]);
    if (content.find(step.strings[1]) != std::string::npos)
        return True();
    return NotYet(content.empty() ? "there is no such file, or it is empty"
                                  : "it holds: " + observe::Printable(content));
}

Finding JudgeLogSize(const Step &step)
{
    struct stat status;
    if (stat(observe::kLogFile, &status) != 0)
        return NotYet("there is no log");
    return static_cast<double>(status.st_size) < step.numbers[0]
               ? True()
               : NotYet("it has " + std::to_string(status.st_size) + " bytes");
}

// Takes one zero-terminated field. False when it is not there whole.
bool TakeField(const std::string &text, size_t *at, std::string *field)
{
    const size_t end = text.find('\0', *at);
    if (end == std::string::npos)
        return false;
    *field = text.substr(*at, end - *at);
    *at = end + 1;
    return true;
}

bool TakeCall(const std::string &text, size_t *at, Call *call)
{
    std::string status;
    std::string count;
    if (!TakeField(text, at, &call->program) || !TakeField(text, at, &status) ||
        !TakeField(text, at, &count)) {
        return false;
    }
    call->status = static_cast<int>(strtol(status.c_str(), nullptr, 10));
    for (long left = strtol(count.c_str(), nullptr, 10); left > 0; --left) {
        std::string argument;
        if (!TakeField(text, at, &argument))
            return false;
        call->arguments.push_back(argument);
    }
    return true;
}

}  // namespace

bool IsJudgedAtOnce(Act act)
{
    return act == Act::ExpectNoLog || act == Act::ExpectNothingOpened;
}

Finding Judge(const Step &step, const Observed &observed)
{
    switch (step.act) {
    case Act::ExpectLog: return JudgeLog(step, observed);
    case Act::ExpectNoLog: return JudgeNoLog(step, observed);
    case Act::ExpectMounted: return JudgeMounted(step, observed);
    case Act::ExpectNotMounted: return JudgeNotMounted(step, observed);
    case Act::ExpectNothingMounted:
        return observed.mounts.empty() ? True() : NotYet(MountedPlaces(observed));
    case Act::ExpectOpened: return JudgeOpened(step, observed);
    case Act::ExpectNothingOpened:
        return CountOpened(observed, "") == 0
                   ? True()
                   : Finding{Verdict::Never, OpenedTargets(observed), -1};
    case Act::ExpectFolder:
        return observe::IsFolder(step.strings[0]) ? True() : NotYet("there is no such folder");
    case Act::ExpectNoFolder:
        return observe::IsFolder(step.strings[0]) ? NotYet("the folder is there") : True();
    case Act::ExpectFile: return JudgeFile(step);
    case Act::ExpectLogSize: return JudgeLogSize(step);
    default: return {Verdict::Never, "this is no expectation", -1};
    }
}

std::vector<Call> TakeCalls(const std::string &text, size_t *offset)
{
    std::vector<Call> calls;
    size_t at = *offset;
    for (Call call; at < text.size() && TakeCall(text, &at, &call); call = Call()) {
        calls.push_back(call);
        *offset = at;
    }
    return calls;
}

std::string MountOptions(const Call &call)
{
    std::string options;
    for (size_t i = 0; i + 1 < call.arguments.size(); ++i) {
        if (call.arguments[i] == "-o")
            options += (options.empty() ? "" : ",") + call.arguments[i + 1];
    }
    return options;
}

std::string CallText(const Call &call)
{
    std::string text = call.program;
    for (const std::string &argument : call.arguments) {
        const bool plain =
            !argument.empty() && argument.find_first_of(" \t\n\"'\\$") == std::string::npos;
        text += plain ? " " + argument : " \"" + argument + "\"";
    }
    return text;
}

}  // namespace modem
