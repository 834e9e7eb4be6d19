// What kestrun-check says of a SysConfig.dat: a file a row, with the values as the daemon's reader
// returns them, one behind the other, and every finding that is not PASS.
#include <fstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "tests/tools/check_support.h"

namespace
{

const std::string kHeader = "[SD_THIRDPARTY_SETUP]\n";
const std::string kRun = "SD_THIRD_SETUP=yes\n";
const std::string kPath = "SD_THIRD_FILE_PATH=Orvanta\n";
const std::string kName = "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\n";
const std::string kOnce = "SD_RUN_THIRD_FILE_ONCE=yes\n";
const std::string kRest = kPath + kName + kOnce;
const std::string kRead = "|Orvanta|ThirdPartySetup.dmg|yes";
const std::string kCapitals(500, 'A');

struct Row {
    std::string what;
    std::string content;
    std::string values;    // run | path | name | once, as far as the reader comes
    std::string findings;  // "VERDICT about:line", a blank between two
};

// clang-format off
const Row kRows[] = {
    // Files as they should be.
    {"the usual file", kHeader + kRun + kRest, "yes" + kRead, ""},
    {"CR LF", "[SD_THIRDPARTY_SETUP]\r\nSD_THIRD_SETUP=yes\r\nSD_THIRD_FILE_PATH=Orvanta\r\nSD_THIRD_FILE_NAME=ThirdPartySetup.dmg\r\nSD_RUN_THIRD_FILE_ONCE=yes\r\n", "yes" + kRead, ""},
    {"no line feed at the end", kHeader + kRun + kPath + kName + "SD_RUN_THIRD_FILE_ONCE=yes", "yes" + kRead, ""},
    {"other lines between", "[A]\nx=1\n" + kHeader + "y=2\n" + kRun + "z\n" + kRest + "[B]\n", "yes" + kRead, ""},
    {"a key and a header that nearly are known, beside others of the application", "[SD_THIRDPARTY_SETP]\n[OTHER]\nSD_THIRD_SETTUP=yes\nSD_OTHER=1\n#SD_THIRD_SETTUP=x\n", "", "WARN unknown-section:1 WARN unknown-key:3"},
    {"blanks in the header", "[ SD_THIRDPARTY_SETUP ]\n" + kRun + kRest, "yes" + kRead, ""},
    {"Yes in other letter case", kHeader + "SD_THIRD_SETUP=YES\n" + kRest, "YES" + kRead, ""},
    {"switched off", kHeader + "SD_THIRD_SETUP=No\n" + kRest, "No", ""},
    {"switched off by the daemon", kHeader + std::string("SD_THIRD_SETUP=No\0\n", 19) + kRest, "No", ""},
    {"no section", "[Other]\nSD_THIRD_SETUP=yes\n", "", ""},
    {"an empty file", "", "", ""},
    {"every time", kHeader + kRun + kPath + kName + "SD_RUN_THIRD_FILE_ONCE=no\n", "yes|Orvanta|ThirdPartySetup.dmg|no", ""},

    // The header and the switch.
    {"a byte-order mark", "\xEF\xBB\xBF" + kHeader + kRun + kRest, "yes" + kRead, "WARN bom:1"},
    {"a tab in the header", "[\tSD_THIRDPARTY_SETUP]\n" + kRun, "", "FAIL section:1"},
    {"the header in small letters", "[sd_thirdparty_setup]\n" + kRun, "", "FAIL section:1"},
    {"no switch", kHeader + kPath, "-", "FAIL SD_THIRD_SETUP:0"},
    {"the switch above the header", kRun + kHeader + kPath, "-", "FAIL SD_THIRD_SETUP:1"},
    {"the switch in the next section", kHeader + "[B]\n" + kRun, "-", "FAIL SD_THIRD_SETUP:3"},
    {"the switch in small letters", kHeader + "sd_third_setup=yes\n", "-", "FAIL SD_THIRD_SETUP:2"},
    {"the switch without =", kHeader + "SD_THIRD_SETUP\n", "-", "FAIL SD_THIRD_SETUP:2"},
    {"true is not yes", kHeader + "SD_THIRD_SETUP=true\n" + kRest, "true", "WARN SD_THIRD_SETUP:2"},
    {"yes in quotes", kHeader + "SD_THIRD_SETUP=\"yes\"\n" + kRest, "\"yes\"", "WARN SD_THIRD_SETUP:2"},
    {"a tab behind yes", kHeader + "SD_THIRD_SETUP=yes\t\n" + kRest, "yes\t", "WARN SD_THIRD_SETUP:2"},
    {"brackets around yes", kHeader + "SD_THIRD_SETUP=[yes]\n" + kRest, "-", "FAIL SD_THIRD_SETUP:2"},
    {"a switch that is commented out", kHeader + ";" + kRun + kRest, "yes" + kRead, "WARN odd-key-line:2"},
    {"a longer key before the switch", kHeader + "SD_THIRD_SETUP_OLD=1\n" + kRun + kRest, "1", "WARN odd-key-line:2 WARN key-twice:3 WARN SD_THIRD_SETUP:2"},
    {"the switch twice", kHeader + kRun + "SD_THIRD_SETUP=No\n" + kRest, "yes" + kRead, "WARN key-twice:3"},

    // Order and torn lines.
    {"path before the switch", kHeader + kPath + kRun + kName + kOnce, "yes|-", "FAIL SD_THIRD_FILE_PATH:2"},
    {"name before the path", kHeader + kRun + kName + kPath + kOnce, "yes|Orvanta|-", "FAIL SD_THIRD_FILE_NAME:3"},
    {"once before the name", kHeader + kRun + kPath + kOnce + kName, "yes|Orvanta|ThirdPartySetup.dmg|-", "FAIL SD_RUN_THIRD_FILE_ONCE:4"},
    {"no path", kHeader + kRun + kName + kOnce, "yes|-", "FAIL SD_THIRD_FILE_PATH:0"},
    {"no once", kHeader + kRun + kPath + kName, "yes|Orvanta|ThirdPartySetup.dmg|-", "FAIL SD_RUN_THIRD_FILE_ONCE:0"},
    {"a bracket line between", kHeader + kRun + "x=[1]\n" + kRest, "yes|-", "FAIL SD_THIRD_FILE_PATH:4"},
    {"a key torn at byte 1023", kHeader + kRun + std::string(1015, 'x') + kPath + kName + kOnce, "yes|-", "WARN long-line:3 FAIL SD_THIRD_FILE_PATH:3"},

    // Values.
    {"an empty path", kHeader + kRun + "SD_THIRD_FILE_PATH=\n" + kName + kOnce, "yes||ThirdPartySetup.dmg|yes", "WARN SD_THIRD_FILE_PATH:3"},
    {"a slash behind the path", kHeader + kRun + "SD_THIRD_FILE_PATH=Orvanta/\n" + kName + kOnce, "yes|Orvanta/|ThirdPartySetup.dmg|yes", "WARN SD_THIRD_FILE_PATH:3"},
    {"a tab in the path", kHeader + kRun + "SD_THIRD_FILE_PATH=\tOrvanta\n" + kName + kOnce, "yes|\tOrvanta|ThirdPartySetup.dmg|yes", "FAIL SD_THIRD_FILE_PATH:3"},
    {"an empty name", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=\n" + kOnce, "yes|Orvanta|", "FAIL SD_THIRD_FILE_NAME:4"},
    {"a name of 511 bytes", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=" + std::string(511, 'n') + "\n" + kOnce, "yes|Orvanta|" + std::string(511, 'n') + "|yes", ""},
    {"a name of 512 bytes", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=" + std::string(512, 'n') + "\n" + kOnce, "yes|Orvanta|" + std::string(511, 'n') + "|yes", "FAIL SD_THIRD_FILE_NAME:4"},
    {"500 capitals", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=" + kCapitals + "\n" + kOnce, "yes|Orvanta|" + kCapitals + "|yes", ""},
    {"505 capitals: their volume's path is too long", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=" + std::string(505, 'A') + "\n" + kOnce, "yes|Orvanta|" + std::string(505, 'A') + "|yes", "FAIL SD_THIRD_FILE_NAME:4"},
    {"a dollar in the name", kHeader + kRun + kPath + "SD_THIRD_FILE_NAME=a$b.dmg\n" + kOnce, "yes|Orvanta|a$b.dmg|yes", "WARN shell:4"},
    {"a percent sign in the path", kHeader + kRun + "SD_THIRD_FILE_PATH=50%s\n" + kName + kOnce, "yes|50%s|ThirdPartySetup.dmg|yes", "WARN percent:4"},
    {"once is neither yes nor no", kHeader + kRun + kPath + kName + "SD_RUN_THIRD_FILE_ONCE=true\n", "yes|Orvanta|ThirdPartySetup.dmg|true", "WARN SD_RUN_THIRD_FILE_ONCE:5"},
    {"a blank before yes", kHeader + "SD_THIRD_SETUP= yes\n" + kRest, "yes" + kRead, "WARN rewrite:2"},
};
// clang-format on

const kcheck::Finding *Find(const kcheck::Report &report, const std::string &about)
{
    for (const kcheck::Finding &finding : report.findings) {
        if (finding.about == about)
            return &finding;
    }
    return nullptr;
}

}  // namespace

TEST_CASE("each SysConfig.dat has its values and its findings")
{
    for (const Row &row : kRows) {
        CAPTURE(row.what);
        const kcheck::Report report = CheckText(row.content, kcheck::CheckSysConfig);
        CHECK(ValuesOf(report) == row.values);
        CHECK(FindingsOf(report) == row.findings);
    }
}

TEST_CASE("what a run would change: offset and bytes, and what is read after it")
{
    struct Change {
        std::string line, before;
    };
    const Change changes[] = {
        {"SD_THIRD_SETUP=yes\n", "79 65 73"},
        {"SD_THIRD_SETUP = YES\n", "20 59 45: spaces before the value"},
        {"SD_THIRD_SETUP=  yes\n", "20 20 79: spaces before the value"},
    };
    for (const Change &change : changes) {
        std::string content = kHeader + change.line + kRest;
        const kcheck::Report report = CheckText(content, kcheck::CheckSysConfig);
        const kcheck::Finding *rewrite = Find(report, "rewrite");
        REQUIRE(rewrite != nullptr);
        CHECK(rewrite->found == change.before);
        const size_t offset = content.find('=') + 1;
        CHECK(rewrite->effect.starts_with("the bytes at offset " + std::to_string(offset) +
                                          " become 4E 6F 00 "));
        content.replace(offset, 3, std::string("No\0", 3));
        CHECK(CheckText(content, kcheck::CheckSysConfig).settings.at(0).value == "No");
    }
}

TEST_CASE("a key that is not found: why, in words")
{
    struct Row {
        std::string content;
        const char *about, *found;
    };
    const Row rows[] = {
        {kRun + kHeader + kRest, "SD_THIRD_SETUP",
         "not found: it stands above the section's header"},
        {kHeader + kPath + kRun + kName + kOnce, "SD_THIRD_FILE_PATH",
         "not found: it stands before the key that is read before it: the keys are out of order"},
        {kHeader + kRun + "x=[1]\n" + kRest, "SD_THIRD_FILE_PATH",
         "not found: line 3 with its bracket ends the search"},
        {kHeader + "sd_third_setup=yes\n", "SD_THIRD_SETUP",
         "not found: upper and lower case count"},
        {kHeader, "SD_THIRD_SETUP", "not found: it is not in the file"},
    };
    for (const Row &row : rows) {
        const kcheck::Report report = CheckText(row.content, kcheck::CheckSysConfig);
        const kcheck::Finding *finding = Find(report, row.about);
        REQUIRE(finding != nullptr);
        CHECK(finding->found == row.found);
    }
}

TEST_CASE("the commands of a run, in full")
{
    const kcheck::Report report = CheckText(kHeader + kRun + kRest, kcheck::CheckSysConfig);
    const kcheck::Finding *commands = Find(report, "commands");
    REQUIRE(commands != nullptr);
    CHECK(commands->found == "open \"/Volumes/Orvanta/ThirdPartySetup.dmg\"");
    CHECK(commands->effect == "then open \"/Volumes/Third Party Setup/ThirdPartySetup.pkg\"");
}
