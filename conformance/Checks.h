// Checks.h - what the daemon relies on, claim by claim, in the frameworks' public calls alone.
#ifndef CONFORMANCE_CHECKS_H
#define CONFORMANCE_CHECKS_H

#include <string>
#include <vector>

namespace conformance
{

// One claim. `holds` returns an empty text when the claim holds, else what was seen instead; a text
// that begins with "SKIP " says why nothing could be seen.
struct Check {
    const char *claim;
    std::string (*holds)();
    bool isLong = false;  // takes more than ten seconds
};

extern const std::vector<Check> kGeneralChecks;  // strings, the run loop, serial ports
extern const std::vector<Check> kDiskChecks;

// What was seen where something else was expected; empty when the two are the same.
std::string Difference(const std::string &seen, const std::string &expected);

}  // namespace conformance

#endif
