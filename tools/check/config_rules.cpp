// config_rules.cpp - the daemon's configuration: two readers, three keys.
#include <algorithm>
#include <cstring>

#include "Common/INI.h"
#include "observe/daemon.h"
#include "observe/names.h"
#include "tools/check/checked_file.h"
#include "tools/check/readers.h"
#include "tools/check/rules.h"

namespace kcheck
{

static const char *const kSection = observe::kConfigSection;
static const size_t kNameMax = observe::kVolumeNameSize - 1;
static const size_t kPathMax = 501;  // bytes of a path whose command gets its closing quote

namespace
{

// One pass over one configuration.
struct Config : CheckedFile {
    size_t header = 0;     // number of the line that opens the section for the INI reader; 0: none
    size_t end = 0;        // number of the line that ends it; behind the last line when none does
    size_t keyHeader = 0;  // number of the line that opens it for the reader of disable_cdrom
};

}  // namespace

// Whether the INI reader takes the line for one of `key`.
static bool IsIniKeyLine(const Line &line, const char *key)
{
    char text[1024] = {};
    size_t length = 0;
    for (const char ch : line.text) {
        if (ch != '\r' && length < sizeof text - 1)
            text[length++] = ch;
    }
    return KeyExistsInLine(text, key);
}

// ---- The section ----

static void FindSection(Config &config)
{
    const auto behind = FindIniSection(config.path, kSection);
    if (behind)
        config.header = LineBefore(config.content, *behind);
    config.end = config.lines.size() + 1;
    for (const Line &line : config.lines) {
        if (config.header > 0 && line.number > config.header && line.number < config.end &&
            HasBothBrackets(line.text))
            config.end = line.number;
    }
}

static void CheckSection(Config &config)
{
    FindSection(config);
    const auto offset = FindKeySection(config.path, kSection);
    const size_t other = offset ? LineAt(config.content, *offset) : 0;
    config.keyHeader = other;
    const auto similar =
        std::find_if(config.lines.begin(), config.lines.end(), [](const Line &line) {
            return Lower(line.text).find("volumes") != std::string::npos && HasBracket(line.text);
        });
    const size_t where = similar == config.lines.end() ? 0 : similar->number;
    if (config.header == 0 && other == 0) {
        Add(config, where > 0 ? Verdict::Fail : Verdict::Warn, "section", where,
            where > 0 ? "this is no header [Volumes] to either reader" : "no section [Volumes]",
            "every value is its default");
    } else if (config.header == 0) {
        Add(config, Verdict::Fail, "section", other,
            "a header to the reader of disable_cdrom alone", "name and path1 are their defaults");
    } else if (other == 0) {
        Add(config, Verdict::Fail, "section", config.header,
            "a header to the reader of name and path1 alone", "disable_cdrom is not seen: rdonly");
    } else if (other != config.header) {
        Add(config, Verdict::Warn, "section", config.header,
            "the readers take different lines for the header, the other one line " +
                std::to_string(other),
            "name and path1 come from here, disable_cdrom from there");
    } else {
        Add(config, Verdict::Pass, "section", config.header, "[Volumes]", "both readers find it");
    }
    for (const Line &line : config.lines) {
        if (config.header > 0 && line.number > config.header &&
            line.text.find("[Volumes]") != std::string_view::npos) {
            Add(config, Verdict::Warn, "section-twice", line.number, "[Volumes] once more",
                "nothing below it is read");
        }
    }
}

// ---- Lines of the section ----

static void CheckBrackets(Config &config)
{
    for (const Line &line : config.lines) {
        if (line.number <= config.header || line.number > config.end || config.header == 0)
            continue;
        const bool keyLine = IsIniKeyLine(line, "name") || IsIniKeyLine(line, "path1") ||
                             LooksLikeKey(line.text, "disable_cdrom");
        if (!HasBracket(line.text) || (!keyLine && HasBothBrackets(line.text)))
            continue;
        Add(config, Verdict::Warn, "brackets", line.number, "a bracket in a line of the section",
            HasBothBrackets(line.text)
                ? "the section ends here for every key below, and for disable_cdrom in this line too"
                : "the section ends here for disable_cdrom");
    }
}

static void CheckPercent(Config &config)
{
    for (const Line &line : config.lines) {
        const bool inside =
            config.header > 0 && line.number > config.header && line.number <= config.end;
        if (inside && line.text.find('%') != std::string_view::npos) {
            Add(config, Verdict::Warn, "percent", line.number, "a percent sign",
                "it is used as it stands; the log may show two as one");
        }
    }
}

static void CheckUnknown(Config &config)
{
    static const std::vector<std::string> kKeys = {"name", "path1", "disable_cdrom"};
    for (const Line &line : config.lines) {
        const std::string_view header = HeaderIn(line.text);
        if (!header.empty() && Lower(header).find("volumes") == std::string::npos)
            AddUnknown(config, "unknown-section", line.number, header, {"[Volumes]"});
        const std::string_view key = KeyIn(line.text);
        const bool inside =
            config.header > 0 && line.number > config.header && line.number < config.end;
        // The reader of disable_cdrom finds its key anywhere in a line.
        const bool isKnown =
            line.text.find("disable_cdrom") != std::string_view::npos ||
            std::ranges::any_of(kKeys, [&](const std::string &known) {
                return LooksLikeKey(line.text, known) || IsIniKeyLine(line, known.c_str());
            });
        if (inside && !key.empty() && !isKnown)
            AddUnknown(config, "unknown-key", line.number, key, kKeys);
    }
}

// ---- Keys ----

// Why a line that looks like the key's is none.
static std::string WhyUnseen(const Config &config, const Line &line, const std::string &key)
{
    const size_t header = key == "disable_cdrom" ? config.keyHeader : config.header;
    if (header == 0)
        return "its reader finds no header [Volumes]";
    if (line.number <= header)
        return "it stands above the section's header";
    if (line.text.find(key) == std::string_view::npos)
        return "upper and lower case count";
    if (key != "disable_cdrom" && line.text.find('\t') < line.text.find('='))
        return "a tab before the key or the \"=\" is no blank to the reader";
    for (const Line &other : config.lines) {
        const bool ends =
            key == "disable_cdrom" ? HasBracket(other.text) : HasBothBrackets(other.text);
        if (other.number > header && other.number <= line.number && ends)
            return "line " + std::to_string(other.number) + " with its bracket ends the section";
    }
    return "it is not of the form key = value";
}

// The first line that a person would take for the key's; null when there is none.
static const Line *FindSimilar(const Config &config, const std::string &key)
{
    for (const Line &line : config.lines) {
        if (LooksLikeKey(line.text, key))
            return &line;
    }
    return nullptr;
}

static void CheckUnseen(Config &config, const char *key, const std::string &fallback)
{
    if (const Line *similar = FindSimilar(config, key)) {
        Add(config, Verdict::Fail, key, similar->number,
            "this line is not read: " + WhyUnseen(config, *similar, key), fallback);
    } else {
        Add(config, Verdict::Pass, key, 0, "not set", fallback);
    }
}

// What the other reader makes of the key.
static void CheckOtherReader(Config &config, const char *key, bool seen, bool seenByOther,
                             size_t line)
{
    const bool meant = seen || FindSimilar(config, key) != nullptr;
    if (seen == seenByOther || !meant)
        return;
    Add(config, Verdict::Warn, "one-reader", line,
        std::string(key) +
            (seen ? " is seen by its own reader alone" : " is seen by the other reader alone"),
        seen ? "nothing changes as long as each reader keeps to its keys"
             : "the daemon does not use what is written");
}

static void CheckRepeated(Config &config, const char *key, size_t counts)
{
    for (const Line &line : config.lines) {
        if (line.number > counts && line.number < config.end && IsIniKeyLine(line, key)) {
            Add(config, Verdict::Warn, "key-twice", line.number, std::string(key) + " once more",
                "line " + std::to_string(counts) + " counts");
        }
    }
}

static bool HasComment(const std::string &value)
{
    return value.find(" #") != std::string::npos || value.find(" ;") != std::string::npos;
}

// What can be wrong with either text. Returns whether it is fit.
static bool CheckText(Config &config, const char *key, const std::string &value, size_t line)
{
    const std::string shown = observe::Quoted(value);
    const auto fail = [&](const std::string &why, const std::string &effect) {
        Add(config, Verdict::Fail, key, line, shown + ": " + why, effect);
        return false;
    };
    if (value.empty())
        return fail("empty", "the empty text is used, not the default");
    const bool unended = !config.lines.back().ended && line == config.lines.back().number;
    if (unended && value.ends_with('\xFF'))
        return fail("the last line has no line feed",
                    "the byte 0xFF at its end belongs to the value");
    if (value.find('\t') != std::string::npos)
        return fail("a tab", "it stays in the value");
    if (value.size() > 1 && value.front() == '"' && value.back() == '"')
        return fail("quotes", "they stay in the value");
    if (HasComment(value))
        return fail("a comment behind the value", "there are no comments: it belongs to the value");
    return true;
}

static void CheckForm(Config &config, const char *key, size_t line)
{
    if (!LooksLikeKey(config.lines[line - 1].text, key)) {
        Add(config, Verdict::Warn, "odd-key-line", line,
            "the line does not begin with " + std::string(key),
            "it counts as the key's all the same");
    }
}

static void CheckName(Config &config, const std::string &value, size_t line)
{
    if (!CheckText(config, "name", value, line))
        return;
    const std::string shown = observe::Quoted(value);
    const bool ascii =
        std::all_of(value.begin(), value.end(), [](char ch) { return ch >= ' ' && ch < 0x7F; });
    if (value.size() > kNameMax) {
        Add(config, Verdict::Fail, "name", line, std::to_string(value.size()) + " bytes: " + shown,
            "only the first 63 are used: a volume with the whole label never matches");
    } else if (!ascii) {
        Add(config, Verdict::Fail, "name", line, shown + ": not plain ASCII",
            "the bytes are taken as Mac OS Roman: a label written in UTF-8 does not match");
    } else if (value.find('/') != std::string::npos) {
        Add(config, Verdict::Warn, "name", line, shown + ": a slash",
            "at the start a folder in a folder is looked for");
    } else if (value == "." || value == "..") {
        Add(config, Verdict::Fail, "name", line, shown + ": a folder's own name",
            "no volume has it, and at the start a folder is taken for the volume");
    } else {
        Add(config, Verdict::Pass, "name", line, shown,
            "the daemon waits for a volume of this label");
    }
}

static void CheckPath(Config &config, const std::string &value, size_t line)
{
    if (!CheckText(config, "path1", value, line))
        return;
    const std::string command = "runs " + observe::Printable(OpenCommand(value));
    if (value.size() > kPathMax) {
        Add(config, Verdict::Fail, "path1", line, std::to_string(value.size()) + " bytes",
            "the command is cut at 511 bytes and lacks its closing quote: it fails");
    } else if (value.find_first_of("\"$`\\") != std::string::npos) {
        Add(config, Verdict::Warn, "path1", line,
            observe::Quoted(value) + ": a character of the shell's",
            command + ", in which the shell replaces it");
    } else if (value[0] != '/') {
        Add(config, Verdict::Warn, "path1", line, observe::Quoted(value) + ": no full path",
            command);
    } else {
        Add(config, Verdict::Pass, "path1", line, observe::Quoted(value), command);
    }
}

// What holds of every key, whichever reader reads it: `value` is what that one finds on `line`, or
// nothing, in which case `fallback` is what happens; `other` says whether the other reader finds
// it. Returns whether there is a value to look at.
static bool CheckKey(Config &config, const char *key, const std::optional<std::string> &value,
                     bool other, size_t line, const std::string &fallback)
{
    config.report.settings.push_back({observe::Printable(config.path), key, value, line});
    CheckOtherReader(config, key, value.has_value(), other, line);
    if (!value) {
        CheckUnseen(config, key, fallback);
        return false;
    }
    CheckForm(config, key, line);
    CheckRepeated(config, key, line);
    return true;
}

static void CheckIniKey(Config &config, const char *key, const std::string &fallback,
                        void (*check)(Config &, const std::string &, size_t))
{
    const auto value = ReadIni(config.path, kSection, key);
    const bool other = ReadKey(config.path, kSection, key).has_value();
    const size_t line = value ? LineBefore(config.content, value->lineEnd) : 0;
    const auto text = value ? std::optional(value->value) : std::nullopt;
    if (CheckKey(config, key, text, other, line, fallback))
        check(config, *text, line);
}

static void CheckSwitch(Config &config)
{
    static const char kKey[] = "disable_cdrom";
    const auto value = ReadKey(config.path, kSection, kKey);
    const bool other = ReadIni(config.path, kSection, kKey).has_value();
    const size_t line = value ? LineAt(config.content, value->offset) : 0;
    const auto text = value ? std::optional(value->value) : std::nullopt;
    if (!CheckKey(config, kKey, text, other, line, "the volume is mounted with rdonly"))
        return;
    const std::string lower = Lower(value->value);
    const bool on = IsSwitchOn(config.path, kSection, kKey);
    const bool plain = on || lower == "false" || lower == "no" || lower == "0" || lower == "off";
    Add(config, plain ? Verdict::Pass : Verdict::Warn, kKey, line,
        observe::Quoted(value->value) + (plain ? "" : ": neither true nor false"),
        on ? "the volume is mounted with nobrowse" : "the volume is mounted with rdonly");
}

static void CheckLastLine(Config &config)
{
    if (config.lines.empty() || config.lines.back().ended)
        return;
    Add(config, Verdict::Warn, "final-line-feed", config.lines.back().number,
        "no line feed at the end of the file",
        "name and path1: the byte 0xFF is added to the last line; disable_cdrom: none is");
}

void CheckConfig(Report &report, const std::string &path, std::string_view content)
{
    Config config = {{report, path, content, SplitLines(content), true}};
    CheckBytes(config);
    CheckLastLine(config);
    CheckSection(config);
    CheckBrackets(config);
    CheckPercent(config);
    CheckUnknown(config);
    CheckIniKey(config, "name", "the daemon waits for a volume labelled Orvanta", CheckName);
    CheckIniKey(config, "path1", "runs open -a \"/Volumes/Orvanta/Orvanta.app/\"", CheckPath);
    CheckSwitch(config);
}

}  // namespace kcheck
