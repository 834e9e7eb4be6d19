// run.cpp - a scenario from its first statement to its verdict.
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "modem/children.h"
#include "modem/player.h"
#include "observe/daemon.h"
#include "observe/files.h"

namespace modem
{
namespace
{

void PlaySteps(Player *player, const std::vector<Step> &steps)
{
    std::vector<long> rounds(steps.size());  // of each repeat: the rounds played
    for (size_t at = 0; at < steps.size() && player->result == Result::Passed; ++at) {
        const Step &step = steps[at];
        if (step.act == Act::Repeat) {
            rounds[at] = 1;
        } else if (step.act == Act::End) {
            const bool again = rounds[step.partner]++ < lround(steps[step.partner].numbers[0]);
            at = again ? step.partner : at;
        } else {
            PlayStep(player, step);
            (void)DaemonIsWell(player);
        }
    }
}

void Keep(Player *player)
{
    char folder[] = "/tmp/kestrun-bench-kept-XXXXXX";
    if (mkdtemp(folder) == nullptr)
        return;
    const std::string to = folder;
    (void)observe::WriteFile(to + "/Kestrun.log", observe::ReadFile(observe::kLogFile));
    (void)observe::WriteFile(to + "/config", observe::ReadFile(observe::kConfigFile));
    (void)observe::WriteFile(to + "/SysConfig.dat", observe::ReadFile(observe::kSysConfigFile));
    (void)observe::WriteFile(to + "/mountinfo", observe::ReadFile("/proc/self/mountinfo"));
    (void)observe::WriteFile(to + "/calls", observe::ReadFile(player->world.stateDir + "/calls"));
    (void)observe::WriteFile(to + "/daemon-errors",
                             observe::ReadFile(player->world.stateDir + "/daemon-errors"));
    Say(&player->timeLine, Kind::Note, "kept in " + to);
}

// At the real paths everything must be put back, however the scenario ends: the calling process
// stays behind for that, and a child of it goes on.
void GuardRealPaths(const World &world)
{
    (void)fflush(stdout);
    const pid_t child = fork();
    if (child <= 0)
        return;
    (void)signal(SIGINT, SIG_IGN);
    (void)signal(SIGTERM, SIG_IGN);
    const int status = ExitStatusOf(child);
    PutBack(world);
    _exit(status != -1 ? status : 1);
}

void SaveRecording(Player *player)
{
    const std::string &file = player->options->recordFile;
    if (file.empty())
        return;
    LookAround(player);
    LookAround(player);  // what the look before it meant
    FinishRecording(&player->recorder);
    if (!observe::WriteFile(file, player->recorder.text))
        FailScenario(player, "could not write " + file + ": " + strerror(errno));
}

void SetTheScene(Player *player)
{
    SetState(player->world, "daemon-user", "anna\n");
    SetState(player->world, "console-user", "anna\n");
    SetState(player->world, "daemon-pid", "0");
    SetState(player->world, "finder", "");
}

}  // namespace

Result Play(const Scenario &scenario, const PlayOptions &options)
{
    Player player;
    player.options = &options;
    player.random.seed(options.seed);
    player.timeLine = MakeTimeLine(options.json);
    player.world.toolsDir = options.toolsDir;
    player.world.programsDir = options.programsDir;
    player.world.speedLibrary = options.speedLibrary;
    std::string why;
    if (!EnterWorld(options.world, &player.world, &why)) {
        Say(&player.timeLine, Kind::Note, "not playable here: " + why);
        return Result::NotPlayable;
    }
    if (player.world.kind == WorldKind::Real)
        GuardRealPaths(player.world);
    player.hardware.world = &player.world;
    SetTheScene(&player);
    Say(&player.timeLine, Kind::Note,
        std::string("the world: ") + KindName(player.world.kind) + ", " + player.world.reason);
    PlaySteps(&player, scenario.steps);
    SaveRecording(&player);
    KillProcess(&player.daemon);
    if (options.keep)
        Keep(&player);
    HideClock(&player.timeLine);
    if (player.result == Result::NotPlayable) {
        Say(&player.timeLine, Kind::Note, "not playable here: " + player.problem);
    } else if (player.result == Result::Passed) {
        Say(&player.timeLine, Kind::Good,
            std::to_string(player.expectations) + " expectations came true");
    }
    return player.result;
}

}  // namespace modem
