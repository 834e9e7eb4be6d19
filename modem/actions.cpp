// actions.cpp - the statements of a scenario, each a case of PlayStep.
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "modem/masking.h"
#include "modem/player.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/process.h"

namespace modem
{
namespace
{

namespace fs = std::filesystem;

const double kDefaultWithin = 120;  // seconds of the daemon
const char kAutomountFile[] = "/run/kestrun/automount";
const double kModemStart = 1;  // seconds from the modem's port to its disk

void PlayExpectation(Player *player, const Step &step)
{
    Finding finding;
    const double within = step.within >= 0 ? step.within : kDefaultWithin;
    const bool running = player->daemon.pid > 0;
    const auto judge = [&] {
        finding = Judge(step, player->observed);
        return finding.verdict != Verdict::NotYet || IsJudgedAtOnce(step.act);
    };
    (void)WaitFor(player, step.text, running ? within : 0, true, judge);
    if (finding.verdict != Verdict::True) {
        if (DaemonIsWell(player)) {
            FailScenario(player, "line " + std::to_string(step.place.line) + ": " + step.text +
                                     "\ncame: " + finding.came +
                                     "\nthe log around (> marks what the text was looked for in):" +
                                     LogAround(*player));
        }
        return;
    }
    ++player->expectations;
    if (finding.logLine >= 0)
        player->observed.logFrom = static_cast<size_t>(finding.logLine) + 1;
    Say(&player->timeLine, Kind::Good, step.text);
}

void PlayWait(Player *player, double seconds)
{
    const double end = SecondsSince(player->timeLine) + seconds / player->options->speed;
    (void)WaitFor(player, "waiting", seconds, false,
                  [&] { return SecondsSince(player->timeLine) >= end; });
}

void PlayWaitIdle(Player *player)
{
    const bool idle =
        WaitFor(player, "waiting until the daemon has nothing to do", kDefaultWithin * 3, false,
                [&] { return observe::IsIdle(player->daemon.pid); });
    if (!idle && DaemonIsWell(player)) {
        FailScenario(player, "the daemon does not come to rest; the log's last lines:" +
                                 LogAround(*player));
    }
    LookAround(player);
}

// Files of the world.
void PutFile(Player *player, const std::string &path, const std::string &content)
{
    if (!observe::MakeFolders(fs::path(path).parent_path()) || !observe::WriteFile(path, content))
        FailScenario(player, "could not write " + path + ": " + strerror(errno));
}

// Whether something may be mounted that the scenario's end need not take away again.
bool MayMount(const Player &player)
{
    return player.world.kind != WorldKind::Real;
}

void MakeReadOnly(Player *player, const char *path)
{
    if (!MayMount(*player) || mount(path, path, nullptr, MS_BIND, nullptr) != 0 ||
        mount(path, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        GiveUp(player, "no file can be made read-only here");
}

// What uses up the room of the log folder's disk.
std::string Filler()
{
    return std::string(observe::kLogFolder) + "/filler";
}

void PlayLogFolderWritable(Player *player)
{
    if (mount(nullptr, observe::kLogFolder, nullptr, MS_REMOUNT | MS_BIND, nullptr) != 0)
        GiveUp(player, "what is read-only cannot be made writable here");
}

void PlayLogFolderSize(Player *player, double bytes)
{
    const std::string size = "mode=755,size=" + std::to_string(lround(bytes));
    if (!MayMount(*player) || mount("tmpfs", observe::kLogFolder, "tmpfs", 0, size.c_str()) != 0)
        GiveUp(player, "no disk of any size can be made here");
}

void PlayLogFolderFull(Player *player)
{
    const std::string block(4096, '.');
    const int file = open(Filler().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    // Anybody else's disk is not filled up.
    const bool isOwn = MountsUnder(player->world, observe::kLogFolder).size() == 1;
    while (file >= 0 && isOwn && write(file, block.data(), block.size()) > 0) {
    }
    const bool isFull = errno == ENOSPC;
    if (file < 0 || close(file) != 0 || !isOwn || !isFull)
        FailScenario(player, "the log's folder could not be filled up");
}

// Its own memory is many times what a limit leaves of addresses.
bool IsSanitized(const std::string &program)
{
    return observe::ReadFile(program).find("__asan_init") != std::string::npos;
}

void PlayDaemonMemory(Player *player, double mebibytes)
{
    player->world.daemonMemory = static_cast<unsigned long>(lround(mebibytes)) << 20;
    if (IsSanitized(player->options->daemonProgram))
        GiveUp(player, "a daemon with AddressSanitizer cannot do with little memory");
}

void PlayClock(Player *player, const Step &step)
{
    const long back = step.act == Act::ClockSet ? time(nullptr) - lround(step.numbers[0]) : 0;
    SetState(player->world, "clock-back", std::to_string(back));
    Say(&player->timeLine, Kind::Outside, step.text);
}

void PlayFillLog(Player *player, double bytes)
{
    std::string content(static_cast<size_t>(bytes), '.');
    for (size_t at = 99; at < content.size(); at += 100)
        content[at] = '\n';
    if (!content.empty())
        content.back() = '\n';
    PutFile(player, observe::kLogFile, content);
    SkipLog(&player->observed.log);
    LookAround(player);  // before the daemon cuts it
}

void PlugIn(Player *player, const std::string &name, const std::string &label, Medium medium,
            bool modem)
{
    std::string why;
    if (modem) {
        Outside(player, std::string("the modem is plugged in; its port: ") + kModemPort);
        if (!PlugPort(&player->hardware, kModemPort, &why)) {
            FailScenario(player, why);
            return;
        }
        PlayWait(player, kModemStart);
    }
    const double late = std::exchange(player->labelAfter, 0);
    if (late > 0) {
        Outside(player, "a disk is there that shows no label yet");
        PlayWait(player, late);
    }
    Outside(player, (modem ? "its disk " : "a disk is plugged in: ") + QuotedText(label));
    if (!PlugDisk(&player->hardware, name, label, medium, &why)) {
        FailScenario(player, why);
        return;
    }
    player->hardware.disks[name].modem = modem;
}

void PlayPlug(Player *player, const Step &step)
{
    const Medium medium = step.act == Act::PlugImage         ? Medium::Image
                          : step.act == Act::PlugBrokenImage ? Medium::BrokenImage
                                                             : Medium::Folder;
    PlugIn(player, step.name, step.strings.empty() ? observe::kDefaultVolumeName : step.strings[0],
           medium, step.act == Act::PlugModem);
}

// The disk of the name that the step says; null, and the scenario has failed, when there is none.
const Disk *DiskOf(Player *player, const Step &step)
{
    const auto found = player->hardware.disks.find(step.name);
    if (found != player->hardware.disks.end())
        return &found->second;
    FailScenario(player, "line " + std::to_string(step.place.line) + ": the disk " + step.name +
                             " is not plugged in");
    return nullptr;
}

void PlayUnplug(Player *player, const Step &step)
{
    const Disk *disk = DiskOf(player, step);
    if (disk == nullptr)
        return;
    const bool modem = disk->modem;
    Outside(player, modem ? "the modem is pulled" : "the disk " + step.name + " is pulled");
    if (modem)
        UnplugPort(&player->hardware, kModemPort);
    UnplugDisk(&player->hardware, step.name);
}

void PlayReset(Player *player, const Step &step)
{
    const Disk *found = DiskOf(player, step);
    if (found == nullptr)
        return;
    const Disk disk = *found;
    PlayUnplug(player, step);
    PlugIn(player, step.name, disk.label, disk.image ? Medium::Image : Medium::Folder, disk.modem);
}

// Stops the daemon or lets it go on.
void PlaySleep(Player *player, const Step &step)
{
    const bool suspend = step.act == Act::Suspend;
    if (player->daemon.pid <= 0 || player->suspended == suspend) {
        FailScenario(player,
                     "line " + std::to_string(step.place.line) + ": " +
                         (player->daemon.pid <= 0 ? "no daemon runs: put \"start daemon\" before it"
                          : suspend ? "the machine sleeps already: put \"resume\" before it"
                                    : "the machine is awake: put \"suspend\" before it"));
        return;
    }
    Outside(player, suspend ? "the machine goes to sleep" : "the machine wakes up");
    player->suspended = suspend;
    (void)kill(player->daemon.pid, suspend ? SIGSTOP : SIGCONT);
}

// At boot the system mounts what it finds, before the daemon is there to object.
void PlaySystemMounts(Player *player, const Step &step)
{
    std::string why;
    Outside(player, "the system mounts the disk " + step.name);
    if (!SystemMount(&player->hardware, step.name, &why))
        FailScenario(player, why);
}

void PlayWhenOpened(Player *player, const Step &step)
{
    const std::string rules = player->world.stateDir + "/when-opened/";
    const std::string rule = rules + std::to_string(step.place.line);
    PutFile(player, rule + "/path", step.strings[0]);
    PutFile(player, rule + "/makes", step.strings[1]);
    Outside(player, "opening " + step.strings[0] + " will make " + step.strings[1]);
}

void PlayStart(Player *player)
{
    std::string why;
    if (player->daemon.pid > 0) {
        FailScenario(player, "the daemon runs already");
        return;
    }
    RestartLog(&player->observed.log);
    if (!StartProcess(player->world, player->options->daemonProgram, player->options->speed,
                      &player->daemon, &why)) {
        FailScenario(player, why);
        return;
    }
    Outside(player, "the daemon is started");
}

void PlayKill(Player *player)
{
    LookAround(player);
    KillProcess(&player->daemon);
    player->suspended = false;
    RestartLog(&player->observed.log);
    Outside(player, "the daemon is killed");
}

fs::path GoldenPath(const PlayOptions &options)
{
    const fs::path file = options.scenarioFile;
    return file.parent_path() / "golden" / (file.stem().string() + ".log");
}

void PlayGolden(Player *player)
{
    LookAround(player);
    const fs::path path = GoldenPath(*player->options);
    // How much of the last line the C library wrote already depends on the length of all before it,
    // so on the digits of the times.
    const std::string &text = player->observed.log.text;
    const std::string log = MaskLog(text.substr(0, text.rfind('\n') + 1));
    if (player->options->updateGolden) {
        PutFile(player, path, log);
        Outside(player, "the golden log is written anew");
        return;
    }
    const std::string difference = DescribeDifference(observe::ReadFile(path), log);
    if (!difference.empty()) {
        FailScenario(player,
                     "the log is not that of " + path.filename().string() + "; " + difference);
        return;
    }
    ++player->expectations;
    Say(&player->timeLine, Kind::Good, "the whole log is the golden one, byte for byte");
}

// What the outside world is, as a statement says it.
void Arrange(Player *player, const std::string &state, const std::string &content,
             const std::string &said)
{
    SetState(player->world, state, content);
    Outside(player, said);
}

void Rearrange(Player *player, const std::string &state, const std::string &said)
{
    ClearState(player->world, state);
    Outside(player, said);
}

void PlayPort(Player *player, const Step &step)
{
    std::string why;
    const std::string &name = step.strings[0];
    if (step.act == Act::UnplugPort) {
        Outside(player, "the port " + name + " is pulled");
        UnplugPort(&player->hardware, name);
        return;
    }
    Outside(player, "a port is plugged in: " + name);
    if (!PlugPort(&player->hardware, name, &why))
        FailScenario(player, why);
}

void PlayRandomWait(Player *player, const Step &step)
{
    std::uniform_real_distribution<double> seconds(step.numbers[0], step.numbers[1]);
    PlayWait(player, seconds(player->random));
}

void PlayChange(Player *player, const Step &step)
{
    std::string why;
    if (step.act == Act::Touch) {
        Outside(player, "the link of " + step.name + " is made anew");
        TouchDisk(&player->hardware, step.name);
        return;
    }
    Outside(player, "another disk lies in the drive of " + step.name);
    if (!ChangeMedium(&player->hardware, step.name, &why))
        FailScenario(player, why);
}

}  // namespace

// Every act has its case, so that the compiler notices one that is forgotten.
void PlayStep(Player *player, const Step &step)
{
    const std::string text = step.strings.empty() ? "" : step.strings[0];
    switch (step.act) {
    case Act::Title:  // said at the beginning
    case Act::Repeat:
    case Act::End: return;  // PlaySteps goes round
    case Act::NoConfig: (void)unlink(observe::kConfigFile); return;
    case Act::Config: PutFile(player, observe::kConfigFile, step.block); return;
    case Act::NoSysConfig: (void)unlink(observe::kSysConfigFile); return;
    case Act::SysConfig: PutFile(player, observe::kSysConfigFile, step.block); return;
    case Act::SysConfigReadOnly: MakeReadOnly(player, observe::kSysConfigFile); return;
    case Act::DaemonUser: SetState(player->world, "daemon-user", text + "\n"); return;
    case Act::Login: Arrange(player, "console-user", text + "\n", text + " logs in"); return;
    case Act::Logout:
        Arrange(player, "console-user", "root\n", "nobody is logged in: the login window");
        return;
    case Act::FinderStarts: Arrange(player, "finder", "", "the Finder starts"); return;
    case Act::FinderQuits: Rearrange(player, "finder", "the Finder quits"); return;
    case Act::OpenFails:
        Arrange(player, "open-fails", std::to_string(lround(step.numbers[0])) + "\n", step.text);
        return;
    case Act::OpenFailsAlways: Arrange(player, "open-fails", "always\n", step.text); return;
    case Act::OpenWorks: Rearrange(player, "open-fails", step.text); return;
    case Act::MountRefuses: Arrange(player, "mount-refuses", "", step.text); return;
    case Act::MountHolds: Arrange(player, "mount-holds", "", step.text); return;
    case Act::MountWorks:
        ClearState(player->world, "mount-refuses");
        Rearrange(player, "mount-holds", step.text);
        return;
    case Act::ProbeHangs: Arrange(player, "probe-hangs", "", step.text); return;
    case Act::ProbeWorks: Rearrange(player, "probe-hangs", step.text); return;
    case Act::Automount:
        Outside(player, "the system mounts disks by itself");
        PutFile(player, kAutomountFile, "");
        return;
    case Act::MakeFolder:
        Outside(player, step.text);
        (void)observe::MakeFolders(text);
        return;
    case Act::RemoveFolder:
        Outside(player, step.text);
        (void)rmdir(text.c_str());
        return;
    case Act::WhenOpened: PlayWhenOpened(player, step); return;
    case Act::FillLog: PlayFillLog(player, step.numbers[0]); return;
    case Act::LogFolderReadOnly:
        Outside(player, step.text);
        MakeReadOnly(player, observe::kLogFolder);
        return;
    case Act::LogFolderWritable:
        Outside(player, step.text);
        PlayLogFolderWritable(player);
        return;
    case Act::LogFolderSize: PlayLogFolderSize(player, step.numbers[0]); return;
    case Act::LogFolderFull:
        Outside(player, step.text);
        PlayLogFolderFull(player);
        return;
    case Act::LogFolderRoom:
        Outside(player, step.text);
        (void)unlink(Filler().c_str());
        return;
    case Act::DaemonMemory: PlayDaemonMemory(player, step.numbers[0]); return;
    case Act::ClockSet:
    case Act::ClockRight: PlayClock(player, step); return;
    case Act::LabelAfter: player->labelAfter = step.numbers[0]; return;
    case Act::PlugModem:
    case Act::PlugDisk:
    case Act::PlugImage:
    case Act::PlugBrokenImage: PlayPlug(player, step); return;
    case Act::Unplug: PlayUnplug(player, step); return;
    case Act::PlugPort:
    case Act::UnplugPort: PlayPort(player, step); return;
    case Act::Touch:
    case Act::ChangeMedium: PlayChange(player, step); return;
    case Act::Reset: PlayReset(player, step); return;
    case Act::SystemMounts: PlaySystemMounts(player, step); return;
    case Act::StartDaemon: PlayStart(player); return;
    case Act::KillDaemon: PlayKill(player); return;
    case Act::Suspend:
    case Act::Resume: PlaySleep(player, step); return;
    case Act::Wait: PlayWait(player, step.numbers[0]); return;
    case Act::WaitRandom: PlayRandomWait(player, step); return;
    case Act::WaitIdle: PlayWaitIdle(player); return;
    case Act::Storm: PlayStorm(player, lround(step.numbers[0])); return;
    case Act::ExpectLog:
    case Act::ExpectNoLog:
    case Act::ExpectMounted:
    case Act::ExpectNotMounted:
    case Act::ExpectNothingMounted:
    case Act::ExpectOpened:
    case Act::ExpectNothingOpened:
    case Act::ExpectFolder:
    case Act::ExpectNoFolder:
    case Act::ExpectFile:
    case Act::ExpectLogSize: PlayExpectation(player, step); return;
    case Act::ExpectRun:
        ExpectRun(player, step, step.within >= 0 ? step.within : kDefaultWithin);
        return;
    case Act::ExpectNoWakeUp: ExpectNoWakeUp(player, step.numbers[0]); return;
    case Act::Golden: PlayGolden(player); return;
    }
}

}  // namespace modem
