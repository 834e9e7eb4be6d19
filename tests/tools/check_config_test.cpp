// What kestrun-check says of a configuration: a file a row, with the three values as the daemon's
// readers return them and every finding that is not PASS.
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/files.h"
#include "tests/support/descriptors.h"
#include "tests/tools/check_support.h"
#include "tools/check/readers.h"

namespace
{

const std::string kX63(63, 'x');
const std::string kX64(64, 'x');
const std::string kPath501 = "/" + std::string(500, 'p');
const std::string kPath502 = "/" + std::string(501, 'p');
const std::string kLong = std::string(1100, 'l');

struct Row {
    std::string what;
    std::string content;
    std::string values;  // name | path1 | disable_cdrom; "-" for one that its reader does not find
    std::string findings;  // "VERDICT about:line", a blank between two
};

// clang-format off
const Row kRows[] = {
    // Files as they should be.
    {"the usual file", "[Volumes]\nname = Orvanta\npath1 = /Volumes/Orvanta/Orvanta.app/\ndisable_cdrom = false\n",
     "Orvanta|/Volumes/Orvanta/Orvanta.app/|false", ""},
    {"no blanks around =", "[Volumes]\nname=A\npath1=/b\ndisable_cdrom=true\n", "A|/b|true", ""},
    {"only the section", "[Volumes]\n", "-|-|-", ""},
    {"keys in another order", "[Volumes]\ndisable_cdrom=true\npath1=/b\nname=A\n", "A|/b|true", ""},
    {"unknown keys", "[Volumes]\nnmae=A\nvolume = B\n# nmae=A\nno key\n=x\n", "-|-|-", "WARN unknown-key:2 WARN unknown-key:3"},
    {"an unknown section", "[Volume]\nname=A\n", "-|-|-", "WARN section:0 WARN unknown-section:1 FAIL name:2"},
    {"keys of another section", "[Volumes]\nname=A\n[Other]\nnmae=x\n", "A|-|-", "WARN unknown-section:3"},
    {"another section behind", "[Volumes]\nname=A\n[Other]\nx=1\n", "A|-|-", "WARN unknown-section:3"},
    {"another section before", "[Other]\nx=1\n[Volumes]\nname=A\n", "A|-|-", "WARN unknown-section:1"},
    {"empty lines", "\n\n[Volumes]\n\nname=A\n\n\npath1=/b\n", "A|/b|-", ""},
    {"blanks at both ends", "[Volumes]\n   name   =   A B   \n", "A B|-|-", ""},
    {"CR LF", "[Volumes]\r\nname=A\r\ndisable_cdrom=true\r\n", "A|-|true", ""},
    {"a switch in other letter case", "[Volumes]\ndisable_cdrom=TRUE\n", "-|-|TRUE", ""},
    {"a commented-out name", "[Volumes]\n#name=A\n;path1=/b\n", "-|-|-", ""},
    {"a key that only begins like another", "[Volumes]\npath10=/a\npath1=/b\n", "-|/b|-", "WARN unknown-key:2"},
    {"text around the header", "x[Volumes]y\nname=A\ndisable_cdrom=true\n", "A|-|true", ""},

    // The file as a whole.
    {"an empty file", "", "-|-|-", "WARN section:0"},
    {"no section at all", "x=1\n", "-|-|-", "WARN section:0"},
    {"no section, but keys", "name=A\n", "-|-|-", "WARN section:0 FAIL name:1"},
    {"a byte-order mark", "\xEF\xBB\xBF[Volumes]\nname=A\n", "A|-|-", "WARN bom:1"},
    {"a byte-order mark before a key", "\xEF\xBB\xBFname=A\n[Volumes]\n", "-|-|-", "WARN bom:1"},
    {"UTF-16", std::string("\xFF\xFE[\0V\0]\0\n\0", 10), "-|-|-", "FAIL utf-16:1 FAIL zero-byte:1 FAIL zero-byte:2 WARN final-line-feed:2 WARN section:0"},
    {"lone carriage returns", "[Volumes]\rname=A\rdisable_cdrom=true\r", "-|-|-", "FAIL carriage-return:1 WARN final-line-feed:1"},
    {"a lone carriage return in a value", "[Volumes]\nname=A\rB\n", "AB|-|-", "FAIL carriage-return:2"},
    {"no line feed behind the name", "[Volumes]\nname=A", "A\xFF|-|-", "WARN final-line-feed:2 FAIL name:2"},
    {"no line feed behind the path", "[Volumes]\nname=A\npath1=/b", "A|/b\xFF|-", "WARN final-line-feed:3 FAIL path1:3"},
    {"no line feed behind the switch", "[Volumes]\nname=A\ndisable_cdrom=true", "A|-|true", "WARN final-line-feed:3"},
    {"no line feed behind a key without =", "[Volumes]\nname", "-|-|-", "WARN final-line-feed:2 FAIL name:2"},
    {"no line feed behind the header", "[Volumes]", "-|-|-", "WARN final-line-feed:1"},
    {"a zero byte in a value", std::string("[Volumes]\nname=A\0B\n", 19), "A|-|-", "FAIL zero-byte:2"},
    {"a zero byte at a line's start", std::string("[Volumes]\n\0\nname=A\n", 19), "-|-|-", "FAIL zero-byte:2 WARN one-reader:0 FAIL name:3"},
    {"a line that is too long", "[Volumes]\nx=" + kLong + "\nname=A\n", "A|-|-", "WARN long-line:2 WARN unknown-key:2"},
    {"a switch behind byte 1023", "[Volumes]\nx=" + std::string(1021, 'l') + "disable_cdrom=true\n", "-|-|true", "WARN long-line:2 WARN one-reader:2 WARN odd-key-line:2"},

    // The header.
    {"blanks in the header", "[ Volumes ]\nname=A\ndisable_cdrom=true\n", "-|-|true", "FAIL section:1 WARN one-reader:0 FAIL name:2 WARN one-reader:3"},
    {"a tab in the header", "[\tVolumes]\nname=A\n", "-|-|-", "FAIL section:1 FAIL name:2"},
    {"the header in other letter case", "[volumes]\nname=A\n", "-|-|-", "FAIL section:1 FAIL name:2"},
    {"the header twice", "[Volumes]\nname=A\n[Volumes]\npath1=/b\n", "A|-|-", "WARN section-twice:3 FAIL path1:4"},
    {"a name before the bracket", "Volumes [Volumes]\nname=A\ndisable_cdrom=true\n", "A|-|-", "FAIL section:1 WARN one-reader:2 WARN one-reader:0 FAIL disable_cdrom:3"},
    {"a key above the header", "name=A\n[Volumes]\npath1=/b\n", "-|/b|-", "FAIL name:1"},

    // Names.
    {"a name of blanks", "[Volumes]\nname=   \n", "|-|-", "FAIL name:2"},
    {"a name without =", "[Volumes]\nname\n", "|-|-", "WARN one-reader:2 FAIL name:2"},
    {"a tab before the key", "[Volumes]\n\tname=A\n", "-|-|-", "WARN one-reader:0 FAIL name:2"},
    {"a tab behind the key", "[Volumes]\nname\t=A\n", "-|-|-", "WARN one-reader:0 FAIL name:2"},
    {"Name with a capital", "[Volumes]\nName=A\n", "-|-|-", "FAIL name:2"},
    {"the name twice", "[Volumes]\nname=A\nname=B\n", "A|-|-", "WARN key-twice:3"},
    {"a line that only happens to be the name's", "[Volumes]\nabcd=name\n", "name|-|-", "WARN one-reader:2 WARN odd-key-line:2"},

    // Values that end a section.
    {"brackets in a path, a name below", "[Volumes]\npath1=/a[1]/b\nname=A\n", "-|/a[1]/b|-", "WARN brackets:2 FAIL name:3 WARN one-reader:2"},
    {"one bracket in a path, a switch below", "[Volumes]\npath1=/a[1/b\ndisable_cdrom=true\n", "-|/a[1/b|-", "WARN brackets:2 WARN one-reader:2 WARN one-reader:0 FAIL disable_cdrom:3"},
    {"a bracket in a line of no key", "[Volumes]\nx=a]\nname=A\n", "A|-|-", "WARN brackets:2 WARN unknown-key:2 WARN one-reader:3"},

    // The switch.
    {"yes is not true", "[Volumes]\ndisable_cdrom=yes\n", "-|-|yes", "WARN disable_cdrom:2"},
    {"an empty switch", "[Volumes]\ndisable_cdrom=\n", "-|-|", "WARN disable_cdrom:2"},
    {"true in quotes", "[Volumes]\ndisable_cdrom=\"true\"\n", "-|-|\"true\"", "WARN disable_cdrom:2"},
    {"a tab behind true", "[Volumes]\ndisable_cdrom=true\t\n", "-|-|true\t", "WARN disable_cdrom:2"},
    {"brackets around true", "[Volumes]\ndisable_cdrom=[true]\n", "-|-|-", "WARN brackets:2 WARN one-reader:0 FAIL disable_cdrom:2"},
    {"a switch that is commented out", "[Volumes]\n#disable_cdrom=true\n", "-|-|true", "WARN one-reader:2 WARN odd-key-line:2"},
    {"a switch within another key", "[Volumes]\nold_disable_cdrom=true\n", "-|-|true", "WARN one-reader:2 WARN odd-key-line:2"},
    {"a tab before the switch", "[Volumes]\n\tdisable_cdrom=true\n", "-|-|true", "WARN one-reader:2"},
    {"the switch in another letter case", "[Volumes]\nDisable_CDROM=true\n", "-|-|-", "FAIL disable_cdrom:2"},
    {"the switch twice", "[Volumes]\ndisable_cdrom=true\ndisable_cdrom=false\n", "-|-|true", "WARN key-twice:3"},
    {"a switch in the next section", "[Volumes]\nname=A\n[Other]\ndisable_cdrom=true\n", "A|-|-", "WARN unknown-section:3 FAIL disable_cdrom:4"},
    {"a switch without =", "[Volumes]\ndisable_cdrom\n", "-|-|-", "WARN one-reader:0 FAIL disable_cdrom:2"},
};

// Files with one key, whose value its reader returns as it stands.
struct ValueRow {
    std::string what;
    std::string key;
    std::string value;
    std::string findings;
};

const ValueRow kValueRows[] = {
    {"a name of 63 bytes", "name", kX63, ""},
    {"a path of 501 bytes", "path1", kPath501, ""},
    {"an = in a value", "name", "a=b", ""},
    {"a name of 64 bytes", "name", kX64, "FAIL name:2"},
    {"an empty name", "name", "", "FAIL name:2"},
    {"a name in UTF-8", "name", "M\xC3\xB6we", "FAIL name:2"},
    {"a name with a slash", "name", "a/b", "WARN name:2"},
    {"a name that leads to the folder above", "name", "..", "FAIL name:2"},
    {"a name in quotes", "name", "\"A\"", "FAIL name:2"},
    {"a comment behind the name", "name", "A ; mine", "FAIL name:2"},
    {"a # in a name", "name", "A#1", ""},
    {"a tab before the value", "name", "\tA", "FAIL name:2"},
    {"a tab behind the value", "name", "A\t", "FAIL name:2"},
    {"a percent sign in a name", "name", "50%", "WARN percent:2"},
    {"a percent sign in the line that ends the section", "name", "[5]%", "WARN brackets:2 WARN percent:2 WARN one-reader:2"},
    {"a path of 502 bytes", "path1", kPath502, "FAIL path1:2"},
    {"an empty path", "path1", "", "FAIL path1:2"},
    {"a path that is no full one", "path1", "Orvanta", "WARN path1:2"},
    {"a dollar in a path", "path1", "/a$b", "WARN path1:2"},
    {"a quote in a path", "path1", "/a\"b", "WARN path1:2"},
    {"a backslash in a path", "path1", "/a\\ b", "WARN path1:2"},
};
// clang-format on

}  // namespace

