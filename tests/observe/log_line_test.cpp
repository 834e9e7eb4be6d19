// How the text of a log comes apart into its records.
#include <string>
#include <vector>

#include <doctest/doctest.h>

#include "observe/log_line.h"
#include "tests/observe/log_builder.h"

using observe::LogText;
using observe::ParseLog;

namespace
{

std::vector<std::string> Messages(const std::string &text)
{
    std::vector<std::string> messages;
    for (const observe::Record &record : ParseLog(text).records)
        messages.push_back(std::to_string(record.number) + " " + std::string(record.message));
    return messages;
}

using Texts = std::vector<std::string>;

const std::string kHead = "line 1===2026-11-20 9:5:3   Kestrun:main --- ";
const std::string kNext = "line 2===2026-11-20 9:5:4   Kestrun:main --- b\n";

}  // namespace

TEST_CASE("a record has its number, time, source and message, and its place in the file")
{
    const std::string text =
        "rest of a line\n\nline 12===2026-1-2 3:4:5   INI:ReadString --- a --- b\n";
    const LogText log = ParseLog(text);
    REQUIRE(log.records.size() == 1);
    const observe::Record &record = log.records[0];
    CHECK(record.number == 12);
    CHECK(observe::Sortable(record.stamp) == "2026-01-02 03:04:05");
    CHECK(record.source == "INI:ReadString");
    CHECK(record.message == "a --- b");
    CHECK(record.textLine == 3);
    CHECK(record.offset == 16);
    CHECK_FALSE(record.cut);
    CHECK_FALSE(record.joined);
    CHECK(record.whole);
    CHECK(log.strayBytes == 16);
}

TEST_CASE("line feeds inside a message belong to it")
{
    CHECK(Messages(kHead + "\n\n===\n" + kNext) == Texts{"1 \n\n===", "2 b"});
    CHECK(Messages(kHead + "recv [x\n]\n" + kNext) == Texts{"1 recv [x\n]", "2 b"});
    CHECK(Messages(kHead + "ends in one\n\n" + kNext) == Texts{"1 ends in one\n", "2 b"});
}

TEST_CASE("what only looks like the beginning of a record is text")
{
    for (const char *no : {"line ===2026-11-20 9:5:4   Kestrun:main --- b", "line 2==2026-11-20",
                           "line 2===2026-11-20 9:5:4  Kestrun:main --- b",
                           "line 2===2026-11-20 9:5:4   Kestrun --- b",
                           "line 2===2026-11-20 9:5:4   Kestrun:main -- b", "Line 2===",
                           "line 99999999999===2026-11-20 9:5:4   Kestrun:main --- b"}) {
        CAPTURE(no);
        CHECK(Messages(kHead + "a\n" + no + "\n") == Texts{"1 a\n" + std::string(no)});
    }
}

TEST_CASE("a record of 2047 bytes was cut, and the next one follows on the same line of text")
{
    const std::string cut = kHead + std::string(2047 - kHead.size(), 'x');
    const std::string text = cut + kNext + "line 3===2026-11-20 9:5:5   Kestrun:main --- c\n";
    const LogText log = ParseLog(text);
    REQUIRE(log.records.size() == 3);
    CHECK(log.records[0].cut);
    CHECK(log.records[0].message.size() == 2047 - kHead.size());
    CHECK(log.records[1].joined);
    CHECK(log.records[1].message == "b");
    CHECK(log.records[1].textLine == 1);
    CHECK(log.records[2].message == "c");
    CHECK(log.records[2].textLine == 2);
    CHECK_FALSE(log.records[2].joined);
}

TEST_CASE("several cut records may run together, and a cut one may hold line feeds")
{
    const std::string cut = kHead + "\n" + std::string(2046 - kHead.size(), 'x');
    std::string second = cut;
    second.replace(0, 6, "line 2");
    CHECK(Messages(cut + second + "line 3===2026-11-20 9:5:5   Kestrun:main --- c\n").size() == 3);
}

TEST_CASE("a cut record whose doubled percent signs became single ones is shorter and still found")
{
    const std::string cut = kHead + "%" + std::string(2046 - kHead.size() - 9, 'x');
    const std::string text = cut + kNext;
    const LogText log = ParseLog(text);
    REQUIRE(log.records.size() == 2);
    CHECK(log.records[0].cut);
    CHECK(log.records[1].message == "b");
    CHECK(log.records[1].joined);
}

