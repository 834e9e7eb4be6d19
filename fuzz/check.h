// What every fuzzer claims with.
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Ends the run, with the input that led here kept by the fuzzer.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition))                                                                          \
            std::abort();                                                                          \
    } while (false)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

#endif
