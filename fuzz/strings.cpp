// The checked copies and joins of strings beside models that are too simple to be wrong: whole
// results, every byte of the destination. Sources are separate or lie inside of the destination.
#include "fuzz/scan_case.h"

// What the functions are told: they stand in one block, dest at 0, src anywhere in it.
struct Call4 {
    std::string block;  // ends with a zero
    std::size_t destMax;
    std::size_t src;
    std::size_t count;
};

struct Result {
    int code;
    std::string block;
    bool operator==(const Result &) const = default;
};

static Result Failed(const Call4 &call, int code)
{
    std::string block = call.block;
    block[0] = '\0';
    return {code, block};
}

// Copies length characters and a terminator from src to the destination's start.
static Result Copied(const Call4 &call, std::size_t length)
{
    std::string block = call.block;
    for (std::size_t i = 0; i < length; ++i)
        block[i] = call.block[call.src + i];
    block[length] = '\0';
    return {RESULT_OK, block};
}

static std::size_t LengthAt(const Call4 &call)
{
    return call.block.find('\0', call.src) - call.src;
}

static Result ModelCopy(const Call4 &call)
{
    const std::size_t length = LengthAt(call);
    if (length >= call.destMax)
        return Failed(call, ERANGE_CLEARED);
    if (call.src == 0)
        return {RESULT_OK, call.block};
    return call.src < length + 1 ? Failed(call, OVERLAP_CLEARED) : Copied(call, length);
}

static Result ModelMemory(const Call4 &call, bool mayOverlap)
{
    std::string cleared = call.block;
    std::fill_n(cleared.begin(), call.destMax, '\0');
    if (call.count > call.destMax)
        return {ERANGE_CLEARED, cleared};
    if (call.src == 0 || call.count == 0)
        return {RESULT_OK, call.block};
    if (!mayOverlap && call.src < call.count)
        return {OVERLAP_CLEARED, cleared};
    std::string block = call.block;
    for (std::size_t i = 0; i < call.count; ++i)
        block[i] = call.block[call.src + i];
    return {RESULT_OK, block};
}

template <typename Function>
static Result Ours(const Call4 &call, Function function)
{
    const auto block = Exact(call.block);
    const int code = function(block.get(), block.get() + call.src);
    return {code, std::string(block.get(), call.block.size())};
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t kHead = 3;
    if (size < kHead + 1)
        return 0;
    Call4 call = {std::string(reinterpret_cast<const char *>(data) + kHead, size - kHead), 0, 0, 0};
    call.block.back() = '\0';
    const std::size_t room = call.block.size();
    call.destMax = 1 + data[0] % room;
    call.src = data[1] % room;
    call.count = data[2] % (room - call.src + 1);  // so that the source can be read
    const auto max = call.destMax;
    const auto count = call.count;

    FUZZ_CHECK(Ours(call, [max](char *d, const char *s) { return strcpy_s(d, max, s); }) ==
               ModelCopy(call));
    const Result copied = ModelMemory(call, false);
    FUZZ_CHECK(Ours(call, [=](char *d, const char *s) { return memcpy_s(d, max, s, count); }) ==
               copied);
    FUZZ_CHECK(Ours(call, [=](char *d, const char *s) {
                   return memcpy_sOptAsm(d, max, s, count);
               }) == copied);
    FUZZ_CHECK(Ours(call, [=](char *d, const char *s) {
                   return memcpy_sOptTc(d, max, s, count);
               }) == copied);
    FUZZ_CHECK(Ours(call, [=](char *d, const char *s) { return memmove_s(d, max, s, count); }) ==
               ModelMemory(call, true));
    return 0;
}
