// Bytes that others chose, put so that a person, a file or a table can hold them.
#include <string>

#include <doctest/doctest.h>

#include "observe/names.h"

TEST_CASE("bytes for people: UTF-8 stays, the rest is written by its number")
{
    CHECK(observe::Printable("a b\n\r\t") == "a b\\n\\x0D\\x09");
    CHECK(observe::Printable("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80") ==
          "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    CHECK(observe::Printable("\xFF\xC3") == "\\xFF\\xC3");
    CHECK(observe::Printable(std::string_view("\0", 1)) == "\\x00");
    CHECK(observe::Printable("a\x1b[2Jb\x7F") == "a\\x1B[2Jb\\x7F");
    CHECK(observe::Quoted("a\n") == "\"a\\n\"");
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
        {"\xE0\x80\x80", "\\xE0\\x80\\x80"},
        {"\xED\xA0\x80", "\\xED\\xA0\\x80"},
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
        CHECK(observe::Printable(row.bytes) == row.text);
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
        CHECK(observe::Utf8Length(row.bytes) == row.length);
    CHECK(observe::Utf8Length("") == 0);
}

TEST_CASE("a label becomes a file name in udev's way")
{
    struct Row {
        const char *label;
        const char *name;
    };
    const Row rows[] = {
        {"Orvanta", "Orvanta"},
        {"Orvanta Plus", "Orvanta\\x20Plus"},
        {"Orv\xc3\xa4nta/%d", "Orv\xc3\xa4nta\\x2f\\x25d"},
        {"a/../b%n\\x2f", "a\\x2f..\\x2fb\\x25n\\x5cx2f"},
        {".#Orvanta", ".#Orvanta"},
        {"09AZaz#+-.:=@_", "09AZaz#+-.:=@_"},
        {"Orv\x8anta", "Orv\\x8anta"},
        {"\xe2\x82\xac\xe2\x82", "\xe2\x82\xac\\xe2\\x82"},
        // Overlong, half of a pair, above the last character: no UTF-8 to udev either.
        {"\xe0\x80\x80", "\\xe0\\x80\\x80"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.label);
        CHECK(observe::EscapeLabel(row.label) == row.name);
        CHECK(observe::UnescapeLabel(row.name) == row.label);
    }
}

TEST_CASE("what no escape is stays as it stands")
{
    CHECK(observe::UnescapeLabel("a\\x2") == "a\\x2");
    CHECK(observe::UnescapeLabel("a\\xg0\\x-1\\x+1\\x 1") == "a\\xg0\\x-1\\x+1\\x 1");
    CHECK(observe::UnescapeField("a\\040b\\134c\\011") == "a b\\c\t");
    CHECK(observe::UnescapeField("a\\04") == "a\\04");
    CHECK(observe::UnescapeField("a\\049\\") == "a\\049\\");
}

TEST_CASE("texts are taken apart at line feeds and commas")
{
    using Texts = std::vector<std::string>;
    CHECK(observe::FirstLine("a\nb\n") == "a");
    CHECK(observe::FirstLine("a") == "a");
    CHECK(observe::Split("", ',') == Texts{});
    CHECK(observe::Split("a,,b", ',') == Texts{"a", "", "b"});
    CHECK(observe::HasOption("ro,nosuid", "nosuid"));
    CHECK_FALSE(observe::HasOption("ro,nosuid", "suid"));
    CHECK_FALSE(observe::HasOption("", "ro"));
}
