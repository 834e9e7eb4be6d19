// log_events.cpp - see log_events.h. The page is taken apart once, when the
// first message is looked up.
#include "observe/log_events.h"

#include <algorithm>
#include <map>

#include "observe/daemon.h"

extern const char kMessagesPage[];

namespace observe
{

namespace
{

struct Role {
    Event event;
    const char *source;
    const char *text;
};

struct Table {
    std::vector<Message> messages;
    std::map<std::string, std::vector<const Message *>, std::less<>>
        bySource;  // the plainest first
    std::vector<std::string> missing;
};

}  // namespace

// clang-format off
static const Role kRoles[] = {
    {Event::Banner,           "Kestrun:main", "\\n\\n====================================Kestrun started==============================="},
    {Event::Version,          "Kestrun:main", "TOOL-BrelmarkV100R001B035"},
    {Event::PortsSought,      "Kestrun:main", "begin to run SDProgram at beginning to run autorun"},
    {Event::PortWait,         "Kestrun:main", "wait to again to find comm port at beginning to run autorun..."},
    {Event::StartDone,        "Kestrun:main", "finish run SDProgram at beginning to run autorun"},
    {Event::StartNoVolume,    "Kestrun:main", "can't find /Volumes/Orvanta, can't run firmware program and SDProgram"},
    {Event::OptionNobrowse,   "Kestrun:main", "value of disable_cdrom is true"},
    {Event::OptionRdonly,     "Kestrun:main", "value of disable_cdrom is false"},
    {Event::PortsRead,        "Kestrun:FindCommPort", "FindCommPort Enter"},
    {Event::PortFound,        "Kestrun:FindCommPort", "FindCommPort success, and exit"},
    {Event::PeekEnter,        "Kestrun:DiskPeekCallback", "DiskPeekCallback Enter"},
    {Event::PeekRefused,      "Kestrun:DiskPeekCallback", "DADiskSetOptions failed!"},
    {Event::PeekExit,         "Kestrun:DiskPeekCallback", "DiskPeekCallback exit"},
    {Event::MountEnter,       "Kestrun:DiskMountCallback", "DiskMountCallback Enter"},
    {Event::NoPipe,           "Kestrun:DiskMountCallback", "create pipe failed!"},
    {Event::NoOwnUser,        "Kestrun:DiskMountCallback", "fgets pname failed!"},
    {Event::NoConsoleUser,    "Kestrun:DiskMountCallback", "fgets active failed!"},
    {Event::OtherUser,        "Kestrun:DiskMountCallback", "are not same return....."},
    {Event::SameUser,         "Kestrun:DiskMountCallback", "actvie == pname....."},  // sic
    {Event::FinderFailed,     "Kestrun:DiskMountCallback", "send cmd failed, not run board app"},
    {Event::FinderEmpty,      "Kestrun:DiskMountCallback", "No fond Finder, not run board app"},  // sic
    {Event::FinderThere,      "Kestrun:DiskMountCallback", "have some one login succ"},
    {Event::NoConfig,         "Kestrun:DiskMountCallback", "Doesn't find ini file."},
    {Event::AppOpened,        "Kestrun:DiskMountCallback", "Run Orvanta Program success"},
    {Event::AppFailed,        "Kestrun:DiskMountCallback", "RunShellProgram failed, can't run Orvanta Program"},
    {Event::MountExit,        "Kestrun:DiskMountCallback", "DiskMountCallback exit"},
    {Event::ApprovalEnter,    "Kestrun:DiskMountApproval", "DiskMountApproval Enter"},
    {Event::SetupOk,          "Kestrun:DiskMountApproval", "finish run sd program, and successful, DiskMountApproval exit"},
    {Event::SetupFailed,      "Kestrun:DiskMountApproval", "finish run program, and error, DiskMountApproval exit "},
    {Event::VolumeEnter,      "ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist Enter"},
    {Event::VolumeTry,        "ActiveVolumeProgram:IsVolumeExist", " %d time, open (%s) failed, open again"},
    {Event::VolumeThere,      "ActiveVolumeProgram:IsVolumeExist", "opertor %d time, IsVolumeExist exit true"},  // sic
    {Event::VolumeGone,       "ActiveVolumeProgram:IsVolumeExist", "IsVolumeExist exit false"},
    {Event::SwitchRead,       "ActiveVolumeProgram:IsKeyValueCaseEqual", "IsKeyValueCaeEqual Enter"},  // sic
    {Event::PackageSought,    "ActiveVolumeProgram:GetTempVolumeName", "GetTempVolumeName Enter"},
    {Event::SetupEnter,       "ActiveVolumeProgram:RunSDProgram", "RunSDProgram Enter"},
    {Event::SetupNoFile,      "ActiveVolumeProgram:RunSDProgram", "open file [%s] failed, RunSDProgram exit false"},
    {Event::SetupNoSection,   "ActiveVolumeProgram:RunSDProgram", "szKeyOrValue=[SD_THIRDPARTY_SETUP], ReadKeyValue false, RunSDProgram exit false"},
    {Event::SetupNotAsked,    "ActiveVolumeProgram:RunSDProgram", "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit"},
    {Event::SetupSwitchedOff, "ActiveVolumeProgram:RunSDProgram", "Have change value of SD_THIRD_SETUP to No, next time will not run SDProgram"},
    {Event::ShellEnter,       "Process:RunShellProgram", "RunShellProgram Enter"},
    {Event::ShellFork,        "Process:RunShellProgram", "system failed %d time because fork or waitpid. (%s)"},
    {Event::ShellNone,        "Process:RunShellProgram", "system failed %d time because shell failed. (%s)"},
    {Event::ShellStatus,      "Process:RunShellProgram", "system failed %d time, return %d[%s]:(%s), err = (%s)"},
    {Event::ShellTrue,        "Process:RunShellProgram", "RunShellProgram exit true.(%s)"},
    {Event::ShellFalse,       "Process:RunShellProgram", "(%s) false, RunShellProgram exit failed"},
    {Event::CaptureEnter,     "Process:RunShellCmd", "enter RunShellCmd (%s)"},
    {Event::CaptureNoFile,    "Process:RunShellCmd", "fopen failed for [%s]"},
    {Event::CaptureEmpty,     "Process:RunShellCmd", "fread failed"},
    {Event::ConfigUnreadable, "INI:SetIniFileName", "open file: %s failed, please check...\\n"},
    {Event::DefaultUsed,      "INI:ReadString", "open file: %s failed, please check..."},
    {Event::DefaultUsed,      "INI:ReadString", "cfg section [%s] not exists..."},
    {Event::DefaultUsed,      "INI:ReadString", "cfg key [%s] not exists..."},
};

// What ends a call without saying "exit".
static const char *const kOtherExits[] = {
    "create pipe failed!", "are not same return.....",
    "TrimKey error!", "ftell error", "ftell error in while", "fseek error",
    "testTime <= 0, can't check.",
    "fseek error.", "fputc error.",
    "RunShellProgram cmdBuff 1 failed", "fopen failed for [%s]", "delete tmp file failed!",
};
// clang-format on

// Whether `text` is an assembled one, by how those of its function begin; an invalid format in it
// leaves nothing. Of a `cut` one as much of the beginning as there is must agree.
static bool IsPossible(const Message &message, std::string_view text, bool cut)
{
    if (text.empty() || message.source == "Kestrun:FindCommPort")
        return true;
    const std::string_view begin = message.source == "Kestrun:DiskMountCallback"
                                       ? std::string_view(kOwnerCommand)
                                       : std::string_view("open \"");
    return text.starts_with(begin) || (cut && begin.starts_with(text));
}

static Bound BoundOf(std::string_view text)
{
    if (text.ends_with(" Enter") || text.starts_with("enter RunShellCmd (%s"))
        return Bound::Enters;
    const bool exits = text.find("exit") != std::string_view::npos;
    return exits || std::find(std::begin(kOtherExits), std::end(kOtherExits), text) !=
                        std::end(kOtherExits)
               ? Bound::Exits
               : Bound::Inside;
}

static Event RoleOf(const std::string &source, const std::string &text)
{
    for (const Role &role : kRoles) {
        if (source == role.source && text == role.text)
            return role.event;
    }
    return source == "ActiveVolumeProgram:RunSDProgram" ? Event::SetupLine : Event::None;
}

// Takes the text apart at its conversions; "\n" becomes a line feed.
static void Split(Message &message)
{
    const std::string &text = message.text;
    std::string literal;
    for (size_t i = 0; i < text.size(); i++) {
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (text[i] == '%' && (next == 's' || next == 'd')) {
            message.literals.push_back(literal);
            message.conversions.push_back(next);
            literal.clear();
            i++;
        } else if (text[i] == '\\' && next == 'n') {
            literal += '\n';
            i++;
        } else {
            literal += text[i];
        }
    }
    message.literals.push_back(literal);
}

// One row of the page: "| `text` | meaning | what to do |".
static bool ReadRow(std::string_view line, const std::string &source, Message &message)
{
    const size_t end = line.find("` | ");
    if (!line.starts_with("| `") || end == std::string_view::npos)
        return false;
    message.source = source;
    message.text = line.substr(3, end - 3);
    const std::string_view rest = line.substr(end + 4);
    const size_t middle = rest.find(" | ");
    message.meaning = rest.substr(0, middle);
    if (middle != std::string_view::npos && rest.size() > middle + 5)
        message.advice = rest.substr(middle + 3, rest.size() - middle - 5);
    message.assembled = message.text.starts_with("<");
    message.event = RoleOf(source, message.text);
    message.bound = BoundOf(message.text);
    if (!message.assembled)
        Split(message);
    return true;
}

static void ReadPage(Table &table, std::string_view page)
{
    std::string module;
    std::string source;
    while (!page.empty()) {
        const size_t feed = page.find('\n');
        const std::string_view line = page.substr(0, feed);
        page.remove_prefix(feed == std::string_view::npos ? page.size() : feed + 1);
        Message message = {};
        if (line.starts_with("## "))
            module = line.substr(3);
        else if (line.starts_with("### "))
            source = module + ":" + std::string(line.substr(4));
        else if (!source.empty() && ReadRow(line, source, message))
            table.messages.push_back(message);
    }
}

static size_t LiteralLength(const Message *message)
{
    size_t length = 0;
    for (const std::string &literal : message->literals)
        length += literal.size();
    return length;
}

static Table MakeTable()
{
    Table table;
    ReadPage(table, kMessagesPage);
    for (const Message &message : table.messages)
        table.bySource[message.source].push_back(&message);
    for (auto &[source, messages] : table.bySource) {
        std::stable_sort(messages.begin(), messages.end(), [](const Message *a, const Message *b) {
            return LiteralLength(a) > LiteralLength(b);
        });
    }
    for (const Role &role : kRoles) {
        const bool there =
            std::any_of(table.messages.begin(), table.messages.end(), [&](const Message &message) {
                return message.source == role.source && message.text == role.text;
            });
        if (!there)
            table.missing.push_back(std::string(role.source) + " " + role.text);
    }
    return table;
}

static const Table &TheTable()
{
    static const Table table = MakeTable();
    return table;
}

static bool IsNumber(std::string_view text)
{
    if (text.starts_with("-"))
        text.remove_prefix(1);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Whether what is left of a cut message is the beginning of `literal`.
static bool EndsWithin(std::string_view rest, const std::string &literal)
{
    return std::string_view(literal).starts_with(rest);
}

static bool Matches(const Message &message, std::string_view rest, bool cut,
                    std::vector<std::string_view> &filled)
{
    filled.clear();
    const std::string &first = message.literals[0];
    if (!rest.starts_with(first))
        return cut && !rest.empty() && EndsWithin(rest, first);
    rest.remove_prefix(first.size());
    const size_t count = message.conversions.size();
    for (size_t i = 0; i < count; i++) {
        const std::string &literal = message.literals[i + 1];
        size_t end = i + 1 < count ? rest.find(literal) : rest.size() - literal.size();
        const bool ends = i + 1 < count ? end != std::string_view::npos : rest.ends_with(literal);
        if (!ends && !cut)
            return false;
        const bool number = message.conversions[i] == 'd';
        if (!ends)
            end =
                number ? std::min(rest.find_first_not_of("-0123456789"), rest.size()) : rest.size();
        const std::string_view value = rest.substr(0, end);
        const bool unbegun = !ends && rest.empty();
        if (number && !IsNumber(value) && !unbegun)
            return false;
        if (number && !ends && !EndsWithin(rest.substr(end), literal))
            return false;
        filled.push_back(value);
        if (!ends)
            return true;
        rest.remove_prefix(end + literal.size());
    }
    return rest.empty();
}

const std::vector<Message> &KnownMessages()
{
    return TheTable().messages;
}

// The first of `candidates` that agrees.
static Found FindAmong(const std::vector<const Message *> &candidates, std::string_view message,
                       bool cut)
{
    Found found;
    for (const Message *candidate : candidates) {
        found.filled.clear();
        const bool matches = candidate->assembled ? IsPossible(*candidate, message, cut)
                                                  : Matches(*candidate, message, cut, found.filled);
        if (matches) {
            found.message = candidate;
            return found;
        }
    }
    return {};
}

Found FindMessage(std::string_view source, std::string_view message, bool cut)
{
    const auto &bySource = TheTable().bySource;
    const auto known = bySource.find(source);
    if (known == bySource.end())
        return {};
    const Found whole = FindAmong(known->second, message, false);
    return whole.message || !cut ? whole : FindAmong(known->second, message, true);
}

Said TakeBody(std::string_view body)
{
    const size_t end = body.find(" --- ");
    if (end == std::string_view::npos)
        return {};
    const std::string_view source = body.substr(0, end);
    const std::string_view message = body.substr(end + 5);
    return {source, message, FindMessage(source, message, false)};
}

Event EventOf(const Found &found)
{
    return found.message ? found.message->event : Event::None;
}

bool IsSetupLine(Event event)
{
    return event >= Event::SetupEnter && event <= Event::SetupLine;
}

std::string_view CommandOf(const Found &found)
{
    const Event event = EventOf(found);
    const bool result = event == Event::ShellTrue || event == Event::ShellFalse;
    const bool status = event == Event::ShellStatus;
    const bool failed = status || event == Event::ShellFork || event == Event::ShellNone;
    const size_t which = status ? 3 : failed ? 1 : 0;
    return (result || failed) && found.filled.size() > which ? found.filled[which] : "";
}

bool OpensApplication(std::string_view command)
{
    return command.starts_with("open -a ");
}

std::vector<std::string> MissingTexts()
{
    return TheTable().missing;
}

}  // namespace observe