TEST_CASE("the beginning of a record quoted inside a message stays in it")
{
    const std::string quoted = "find szTmp=line 2===2026-11-20 9:5:4   Kestrun:main --- b";
    CHECK(Messages(kHead + quoted + "\n") == Texts{"1 " + quoted});
}

TEST_CASE("a last record without its line feed is not whole, unless it was cut")
{
    const std::string open = kHead + "a";
    const std::string cut = kHead + std::string(2047 - kHead.size(), 'x');
    CHECK_FALSE(ParseLog(open).records[0].whole);
    CHECK(ParseLog(cut).records[0].whole);
    CHECK(ParseLog(cut).records[0].cut);
}

TEST_CASE("the beginning of a next record at the end of the file belongs to no message")
{
    const std::string cut = kHead + std::string(2047 - kHead.size(), 'x');
    for (size_t size = 1; size < kNext.size() - 3; size++) {
        const std::string next = kNext.substr(0, size);
        CAPTURE(next);
        const std::string begun = kHead + "a\n" + next;
        const LogText log = ParseLog(begun);
        REQUIRE(log.records.size() == 1);
        CHECK(log.records[0].message == "a");
        CHECK_FALSE(log.records[0].whole);
        const std::string behindCut = cut + next;
        const LogText joined = ParseLog(behindCut);
        REQUIRE(joined.records.size() == 1);
        CHECK(joined.records[0].message.size() == 2047 - kHead.size());
        CHECK(joined.records[0].cut);
    }
    CHECK(Messages(kHead + "a\nb") == Texts{"1 a\nb"});
    CHECK(Messages(kHead + "a\nline 2=x") == Texts{"1 a\nline 2=x"});
    CHECK(Messages(kHead + "a\nline 2\n") == Texts{"1 a\nline 2"});
}

TEST_CASE(
    "a beginning that a full disk has torn hides neither the record before nor the one behind it")
{
    const std::string torn = "line 2===2026-11-20 9:5:3   Kestrun:DiskMountCallback --- ";
    const std::string next = "line 9===2026-11-20 9:5:4   Kestrun:main --- b\n";
    for (size_t size = 1; size < torn.size() - 3; size++) {
        CAPTURE(size);
        CHECK(Messages(kHead + "a\n" + torn.substr(0, size) + next) ==
              (size < 5 ? Texts{"1 a\n" + torn.substr(0, size) + next.substr(0, next.size() - 1)}
                        : Texts{"1 a", "9 b"}));
    }
    CHECK(Messages(kHead + "a\nline 2===x" + next).size() == 1);
}

TEST_CASE("zero bytes before a record are counted and belong to none")
{
    const std::string text = std::string(7, '\0') + kHead + "a\n" + std::string(3, '\0') + kNext;
    const LogText log = ParseLog(text);
    REQUIRE(log.records.size() == 2);
    CHECK(log.records[0].zerosBefore == 7);
    CHECK(log.records[0].message == "a");
    CHECK(log.records[1].zerosBefore == 3);
    CHECK(log.strayBytes == 0);
}

