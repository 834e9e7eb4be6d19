// messages.h - every message that the daemon can write, and what it stands for.
//
// The texts come from docs/log-messages.md, which is built into the program and is held against the
// daemon's sources in both directions. The events below name those among them that tell a story.
#ifndef TOOLS_LOG_MESSAGES_H
#define TOOLS_LOG_MESSAGES_H

#include <string>
#include <string_view>
#include <vector>

namespace klog
{

enum class Event {
    None,  // known, but without a part in the story
    Banner,
    Version,
    PortsRead,
    PortFound,
    PortWait,
    StartDone,
    StartNoVolume,
    OptionNobrowse,
    OptionRdonly,
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
    SetupLine,  // what RunSDProgram says, the reason of its end among it
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

// The texts that the story needs and the page does not have: none, or the program is at fault.
std::vector<std::string> MissingTexts();

}  // namespace klog

#endif
