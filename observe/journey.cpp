// journey.cpp - see journey.h.
#include "observe/journey.h"

#include <algorithm>
#include <cstdlib>

namespace observe
{

bool IsBusy(Stage stage)
{
    return stage >= Stage::Volume;
}

static void Enter(Journey &journey, size_t index, Stage stage)
{
    journey.stage = stage;
    journey.since = index;
    journey.volume.clear();
}

// What follows a mount begins: at the start of the daemon, or because a mount
// has ended.
static void EnterActions(Journey &journey, size_t index)
{
    if (journey.stage != Stage::Volume)
        journey.pending = std::max(0, journey.pending - 1);
    journey.noOwnUser = journey.noConsoleUser = journey.package = false;
    journey.shell = {};
    Enter(journey, index, Stage::Owner);
}

// The stage after a mount that the event belongs to; Unknown when it says
// nothing of it.
static Stage StageOf(const Found &found)
{
    const Event event = EventOf(found);
    if (IsSetupLine(event))
        return Stage::Setup;
    switch (event) {
    case Event::NoPipe:
    case Event::NoOwnUser:
    case Event::NoConsoleUser:
    case Event::OtherUser:
    case Event::SameUser: return Stage::Owner;
    case Event::CaptureEnter:
    case Event::FinderFailed:
    case Event::FinderEmpty:
    case Event::FinderThere: return Stage::Finder;
    case Event::NoConfig:
    case Event::AppOpened:
    case Event::AppFailed: return Stage::Application;
    case Event::ShellTrue:
    case Event::ShellFalse:
        return OpensApplication(CommandOf(found)) ? Stage::Application : Stage::Unknown;
    case Event::ApprovalEnter:
    case Event::SetupOk:
    case Event::SetupFailed: return Stage::Setup;
    default: return Stage::Unknown;
    }
}

static void FollowShell(Journey &journey, size_t index, const Found &found)
{
    const Event event = EventOf(found);
    const bool fork = event == Event::ShellFork;
    if (event == Event::ShellEnter)
        journey.shell = {{}, 0, 0, index, journey.stage};
    const std::string_view command = CommandOf(found);
    if (command.empty())
        return;
    journey.shell.command = command;
    journey.shell.stage = journey.stage;
    if (event == Event::ShellTrue || event == Event::ShellFalse)
        return;
    journey.shell.failed++;
    journey.shell.status = event == Event::ShellStatus
                               ? strtol(std::string(found.filled[1]).c_str(), nullptr, 10)
                           : fork ? -1
                                  : 127;
}

static void FollowVolume(Journey &journey, size_t index, const Found &found)
{
    static const char kSource[] = "ActiveVolumeProgram:IsVolumeExist";
    if (!found.message || found.message->source != kSource)
        return;
    const bool setup = journey.stage == Stage::Setup || journey.stage == Stage::SetupVolume;
    if (setup && found.message->event == Event::VolumeEnter)
        Enter(journey, index, Stage::SetupVolume);
    else if (setup && found.message->bound == Bound::Exits)
        Enter(journey, index, Stage::Setup);
    else if (found.message->event == Event::VolumeTry && found.filled.size() > 1)
        journey.volume = found.filled[1] == "(null)" ? "" : found.filled[1];
}

// The stage that begins with the event, whatever was before; Unknown when none
// does.
static Stage BegunBy(Event event)
{
    switch (event) {
    case Event::PortsSought: return Stage::Port;
    case Event::PortFound: return Stage::Volume;
    case Event::StartDone:
    case Event::StartNoVolume:
    case Event::SwitchRead:
    case Event::OptionRdonly:
    case Event::OptionNobrowse:
    case Event::PeekEnter: return Stage::Rest;
    default: return Stage::Unknown;
    }
}

// The stage that follows the event in `stage`; the same when it goes on.
static Stage Next(Stage stage, Event event)
{
    switch (event) {
    case Event::OtherUser:
    case Event::NoPipe: return stage == Stage::Owner ? Stage::Rest : stage;
    case Event::SameUser: return stage == Stage::Owner ? Stage::Finder : stage;
    case Event::FinderThere: return stage == Stage::Finder ? Stage::Application : stage;
    case Event::AppOpened:
    case Event::AppFailed:
    case Event::ApprovalEnter: return stage == Stage::Application ? Stage::Setup : stage;
    case Event::SetupOk:
    case Event::SetupFailed: return Stage::Leaving;
    case Event::MountExit: return Stage::Rest;
    default: return stage;
    }
}

static void FollowStart(Journey &journey, Event event)
{
    if (event == Event::Version) {
        journey = {};
        journey.starting = true;
    }
    if (event == Event::OptionRdonly || event == Event::OptionNobrowse)
        journey.starting = false;
    journey.portLooks += event == Event::PortsRead;
    journey.pending += event == Event::PeekEnter;
}

Stage Follow(Journey &journey, size_t index, const Found &found)
{
    const Event event = EventOf(found);
    FollowStart(journey, event);
    const Stage begun = BegunBy(event);
    if (begun != Stage::Unknown)
        Enter(journey, index, begun);
    const Stage belongs = StageOf(found);
    if (event == Event::MountEnter || (belongs != Stage::Unknown && journey.stage < Stage::Owner))
        EnterActions(journey, index);
    if (journey.stage < belongs)
        Enter(journey, index, belongs);
    journey.noOwnUser = journey.noOwnUser || event == Event::NoOwnUser;
    journey.noConsoleUser = journey.noConsoleUser || event == Event::NoConsoleUser;
    journey.package = journey.package || event == Event::PackageSought;
    FollowShell(journey, index, found);
    FollowVolume(journey, index, found);
    const Stage stage = journey.stage;
    const Stage next = Next(stage, event);
    if (next != stage)
        Enter(journey, index, next);
    if (next != stage && next == Stage::Application)
        journey.shell = {};
    return stage;
}

}  // namespace observe
