// What the engines take from the heap, give back and wipe. The linker's --wrap puts the functions
// below between the library and the C library.
#include "tests/tamrik/input_support.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

static constexpr std::size_t kLocalSize = 350;
static constexpr std::size_t kBlockBytes = 1025;

struct Block {
    void *at;
    std::size_t size;
};

static bool g_isWatching = false;
static std::vector<std::size_t> *g_sizes = nullptr;  // of the blocks taken while watching
static std::vector<Block> *g_held = nullptr;         // those not given back yet
static bool g_hasFreedText = false;                  // a block was freed that was not all zero
static std::size_t g_lastAsked = 0;                  // the size of the last block asked for
static long g_goodMallocs = 0;                       // how many more succeed
static int g_localWipes = 0;  // memset of the local buffer's size with zero, outside of the heap

static bool IsHeld(const void *memory)
{
    for (const Block &block : *g_held) {
        const char *start = static_cast<const char *>(block.at);
        if (memory >= start && memory < start + block.size)
            return true;
    }
    return false;
}

constexpr double kOtherValue = 4711;                     // what strtod returns while it is watched
static std::vector<std::string> *g_converted = nullptr;  // the texts that it was given

extern "C" {
void *__real_malloc(std::size_t size);
void __real_free(void *memory);
void *__real_memset(void *memory, int value, std::size_t size);
void *__wrap_malloc(std::size_t size);
void __wrap_free(void *memory);
void *__wrap_memset(void *memory, int value, std::size_t size);
double __real_strtod(const char *text, char **end);
double __wrap_strtod(const char *text, char **end);

void *__wrap_malloc(std::size_t size)
{
    if (!g_isWatching)
        return __real_malloc(size);
    g_lastAsked = size;
    if (g_goodMallocs-- <= 0) {
        errno = ENOMEM;
        return nullptr;
    }
    void *memory = __real_malloc(size);
    g_isWatching = false;
    g_sizes->push_back(size);
    g_held->push_back({memory, size});
    g_isWatching = true;
    return memory;
}

void __wrap_free(void *memory)
{
    if (g_isWatching && memory != nullptr) {
        for (Block &block : *g_held) {
            if (block.at != memory)
                continue;
            const std::string bytes(static_cast<char *>(memory), block.size);
            g_hasFreedText |= block.size != kBlockBytes && bytes != std::string(block.size, '\0');
            block = g_held->back();
            g_held->pop_back();
            break;
        }
    }
    __real_free(memory);
}

void *__wrap_memset(void *memory, int value, std::size_t size)
{
    if (g_isWatching && value == 0 && size == kLocalSize && !IsHeld(memory))
        ++g_localWipes;
    return __real_memset(memory, value, size);
}

double __wrap_strtod(const char *text, char **end)
{
    if (g_converted == nullptr)
        return __real_strtod(text, end);
    g_converted->emplace_back(text);
    return kOtherValue;
}
}

// What the library did with the heap during work(), of whose allocations the first good ones
// succeed.
struct Watched {
    std::vector<std::size_t> sizes;
    std::vector<Block> held;
    int localWipes = 0;
    bool hasFreedText = false;
};

template <typename Work>
static Watched Watch(long good, Work work)
{
    Watched watched;
    watched.sizes.reserve(64);
    watched.held.reserve(64);
    g_sizes = &watched.sizes;
    g_held = &watched.held;
    g_goodMallocs = good;
    g_localWipes = 0;
    g_hasFreedText = false;
    g_isWatching = true;
    work();
    g_isWatching = false;
    watched.localWipes = g_localWipes;
    watched.hasFreedText = g_hasFreedText;
    return watched;
}

// Text and format are there before the watch begins, so that only the engine is seen.
template <typename Char>
static int Run(const std::basic_string<Char> *text, const Char *format, ...)
{
    InputSource source = {};
    source.kind = kStringSource;
    source.cur = reinterpret_cast<const char *>(text->data());
    source.count = static_cast<int>(text->size() * sizeof(Char));
    va_list arguments;
    va_start(arguments, format);
    const int result = Engine(&source, format, arguments);
    va_end(arguments);
    return result;
}

static int RunFile(FILE *file, const char *format, ...)
{
    InputSource source = FileSource(file);
    va_list arguments;
    va_start(arguments, format);
    const int result = tamrik_input_s(&source, format, arguments);
    va_end(arguments);
    return result;
}

using Sizes = std::vector<std::size_t>;