TEST_CASE("of an unknown key or section the nearest known one is named, where one is near")
{
    const auto report =
        CheckText("[Volumes]\nnmae=A\ncolour=B\nDisable-CDROM=C\n[Volume]\n", kcheck::CheckConfig);
    std::vector<std::string> found;
    for (const kcheck::Finding &finding : report.findings) {
        if (finding.about.starts_with("unknown"))
            found.push_back(finding.found);
    }
    CHECK(found == std::vector<std::string>{"\"nmae\": did you mean name?", "\"colour\"",
                                            "\"Disable-CDROM\": did you mean disable_cdrom?",
                                            "\"[Volume]\": did you mean [Volumes]?"});
}

TEST_CASE("each configuration has its values and its findings")
{
    CHECK(std::size(kRows) + std::size(kValueRows) >= 60);
    for (const Row &row : kRows) {
        CAPTURE(row.what);
        const kcheck::Report report = CheckText(row.content, kcheck::CheckConfig);
        CHECK(ValuesOf(report) == row.values);
        CHECK(FindingsOf(report) == row.findings);
    }
}

TEST_CASE("each value is returned as it stands, with its findings")
{
    for (const ValueRow &row : kValueRows) {
        CAPTURE(row.what);
        const kcheck::Report report =
            CheckText("[Volumes]\n" + row.key + "=" + row.value + "\n", kcheck::CheckConfig);
        CHECK(ValuesOf(report) ==
              (row.key == "name" ? row.value + "|-|-" : "-|" + row.value + "|-"));
        CHECK(FindingsOf(report) == row.findings);
    }
}

TEST_CASE("no reader leaves a file open, whatever it finds there")
{
    const std::string kTexts[] = {
        "", "[Volumes]\n", "[Volumes]\nname=A\ndisable_cdrom=true\n",
        "[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP=yes\n",
        "[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP=yes\nSD_THIRD_FILE_PATH=/a\nSD_THIRD_FILE_NAME=b.dmg\n"
        "SD_RUN_THIRD_FILE_ONCE=yes\n"};
    const int next = NextDescriptor();
    for (const std::string &text : kTexts) {
        CAPTURE(text);
        const TemporaryFile file(text);
        for (const std::string &path : {file.path, file.path + ".none"}) {
            (void)kcheck::ReadIni(path, "Volumes", "name");
            (void)kcheck::FindIniSection(path, "Volumes");
            (void)kcheck::ReadKey(path, "Volumes", "disable_cdrom");
            (void)kcheck::IsSwitchOn(path, "Volumes", "disable_cdrom");
            (void)kcheck::FindKeySection(path, "Volumes");
            (void)kcheck::ReadSetup(path);
            (void)observe::ReadWholeFile(path);
            CHECK(NextDescriptor() == next);
        }
    }
}
