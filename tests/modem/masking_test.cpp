// Masked logs, and how a difference is shown.
#include <string>

#include <doctest/doctest.h>

#include "modem/masking.h"

TEST_CASE("only the time of a record and the process id of the owner command are masked")
{
    struct Row {
        const char *log;
        const char *masked;
    };
    const Row rows[] = {
        {"", ""},
        {"line 2===2026-11-20 9:5:3   Kestrun:main --- x\n",
         "line 2===<time>   Kestrun:main --- x\n"},
        {"line 12===1900-1-0 0:0:0   K:m --- 1:2:3\n", "line 12===<time>   K:m --- 1:2:3\n"},
        {"a\nline 1===2026-11-20 23:59:59   K:m --- b\nc", "a\nline 1===<time>   K:m --- b\nc"},
        {"line 1===2026-1-1 0:0:0   K:m --- ps aux | awk -v PID=4711 '$2 == PID { print $1 }'\n",
         "line 1===<time>   K:m --- ps aux | awk -v PID=<pid> '$2 == PID { print $1 }'\n"},
        {"line 4===2026-1-1 0:0:0   Process:RunShellProgram --- system failed 0 time, return 256[Unknown error 256]:(open \"x\"), err = (Invalid argument)\n",
         "line 4===<time>   Process:RunShellProgram --- system failed 0 time, return 256[Unknown error 256]:(open \"x\"), err = (<errno>)\n"},
        {"line 4===2026-1-1 0:0:0   K:m --- x), err = (y)\n",
         "line 4===<time>   K:m --- x), err = (y)\n"},
        // A log of another form stays as it is, so that it differs.
        {"line 2===2026-11-20 09:5:3   K:m --- x\n", "line 2===2026-11-20 09:5:3   K:m --- x\n"},
        {"line 2===2026-11-20 9:5:3  K:m --- x\n", "line 2===2026-11-20 9:5:3  K:m --- x\n"},
        {"line 2==2026-11-20 9:5:3   K:m --- x\n", "line 2==2026-11-20 9:5:3   K:m --- x\n"},
        {" line 2===2026-11-20 9:5:3   K:m --- x\n", " line 2===2026-11-20 9:5:3   K:m --- x\n"},
        {"line ===2026-11-20 9:5:3   K:m\n", "line ===2026-11-20 9:5:3   K:m\n"},
        {"line 3===2026-11-20 9:5:", "line 3===2026-11-20 9:5:"},
        {"line 3===", "line 3==="},
        {"ps aux | awk -v PID=%d '", "ps aux | awk -v PID=%d '"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.log);
        CHECK(modem::MaskLog(row.log) == row.masked);
    }
}

TEST_CASE("two logs that are the same have no difference")
{
    CHECK(modem::DescribeDifference("", "") == "");
    CHECK(modem::DescribeDifference("a\nb\n", "a\nb\n") == "");
}

TEST_CASE("a difference is shown with the lines before it")
{
    CHECK(modem::DescribeDifference("a\nb\nc\nd\ne\n", "a\nb\nc\nd\nf\n") ==
          "they differ from line 5 on:\n"
          "    both      b\n"
          "    both      c\n"
          "    both      d\n"
          "    expected  e\n"
          "    came      f\n");
    CHECK(modem::DescribeDifference("a\n", "a") == "they differ from line 1 on:\n"
                                                   "    expected  a\n"
                                                   "    came      a (no line end)\n");
    CHECK(modem::DescribeDifference("", "a\n") == "they differ from line 1 on:\n"
                                                  "    expected  (the log ends here)\n"
                                                  "    came      a\n");
    CHECK(modem::DescribeDifference("a\n", "") == "they differ from line 1 on:\n"
                                                  "    expected  a\n"
                                                  "    came      (the log ends here)\n");
}