TEST_CASE("a scan of a string takes memory only for a float of 350 characters and more")
{
    struct Row {
        std::size_t length;
        Sizes sizes;
    };
    const std::vector<Row> rows = {
        {10, {}},           {348, {}},           {349, {}},
        {350, {700}},       {699, {700}},        {700, {700, 1400}},
        {701, {700, 1400}}, {1399, {700, 1400}}, {1400, {700, 1400, 2800}},
    };
    for (const Row &row : rows) {
        CAPTURE(row.length);
        const std::string text = std::string(row.length, '0') + " 12 w";
        const std::wstring wideText = Widened(text);
        double value = -1;
        int number = 0;
        char word[4];
        int result = 0;
        Watched seen =
            Watch(100, [&] { result = Run(&text, "%lf %d %s", &value, &number, word, 4U); });
        CHECK(result == 3);
        CHECK(value == 0);
        CHECK(seen.sizes == row.sizes);
        CHECK(seen.held.empty());
        seen =
            Watch(100, [&] { result = Run(&wideText, L"%lf %d %s", &value, &number, word, 4U); });
        CHECK(result == 3);
        CHECK(seen.sizes == row.sizes);
        CHECK(seen.held.empty());
    }
}

TEST_CASE("the text buffers of floats are zero when they are left")
{
    const std::string text(1000, '7');
    double value = 0;
    Watched seen = Watch(100, [&] { Run(&text, "%lf", &value); });
    CHECK(seen.localWipes == 1);
    CHECK_FALSE(seen.hasFreedText);
    // Also without any float, in each kind of end.
    const std::string word = "x";
    seen = Watch(100, [&] { Run(&word, "%d", &value); });
    CHECK(seen.localWipes == 1);
    seen = Watch(100, [&] { Run(&word, "%s", nullptr, 4U); });
    CHECK(seen.localWipes == 1);
}

TEST_CASE("a float whose text finds no memory is no field, and nothing leaks")
{
    const std::string text = "1 " + std::string(3000, '7');
    for (long good = 0; good < 4; ++good) {
        CAPTURE(good);
        int number = 0;
        double value = -1;
        int result = 0;
        errno = 77;
        const Watched seen = Watch(good, [&] { result = Run(&text, "%d %lf", &number, &value); });
        CHECK(result == 1);
        CHECK(value == -1);
        CHECK(seen.sizes.size() == static_cast<std::size_t>(good));
        CHECK(seen.held.empty());
        CHECK_FALSE(seen.hasFreedText);
        CHECK(seen.localWipes == 1);
        CHECK(errno == 77);
    }
}

TEST_CASE("a float without memory that ends with the input is no end of the input")
{
    const std::string text(350, '7');
    double value = -1;
    int result = 0;
    Watch(0, [&] { result = Run(&text, "%lf", &value); });
    CHECK(result == 0);
    CHECK(value == -1);
}

TEST_CASE("the text of a float is given to strtod as it was read, its sign included")
{
    for (const std::string text :
         {"0", "1.5", "-12.25", "+3", "1e5", "-.5", "7.", "0x1p4", "-inf"}) {
        std::vector<std::string> converted;
        double value = 0;
        float smaller = 0;
        g_converted = &converted;
        const int result = Run(&text, "%lf", &value);
        const int smallerResult = Run(&text, "%f", &smaller);
        g_converted = nullptr;
        CAPTURE(text);
        CHECK(result == 1);
        CHECK(value == kOtherValue);
        CHECK(smallerResult == 1);
        CHECK(smaller == static_cast<float>(kOtherValue));
        CHECK(converted == std::vector<std::string>{text, text});
    }
}

TEST_CASE("a file without memory for its block is at its end, and nothing of it is lost")
{
    FILE *file = std::tmpfile();
    REQUIRE(file != nullptr);
    std::fputs("12 34", file);
    std::rewind(file);
    int value = 0;
    int result = 0;
    errno = 77;
    Watched seen = Watch(0, [&] { result = RunFile(file, "%d", &value); });
    CHECK(result == -1);
    CHECK(errno == 77);
    seen = Watch(1, [&] { result = RunFile(file, "%d", &value); });
    CHECK(result == 1);
    CHECK(value == 12);
    CHECK(seen.sizes == Sizes{kBlockBytes});
    CHECK(seen.held.empty());
    std::fclose(file);
}

