// commands_test.cpp - what a program prints, held against what a scenario expects.
#include <doctest/doctest.h>

#include "modem/player.h"

TEST_CASE("an output fits when it is the pattern, with numbers and any text where it says so")
{
    struct Row {
        const char *pattern;
        const char *output;
        bool fits;
    };
    // clang-format off
    const Row rows[] = {
        {"",                        "",                    true},
        {"",                        "a",                   false},
        {"a\n",                     "a\n",                 true},
        {"a\n",                     "a",                   false},
        {"a\n",                     "a\nb\n",              false},
        {"process <number>\n",      "process 4711\n",      true},
        {"process <number>\n",      "process \n",          false},
        {"process <number>\n",      "process 4a\n",        false},
        {"<number>",                "12",                  true},
        {"<number>",                "",                    false},
        {"<number> <number>",       "1 2",                 true},
        {"age <any>, then",         "age 3 s, x, then",    true},
        {"age <any>, then",         "age , then",          true},
        {"age <any>, then",         "age 3 s",             false},
        {"<any>\nb",                "a\nb",                true},
        {"<any>b",                  "a\nb",                false},
        {"<any>",                   "",                    true},
        {"<other>",                 "<other>",             true},
        {"<other>",                 "x",                   false},
    };
    // clang-format on
    for (const Row &row : rows) {
        CAPTURE(row.pattern);
        CAPTURE(row.output);
        CHECK(modem::OutputMatches(row.pattern, row.output) == row.fits);
    }
}

TEST_CASE("a scenario may say which status and which lines a program is to give")
{
    modem::Scenario scenario;
    modem::Mistake mistake;
    const std::string text =
        "expect run \"tool --json\" status 1 within 3 s\n  | first\n  | a\\\\b\n";
    REQUIRE(modem::ParseScenario(text, &scenario, &mistake));
    REQUIRE(scenario.steps.size() == 1);
    const modem::Step &step = scenario.steps[0];
    CHECK(step.act == modem::Act::ExpectRun);
    CHECK(step.strings == std::vector<std::string>{"tool --json"});
    CHECK(step.numbers == std::vector<double>{1});
    CHECK(step.within == 3);
    CHECK(step.block == "first\na\\b\n");
}
