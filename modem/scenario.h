// scenario.h - a scenario as read from its text: what the outside does to the daemon, and what is
// expected of it. The form of the text is told in docs/bench.md.
#ifndef MODEM_SCENARIO_H
#define MODEM_SCENARIO_H

#include <string>
#include <vector>

namespace modem
{

// A place in a scenario's text, both counted from 1.
struct Place {
    int line = 1;
    int column = 1;
};

enum class Act {
    Title,
    NoConfig,
    Config,
    NoSysConfig,
    SysConfig,
    SysConfigReadOnly,
    DaemonUser,
    Login,
    Logout,
    FinderStarts,
    FinderQuits,
    OpenFails,
    OpenFailsAlways,
    OpenWorks,
    WhenOpened,
    MountRefuses,
    MountHolds,
    MountWorks,
    ProbeHangs,
    ProbeWorks,
    Automount,
    MakeFolder,
    RemoveFolder,
    FillLog,
    LogFolderReadOnly,
    LogFolderWritable,
    LogFolderSize,
    LogFolderFull,
    LogFolderRoom,
    DaemonMemory,
    ClockSet,
    ClockRight,
    LabelAfter,
    PlugModem,
    PlugDisk,
    PlugImage,
    PlugBrokenImage,
    PlugPort,
    Unplug,
    UnplugPort,
    Touch,
    ChangeMedium,
    Reset,
    SystemMounts,
    StartDaemon,
    KillDaemon,
    Suspend,
    Resume,
    Wait,
    WaitRandom,
    WaitIdle,
    Repeat,
    End,
    Storm,
    ExpectLog,
    ExpectNoLog,
    ExpectMounted,
    ExpectNotMounted,
    ExpectNothingMounted,
    ExpectOpened,
    ExpectNothingOpened,
    ExpectFolder,
    ExpectNoFolder,
    ExpectFile,
    ExpectLogSize,
    ExpectNoWakeUp,
    ExpectRun,
    Golden,
};

// One statement. Which members mean something depends on `act`.
struct Step {
    Act act = Act::Title;
    Place place;
    std::string text;                  // the statement as written, without blanks around it
    std::vector<std::string> strings;  // its texts in quotes, escapes resolved
    std::string name;                  // the disk's name
    std::vector<double> numbers;       // its numbers, units as the statement says
    long times = -1;                   // "N times"; -1 when not said
    double within = -1;                // "within N s", in seconds of the daemon; -1 when not said
    std::string block;                 // the lines behind "|", each with its line feed
    size_t partner = 0;                // of "repeat" and "end": the index of the other one
};

struct Scenario {
    std::string title;
    std::vector<Step> steps;  // in the text's order; what is repeated stands between repeat and end
};

// What is wrong with a scenario and where.
struct Mistake {
    Place place;
    std::string message;
};

// Reads a scenario's text. False with `mistake` filled at the first mistake; `scenario` is then
// incomplete.
bool ParseScenario(const std::string &text, Scenario *scenario, Mistake *mistake);

// `text` as a scenario writes it: in double quotes, with escapes.
std::string QuotedText(const std::string &text);

// The lines behind "|" that stand for `content`, each with its line end. A last line of `content`
// without a line end gets one: the language cannot say that there is none.
std::string BlockText(const std::string &content);

// A line for each statement that a scenario may hold, its form and what it does, for the help text.
std::string StatementList();

// What `step` does, in plain words.
std::string StepMeaning(const Step &step);

}  // namespace modem

#endif