TEST_CASE("a float of a file whose text finds no memory is no field, and nothing leaks")
{
    for (long good = 1; good < 4; ++good) {
        CAPTURE(good);
        FILE *file = std::tmpfile();
        REQUIRE(file != nullptr);
        std::fputs(("1 " + std::string(3000, '7')).c_str(), file);
        std::rewind(file);
        int number = 0;
        double value = -1;
        int result = 0;
        const Watched seen =
            Watch(good, [&] { result = RunFile(file, "%d %lf", &number, &value); });
        CHECK(result == 1);
        CHECK(value == -1);
        CHECK(seen.sizes.size() == static_cast<std::size_t>(good));
        CHECK(seen.held.empty());
        CHECK_FALSE(seen.hasFreedText);
        // The field ends after the character that found no room.
        CHECK(std::ftell(file) == 2 + (350L << (good - 1)));
        std::fclose(file);
    }
}

TEST_CASE("an empty file's block is freed too")
{
    FILE *file = std::tmpfile();
    REQUIRE(file != nullptr);
    int value = 0;
    const Watched seen = Watch(1, [&] { RunFile(file, "%d", &value); });
    CHECK(seen.sizes == Sizes{kBlockBytes});
    CHECK(seen.held.empty());
    std::fclose(file);
}

// ---- __check_float_string ----

TEST_CASE("the text buffer does not grow while there is room")
{
    char local[8] = {};
    char *buffer = local;
    std::size_t size = sizeof local;
    int onHeap = 0;
    const Watched seen =
        Watch(9, [&] { CHECK(__check_float_string(7, &size, &buffer, local, &onHeap) == 1); });
    CHECK(seen.sizes.empty());
    CHECK(buffer == local);
    CHECK(size == sizeof local);
    CHECK(onHeap == 0);
    CHECK(__check_float_string(9, &size, &buffer, local, &onHeap) == 1);
    CHECK(buffer == local);
}

TEST_CASE("the first growth copies the local buffer, a later one zeroes and frees the one before")
{
    char local[8] = {'1', '2', '3', '4', '5', '6', '7', '8'};
    char *buffer = local;
    std::size_t size = sizeof local;
    int onHeap = 0;
    const Watched seen = Watch(9, [&] {
        CHECK(__check_float_string(8, &size, &buffer, local, &onHeap) == 1);
        CHECK(std::string(buffer, 16) == "12345678" + std::string(8, '\0'));
        CHECK(size == 16);
        CHECK(onHeap == 1);
        CHECK(std::string(local, 8) == "12345678");
        CHECK(__check_float_string(16, &size, &buffer, local, &onHeap) == 1);
        CHECK(std::string(buffer, 32) == "12345678" + std::string(24, '\0'));
        CHECK(size == 32);
    });
    CHECK(seen.held.size() == 1);
    CHECK_FALSE(seen.hasFreedText);
    std::free(buffer);
}

TEST_CASE("a growth that fails changes nothing, and its size refuses a later one alone")
{
    char local[8] = {'1', '2', '3', '4', '5', '6', '7', '8'};
    char *buffer = local;
    std::size_t size = sizeof local;
    int onHeap = 0;
    errno = 77;
    Watch(0, [&] { CHECK(__check_float_string(8, &size, &buffer, local, &onHeap) == 0); });
    CHECK(buffer == local);
    CHECK(size == sizeof local);
    CHECK(onHeap == 0);

    CHECK(__check_float_string(8, &size, &buffer, local, &onHeap) == 1);
    char *first = buffer;
    Watch(0, [&] { CHECK(__check_float_string(16, &size, &buffer, local, &onHeap) == 0); });
    CHECK(buffer == first);
    CHECK(size == 16);
    CHECK(onHeap == 1);
    CHECK(errno == 77);

    // The first growth is refused by no size: it asks for its memory.
    int isFirst = 0;
    size = 0x40000000;
    Watch(0,
          [&] { CHECK(__check_float_string(0x40000000, &size, &buffer, local, &isFirst) == 0); });
    CHECK(g_lastAsked == 0x80000000);
    CHECK(isFirst == 0);

    // The last size that may double again asks for its memory.
    size = 0x3FFFFFFF;
    Watch(0, [&] { CHECK(__check_float_string(0x3FFFFFFF, &size, &buffer, local, &onHeap) == 0); });
    CHECK(g_lastAsked == 0x7FFFFFFE);
    CHECK(size == 0x3FFFFFFF);

    // Beyond the limit no memory is asked for.
    size = 0x40000000;
    const Watched seen = Watch(
        9, [&] { CHECK(__check_float_string(0x40000000, &size, &buffer, local, &onHeap) == 0); });
    CHECK(seen.sizes.empty());
    CHECK(size == 0x40000000);
    std::free(buffer);
}
