// JSON as the programs write it.
#include <optional>
#include <string>

#include <doctest/doctest.h>

#include "observe/json.h"

using observe::Json;

TEST_CASE("JSON: members stand in the order in which they are told, over lines or on one")
{
    const Json json = {
        {"text", "a"}, {"number", -3}, {"list", {1, "b", nullptr}}, {"empty", Json::array()}};
    CHECK(observe::JsonText(json) == R"({
  "text": "a",
  "number": -3,
  "list": [
    1,
    "b",
    null
  ],
  "empty": []
}
)");
    CHECK(observe::JsonLine(json) ==
          "{\"text\":\"a\",\"number\":-3,\"list\":[1,\"b\",null],\"empty\":[]}\n");
    CHECK(observe::OrNull(std::optional<int>()) == Json());
    CHECK(observe::OrNull(std::optional<int>(5)) == Json(5));
}

TEST_CASE("JSON: nothing in a string steers a terminal")
{
    struct Row {
        std::string bytes;
        const char *json;
    };
    const Row rows[] = {
        {"\"\\\n\x1b[2J\x7F", R"("\"\\\n\u001b[2J\u007f")"},
        {std::string("\0", 1), R"("\u0000")"},
        {"\xC2\x9B", R"("\u009b")"},      // a control sequence begins
        {"\xE2\x80\xAE", R"("\u202e")"},  // the line turns round
        {"\xF0\x9F\x98\x80", R"("\ud83d\ude00")"},
        {"z\xC3\xA4", R"("z\u00e4")"},
        {"\xFF\xC0\x80", R"("\ufffd\ufffd\ufffd")"},
        {"\xED\xA0\x80", R"("\ufffd\ufffd\ufffd")"},
    };
    for (const Row &row : rows) {
        CHECK(observe::JsonLine(row.bytes) == std::string(row.json) + "\n");
    }
}
