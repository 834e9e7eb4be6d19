// record_log.cpp - which lines of the log a recording keeps, and how far they say that the daemon is.
#include <algorithm>

#include "modem/recorder.h"
#include "modem/scenario.h"

namespace modem
{
namespace
{

// Lines that show how far the daemon came. Each is the beginning of what a line says, without what
// may differ from one time to the next.
const char *const kMilestones[] = {
    "Kestrun:main --- TOOL-",
    "Kestrun:main --- finish run SDProgram at beginning to run autorun",
    "Kestrun:main --- can't find /Volumes/Orvanta",
    "Kestrun:main --- value of disable_cdrom is true",
    "Kestrun:main --- value of disable_cdrom is false",
    "Kestrun:FindCommPort --- FindCommPort success, and exit",
    "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter",
    "Kestrun:DiskMountCallback --- DiskMountCallback Enter",
    "Kestrun:DiskMountCallback --- create pipe failed!",
    "Kestrun:DiskMountCallback --- fgets pname failed!",
    "Kestrun:DiskMountCallback --- fgets active failed!",
    "Kestrun:DiskMountCallback --- are not same return.....",
    "Kestrun:DiskMountCallback --- actvie == pname.....",
    "Kestrun:DiskMountCallback --- have some one login succ",
    "Kestrun:DiskMountCallback --- Doesn't find ini file.",
    "Kestrun:DiskMountCallback --- Run Orvanta Program success",
    "Kestrun:DiskMountCallback --- RunShellProgram failed, can't run Orvanta Program",
    "Kestrun:DiskMountCallback --- DiskMountCallback exit",
    "Kestrun:DiskMountApproval --- finish run program, and error",
    "Kestrun:DiskMountApproval --- finish run sd program, and successful",
    "ActiveVolumeProgram:IsVolumeExist --- IsVolumeExist exit false",
    "ActiveVolumeProgram:RunSDProgram --- Have change value of SD_THIRD_SETUP to No",
};

const char kStarted[] = "Kestrun:main --- TOOL-";
const char kStartOver[] = "Kestrun:main --- value of disable_cdrom";
const char kMain[] = "Kestrun:main --- ";
const char kArrival[] = "Kestrun:DiskPeekCallback --- DiskPeekCallback Enter";
const char kMountEnd[] = "Kestrun:DiskMountCallback --- DiskMountCallback Enter";
const char *const kActionEnds[] = {
    "Kestrun:DiskMountCallback --- are not same return",
    "Kestrun:DiskMountCallback --- create pipe failed!",
    "Kestrun:DiskMountCallback --- DiskMountCallback exit",
};
const char kFinderMissed[] = "Kestrun:DiskMountCallback --- send cmd failed, not run board app";
const char kSetup[] = "ActiveVolumeProgram:RunSDProgram --- ";
const char kCommandRan[] = "Process:RunShellProgram --- RunShellProgram exit true.(open ";
const char kCommandFailed[] = "Process:RunShellProgram --- system failed ";
const char kCommandGaveUp[] = "Process:RunShellProgram --- (open -a ";
const char kNotWritable[] = "ActiveVolumeProgram:RunSDProgram --- open file [";

bool Begins(const std::string &text, const char *begin)
{
    return text.starts_with(begin);
}

void Expect(Recorder *recorder, const std::string &text)
{
    recorder->episode.active = true;
    recorder->episode.log.push_back("expect log " + QuotedText(MaskText(&recorder->privacy, text)));
}

// What stands between the quotes of an open command; empty when nothing does.
std::string OpenedPath(const std::string &body)
{
    const size_t first = body.find('"');
    const size_t last = body.rfind('"');
    return first == std::string::npos || last == first ? ""
                                                       : body.substr(first + 1, last - first - 1);
}

// What the episode needs to know to arrange the same again.
void CountEvents(Episode *episode, const std::string &body)
{
    episode->arrivals += Begins(body, kArrival);
    episode->callbacks += Begins(body, kMountEnd);
    episode->startPass = episode->startPass || Begins(body, kMain);
    episode->readOnly = episode->readOnly || Begins(body, kNotWritable);
    const bool application = body.find("(open -a ") != std::string::npos;
    if (Begins(body, kCommandFailed) && application)
        ++episode->openFailures;
    if (Begins(body, kCommandGaveUp))
        episode->openGaveUp = true;
    if (Begins(body, kCommandRan) && application)
        episode->opened = true;
    if (Begins(body, kCommandRan) && !application)
        episode->setupOpened.push_back(OpenedPath(body));
}

}  // namespace

bool IsArrival(const std::string &line)
{
    return Begins(LineBody(line), kArrival);
}

bool IsUnheard(const Sighting &sighting)
{
    return sighting.daemon != 0 &&
           (!sighting.logFolder || sighting.logReadOnly || sighting.logFull);
}

void FollowSleep(Progress *progress, const Sighting &sighting)
{
    progress->waits = sighting.waits || (progress->waits && !sighting.idle);
    if (!IsUnheard(sighting))
        return;
    progress->finderMissed = true;  // it may have been said
    if (sighting.idle) {
        progress->starting = false;
        progress->inside = false;
        progress->pending = 0;
    }
}

bool IsAtRest(const Progress &progress, bool unheard)
{
    if (unheard)
        return !progress.waits;
    return !progress.starting && !progress.inside && progress.pending == 0;
}

void FollowProgress(Progress *progress, const std::string &line)
{
    const std::string body = LineBody(line);
    if (Begins(body, kStarted)) {
        const bool abandoned = progress->abandoned || progress->pending > 0;
        *progress = Progress();
        progress->starting = true;
        progress->abandoned = abandoned;
    }
    if (Begins(body, kStartOver))
        progress->starting = false;
    if (IsArrival(line))
        ++progress->pending;
    if (Begins(body, kMountEnd)) {
        progress->pending = std::max(0, progress->pending - 1);
        progress->inside = true;
        progress->finderMissed = false;
    }
    if (std::ranges::any_of(kActionEnds, [&](const char *end) { return Begins(body, end); }))
        progress->inside = false;
}

void RecordLine(Recorder *recorder, const std::string &line)
{
    const std::string body = LineBody(line);
    FollowProgress(&recorder->progress, line);
    CountEvents(&recorder->episode, body);
    for (const char *milestone : kMilestones) {
        if (Begins(body, milestone)) {
            Expect(recorder, milestone);
            return;
        }
    }
    const bool setupEnds =
        Begins(body, kSetup) && body.find("RunSDProgram exit") != std::string::npos;
    if (setupEnds || Begins(body, kCommandRan))
        Expect(recorder, body);
    if (Begins(body, kFinderMissed) && !recorder->progress.finderMissed) {
        recorder->progress.finderMissed = true;
        Expect(recorder, body);
    }
}

}  // namespace modem