TEST_CASE("the lines of daemons that wrote at once are put together by their numbers")
{
    struct Row {
        const char *what;
        std::vector<long> numbers, untangled;  // none: nothing is changed
    };
    const Row rows[] = {
        {"nothing", {}, {}},
        {"one run", {1, 2, 3, 4}, {}},
        {"one run behind the other", {1, 2, 3, 1, 2, 3, 4, 1, 2}, {}},
        {"lost lines", {1, 2, 3, 9, 10, 11}, {}},
        {"lost lines behind a start", {1, 2, 3, 4, 1, 2, 6, 7}, {}},
        {"a younger one that ends soon", {1, 2, 3, 4, 1, 2, 5, 6}, {1, 2, 3, 4, 5, 6, 1, 2}},
        {"a start whose lines are lost", {1, 2, 3, 9, 4, 5}, {}},
        {"two in turn", {1, 2, 3, 1, 4, 2, 5, 3}, {1, 2, 3, 4, 5, 1, 2, 3}},
        {"two in step", {1, 2, 1, 2, 3, 3, 4, 4}, {1, 2, 3, 4, 1, 2, 3, 4}},
        {"the elder goes on, the younger is done",
         {1, 2, 3, 1, 2, 3, 4, 5, 4},
         {1, 2, 3, 4, 1, 2, 3, 4, 5}},
        {"the elder is behind", {1, 2, 1, 2, 3, 4, 3}, {1, 2, 3, 1, 2, 3, 4}},
        {"three", {1, 1, 1, 2, 2, 2}, {1, 2, 1, 2, 1, 2}},
        {"one run more", {1, 2, 1, 3, 2, 1, 2}, {1, 2, 3, 1, 2, 1, 2}},
    };
    for (const Row &row : rows) {
        CAPTURE(row.what);
        std::string text;
        for (const long number : row.numbers)
            text += "line " + std::to_string(number) + kHead.substr(6) + "a\n";
        LogText log = ParseLog(text);
        observe::Untangle(log);
        CHECK(log.several == !row.untangled.empty());
        std::vector<long> numbers;
        for (const observe::Record &record : log.records)
            numbers.push_back(record.number);
        CHECK(numbers == (row.untangled.empty() ? row.numbers : row.untangled));
    }
}

TEST_CASE("what an editor or a mail program puts into a log is taken out, and told")
{
    struct Row {
        std::string content, restored;
        size_t notes;
    };
    const std::string twoLines = kHead + "recv [x\n]\n" + kNext;
    const std::string mark = "\xEF\xBB\xBF";
    const Row rows[] = {
        {"", "", 0},
        {twoLines, twoLines, 0},
        {kHead + "a\r\n" + kNext, kHead + "a\r\n" + kNext, 0},
        {kHead + "a\r", kHead + "a\r", 0},
        {mark + twoLines, twoLines, 1},
        {kHead + "recv [x\r\n]\r\nline 2", kHead + "recv [x\n]\nline 2", 1},
        {mark + kHead + "a\rb\r\n\r\n", kHead + "a\rb\n\n", 2},
        {"\r\n", "\n", 1},
        {mark, "", 1},
    };
    for (const Row &row : rows) {
        CAPTURE(row.content);
        std::string content = row.content;
        CHECK(observe::UndoConversions(content).size() == row.notes);
        CHECK(content == row.restored);
    }
}

TEST_CASE("an empty file and one without a record have none")
{
    CHECK(ParseLog("").records.empty());
    CHECK(ParseLog("a\nb").records.empty());
    CHECK(ParseLog("a\nb").strayBytes == 3);
}

TEST_CASE("times sort as text, and seconds count across days, months and leap years")
{
    struct Row {
        observe::Stamp stamp;
        const char *text;
        std::int64_t seconds;
    };
    // clang-format off
    const Row rows[] = {
        {{1970, 1, 1, 0, 0, 0},     "1970-01-01 00:00:00", 0},
        {{2000, 2, 29, 23, 59, 59}, "2000-02-29 23:59:59", 951868799},
        {{2000, 3, 1, 0, 0, 0},     "2000-03-01 00:00:00", 951868800},
        {{2026, 11, 20, 9, 5, 3},   "2026-11-20 09:05:03", 1795165503},
        {{2026, 12, 31, 23, 59, 60},"2026-12-31 23:59:60", 1798761600},
    };
    // clang-format on
    for (const Row &row : rows) {
        CHECK(observe::Sortable(row.stamp) == row.text);
        CHECK(observe::Seconds(row.stamp) == row.seconds);
    }
    CHECK(observe::Sortable({1900, 1, 0, 0, 0, 0}) == "1900-01-00 00:00:00");
    CHECK_FALSE(observe::Seconds({1900, 1, 0, 0, 0, 0}));
}

TEST_CASE("the number and the text of a record")
{
    CHECK(observe::RecordNumber("line 12===2026-11-20 9:5:3   Kestrun:main --- x") == 12);
    CHECK(observe::RecordNumber("line ===") == 0);
    CHECK(observe::RecordNumber("Line 1===") == 0);
    CHECK(observe::RecordNumber("line 7==") == 0);
    CHECK(observe::LineBody("line 12===2026-11-20 9:5:3   Kestrun:main --- x") ==
          "Kestrun:main --- x");
    CHECK(observe::LineBody("====Kestrun started") == "====Kestrun started");
}
