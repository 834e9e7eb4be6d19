// logbook_test.cpp - the daemon's log, followed as it is written.
#include "modem/logbook.h"

#include <string>
#include <vector>

#include <doctest/doctest.h>

namespace
{

std::vector<std::string> TextsOf(const modem::LogBook &book)
{
    std::vector<std::string> texts;
    for (const modem::LogLine &line : book.lines)
        texts.push_back((line.unwritten ? "unwritten " : "") + line.text);
    return texts;
}

}  // namespace

TEST_CASE(
    "lines are taken when they are whole, and the written one takes the unwritten one's place")
{
    modem::LogBook book;
    TakeText(&book, "line 1===now   a --- 1\nline 2===now   a -", false);
    CHECK(TextsOf(book) == std::vector<std::string>{"line 1===now   a --- 1"});
    CHECK(book.unfinished == "line 2===now   a -");
    AddUnwritten(&book, "line 2===now   a --- 2\n");
    AddUnwritten(&book, "line 2===now   a --- once\n");
    CHECK(TextsOf(book) ==
          std::vector<std::string>{"line 1===now   a --- 1", "unwritten line 2===now   a --- 2"});
    TakeText(&book, "-- 2\n", false);
    CHECK(TextsOf(book) ==
          std::vector<std::string>{"line 1===now   a --- 1", "line 2===now   a --- 2"});
    CHECK(book.unfinished.empty());
    CHECK(book.lastNumber == 2);
    CHECK(book.text == "line 1===now   a --- 1\nline 2===now   a --- 2\n");
}

TEST_CASE("what an emptied file held is gone from the text, its whole lines were seen")
{
    modem::LogBook book;
    TakeText(&book, "line 1===now   a --- 1\nline 2===now   a -", false);
    TakeText(&book, "line 3===now   a --- 3\n", true);
    CHECK(TextsOf(book) ==
          std::vector<std::string>{"line 1===now   a --- 1", "line 3===now   a --- 3"});
    CHECK(book.text == "line 3===now   a --- 3\n");
    CHECK(book.lastNumber == 3);
    AddUnwritten(&book, "line 4===now   a --- 4\n");
    TakeText(&book, "", true);
    CHECK(book.text.empty());
    CHECK(TextsOf(book).back() == "unwritten line 4===now   a --- 4");
}
