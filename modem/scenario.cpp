// scenario.cpp - the reader of scenarios. Every statement is one row of the table below: its form,
// and what it means in plain words. Matching, the messages about mistakes, the plan of --dry-run
// and the list of `kestrun-bench words` all come from that one table.
#include "modem/scenario.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>

namespace modem
{
namespace
{

// A form is a row of words. STRING, NAME and NUMBER stand for what the tester writes; what stands
// in brackets may be left out.
struct Form {
    Act act;
    const char *words;
    const char *meaning;
};

// clang-format off
const Form kForms[] = {
    {Act::Title,               "title STRING",                     "what this scenario shows"},
    {Act::NoConfig,            "no config",                        "there is no configuration file"},
    {Act::Config,              "config",                           "the configuration file is made of the lines behind |"},
    {Act::NoSysConfig,         "no sysconfig",                     "the application is not installed: there is no SysConfig.dat"},
    {Act::SysConfigReadOnly,   "sysconfig read-only",              "nobody may write SysConfig.dat any more"},
    {Act::SysConfig,           "sysconfig",                        "SysConfig.dat is made of the lines behind |"},
    {Act::DaemonUser,          "daemon user STRING",               "the user that the daemon runs as"},
    {Act::Login,               "login STRING",                     "this user is at the console now"},
    {Act::Logout,              "logout",                           "the login window is shown: the console is root's"},
    {Act::FinderStarts,        "finder starts",                    "the Finder runs"},
    {Act::FinderQuits,         "finder quits",                     "the Finder does not run any more"},
    {Act::OpenFails,           "open fails NUMBER times",          "so many calls of open fail, then it works"},
    {Act::OpenFailsAlways,     "open fails always",                "open fails from now on"},
    {Act::OpenWorks,           "open works",                       "open works again"},
    {Act::WhenOpened,          "when opened STRING make folder STRING", "opening the first makes the second, as a disk image makes a volume"},
    {Act::MountRefuses,        "mount refuses",                    "mount fails from now on"},
    {Act::MountHolds,          "mount holds",                      "mount does not come to an end until it works again"},
    {Act::MountWorks,          "mount works",                      "mount works, and what it held back goes on"},
    {Act::ProbeHangs,          "probe hangs",                      "who reads a medium to learn its file system waits, until it works again or the medium is pulled"},
    {Act::ProbeWorks,          "probe works",                      "reading works again, and what it held back goes on"},
    {Act::Automount,           "automount",                        "the system mounts disks by itself, as macOS does, and gives a daemon ten real seconds to answer"},
    {Act::MakeFolder,          "make folder STRING",               "a folder is made"},
    {Act::RemoveFolder,        "remove folder STRING",             "an empty folder is removed"},
    {Act::FillLog,             "fill log NUMBER bytes",            "the log file has this size already"},
    {Act::LogFolderReadOnly,   "log folder read-only",             "nobody may write the log's folder any more"},
    {Act::LogFolderWritable,   "log folder writable",              "it may be written again"},
    {Act::LogFolderSize,       "log folder NUMBER bytes",          "the log's folder is an empty disk of its own, of this size"},
    {Act::LogFolderFull,       "log folder full",                  "that disk has no room any more"},
    {Act::LogFolderRoom,       "log folder has room",              "that disk has room again"},
    {Act::DaemonMemory,        "daemon memory NUMBER MiB",         "the daemon and what it starts have so much memory at most (from its start on)"},
    {Act::ClockSet,            "clock set to NUMBER s",            "the daemon's clock says so many seconds since 1970, and goes on from there"},
    {Act::ClockRight,          "clock set right",                  "the daemon's clock is right again"},
    {Act::LabelAfter,          "label after NUMBER s",             "the next disk that is plugged in shows its label so much later than the rest"},
    {Act::PlugModem,           "plug modem [label STRING]",        "the modem is plugged in: its port, then its disk (named modem)"},
    {Act::PlugImage,           "plug disk image STRING [as NAME]", "a disk image of this label is plugged in"},
    {Act::PlugBrokenImage,     "plug disk damaged STRING [as NAME]", "a disk image of this label whose file system is damaged"},
    {Act::PlugDisk,            "plug disk STRING [as NAME]",       "a disk of this label is plugged in"},
    {Act::PlugPort,            "plug port STRING",                 "a serial port of this name is plugged in"},
    {Act::UnplugPort,          "unplug port STRING",               "this serial port is pulled"},
    {Act::Unplug,              "unplug NAME",                      "this disk (the modem: and its port) is pulled"},
    {Act::Touch,               "touch NAME",                       "the disk's link is made anew, the disk is the same"},
    {Act::ChangeMedium,        "change NAME",                      "another disk of the same label lies in the drive"},
    {Act::Reset,               "reset NAME",                       "this disk (the modem: and its port) goes and is back at once, under the same label"},
    {Act::SystemMounts,        "system mounts NAME",               "the system itself mounts this disk, as it does at boot"},
    {Act::StartDaemon,         "start daemon",                     "the daemon is started"},
    {Act::KillDaemon,          "kill daemon",                      "the daemon is killed with SIGKILL"},
    {Act::Suspend,             "suspend",                          "the machine sleeps: the daemon stands still"},
    {Act::Resume,              "resume",                           "the machine wakes up, and the daemon goes on"},
    {Act::WaitIdle,            "wait until idle",                  "until the daemon has nothing to do"},
    {Act::WaitRandom,          "wait NUMBER to NUMBER s",          "a random time, in seconds of the daemon"},
    {Act::Wait,                "wait NUMBER s",                    "so many seconds of the daemon"},
    {Act::Repeat,              "repeat NUMBER times",              "the statements up to end, so often"},
    {Act::End,                 "end",                              "the end of what is repeated"},
    {Act::Storm,               "storm NUMBER events",              "so many random plugs and pulls; what stays must be mounted once, nothing else"},
    {Act::ExpectNoWakeUp,      "expect no wake-up for NUMBER s",   "the daemon sleeps so long (real seconds) without waking once"},
    {Act::ExpectNoLog,         "expect no log STRING",             "the log does not hold this text"},
    {Act::ExpectLogSize,       "expect log below NUMBER bytes",    "the log file is smaller than that"},
    {Act::ExpectLog,           "expect log STRING [NUMBER times] [within NUMBER s]", "the log says this, behind what was expected of it before"},
    {Act::ExpectNothingMounted,"expect nothing mounted [within NUMBER s]", "nothing is mounted under /Volumes"},
    {Act::ExpectNotMounted,    "expect not mounted STRING [within NUMBER s]", "nothing is mounted there"},
    {Act::ExpectMounted,       "expect mounted STRING [with STRING] [within NUMBER s]", "something is mounted there (with these options)"},
    {Act::ExpectNothingOpened, "expect nothing opened",            "no call of open has worked"},
    {Act::ExpectOpened,        "expect opened STRING [NUMBER times] [within NUMBER s]", "this was opened"},
    {Act::ExpectNoFolder,      "expect no folder STRING [within NUMBER s]", "there is no such folder"},
    {Act::ExpectFolder,        "expect folder STRING [within NUMBER s]", "there is such a folder"},
    {Act::ExpectFile,          "expect file STRING holds STRING",  "the file holds this text"},
    {Act::ExpectRun,           "expect run STRING [status NUMBER] [within NUMBER s]", "this command ends with that status (else 0) and prints the lines behind |, if any; <number> and <any> fit what they say"},
    {Act::Golden,              "golden",                           "the whole log is that of golden/<scenario>.log, times and process ids aside"},
};
// clang-format on

enum class TokenKind { Word, String, Number, LineEnd };

struct Token {
    TokenKind kind = TokenKind::LineEnd;
    std::string text;
    int column = 1;
};

struct Line {
    int number = 1;
    std::string text;
};

std::string Quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Resolves the escape whose backslash stands at `*at` and moves `*at` behind it. False when there
// is no such escape.
bool TakeEscape(const std::string &text, size_t *at, std::string *out)
{
    const char letter = *at + 1 < text.size() ? text[*at + 1] : '\0';
    if (letter == 'x' && *at + 3 < text.size()) {
        const int high = HexDigit(text[*at + 2]);
        const int low = HexDigit(text[*at + 3]);
        if (high < 0 || low < 0)
            return false;
        *out += static_cast<char>(high * 16 + low);
        *at += 4;
        return true;
    }
    const std::string letters = "\"\\nrt";
    const std::string meant = "\"\\\n\r\t";
    const size_t which = letter == '\0' ? std::string::npos : letters.find(letter);
    if (which == std::string::npos)
        return false;
    *out += meant[which];
    *at += 2;
    return true;
}

bool Fail(Mistake *mistake, int line, int column, const std::string &message)
{
    mistake->place = {line, column};
    mistake->message = message;
    return false;
}

const char *const kEscapeHelp =
    "there is no such escape; there are \\\" \\\\ \\n \\r \\t and \\x with two hex digits";

bool TakeString(const Line &line, size_t *at, Token *token, Mistake *mistake)
{
    const size_t start = (*at)++;
    while (*at < line.text.size() && line.text[*at] != '"') {
        if (line.text[*at] != '\\') {
            token->text += line.text[(*at)++];
        } else if (!TakeEscape(line.text, at, &token->text)) {
            return Fail(mistake, line.number, static_cast<int>(*at) + 1, kEscapeHelp);
        }
    }
    if (*at >= line.text.size()) {
        return Fail(mistake, line.number, static_cast<int>(start) + 1,
                    "this text has no closing quote");
    }
    ++*at;
    token->kind = TokenKind::String;
    return true;
}

bool IsWordChar(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
}

bool IsNumber(const std::string &text)
{
    return text.find_first_not_of("0123456789.") == std::string::npos &&
           std::count(text.begin(), text.end(), '.') <= 1 && isdigit(text.front()) != 0 &&
           isdigit(text.back()) != 0;
}

// Takes a line apart. The last token is always a LineEnd.
bool TakeTokens(const Line &line, std::vector<Token> *tokens, Mistake *mistake)
{
    size_t at = 0;
    while (true) {
        while (at < line.text.size() && (line.text[at] == ' ' || line.text[at] == '\t'))
            ++at;
        Token token;
        token.column = static_cast<int>(at) + 1;
        if (at >= line.text.size() || line.text[at] == '#') {
            tokens->push_back(token);
            return true;
        }
        if (line.text[at] == '"') {
            if (!TakeString(line, &at, &token, mistake))
                return false;
        } else if (IsWordChar(line.text[at])) {
            while (at < line.text.size() && IsWordChar(line.text[at]))
                token.text += line.text[at++];
            token.kind = IsNumber(token.text) ? TokenKind::Number : TokenKind::Word;
        } else {
            return Fail(mistake, line.number, token.column,
                        "the character " + Quoted(line.text.substr(at, 1)) +
                            " has no meaning here");
        }
        tokens->push_back(token);
    }
}

// What the words tried so far could not take: the furthest token, and what could have stood there.
struct Furthest {
    size_t token = 0;
    std::set<std::string> expected;
};

void NoteExpected(Furthest *furthest, size_t token, const std::string &what)
{
    if (token > furthest->token) {
        furthest->token = token;
        furthest->expected.clear();
    }
    if (token == furthest->token)
        furthest->expected.insert(what);
}

std::string ExpectedName(const std::string &word)
{
    if (word == "STRING")
        return "a text in quotes";
    if (word == "NUMBER")
        return "a number";
    return word == "NAME" ? "a name" : Quoted(word);
}

// Takes one token for one word of a form into `step`.
bool TakeWord(const std::string &word, const Token &token, Step *step)
{
    if (word == "STRING") {
        step->strings.push_back(token.text);
        return token.kind == TokenKind::String;
    }
    if (word == "NUMBER") {
        step->numbers.push_back(strtod(token.text.c_str(), nullptr));
        return token.kind == TokenKind::Number;
    }
    if (word == "NAME") {
        step->name = token.text;
        return token.kind == TokenKind::Word;
    }
    return token.kind == TokenKind::Word && token.text == word;
}

std::vector<std::string> WordsOf(const std::string &form)
{
    std::istringstream stream(form);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// What an optional group said goes to its own member, so that its number is not taken for one of
// the form's own.
void FinishGroup(const std::string &firstWord, const std::string &lastWord, Step *step)
{
    if (lastWord == "times") {
        step->times = static_cast<long>(step->numbers.back());
        step->numbers.pop_back();
    } else if (firstWord == "within") {
        step->within = step->numbers.back();
        step->numbers.pop_back();
    }
}

// Tries one form from its first word to its last.
bool MatchForm(const Form &form, const std::vector<Token> &tokens, Step *step, Furthest *furthest)
{
    size_t token = 0;
    const std::vector<std::string> words = WordsOf(form.words);
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i].front() != '[') {
            if (!TakeWord(words[i], tokens[token], step)) {
                NoteExpected(furthest, token, ExpectedName(words[i]));
                return false;
            }
            ++token;
            continue;
        }
        size_t last = i;
        while (words[last].back() != ']')
            ++last;
        std::vector<std::string> group(words.begin() + static_cast<long>(i),
                                       words.begin() + static_cast<long>(last) + 1);
        group.front().erase(0, 1);
        group.back().pop_back();
        i = last;
        Step attempt = *step;
        if (!TakeWord(group.front(), tokens[token], &attempt)) {
            NoteExpected(furthest, token, ExpectedName(group.front()));
            continue;
        }
        for (size_t j = 1; j < group.size(); ++j) {
            if (!TakeWord(group[j], tokens[token + j], &attempt)) {
                NoteExpected(furthest, token + j, ExpectedName(group[j]));
                return false;
            }
        }
        token += group.size();
        *step = attempt;
        FinishGroup(group.front(), group.back(), step);
    }
    if (tokens[token].kind != TokenKind::LineEnd) {
        NoteExpected(furthest, token, "the end of the line");
        return false;
    }
    return true;
}

