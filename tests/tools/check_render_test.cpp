// The whole output for one configuration and one SysConfig.dat.
#include <string>

#include <doctest/doctest.h>

#include "tests/tools/check_support.h"
#include "tools/check/render.h"

namespace
{

const std::string kConfig = "[Volumes]\nname = Orvanta\n\tpath1 = /Applications/Orvanta.app/\n"
                            "#disable_cdrom = true\n";
const std::string kSysConfig = "[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP= yes\n"
                               "SD_THIRD_FILE_PATH=Orvanta\n"
                               "SD_THIRD_FILE_NAME=ThirdPartySetup.dmg\n"
                               "SD_RUN_THIRD_FILE_ONCE=yes\n";

// Both checks into one report, as the program does.
kcheck::Report CheckBoth()
{
    kcheck::Report report = CheckText(kConfig, kcheck::CheckConfig);
    const kcheck::Report other = CheckText(kSysConfig, kcheck::CheckSysConfig, "SysConfig.dat");
    report.findings.insert(report.findings.end(), other.findings.begin(), other.findings.end());
    report.settings.insert(report.settings.end(), other.settings.begin(), other.settings.end());
    return report;
}

}  // namespace

TEST_CASE("the text: verdict, file, line, what is there, what the daemon will do")
{
    CHECK(kcheck::RenderText(CheckBoth()) == R"(PASS  config:1  section: [Volumes]
      both readers find it
PASS  config:2  name: "Orvanta"
      the daemon waits for a volume of this label
WARN  config  one-reader: path1 is seen by the other reader alone
      the daemon does not use what is written
FAIL  config:3  path1: this line is not read: a tab before the key or the "=" is no blank to the reader
      runs open -a "/Volumes/Orvanta/Orvanta.app/"
WARN  config:4  one-reader: disable_cdrom is seen by its own reader alone
      nothing changes as long as each reader keeps to its keys
WARN  config:4  odd-key-line: the line does not begin with disable_cdrom
      it counts as the key's all the same
PASS  config:4  disable_cdrom: "true"
      the volume is mounted with nobrowse
PASS  SysConfig.dat:1  section: [SD_THIRDPARTY_SETUP]
      the request is read from here on
PASS  SysConfig.dat:2  SD_THIRD_SETUP: "yes"
      the setup package is run
PASS  SysConfig.dat:3  SD_THIRD_FILE_PATH: "Orvanta"
      waits up to 180 s for /Volumes/Orvanta
PASS  SysConfig.dat:4  SD_THIRD_FILE_NAME: "ThirdPartySetup.dmg"
      it is opened; then up to 30 s for /Volumes/Third Party Setup
PASS  SysConfig.dat:4  commands: open "/Volumes/Orvanta/ThirdPartySetup.dmg"
      then open "/Volumes/Third Party Setup/ThirdPartySetup.pkg"
PASS  SysConfig.dat:5  SD_RUN_THIRD_FILE_ONCE: "yes"
      the request is switched off after a run
WARN  SysConfig.dat:2  rewrite: 20 79 65: spaces before the value
      the bytes at offset 37 become 4E 6F 00 (No and a zero byte) after a run; what is left of the value stands behind the zero byte
FAIL
)");
}

TEST_CASE("the JSON: each value as text, with nothing that steers a terminal, and byte by byte")
{
    kcheck::Report report = CheckText("[Volumes]\nname=\xC2\x9B[m\xFF\n", kcheck::CheckConfig);
    report.findings.resize(1);
    CHECK(kcheck::RenderJson(report) == R"({
  "verdict": "PASS",
  "findings": [
    {
      "verdict": "PASS",
      "file": "config",
      "about": "section",
      "line": 1,
      "found": "[Volumes]",
      "effect": "both readers find it"
    }
  ],
  "values": [
    {
      "file": "config",
      "key": "name",
      "value": "\u009b[m\ufffd",
      "bytes": "C2 9B 5B 6D FF",
      "line": 2
    },
    {
      "file": "config",
      "key": "path1",
      "value": null,
      "bytes": null,
      "line": 0
    },
    {
      "file": "config",
      "key": "disable_cdrom",
      "value": null,
      "bytes": null,
      "line": 0
    }
  ]
}
)");
}
