// sysconfig_rules.cpp - the request for a setup package, and what a run would change in the file.
#include <algorithm>

#include <unistd.h>

#include "observe/names.h"
#include "observe/nearest.h"
#include "tools/check/checked_file.h"
#include "tools/check/readers.h"
#include "tools/check/rules.h"

namespace kcheck
{

static const size_t kNameMax = 511;          // bytes of the file's name that are kept
static const size_t kPackagePathMax = 1017;  // bytes of the package's volume with /Volumes/

namespace
{

struct SysConfig : CheckedFile {
    SetupRequest request;
};

}  // namespace

static size_t LineOf(const SysConfig &file, const KeyValue &value)
{
    return LineAt(file.content, value.offset);
}

// Why the search for `key`, which began at request.stoppedAt, did not find it. `line` becomes the
// line that is to blame, 0 when there is none.
static std::string WhyUnseen(const SysConfig &file, const std::string &key, size_t &line)
{
    const Line *similar = nullptr;
    const Line *bracket = nullptr;
    for (const Line &each : file.lines) {
        const bool holds = Lower(each.text).find(Lower(key)) != std::string::npos;
        if (holds && (!similar || similar->offset < file.request.stoppedAt))
            similar = &each;
        if (!bracket && each.offset >= file.request.stoppedAt && HasBracket(each.text))
            bracket = &each;
    }
    line = similar ? similar->number : 0;
    if (!similar)
        return "it is not in the file";
    if (bracket && similar->offset >= bracket->offset)
        return "line " + std::to_string(bracket->number) + " with its bracket ends the search";
    if (similar->text.find(key) == std::string_view::npos)
        return "upper and lower case count";
    if (similar->offset < file.request.stoppedAt && !file.request.run)
        return "it stands above the section's header";
    if (similar->offset < file.request.stoppedAt)
        return "it stands before the key that is read before it: the keys are out of order";
    return "it is not of the form KEY=VALUE in one line of at most 1023 bytes";
}

// Enters the value into the settings. Returns its line, 0 when it was not found.
static size_t TakeSetting(SysConfig &file, const char *key, const std::optional<KeyValue> &value)
{
    const size_t line = value ? LineOf(file, *value) : 0;
    file.report.settings.push_back({observe::Printable(file.path), key,
                                    value ? std::optional(value->value) : std::nullopt, line});
    if (value && !LooksLikeKey(file.lines[line - 1].text, key)) {
        Add(file, Verdict::Warn, "odd-key-line", line,
            "the line does not begin with " + std::string(key),
            "it counts as the key's all the same");
    }
    return line;
}

// A key that was not found although the daemon needs it.
static void AddMissing(SysConfig &file, const char *key, const std::string &effect)
{
    size_t line = 0;
    const std::string why = WhyUnseen(file, key, line);
    Add(file, Verdict::Fail, key, line, "not found: " + why, effect);
}

static void CheckRepeated(SysConfig &file, const char *key, size_t counts)
{
    for (const Line &line : file.lines) {
        if (line.number > counts && HasBracket(line.text))
            return;
        if (line.number > counts && LooksLikeKey(line.text, key)) {
            Add(file, Verdict::Warn, "key-twice", line.number, std::string(key) + " once more",
                "line " + std::to_string(counts) + " counts");
        }
    }
}

static void CheckTab(SysConfig &file, const char *key, const std::string &value, size_t line)
{
    if (value.find('\t') != std::string::npos)
        Add(file, Verdict::Fail, key, line, observe::Quoted(value) + ": a tab",
            "it stays in the value");
}

// ---- The steps of a run ----

static bool CheckHeader(SysConfig &file)
{
    if (file.request.header) {
        Add(file, Verdict::Pass, "section", LineAt(file.content, *file.request.header),
            "[SD_THIRDPARTY_SETUP]", "the request is read from here on");
        return true;
    }
    for (const Line &line : file.lines) {
        if (Lower(line.text).find("sd_thirdparty_setup") != std::string::npos) {
            Add(file, Verdict::Fail, "section", line.number, "no header to the reader",
                "no setup package is run");
            return false;
        }
    }
    Add(file, Verdict::Pass, "section", 0, "no section [SD_THIRDPARTY_SETUP]",
        "no setup package is run");
    return false;
}

static bool CheckRun(SysConfig &file)
{
    static const char kKey[] = "SD_THIRD_SETUP";
    const std::optional<KeyValue> &run = file.request.run;
    const size_t line = TakeSetting(file, kKey, run);
    if (!run) {
        AddMissing(file, kKey, "no setup package is run");
        return false;
    }
    CheckRepeated(file, kKey, line);
    const std::string lower = Lower(run->value);
    if (lower == "yes") {
        Add(file, Verdict::Pass, kKey, line, observe::Quoted(run->value),
            "the setup package is run");
        return true;
    }
    const bool meantOff = lower == "no" || lower == "false" || lower == "0" || lower == "off";
    Add(file, meantOff ? Verdict::Pass : Verdict::Warn, kKey, line,
        observe::Quoted(run->value) + (meantOff ? "" : ": not yes"), "no setup package is run");
    return false;
}

static bool CheckPath(SysConfig &file)
{
    static const char kKey[] = "SD_THIRD_FILE_PATH";
    const size_t line = TakeSetting(file, kKey, file.request.path);
    if (line == 0) {
        AddMissing(file, kKey, "the run ends before anything is opened");
        return false;
    }
    const std::string &value = file.request.path->value;
    CheckRepeated(file, kKey, line);
    CheckTab(file, kKey, value, line);
    const std::string effect = "waits up to 180 s for /Volumes/" + observe::Printable(value);
    if (value.empty())
        Add(file, Verdict::Warn, kKey, line, "empty", "the file is looked for in /Volumes/ itself");
    else if (value.front() == '/' || value.back() == '/')
        Add(file, Verdict::Warn, kKey, line, observe::Quoted(value) + ": a slash at an end",
            effect);
    else
        Add(file, Verdict::Pass, kKey, line, observe::Quoted(value), effect);
    return true;
}

// What the shell and the log make of the two commands.
static void CheckCommands(SysConfig &file, const std::string &first, const std::string &second,
                          size_t line)
{
    Add(file, Verdict::Pass, "commands", line, first, "then " + second);
    const std::string both = file.request.path->value + file.request.name->value;
    if (both.find_first_of("\"$`\\") != std::string::npos) {
        Add(file, Verdict::Warn, "shell", line, "a character of the shell's in path or name",
            "the shell replaces it, also between the quotes");
    }
    if (both.find('%') != std::string::npos) {
        Add(file, Verdict::Warn, "percent", line, "a percent sign in path or name",
            "the command is run as it stands; its line in the log may show two as one, or be empty");
    }
}

static bool CheckName(SysConfig &file)
{
    static const char kKey[] = "SD_THIRD_FILE_NAME";
    const size_t line = TakeSetting(file, kKey, file.request.name);
    if (line == 0) {
        AddMissing(file, kKey, "the run ends before anything is opened");
        return false;
    }
    const std::string &value = file.request.name->value;
    CheckRepeated(file, kKey, line);
    CheckTab(file, kKey, value, line);
    const std::string package = PackageName(value);
    const std::string volume = "/Volumes/" + PackageVolume(package);
    if (value.empty()) {
        Add(file, Verdict::Fail, kKey, line, "empty",
            "the folder is opened, and no package is found");
        return false;
    }
    if (file.request.nameLength > kNameMax) {
        Add(file, Verdict::Fail, kKey, line, std::to_string(file.request.nameLength) + " bytes",
            "the first 511 are used");
    } else if (volume.size() > kPackagePathMax) {
        Add(file, Verdict::Fail, kKey, line,
            "the package's volume has a path of " + std::to_string(volume.size()) + " bytes",
            "more than 1017 are too many: the package is not opened");
    } else {
        Add(file, Verdict::Pass, kKey, line, observe::Quoted(value),
            "it is opened; then up to 30 s for " + observe::Printable(volume));
    }
    CheckCommands(file,
                  "open \"/Volumes/" + observe::Printable(file.request.path->value + "/" + value) +
                      "\"",
                  "open \"" + observe::Printable(volume + "/" + package) + ".pkg\"", line);
    return true;
}

// The three bytes that a run changes.
static void CheckRewrite(SysConfig &file)
{
    const size_t offset = file.request.run->offset;
    const size_t line = LineOf(file, *file.request.run);
    const std::string_view before = file.content.substr(offset, 3);
    const std::string change = "the bytes at offset " + std::to_string(offset) +
                               " become 4E 6F 00 (No and a zero byte) after a run";
    if (Lower(before) == "yes")
        Add(file, Verdict::Pass, "rewrite", line, Hex(before), change);
    else
        Add(file, Verdict::Warn, "rewrite", line, Hex(before) + ": spaces before the value",
            change + "; what is left of the value stands behind the zero byte");
    if (access(file.path.c_str(), W_OK) != 0) {
        Add(file, Verdict::Fail, "writable", 0, "this user may not write the file",
            "a daemon of this user runs no setup package");
    }
}

static void CheckOnce(SysConfig &file)
{
    static const char kKey[] = "SD_RUN_THIRD_FILE_ONCE";
    const size_t line = TakeSetting(file, kKey, file.request.once);
    if (line == 0) {
        AddMissing(file, kKey,
                   "the package is run at every mount, each time with an error at its end");
        return;
    }
    CheckRepeated(file, kKey, line);
    const std::string &value = file.request.once->value;
    if (Lower(value) == "yes") {
        Add(file, Verdict::Pass, kKey, line, observe::Quoted(value),
            "the request is switched off after a run");
        CheckRewrite(file);
    } else {
        const bool meant = Lower(value) == "no";
        Add(file, meant ? Verdict::Pass : Verdict::Warn, kKey, line,
            observe::Quoted(value) + (meant ? "" : ": not yes"),
            "the package is run at every mount");
    }
}

// The application has sections and keys of its own here: only what nearly is one of these is named.
static void CheckUnknown(SysConfig &file)
{
    static const std::vector<std::string> kHeaders = {"[SD_THIRDPARTY_SETUP]"};
    static const std::vector<std::string> kKeys = {"SD_THIRD_SETUP", "SD_THIRD_FILE_PATH",
                                                   "SD_THIRD_FILE_NAME", "SD_RUN_THIRD_FILE_ONCE"};
    for (const Line &line : file.lines) {
        const std::string_view header = HeaderIn(line.text);
        const std::string_view key = header.empty() ? KeyIn(line.text) : "";
        const bool isKnown =
            std::ranges::any_of(
                kKeys, [&](const std::string &known) { return LooksLikeKey(line.text, known); }) ||
            Lower(header).find("sd_thirdparty_setup") != std::string::npos;
        if (!isKnown && !observe::Nearest(header, kHeaders).empty())
            AddUnknown(file, "unknown-section", line.number, header, kHeaders);
        if (!isKnown && !observe::Nearest(key, kKeys).empty())
            AddUnknown(file, "unknown-key", line.number, key, kKeys);
    }
}

void CheckSysConfig(Report &report, const std::string &path, std::string_view content)
{
    SysConfig file = {{report, path, content, SplitLines(content), false}, ReadSetup(path)};
    CheckBytes(file);
    CheckUnknown(file);
    if (CheckHeader(file) && CheckRun(file) && CheckPath(file) && CheckName(file))
        CheckOnce(file);
}

}  // namespace kcheck
