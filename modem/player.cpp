// player.cpp - plays a scenario. One loop (LookAround) follows the log, the calls of modem/bin and
// the daemon's process; every statement is one case of PlayStep.
#include "modem/player.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modem/masking.h"
#include "modem/children.h"
#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/mounts.h"
#include "observe/names.h"
#include "observe/process.h"

namespace modem
{
namespace
{

namespace fs = std::filesystem;

const useconds_t kLookEvery = 2000;  // microseconds
const double kDefaultWithin = 120;   // seconds of the daemon
const double kGrace = 20;            // real seconds that a slow machine may need on top
const double kIdleFor = 0.4;         // real seconds without work until nothing more is waited for
const double kModemStart = 1;        // seconds from the modem's port to its disk
const size_t kLinesBefore = 3;       // lines of the log shown at a failure: passed already,
const size_t kLinesAround = 10;      // next, and last

using Clock = std::chrono::steady_clock;

double SecondsFrom(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string Quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

void ShowNewLines(Player *player)
{
    const LogBook &log = player->observed.log;
    player->linesShown = std::min(player->linesShown, log.lines.size());
    for (; player->linesShown < log.lines.size(); ++player->linesShown) {
        const std::string &line = log.lines[player->linesShown].text;
        const long number = RecordNumber(line);
        char text[24];
        (void)snprintf(text, sizeof text, number > 0 ? "%4ld  " : "      ", number);
        Say(&player->timeLine, Kind::Log, text + LineBody(line));
    }
}

void ShowCall(Player *player, const Call &call)
{
    const std::string text = CallText(call) + (call.status == 0 ? "" : "  (failed)");
    if (call.program == "open") {
        Say(&player->timeLine, Kind::Open, text);
        return;
    }
    Say(&player->timeLine, Kind::Mount, text);
    if (call.program != "mount" || call.status != 0)
        return;
    for (const observe::Mounted &mounted : player->observed.mounts) {
        if (!call.arguments.empty() && mounted.place == call.arguments.back() &&
            !mounted.options.empty()) {
            Say(&player->timeLine, Kind::Mount,
                "  the kernel shows " + mounted.place + " as " + mounted.options);
        }
    }
}

void TakeNewCalls(Player *player)
{
    const std::string record = observe::ReadFile(player->world.stateDir + "/calls");
    for (const Call &call : TakeCalls(record, &player->callsRead)) {
        player->observed.calls.push_back(call);
        ShowCall(player, call);
    }
}

// While the daemon sleeps, its last line stands in its memory alone, or its end does: it is read from
// there.
void SeekUnwrittenLine(Player *player)
{
    LogBook &log = player->observed.log;
    const long number = log.lastNumber + 1;
    if (number != player->soughtNumber) {
        player->soughtNumber = number;
        player->soughtTimes = 0;
    }
    const bool known = !log.lines.empty() && log.lines.back().unwritten;
    if (known || player->soughtTimes >= player->soughtLimit ||
        !observe::IsAsleep(player->daemon.pid))
        return;
    ++player->soughtTimes;
    const std::string line = observe::UnwrittenLine(player->daemon.pid, &player->daemon.bufferPage,
                                                    number, log.unfinished, log.offset);
    // The log may have been written between the look at the file and the look at the memory.
    if (!line.empty() && !FollowLog(&log))
        AddUnwritten(&log, line);
}

// The recorder sees what anybody could see who looks at the world from outside.
void RecordNow(Player *player)
{
    Sighting *sighting = &player->sighting;
    sighting->at = SecondsSince(player->timeLine) * player->options->speed;
    LookAtHardware(player->world, sighting);
    LookAtPeople(player->world, sighting);
    LookAtDaemon(player->daemon, sighting);
    Record(&player->recorder, *sighting, player->observed.log);
}

}  // namespace

void LookAround(Player *player)
{
    // The calls first: the log speaks of them when they are over.
    player->observed.mounts = MountsUnder(player->world, observe::kVolumesDir);
    TakeNewCalls(player);
    (void)FollowLog(&player->observed.log);
    CheckProcess(&player->daemon);
    SeekUnwrittenLine(player);
    ShowNewLines(player);
    if (!player->options->recordFile.empty())
        RecordNow(player);
}

bool WaitFor(Player *player, const std::string &what, double within, bool stopWhenIdle,
             const std::function<bool()> &done)
{
    const auto start = Clock::now();
    auto idleSince = start;
    bool idle = false;
    while (true) {
        LookAround(player);
        if (done())
            return true;
        if (player->daemon.ended || SecondsFrom(start) > within / player->options->speed + kGrace)
            return false;
        const bool wasIdle = idle;
        idle = stopWhenIdle && observe::IsIdle(player->daemon.pid);
        if (idle && !wasIdle)
            idleSince = Clock::now();
        if (idle && SecondsFrom(idleSince) > kIdleFor) {
            LookAround(player);  // what came just before the daemon came to rest
            return done();
        }
        ShowClock(&player->timeLine, what);
        (void)usleep(kLookEvery);
    }
}

void FailScenario(Player *player, const std::string &why)
{
    if (player->result == Result::Passed) {
        player->result = Result::Failed;
        player->problem = why;
        Say(&player->timeLine, Kind::Bad, why);
    }
}

namespace
{

void Outside(Player *player, const std::string &text)
{
    Say(&player->timeLine, Kind::Outside, text);
}

// A daemon that ends by itself ends the scenario, and shows what it said.
bool DaemonIsWell(Player *player)
{
    CheckProcess(&player->daemon);
    if (!player->daemon.ended)
        return true;
    FailScenario(player, "the daemon " + EndOf(player->daemon) + "; its last words:\n" +
                             observe::ReadFile(player->daemon.errorFile));
    return false;
}

// Lines of the log from `first` to before `last`, those that were passed already set apart.
std::string LogLines(const Player &player, size_t first, size_t last)
{
    std::string text;
    for (size_t i = first; i < last; ++i) {
        const LogLine &line = player.observed.log.lines[i];
        text += "\n" + std::string(i < player.observed.logFrom ? "    " : "  > ") +
                observe::Printable(line.text) + (line.unwritten ? "   (not in the file yet)" : "");
    }
    return text;
}

std::string LogAround(const Player &player)
{
    const size_t all = player.observed.log.lines.size();
    const size_t from = std::min(player.observed.logFrom, all);
    const size_t first = from > kLinesBefore ? from - kLinesBefore : 0;
    if (all == 0)
        return "\n    (empty)";
    if (all - first <= 2 * kLinesAround)
        return LogLines(player, first, all);
    return LogLines(player, first, first + kLinesAround) + "\n    ... " +
           std::to_string(all - first - 2 * kLinesAround) + " more ..." +
           LogLines(player, all - kLinesAround, all);
}

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
    const auto start = Clock::now();
    const double real = seconds / player->options->speed;
    (void)WaitFor(player, "waiting", seconds, false, [&] { return SecondsFrom(start) >= real; });
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

void GiveUp(Player *player, const std::string &why)
{
    player->result = Result::NotPlayable;
    player->problem = why;
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

std::string LogFolder()
{
    return fs::path(observe::kLogFile).parent_path();
}

// What uses up the room of the log folder's disk.
std::string Filler()
{
    return LogFolder() + "/filler";
}

void PlayLogFolderWritable(Player *player)
{
    const std::string folder = LogFolder();
    if (mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND, nullptr) != 0)
        GiveUp(player, "what is read-only cannot be made writable here");
}

void PlayLogFolderSize(Player *player, double bytes)
{
    const std::string size = "mode=755,size=" + std::to_string(lround(bytes));
    if (!MayMount(*player) || mount("tmpfs", LogFolder().c_str(), "tmpfs", 0, size.c_str()) != 0)
        GiveUp(player, "no disk of any size can be made here");
}

void PlayLogFolderFull(Player *player)
{
    const std::string block(4096, '.');
    const int file = open(Filler().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    // Anybody else's disk is not filled up.
    const bool isOwn = MountsUnder(player->world, LogFolder()).size() == 1;
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

void PlayPlug(Player *player, const Step &step)
{
    const bool modem = step.act == Act::PlugModem;
    const std::string label = step.strings.empty() ? observe::kDefaultVolumeName : step.strings[0];
    std::string why;
    if (modem) {
        Outside(player, std::string("the modem is plugged in; its port: ") + kModemPort);
        if (!PlugPort(&player->hardware, kModemPort, &why)) {
            FailScenario(player, why);
            return;
        }
        PlayWait(player, kModemStart);
    }
    Outside(player, (modem ? "its disk " : "a disk is plugged in: ") + Quoted(label));
    const Medium medium = step.act == Act::PlugImage         ? Medium::Image
                          : step.act == Act::PlugBrokenImage ? Medium::BrokenImage
                                                             : Medium::Folder;
    if (!PlugDisk(&player->hardware, step.name, label, medium, &why)) {
        FailScenario(player, why);
        return;
    }
    player->hardware.disks[step.name].modem = modem;
}

void PlayUnplug(Player *player, const Step &step)
{
    const auto found = player->hardware.disks.find(step.name);
    if (found == player->hardware.disks.end()) {
        FailScenario(player, "line " + std::to_string(step.place.line) + ": the disk " + step.name +
                                 " is not plugged in");
        return;
    }
    const bool modem = found->second.modem;
    Outside(player, modem ? "the modem is pulled" : "the disk " + step.name + " is pulled");
    if (modem)
        UnplugPort(&player->hardware, kModemPort);
    UnplugDisk(&player->hardware, step.name);
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

// The statements that change the world but plug nothing. False when `step` is none of them.
bool PlayArrangement(Player *player, const Step &step)
{
    const std::string text = step.strings.empty() ? "" : step.strings[0];
    switch (step.act) {
    case Act::NoConfig: (void)unlink(observe::kConfigFile); return true;
    case Act::Config: PutFile(player, observe::kConfigFile, step.block); return true;
    case Act::NoSysConfig: (void)unlink(observe::kSysConfigFile); return true;
    case Act::SysConfig: PutFile(player, observe::kSysConfigFile, step.block); return true;
    case Act::SysConfigReadOnly: MakeReadOnly(player, observe::kSysConfigFile); return true;
    case Act::DaemonUser: SetState(player->world, "daemon-user", text + "\n"); return true;
    case Act::Login: Arrange(player, "console-user", text + "\n", text + " logs in"); return true;
    case Act::Logout:
        Arrange(player, "console-user", "root\n", "nobody is logged in: the login window");
        return true;
    case Act::FinderStarts: Arrange(player, "finder", "", "the Finder starts"); return true;
    case Act::FinderQuits: Rearrange(player, "finder", "the Finder quits"); return true;
    case Act::OpenFails:
        Arrange(player, "open-fails", std::to_string(lround(step.numbers[0])) + "\n", step.text);
        return true;
    case Act::OpenFailsAlways: Arrange(player, "open-fails", "always\n", step.text); return true;
    case Act::OpenWorks: Rearrange(player, "open-fails", step.text); return true;
    case Act::MountRefuses: Arrange(player, "mount-refuses", "", step.text); return true;
    case Act::MountHolds: Arrange(player, "mount-holds", "", step.text); return true;
    case Act::MountWorks:
        ClearState(player->world, "mount-refuses");
        Rearrange(player, "mount-holds", step.text);
        return true;
    case Act::MakeFolder:
        Outside(player, step.text);
        (void)observe::MakeFolders(text);
        return true;
    case Act::RemoveFolder:
        Outside(player, step.text);
        (void)rmdir(text.c_str());
        return true;
    case Act::WhenOpened: PlayWhenOpened(player, step); return true;
    case Act::FillLog: PlayFillLog(player, step.numbers[0]); return true;
    case Act::LogFolderReadOnly:
        Outside(player, step.text);
        MakeReadOnly(player, LogFolder().c_str());
        return true;
    case Act::LogFolderWritable:
        Outside(player, step.text);
        PlayLogFolderWritable(player);
        return true;
    case Act::LogFolderSize: PlayLogFolderSize(player, step.numbers[0]); return true;
    case Act::LogFolderFull:
        Outside(player, step.text);
        PlayLogFolderFull(player);
        return true;
    case Act::LogFolderRoom:
        Outside(player, step.text);
        (void)unlink(Filler().c_str());
        return true;
    case Act::DaemonMemory: PlayDaemonMemory(player, step.numbers[0]); return true;
    case Act::ClockSet:
    case Act::ClockRight: PlayClock(player, step); return true;
    default: return false;
    }
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

void PlayStep(Player *player, const Step &step)
{
    if (IsExpectation(step.act)) {
        PlayExpectation(player, step);
        return;
    }
    if (PlayArrangement(player, step))
        return;
    switch (step.act) {
    case Act::PlugModem:
    case Act::PlugDisk:
    case Act::PlugImage:
    case Act::PlugBrokenImage: PlayPlug(player, step); return;
    case Act::Unplug: PlayUnplug(player, step); return;
    case Act::PlugPort:
    case Act::UnplugPort: PlayPort(player, step); return;
    case Act::Touch:
    case Act::ChangeMedium: PlayChange(player, step); return;
    case Act::SystemMounts: PlaySystemMounts(player, step); return;
    case Act::StartDaemon: PlayStart(player); return;
    case Act::KillDaemon: PlayKill(player); return;
    case Act::Wait: PlayWait(player, step.numbers[0]); return;
    case Act::WaitRandom: PlayRandomWait(player, step); return;
    case Act::WaitIdle: PlayWaitIdle(player); return;
    case Act::Storm: PlayStorm(player, lround(step.numbers[0])); return;
    case Act::ExpectRun:
        ExpectRun(player, step, step.within >= 0 ? step.within : kDefaultWithin);
        return;
    case Act::ExpectNoWakeUp: ExpectNoWakeUp(player, step.numbers[0]); return;
    case Act::Golden: PlayGolden(player); return;
    default: FailScenario(player, "not played: " + step.text); return;
    }
}

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
