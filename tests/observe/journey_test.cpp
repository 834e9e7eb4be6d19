// Where the daemon is, as its log tells: the explainer, the status tool and the recorder ask this
// one machine.
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/journey.h"
#include "observe/log_line.h"
#include "tests/observe/log_builder.h"

using observe::Journey;
using observe::Stage;

namespace
{

// The journey after all that the log says; `stages` gets the one that follows each record.
Journey After(const LogBuilder &log, std::vector<Stage> *stages = nullptr)
{
    Journey journey;
    const observe::LogText parsed = observe::ParseLog(log.text);
    for (size_t i = 0; i < parsed.records.size(); i++) {
        const observe::Record &record = parsed.records[i];
        (void)Follow(journey, i, observe::FindMessage(record.source, record.message, record.cut));
        if (stages != nullptr && (stages->empty() || stages->back() != journey.stage))
            stages->push_back(journey.stage);
    }
    return journey;
}

LogBuilder Opened()
{
    LogBuilder log;
    log.Start().Inserted().MountEnds().Mount("actvie == pname.....").Look();
    log.Mount("have some one login succ").Opens("open -a \"/Volumes/A/B.app/\"");
    return log.Mount("Run Orvanta Program success");
}

}  // namespace

TEST_CASE("an arrival passes through the stages in their order, and the daemon rests again")
{
    LogBuilder log = Opened();
    log.Say("Kestrun:DiskMountApproval", "DiskMountApproval Enter");
    log.Say("ActiveVolumeProgram:RunSDProgram", "RunSDProgram Enter");
    log.Say("ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist Enter");
    log.Say("ActiveVolumeProgram:IsVolumeExist",
            " 0 time, open (/Volumes/Setup) failed, open again");
    CHECK(After(log).volume == "/Volumes/Setup");
    log.Say("ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist exit false");
    log.Say("Kestrun:DiskMountApproval", "finish run program, and error, DiskMountApproval exit ");
    log.Mount("DiskMountCallback exit");
    std::vector<Stage> stages;
    const Journey journey = After(log, &stages);
    CHECK(stages == std::vector<Stage>{Stage::Unknown, Stage::Rest, Stage::Owner, Stage::Finder,
                                       Stage::Application, Stage::Setup, Stage::SetupVolume,
                                       Stage::Setup, Stage::Leaving, Stage::Rest});
    CHECK(journey.pending == 0);
    CHECK_FALSE(journey.starting);
    CHECK(journey.volume.empty());
}

TEST_CASE("the start goes from the ports to the volume, and over when the option is told")
{
    LogBuilder log;
    log.Main("TOOL-BrelmarkV100R001B035");
    CHECK(After(log).starting);
    log.Main("begin to run SDProgram at beginning to run autorun");
    log.Say("Kestrun:FindCommPort", "FindCommPort Enter");
    log.Say("Kestrun:FindCommPort", "findCommPort failed, FindCommPort exit");
    log.Say("Kestrun:FindCommPort", "FindCommPort Enter");
    CHECK(After(log).stage == Stage::Port);
    CHECK(After(log).portLooks == 2);
    log.Say("Kestrun:FindCommPort", "FindCommPort success, and exit");
    CHECK(After(log).stage == Stage::Volume);
    CHECK(After(log).since == 5);
    log.MountEnds();
    CHECK(After(log).stage == Stage::Owner);
    log.Main("value of disable_cdrom is true");
    CHECK(After(log).stage == Stage::Rest);
    CHECK_FALSE(After(log).starting);
}

TEST_CASE("mounts that were asked for are counted until they end, and a new daemon has none")
{
    LogBuilder log;
    log.Start().Inserted().Inserted();
    CHECK(After(log).pending == 2);
    log.MountEnds();
    CHECK(After(log).pending == 1);
    log.Mount("are not same return.....");
    CHECK(After(log).stage == Stage::Rest);
    CHECK(After(log).pending == 1);
    log.Main("TOOL-BrelmarkV100R001B035");
    CHECK(After(log).pending == 0);
}

TEST_CASE("a command's tries belong to the stage in which it is tried")
{
    LogBuilder log = Opened();
    log.Shell("RunShellProgram Enter")
        .Shell("system failed 0 time because shell failed. (open \"x\")");
    Journey journey = After(log);
    CHECK(journey.shell.stage == Stage::Setup);
    CHECK(journey.shell.failed == 1);
    CHECK(journey.shell.status == 127);
    CHECK(journey.shell.command == "open \"x\"");
    log.Shell("system failed 1 time because fork or waitpid. (open \"x\")");
    log.Shell("system failed 2 time, return 256[a]:(open \"x\"), err = (b)");
    journey = After(log);
    CHECK(journey.shell.failed == 3);
    CHECK(journey.shell.status == 256);
    CHECK(After(log.Shell("RunShellProgram Enter")).shell.failed == 0);
}

TEST_CASE("where lines are missing a later one says what is over")
{
    LogBuilder log;
    log.Start().Inserted().Mount("Run Orvanta Program success");
    CHECK(After(log).stage == Stage::Setup);
    CHECK(After(log).pending == 0);
    log.Peek("DiskPeekCallback Enter");
    CHECK(After(log).stage == Stage::Rest);
    CHECK(After(log).pending == 1);
}