std::string Joined(const std::set<std::string> &parts)
{
    std::string text;
    size_t left = parts.size();
    for (const std::string &part : parts) {
        --left;
        text += part + (left > 1 ? ", " : left == 1 ? " or " : "");
    }
    return text;
}

std::string Found(const Token &token)
{
    switch (token.kind) {
    case TokenKind::LineEnd: return "the line ends here";
    case TokenKind::String: return "here stands a text in quotes";
    case TokenKind::Number: return "here stands the number " + token.text;
    case TokenKind::Word: break;
    }
    return "here stands " + Quoted(token.text);
}

std::string Stripped(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool TakeStatement(const Line &line, const std::vector<Token> &tokens, Step *step, Mistake *mistake)
{
    Furthest furthest;
    for (const Form &form : kForms) {
        Step attempt;
        attempt.act = form.act;
        if (MatchForm(form, tokens, &attempt, &furthest)) {
            *step = attempt;
            step->place = {line.number, tokens.front().column};
            step->text = Stripped(line.text);
            return true;
        }
    }
    const Token &token = tokens[furthest.token];
    if (furthest.token == 0) {
        return Fail(mistake, line.number, token.column,
                    "no statement begins so: " + Found(token) +
                        " (`kestrun-bench words` lists all statements)");
    }
    return Fail(mistake, line.number, token.column,
                "expected " + Joined(furthest.expected) + "; " + Found(token));
}

bool IsBlockLine(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t");
    return first != std::string::npos && text[first] == '|';
}

bool HasBlock(Act act)
{
    return act == Act::Config || act == Act::SysConfig || act == Act::ExpectRun;
}

// Takes a line "| text" into the statement that it belongs to.
bool TakeBlockLine(const Line &line, Step *owner, Mistake *mistake)
{
    size_t at = line.text.find('|');
    if (owner == nullptr || !HasBlock(owner->act)) {
        return Fail(mistake, line.number, static_cast<int>(at) + 1,
                    "lines behind | belong to config, sysconfig or expect run alone");
    }
    at += at + 1 < line.text.size() && line.text[at + 1] == ' ' ? 2 : 1;
    while (at < line.text.size()) {
        if (line.text[at] != '\\') {
            owner->block += line.text[at++];
        } else if (!TakeEscape(line.text, &at, &owner->block)) {
            return Fail(mistake, line.number, static_cast<int>(at) + 1, kEscapeHelp);
        }
    }
    owner->block += '\n';
    return true;
}

const double kMostRepeats = 100000;

// What a statement refers to must stand before it, and must make sense on its own.
bool CheckMeaning(Step *step, std::set<std::string> *names, bool *started, Mistake *mistake)
{
    const Place &place = step->place;
    const bool needsName = step->act == Act::Unplug || step->act == Act::Touch ||
                           step->act == Act::ChangeMedium || step->act == Act::SystemMounts;
    if (needsName && !names->contains(step->name)) {
        const size_t at = step->text.rfind(step->name);
        return Fail(mistake, place.line, place.column + static_cast<int>(at),
                    "no disk named " + step->name + " was plugged in before");
    }
    if (step->act == Act::PlugModem)
        step->name = "modem";
    if ((step->act == Act::PlugDisk || step->act == Act::PlugImage ||
         step->act == Act::PlugBrokenImage) &&
        step->name.empty())
        step->name = "disk";
    if (!needsName && !step->name.empty())
        names->insert(step->name);
    if (step->act == Act::StartDaemon)
        *started = true;
    const bool needsDaemon = step->act == Act::ExpectLog || step->act == Act::WaitIdle ||
                             step->act == Act::Storm || step->act == Act::ExpectNoWakeUp ||
                             step->act == Act::KillDaemon || step->act == Act::Golden;
    if (needsDaemon && !*started) {
        return Fail(mistake, place.line, place.column,
                    "this needs the daemon, and no \"start daemon\" stands before it");
    }
    if (step->act == Act::DaemonMemory && *started) {
        return Fail(mistake, place.line, place.column,
                    "this must stand before \"start daemon\": it holds from the start on");
    }
    if (step->act == Act::Repeat && (step->numbers[0] < 1 || step->numbers[0] > kMostRepeats))
        return Fail(mistake, place.line, place.column, "repeat takes 1 to 100000");
    if (step->act == Act::WaitRandom && step->numbers[0] > step->numbers[1]) {
        return Fail(mistake, place.line, place.column,
                    "the second time of a random wait must not be smaller than the first");
    }
    if (step->act == Act::ExpectLog && step->strings[0].empty())
        return Fail(mistake, place.line, place.column, "the text to expect is empty");
    return true;
}

// What the statements read so far mean for those to come.
struct Reading {
    std::vector<size_t> openRepeats;  // indices of those whose end has not come yet
    std::set<std::string> names;
    bool started = false;
    bool inBlock = false;  // the line before was a statement or one of its block lines
};

bool TakeLine(const Line &line, Scenario *scenario, Reading *reading, Mistake *mistake)
{
    std::vector<Step> &steps = scenario->steps;
    if (IsBlockLine(line.text)) {
        Step *owner = reading->inBlock && !steps.empty() ? &steps.back() : nullptr;
        return TakeBlockLine(line, owner, mistake);
    }
    std::vector<Token> tokens;
    if (!TakeTokens(line, &tokens, mistake))
        return false;
    if (tokens.front().kind == TokenKind::LineEnd) {
        reading->inBlock = false;
        return true;
    }
    Step step;
    if (!TakeStatement(line, tokens, &step, mistake) ||
        !CheckMeaning(&step, &reading->names, &reading->started, mistake)) {
        return false;
    }
    reading->inBlock = step.act != Act::Title;
    if (step.act == Act::Title) {
        scenario->title = step.strings[0];
        return true;
    }
    if (step.act == Act::Repeat)
        reading->openRepeats.push_back(steps.size());
    if (step.act == Act::End) {
        if (reading->openRepeats.empty())
            return Fail(mistake, line.number, step.place.column, "there is no repeat to end here");
        step.partner = reading->openRepeats.back();
        steps[step.partner].partner = steps.size();
        reading->openRepeats.pop_back();
    }
    steps.push_back(step);
    return true;
}

}  // namespace

