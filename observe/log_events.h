// log_events.h - every message that the daemon can write, and what it stands
// for.
//
// The texts come from docs/log-messages.md, which is built into the program and
// is held against the daemon's sources in both directions. The events below
// name those among them that tell a story.
#ifndef OBSERVE_LOG_EVENTS_H
#define OBSERVE_LOG_EVENTS_H

#include <string>
#include <string_view>
#include <vector>

namespace observe
{

enum class Event {
    None,  // known, but without a part in the story
    Banner,
    Version,
    PortsSought,
    PortsRead,
    PortFound,
    PortWait,
    StartDone,
    StartNoVolume,
    OptionNobrowse,
    OptionRdonly,
    SwitchRead,
    ConfigUnreadable,
    DefaultUsed,
    PeekEnter,
    PeekRefused,
    PeekExit,
    MountEnter,
    NoPipe,
    NoOwnUser,
    NoConsoleUser,
    OtherUser,
    SameUser,
    FinderFailed,
    FinderEmpty,
    FinderThere,
    NoConfig,
    AppOpened,
    AppFailed,
    MountExit,
    ApprovalEnter,
    SetupOk,
    SetupFailed,
    SetupEnter,  // from here to SetupLine: what RunSDProgram says, the reason of its end among it
    SetupNoFile,
    SetupNoSection,
    SetupNotAsked,
    SetupSwitchedOff,
    SetupLine,
    PackageSought,
    VolumeEnter,
    VolumeTry,
    VolumeThere,
    VolumeGone,
    ShellEnter,
    ShellFork,
    ShellNone,
    ShellStatus,
    ShellTrue,
    ShellFalse,
    CaptureEnter,
    CaptureNoFile,
    CaptureEmpty,
};

// How a message stands to the call of its function.
enum class Bound {
    Inside,
    Enters,
    Exits,
};

struct Message {
    std::string source;   // "Kestrun:main"
    std::string text;     // as in the daemon's sources, "\n" for a line feed written out
    std::string meaning;  // for people
    std::string advice;   // what to do; may be empty
    Event event;
    Bound bound;
    std::vector<std::string> literals;  // what stands before, between and behind the conversions
    std::vector<char> conversions;      // 's' and 'd'
    bool assembled;                     // a text that the daemon puts together
};

const std::vector<Message> &KnownMessages();

struct Found {
    const Message *message = nullptr;      // null: no known text
    std::vector<std::string_view> filled;  // what stands where the text has conversions
};

// Finds the text that `message`, said by `source`, was made from. Of a `cut` message as much as
// there is must agree, unless a text agrees as a whole.
Found FindMessage(std::string_view source, std::string_view message, bool cut);

// What a line of the log says: its source, its message and the text that it was
// made from.
struct Said {
    std::string_view source;
    std::string_view message;
    Found found;
};

// Takes a line without its number and time apart: "Kestrun:main --- ...". It
// points into `body`.
Said TakeBody(std::string_view body);

// The event of what was found; None for an unknown text.
Event EventOf(const Found &found);

bool IsSetupLine(Event event);

// What of a command's line is the command; empty for other lines.
std::string_view CommandOf(const Found &found);

// Whether the command is that which opens the application; the setup package is
// opened by others.
bool OpensApplication(std::string_view command);

// The texts that the story needs and the page does not have: none, or the program is at fault.
std::vector<std::string> MissingTexts();

}  // namespace observe

#endif
