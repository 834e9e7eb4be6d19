// Any text as a scenario of the bench: it is read, with every statement told in plain words, or
// refused with a place inside of it.
#include "modem/scenario.h"

#include "fuzz/check.h"

#include <algorithm>

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const long lines = 1 + std::count(text.begin(), text.end(), '\n');
    modem::Scenario scenario;
    modem::Mistake mistake;
    if (!modem::ParseScenario(text, &scenario, &mistake)) {
        FUZZ_CHECK(!mistake.message.empty());
        FUZZ_CHECK(mistake.place.line >= 1 && mistake.place.line <= lines + 1);
        FUZZ_CHECK(mistake.place.column >= 1);
        return 0;
    }
    int open = 0;
    for (const modem::Step &step : scenario.steps) {
        FUZZ_CHECK(!modem::StepMeaning(step).empty());
        FUZZ_CHECK(step.place.line >= 1 && step.place.line <= lines);
        open += step.act == modem::Act::Repeat ? 1 : step.act == modem::Act::End ? -1 : 0;
        FUZZ_CHECK(open >= 0);
        if (step.act == modem::Act::Repeat || step.act == modem::Act::End) {
            FUZZ_CHECK(step.partner < scenario.steps.size());
            FUZZ_CHECK(&scenario.steps[scenario.steps[step.partner].partner] == &step);
        }
    }
    FUZZ_CHECK(open == 0);
    return 0;
}
