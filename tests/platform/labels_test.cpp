// The names of links and the labels that they stand for.
#include "platform/linux/Labels.h"

#include <doctest/doctest.h>

#include <cstring>
#include <string>

static std::string Decoded(const std::string &name)
{
    char label[kLabelMax + 1];
    std::memset(label, 0x5A, sizeof label);
    if (DecodeLabel(name.c_str(), label, sizeof label))
        return label;
    CHECK(label[0] == '\0');
    return "<none>";
}

TEST_CASE("a link's name stands for the label that udev has escaped")
{
    struct Row {
        const char *name;
        const char *label;
    };
    const Row rows[] = {
        {"Orvanta", "Orvanta"},
        {"Orvanta\\x20Plus", "Orvanta Plus"},
        {"Orv\xC3\xA4nta\\x2f\\x25d", "Orv\xC3\xA4nta/%d"},
        {"a\\x2f..\\x2fb\\x25n\\x5cx2f", "a/../b%n\\x2f"},
        {".#Orvanta", ".#Orvanta"},
        {"#+-.:=@_", "#+-.:=@_"},
        {"\\x5c", "\\"},
        {"\\x5cx41", "\\x41"},
        {"...", "..."},
        {"\\x24\\x28rm\\x29", "$(rm)"},
        {"\\x0a", "\n"},
        {"\\xff\\xfe", "\xFF\xFE"},
        {"\\xc3", "\xC3"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.name);
        CHECK(Decoded(row.name) == row.label);
    }
}

TEST_CASE("a name that udev would not have written is left alone")
{
    const char *const names[] = {
        "\\",           "\\x",
        "\\x2",         "\\x2g",
        "\\xg2",        "a\\",
        "a\\x2",        "\\X20",
        "\\x2F",        "\\\\",
        "\\n",          "\\x4",
        "\\x41",        "\\x5F",
        "Orvanta Plus", "a/b",
        "a%b",          "a\tb",
        "a!b",          "\x7F",
        "\xC3",         "\xC3(",
        "\xED\xA0\x80", "\xFF",
        "Orvanta\n",    "\\x\x31\xC3\xA4",
    };
    for (const char *name : names) {
        CAPTURE(name);
        CHECK(Decoded(name) == "<none>");
    }
}

TEST_CASE("a label that is no name for a folder is left alone")
{
    for (const char *name : {"", ".", "..", "\\x00", "a\\x00b", "\\x2e", "\\x2e\\x2e"}) {
        CAPTURE(name);
        CHECK(Decoded(name) == "<none>");
    }
}

TEST_CASE("every byte is plain or escaped, never both")
{
    for (int byte = 1; byte < 256; byte++) {
        CAPTURE(byte);
        const std::string text(1, static_cast<char>(byte));
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(byte));
        const bool plain = Decoded("a" + text) != "<none>";
        const bool escaped = Decoded(std::string("a") + escape) != "<none>";
        CHECK(plain != escaped);
        CHECK(Decoded("a" + (plain ? text : escape)) == "a" + text);
    }
}

TEST_CASE("a label fits or is refused as a whole")
{
    char label[8];
    std::memset(label, 0x5A, sizeof label);
    CHECK(DecodeLabel("abc", label, 4));
    CHECK(std::memcmp(label, "abc\0ZZZZ", sizeof label) == 0);
    std::memset(label, 0x5A, sizeof label);
    CHECK(!DecodeLabel("abcd", label, 4));
    CHECK(label[0] == '\0');
    for (size_t i = 4; i < sizeof label; i++)
        CHECK(label[i] == 0x5A);
    CHECK(!DecodeLabel("ab\xC3\xA4", label, 4));
    CHECK(DecodeLabel("a\xC3\xA4", label, 4));
    CHECK(!DecodeLabel("a", label, 1));
    CHECK(!DecodeLabel("a", label, 0));
    CHECK(Decoded(std::string(255, 'x')) == std::string(255, 'x'));
    CHECK(Decoded(std::string(256, 'x')) == "<none>");
}

TEST_CASE("a name before udev's rename is known by its beginning and its sixteen digits")
{
    struct Row {
        const char *name;
        bool temporary;
    };
    const Row rows[] = {
        {".#Orvantab8cd1eb03ccd0b0e", true},
        {".#.#Orvantab8cd1eb03ccd0b0e", true},
        {".#xb8cd1eb03ccd0b0e", true},
        {".#x00b8cd1eb03ccd0b0e", true},
        {".#b8cd1eb03ccd0b0e", false},
        {".#xb8cd1eb03ccd0b0", false},
        {".#xB8CD1EB03CCD0B0E", false},
        {".#xb8cd1eb03ccd0b0g", false},
        {"#xb8cd1eb03ccd0b0e", false},
        {".xb8cd1eb03ccd0b0e", false},
        {"Orvantab8cd1eb03ccd0b0e", false},
        {".#Orvanta", false},
        {".#", false},
        {"", false},
    };
    for (const Row &row : rows) {
        CAPTURE(row.name);
        CHECK(IsTemporaryName(row.name) == row.temporary);
    }
}