bool ParseScenario(const std::string &text, Scenario *scenario, Mistake *mistake)
{
    Reading reading;
    std::istringstream stream(text);
    Line line{0, ""};
    while (std::getline(stream, line.text)) {
        ++line.number;
        if (!line.text.empty() && line.text.back() == '\r')
            line.text.pop_back();
        if (!TakeLine(line, scenario, &reading, mistake))
            return false;
    }
    if (!reading.openRepeats.empty()) {
        const Place &place = scenario->steps[reading.openRepeats.back()].place;
        return Fail(mistake, place.line, place.column, "this repeat has no end");
    }
    if (scenario->steps.empty())
        return Fail(mistake, line.number + 1, 1,
                    "the scenario holds no statement: begin with \"start daemon\" (`kestrun-bench "
                    "words` lists all)");
    return true;
}

static std::string EscapedText(const std::string &text, const char *plain)
{
    std::string escaped;
    for (const char c : text) {
        const size_t letter = std::string("\\\n\r\t\"").find(c);
        const auto byte = static_cast<unsigned char>(c);
        char hex[8];
        if (letter != std::string::npos && strchr(plain, c) == nullptr) {
            escaped += std::string("\\") + "\\nrt\""[letter];
        } else if (byte < 0x20 || byte == 0x7F) {
            (void)snprintf(hex, sizeof hex, "\\x%02x", byte);
            escaped += hex;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string QuotedText(const std::string &text)
{
    return Quoted(EscapedText(text, ""));
}

std::string BlockText(const std::string &content)
{
    std::istringstream lines(content);
    std::string block;
    for (std::string line; std::getline(lines, line);)
        block += "  | " + EscapedText(line, "\"") + "\n";
    return block;
}

std::string StatementList()
{
    std::string list;
    for (const Form &form : kForms) {
        char row[256];
        (void)snprintf(row, sizeof row, "  %-50s %s\n", form.words, form.meaning);
        list += row;
    }
    return list;
}

std::string StepMeaning(const Step &step)
{
    for (const Form &form : kForms) {
        if (form.act == step.act)
            return form.meaning;
    }
    return "";
}

}  // namespace modem
