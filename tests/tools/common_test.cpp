// What the tools share: JSON, and bytes put so that a person can read them.
#include <string>

#include <doctest/doctest.h>

#include "tools/common/json.h"
#include "tools/common/program.h"

using tools::JsonWriter;

TEST_CASE("JSON: objects, arrays and every kind of value, nested and empty")
{
    JsonWriter json;
    json.BeginObject().Member("text", "a").Member("number", -3).Member("true", true);
    json.Member("size", sizeof(char)).Member("none", std::optional<int64_t>());
    json.Member("some", std::optional<int64_t>(5)).Member("string", std::string("s"));
    json.Key("empty").BeginArray().End();
    json.Key("list").BeginArray().Value(int64_t{1}).Value("b").Null().BeginObject().End().End();
    json.End();
    CHECK(json.Text() == R"({
  "text": "a",
  "number": -3,
  "true": true,
  "size": 1,
  "none": null,
  "some": 5,
  "string": "s",
  "empty": [],
  "list": [
    1,
    "b",
    null,
    {}
  ]
}
)");
}

TEST_CASE("JSON: what a string cannot hold as it stands is escaped")
{
    JsonWriter json;
    json.Value(std::string_view("\"\\\n\t\x01\x7F\0z\xC3\xA4\xFF\xC0\x80", 13));
    CHECK(
        json.Text() ==
        "\"\\\"\\\\\\n\\u0009\\u0001\x7F\\u0000z\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"\n");
}

TEST_CASE("JSON on one line: blanks where the lines would break, and the one line feed at the end")
{
    JsonWriter json(JsonWriter::Form::OneLine);
    json.BeginObject().Member("text", "a\nb").Member("number", 1);
    json.Key("empty").BeginArray().End();
    json.Key("list").BeginArray().Value(int64_t{1}).Value("b").End().End();
    CHECK(json.Text() ==
          "{\"text\": \"a\\nb\", \"number\": 1, \"empty\": [], \"list\": [1, \"b\"]}\n");
}

TEST_CASE("bytes for people: UTF-8 stays, the rest is written by its number")
{
    CHECK(tools::Printable("a b\n\r\t") == "a b\\n\\x0D\\x09");
    CHECK(tools::Printable("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80") ==
          "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    CHECK(tools::Printable("\xFF\xC3") == "\\xFF\\xC3");
    CHECK(tools::Printable(std::string_view("\0", 1)) == "\\x00");
}

TEST_CASE("bytes for people: characters that steer a terminal, reorder a line or are none stay out")
{
    struct Row {
        const char *bytes, *text;
    };
    const Row rows[] = {
        {"\xC2\x80", "\\xC2\\x80"},
        {"\xC2\x9B", "\\xC2\\x9B"},
        {"\xC2\x9F", "\\xC2\\x9F"},
        {"\xC2\xA0", "\xC2\xA0"},
        {"\xE2\x80\x8A", "\xE2\x80\x8A"},
        {"\xE2\x80\x8B", "\\xE2\\x80\\x8B"},
        {"\xE2\x80\x8F", "\\xE2\\x80\\x8F"},
        {"\xE2\x80\x90", "\xE2\x80\x90"},
        {"\xE2\x80\xA7", "\xE2\x80\xA7"},
        {"\xE2\x80\xA8", "\\xE2\\x80\\xA8"},
        {"\xE2\x80\xAE", "\\xE2\\x80\\xAE"},
        {"\xE2\x80\xAF", "\xE2\x80\xAF"},
        {"\xE2\x81\xA0", "\\xE2\\x81\\xA0"},
        {"\xE2\x81\xAF", "\\xE2\\x81\\xAF"},
        {"\xE2\x81\xB0", "\xE2\x81\xB0"},
        {"\xEF\xBB\xBF", "\\xEF\\xBB\\xBF"},
        {"\xEF\xBF\xBD", "\xEF\xBF\xBD"},
        {"\xEF\xBF\xBE", "\\xEF\\xBF\\xBE"},
        {"\xEF\xBF\xBF", "\\xEF\\xBF\\xBF"},
        {"\xF0\x9F\xBF\xBF", "\\xF0\\x9F\\xBF\\xBF"},
        {"\xF0\x9F\xBF\xBD", "\xF0\x9F\xBF\xBD"},
    };
    for (const Row &row : rows)
        CHECK(tools::Printable(row.bytes) == row.text);
}

TEST_CASE("UTF-8: the shortest form only, no halves of pairs, nothing above the last character")
{
    struct Row {
        const char *bytes;
        size_t length;
    };
    const Row rows[] = {
        {"a", 1},
        {"\x7F", 1},
        {"\xC2\x80", 2},
        {"\xC1\xBF", 0},
        {"\x80", 0},
        {"\xE0\x9F\x80", 0},
        {"\xE0\xA0\x80", 3},
        {"\xED\xA0\x80", 0},
        {"\xED\x9F\xBF", 3},
        {"\xF0\x8F\x80\x80", 0},
        {"\xF0\x90\x80\x80", 4},
        {"\xF4\x8F\xBF\xBF", 4},
        {"\xF4\x90\x80\x80", 0},
        {"\xF5\x80\x80\x80", 0},
        {"\xE2\x82", 0},
        {"\xE2\x28\xA1", 0},
    };
    for (const Row &row : rows)
        CHECK(tools::Utf8Length(row.bytes) == row.length);
    CHECK(tools::Utf8Length("") == 0);
}

TEST_CASE("whole files: what was written is read, and what is not there is nothing")
{
    const std::string path = "tools_common_test.tmp";
    const std::string content("a\0b\n\xFF", 5);
    REQUIRE(tools::WriteWholeFile(path, content));
    CHECK(tools::ReadWholeFile(path) == content);
    remove(path.c_str());
    CHECK_FALSE(tools::ReadWholeFile(path));
    CHECK_FALSE(tools::WriteWholeFile("/no such folder/x", content));
}
