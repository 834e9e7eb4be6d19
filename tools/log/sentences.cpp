// sentences.cpp - see sentences.h.
#include "tools/log/sentences.h"

#include "observe/names.h"

namespace klog
{

static std::string Line(const Teller &teller, size_t index)
{
    return Lines(teller.log, index, index);
}

static std::string When(const Teller &teller, size_t index)
{
    const Stamp &stamp = teller.log.records[index].stamp;
    return Seconds(stamp) ? Sortable(stamp) : "a time that the daemon's clock did not tell";
}

std::string Lines(const LogText &log, size_t first, size_t last)
{
    const std::string from = std::to_string(log.records[first].number);
    if (first == last)
        return "line " + from;
    return "lines " + from + " to " + std::to_string(log.records[last].number);
}

std::string StatusText(long status)
{
    if (status == -1)
        return "no process could be made for it";
    if (status == 127)
        return "the shell did not start";
    const std::string number = std::to_string(status);
    if (status < 0 || status > 0xFFFF)
        return "status " + number;
    if ((status & 0x7F) != 0)
        return "ended by signal " + std::to_string(status & 0x7F);
    return "exit code " + std::to_string(status >> 8);
}

static std::string Quoted(const std::string &command)
{
    return "`" + observe::Printable(command) + "`";
}

// The last record of the step `name`; the arrival's first record when it has none.
static size_t EndOf(const Arrival &arrival, const std::string &name)
{
    for (const Step &step : arrival.steps) {
        if (step.name == name)
            return step.last;
    }
    return arrival.steps.empty() ? 0 : arrival.steps.front().first;
}

std::string OpenedSentence(const Teller &teller, const Arrival &arrival, size_t index)
{
    const bool unread = teller.journey.noOwnUser && teller.journey.noConsoleUser;
    const std::string owner =
        unread
            ? "neither the daemon's user nor the console's owner could be read, which counts as the same ("
            : "the daemon's user owned the console (";
    return "Opened: " + owner + Line(teller, EndOf(arrival, "console")) + "), the Finder ran (" +
           Line(teller, EndOf(arrival, "finder")) + ") and " +
           Quoted(teller.journey.shell.command) + " succeeded at try " +
           std::to_string(teller.journey.shell.failed + 1) + " (" + Line(teller, index) + ").";
}

std::string OtherUserSentence(const Teller &teller, size_t index)
{
    if (teller.journey.noConsoleUser)
        return "Not opened: who owns the console could not be read (" + Line(teller, index) + ").";
    if (teller.journey.noOwnUser) {
        return "Not opened: the daemon's own user could not be read (" + Line(teller, index) + ").";
    }
    return "Not opened: another user than the daemon's owned the console (" + Line(teller, index) +
           ").";
}

std::string NoPipeSentence(const Teller &teller, size_t index)
{
    return "Not opened: the command that asks for the daemon's user could not be started (" +
           Line(teller, index) + ").";
}

std::string NoVolumeSentence(const Teller &teller, size_t first, size_t last)
{
    return "Not opened: the volume was absent for 300 s (" + Lines(teller.log, first, last) + ").";
}

std::string CommandFailedSentence(const Teller &teller, const Arrival &arrival, size_t index)
{
    const std::string times =
        teller.journey.shell.failed == 10 ? "ten" : std::to_string(teller.journey.shell.failed);
    const std::string mount =
        arrival.atStart ? "" : "; whether the volume was mounted is not in the log";
    return "Not opened: " + Quoted(teller.journey.shell.command) + " failed " + times + " times, " +
           StatusText(teller.journey.shell.status) + " (" +
           Lines(teller.log, teller.journey.shell.first, index) + ")" + mount + ".";
}

std::string ResultSentence(const Teller &teller, size_t index, bool opened)
{
    return (opened ? "Opened: the command succeeded ("
                   : "Not opened: the command failed ten times (") +
           Line(teller, index) + "); the command's own lines are missing.";
}

// What speaks against "no Finder": the search itself did not work.
static std::string FinderDoubt(const Teller &teller)
{
    const FinderLooks &finder = teller.finder;
    if (finder.unread > 0)
        return "; it may run, for what the search printed could not be read (" +
               Line(teller, finder.oddRecord) + ")";
    if (finder.oddStatus != 0)
        return "; it may run, for the search itself failed (" + Line(teller, finder.oddRecord) +
               ", " + StatusText(finder.oddStatus) + ")";
    return "";
}

std::string NoFinderSentence(const Teller &teller)
{
    const FinderLooks &finder = teller.finder;
    std::string looks = "the first look is not done yet";
    if (finder.count > 0) {
        looks = finder.count == 1 ? "one look found none"
                                  : std::to_string(finder.count) + " looks found none";
        looks += ", the last began at " + When(teller, finder.lastLook);
    }
    return "Not opened: Finder absent since " + When(teller, finder.firstLook) + " (" +
           Lines(teller.log, finder.firstLook, teller.run.last) + "; " + looks +
           FinderDoubt(teller) + ")" +
           (teller.run.isLast ? ", and the daemon goes on waiting."
                              : ", and then the daemon ended.");
}

std::string NoCompletionSentence(const Teller &teller, const Arrival &arrival)
{
    const size_t asked = arrival.steps.front().last;
    std::string reason;
    if (IsBusy(teller.journey.stage))
        reason = ", which has to wait until the daemon is done with the arrival before it";
    else if (!teller.run.isLast)
        reason = " before the daemon ended";
    return "Not opened: the mount was asked for (" + Line(teller, asked) +
           ") and no completion has come" + reason + ".";
}

// What the daemon was at, by the step that has no end.
static std::string Doing(const Teller &teller, const Arrival &arrival)
{
    const Step *open = nullptr;
    for (const Step &step : arrival.steps) {
        if (!step.ended)
            open = &step;
    }
    if (!open)
        return "between two steps";
    const std::string since =
        " since " + When(teller, open->first) + " (" + Line(teller, open->first) + ")";
    if (open->name == "volume")
        return "waiting for the volume" + since;
    if (open->name == "finder")
        return "looking for the Finder for the first time" + since;
    if (open->name == "console")
        return "comparing the console's owner with its own user" + since;
    if (open->name == "application") {
        const std::string failed = std::to_string(teller.journey.shell.failed);
        return "opening the application" + since + ", with " + failed + " of 10 tries failed";
    }
    return "at the step '" + open->name + "'" + since;
}

std::string UnknownSentence(const Teller &teller, const Arrival &arrival)
{
    const std::string unknown = "Whether it was opened is not in the log";
    const size_t first = arrival.steps.front().first;
    if (teller.run.gaps.empty())
        return unknown + ".";
    if (const Gap *gap = GapBehind(teller.run, teller.log.records[first].number))
        return unknown + ": lines are missing behind line " + std::to_string(gap->from - 1) + ".";
    return unknown + ": lines are missing before " + Line(teller, first) + ".";
}

// What the line that is not in the file yet says about the console's owner: an own user would have
// made the daemon go on, and another one makes it stop with one line.
static std::string UnwrittenVerdict(const Teller &teller)
{
    const Record &last = teller.log.records[teller.run.last];
    const bool asked = last.whole && last.source == "Kestrun:DiskMountCallback" &&
                       last.message != "DiskMountCallback Enter";
    if (teller.journey.stage != Stage::Owner || !asked)
        return "";
    return "; if nothing has followed, another user than the daemon's most likely owned the console, for "
           "then the line that says so is the last one and not written yet";
}

std::string UnfinishedSentence(const Teller &teller, const Arrival &arrival)
{
    const std::string end = teller.run.isLast ? "Not opened yet: the log ends while the daemon is "
                                              : "Not opened: the daemon ended while it was ";
    return end + Doing(teller, arrival) + (teller.run.isLast ? UnwrittenVerdict(teller) : "") + ".";
}

}  // namespace klog
