// The memory functions: each row of their contracts, each small size at each alignment, and random
// calls against models that do the work byte by byte. All buffers end at an unreadable page.
#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"
#include "tests/support/random.h"
#include "tests/support/rounds.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace
{

constexpr std::size_t kAboveLimit = 0x80000000;  // the smallest size that is too large
constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
constexpr int kErrno = 4711;  // no real error number: stays unless somebody sets errno

struct FillFunction {
    const char *name;
    int (*call)(void *, std::size_t, int, std::size_t);
    bool hasLimit;  // whether a destMax above the limit is refused where all else is in order
};
const FillFunction kFills[] = {
    {"memset_s", memset_s, true},
    {"memset_sOptAsm", memset_sOptAsm, true},
    {"memset_sOptTc", memset_sOptTc, false},
};

struct CopyFunction {
    const char *name;
    int (*call)(void *, std::size_t, const void *, std::size_t);
    bool hasLimit;
};
const CopyFunction kCopies[] = {
    {"memcpy_s", memcpy_s, true},
    {"memcpy_sOptAsm", memcpy_sOptAsm, true},
    {"memcpy_sOptTc", memcpy_sOptTc, false},
};

std::string Zeros(std::size_t count)
{
    return std::string(count, '\0');
}

}  // namespace

TEST_CASE("the result codes are the numbers of the table")
{
    CHECK(RESULT_OK == 0);
    CHECK(EINVAL == 22);
    CHECK(ERANGE == 34);
    CHECK(EINVAL_CLEARED == EINVAL + 128);
    CHECK(ERANGE_CLEARED == ERANGE + 128);
    CHECK(OVERLAP_CLEARED == 54 + 128);
    CHECK(MAX_BUFFER_SIZE == 2147483647);
}

TEST_CASE("myStrAllFF is 32 bytes of ones")
{
    static_assert(sizeof myStrAllFF == 32);
    CHECK(std::all_of(std::begin(myStrAllFF), std::end(myStrAllFF),
                      [](unsigned char byte) { return byte == 0xFF; }));
}

TEST_CASE("a fill reports what its contract says and leaves behind what it says")
{
    struct Row {
        const char *claim;
        std::size_t destMax;
        int c;
        std::size_t count;
        int result;
        std::string held;  // all 10 bytes of the buffer
    };
    const std::string untouched = Canaries(10);
    // clang-format off
    const Row rows[] = {
        {"the whole buffer",                       10, 'x', 10, 0,   "xxxxxxxxxx"},
        {"a part of the buffer",                   10, 'x', 4,  0,   "xxxx" + Canaries(6)},
        {"nothing",                                10, 'x', 0,  0,   untouched},
        {"no more than destMax, with the value",   10, 'x', 11, 162, "xxxxxxxxxx"},
        {"destMax and not the buffer's end",       6,  'x', 7,  162, "xxxxxx" + Canaries(4)},
        {"a count beyond all limits",              6,  0,   kHuge, 162, Zeros(6) + Canaries(4)},
        {"only the low byte of the value",         10, 0x12345678, 2, 0, "xx" + Canaries(8)},
        {"the low byte of a negative value",       10, -136, 2, 0,   "xx" + Canaries(8)},
        {"the low byte when it does not fit",      2,  0x178, 3, 162, "xx" + Canaries(8)},
        {"size 0 and count 0 are in order",        0,  'x', 0,  0,   untouched},
        {"size 0 with a count",                    0,  'x', 1,  34,  untouched},
        {"a count that is above a size too large", kAboveLimit, 'x', kAboveLimit + 1, 34, untouched},
        {"the largest size with a count above it", kHuge - 1, 'x', kHuge, 34, untouched},
        {"the limit itself is in order",           MAX_BUFFER_SIZE, 'x', 3, 0, "xxx" + Canaries(7)},
    };
    // clang-format on
    for (const FillFunction &fill : kFills) {
        for (const Row &row : rows) {
            CAPTURE(fill.name);
            CAPTURE(row.claim);
            const Guarded buffer(10);
            CHECK(fill.call(buffer.Bytes(), row.destMax, row.c, row.count) == row.result);
            CHECK(buffer.Held() == row.held);
            CHECK(buffer.FrontIntact());
        }
    }
}

TEST_CASE("a fill without a destination is 22, unless the size is what is wrong")
{
    for (const FillFunction &fill : kFills) {
        CAPTURE(fill.name);
        CHECK(fill.call(nullptr, 10, 'x', 4) == 22);
        CHECK(fill.call(nullptr, 10, 'x', 0) == 22);
        CHECK(fill.call(nullptr, 10, 'x', 11) == 22);
        CHECK(fill.call(nullptr, 0, 'x', 0) == 34);
        CHECK(fill.call(nullptr, kAboveLimit, 'x', 4) == 34);
        CHECK(fill.call(nullptr, MAX_BUFFER_SIZE, 'x', 4) == 22);
    }
}

TEST_CASE("memset_sOptTc alone fills where destMax is above the limit")
{
    for (const FillFunction &fill : kFills) {
        for (const std::size_t size : {kAboveLimit, kHuge}) {
            CAPTURE(fill.name);
            const Guarded buffer(8);
            CHECK(fill.call(buffer.Bytes(), size, 0, 4) == (fill.hasLimit ? 34 : 0));
            CHECK(buffer.Held() == (fill.hasLimit ? Canaries(8) : Zeros(4) + Canaries(4)));
            CHECK(fill.call(buffer.Bytes(), size, 'x', 0) == (fill.hasLimit ? 34 : 0));
            CHECK(buffer.Held() == (fill.hasLimit ? Canaries(8) : Zeros(4) + Canaries(4)));
            CHECK(buffer.FrontIntact());
        }
    }
}

// Leaves other bytes than zeros and ones where the next call has its local variables.
[[gnu::noinline]] static void SpoilStack()
{
    volatile unsigned char spoilt[1024];
    for (volatile unsigned char &byte : spoilt)
        byte = 0x5A;
}

TEST_CASE("a small fill depends on nothing that earlier calls left behind")
{
    for (const FillFunction &fill : kFills) {
        for (const unsigned count : {1U, 4U, 8U, 16U, 32U}) {
            CAPTURE(fill.name);
            const Guarded buffer(count);
            SpoilStack();
            CHECK(fill.call(buffer.Bytes(), count, 'x', count) == 0);
            CHECK(buffer.Held() == std::string(count, 'x'));
        }
    }
}

TEST_CASE(
    "a fill of any small size at any alignment with any value writes these bytes and no others")
{
    constexpr std::size_t kMost = 72;
    for (const FillFunction &fill : kFills) {
        for (const int c : {0, 255, -1, 511, 256, 1, 120, 0x7FFFFFFF, -128}) {
            for (std::size_t count = 0; count <= kMost; count++) {
                for (std::size_t lead = 0; lead < 16; lead++) {
                    // From aligned starts (after lead bytes) with room after the block.
                    const Guarded buffer(96);
                    unsigned char *dest = buffer.Bytes() + lead;
                    const int result = fill.call(dest, count, c, count);
                    std::string expected = Canaries(96);
                    for (std::size_t i = 0; i < count; i++)
                        expected[lead + i] = static_cast<char>(c & 0xFF);
                    if (result != 0 || buffer.Held() != expected || !buffer.FrontIntact())
                        FAIL_CHECK(fill.name << " c " << c << " count " << count << " lead "
                                             << lead);
                }
                // Up to the unreadable page.
                const Guarded tight(count);
                if (fill.call(tight.Bytes(), count, c, count) != 0 ||
                    tight.Held() != std::string(count, static_cast<char>(c & 0xFF)) ||
                    !tight.FrontIntact())
                    FAIL_CHECK(fill.name << " c " << c << " count " << count << " at the end");
            }
        }
    }
}

TEST_CASE("a copy reports what its contract says and leaves behind what it says")
{
    struct Row {
        const char *claim;
        std::size_t destMax;
        std::size_t count;
        int result;
        std::string held;  // all 8 bytes of the buffer
    };
    const std::string untouched = Canaries(8);
    // clang-format off
    const Row rows[] = {
        {"all of it",                                 8, 8,  0,   "abcdefgh"},
        {"a part",                                    8, 3,  0,   "abc" + Canaries(5)},
        {"nothing",                                   8, 0,  0,   untouched},
        {"a count above destMax",                     8, 9,  162, Zeros(8)},
        {"destMax and not the buffer's end",          5, 6,  162, Zeros(5) + Canaries(3)},
        {"a count beyond all limits",                 5, kHuge, 162, Zeros(5) + Canaries(3)},
        {"size 0",                                    0, 0,  34,  untouched},
        {"size 0 with a count",                       0, 3,  34,  untouched},
        {"a count that is above a size too large",    kAboveLimit, kAboveLimit + 1, 34, untouched},
        {"nothing into a size too large",             kAboveLimit, 0, 34, untouched},
        {"the limit itself is in order",              MAX_BUFFER_SIZE, 3, 0, "abc" + Canaries(5)},
    };
    // clang-format on
    for (const Row &row : rows) {
        const Guarded src(std::string("abcdefgh"));
        for (const CopyFunction &copy : kCopies) {
            CAPTURE(copy.name);
            CAPTURE(row.claim);
            const Guarded buffer(8);
            CHECK(copy.call(buffer.Bytes(), row.destMax, src.Bytes(), row.count) == row.result);
            CHECK(buffer.Held() == row.held);
            CHECK(buffer.FrontIntact());
        }
        CAPTURE(row.claim);
        const Guarded buffer(8);
        CHECK(memmove_s(buffer.Bytes(), row.destMax, src.Bytes(), row.count) == row.result);
        CHECK(buffer.Held() == row.held);
        CHECK(buffer.FrontIntact());
        CHECK(src.Held() == "abcdefgh");
    }
}

TEST_CASE("a copy or move from or to a null pointer")
{
    const CopyFunction all[] = {kCopies[0], kCopies[1], kCopies[2], {"memmove_s", memmove_s, true}};
    for (const CopyFunction &copy : all) {
        CAPTURE(copy.name);
        const Guarded src(std::string("abcdefgh"));
        const Guarded buffer(10);
        CHECK(copy.call(nullptr, 8, src.Bytes(), 4) == 22);
        CHECK(copy.call(nullptr, 8, nullptr, 4) == 22);
        CHECK(copy.call(nullptr, 8, src.Bytes(), 9) == 22);
        CHECK(copy.call(nullptr, 0, src.Bytes(), 4) == 34);
        CHECK(copy.call(buffer.Bytes(), 0, nullptr, 4) == 34);
        CHECK(copy.call(buffer.Bytes(), kAboveLimit, nullptr, 4) == 34);
        CHECK(copy.call(nullptr, kAboveLimit, src.Bytes(), 4) == 34);
        CHECK(buffer.Held() == Canaries(10));
        for (const std::size_t count : {std::size_t{4}, std::size_t{0}, std::size_t{9}, kHuge}) {
            buffer.Fill();
            CHECK(copy.call(buffer.Bytes(), 8, nullptr, count) == 150);
            CHECK(buffer.Held() == Zeros(8) + Canaries(2));
        }
        CHECK(buffer.FrontIntact());
    }
}

TEST_CASE("a size above the limit is 34, but for memcpy_sOptTc when it has something to copy")
{
    for (const CopyFunction &copy : kCopies) {
        for (const std::size_t size : {kAboveLimit, kHuge}) {
            CAPTURE(copy.name);
            const Guarded buffer(std::string("abcdefghijklmnop"));
            unsigned char *p = buffer.Bytes();
            CHECK(copy.call(p, size, p, 8) == 34);        // equal pointers
            CHECK(copy.call(p + 4, size, p, 8) == 34);    // overlap
            CHECK(copy.call(p, size, p + 4, 8) == 34);    // overlap, the other way
            CHECK(copy.call(p, size, p + 8, 0) == 34);    // nothing to copy
            CHECK(copy.call(p, size, nullptr, 8) == 34);  // no source
            CHECK(buffer.Held() == "abcdefghijklmnop");
            CHECK(copy.call(p, size, p + 8, 8) == (copy.hasLimit ? 34 : 0));
            CHECK(buffer.Held() == (copy.hasLimit ? "abcdefghijklmnop" : "ijklmnopijklmnop"));
        }
    }
    const Guarded buffer(std::string("abcdefgh"));
    CHECK(memmove_s(buffer.Bytes(), kAboveLimit, buffer.Bytes() + 4, 4) == 34);
    CHECK(buffer.Held() == "abcdefgh");
}

TEST_CASE("a copy onto itself succeeds and changes nothing, unless it does not fit")
{
    const CopyFunction all[] = {kCopies[0], kCopies[1], kCopies[2], {"memmove_s", memmove_s, true}};
    for (const CopyFunction &copy : all) {
        CAPTURE(copy.name);
        const Guarded buffer(std::string("abcdefghijklmnop"));
        unsigned char *p = buffer.Bytes();
        CHECK(copy.call(p, 16, p, 8) == 0);
        CHECK(copy.call(p, 16, p, 0) == 0);
        CHECK(copy.call(p, 16, p, 16) == 0);
        CHECK(buffer.Held() == "abcdefghijklmnop");
        CHECK(copy.call(p, 8, p, 9) == 162);
        CHECK(buffer.Held() == Zeros(8) + "ijklmnop");
    }
}

TEST_CASE("overlapping regions are 182 with all of destMax zero, regions that touch are copied")
{
    for (const CopyFunction &copy : kCopies) {
        CAPTURE(copy.name);
        const std::string text = "abcdefghijklmnopqrstuvwx";
        const Guarded above(text);
        CHECK(copy.call(above.Bytes() + 4, 16, above.Bytes(), 8) == 182);
        CHECK(above.Held() == "abcd" + Zeros(16) + "uvwx");
        const Guarded below(text);
        CHECK(copy.call(below.Bytes(), 16, below.Bytes() + 7, 8) == 182);
        CHECK(below.Held() == Zeros(16) + "qrstuvwx");
        const Guarded touching(text);
        CHECK(copy.call(touching.Bytes() + 8, 16, touching.Bytes(), 8) == 0);
        CHECK(touching.Held() == "abcdefghabcdefghqrstuvwx");
        CHECK(copy.call(touching.Bytes(), 16, touching.Bytes() + 16, 8) == 0);
        CHECK(touching.Held() == "qrstuvwxabcdefghqrstuvwx");
    }
}

TEST_CASE("a source that would pass the end of the address space overlaps what stands above it")
{
    // Nothing is read: the overlap is found first. The destination is real memory above the source.
    const Guarded buffer(8);
    const void *low = reinterpret_cast<const void *>(std::uintptr_t{16});  // NOLINT: never read
    CHECK(memcpy_sOptTc(buffer.Bytes(), kHuge, low, kHuge - 8) == 34);
    CHECK(buffer.Held() == Canaries(8));
    // A source in the highest addresses lies above: from there the destination is out of reach.
    const void *high = reinterpret_cast<const void *>(kHuge - 3);  // NOLINT: never read
    CHECK(memcpy_sOptTc(buffer.Bytes(), kHuge, high, kHuge - 8) == 34);
    CHECK(buffer.Held() == Canaries(8));
}

TEST_CASE("a copy of any small size at any two alignments writes these bytes and no others")
{
    constexpr std::size_t kMost = 80;
    std::string pattern;
    for (std::size_t i = 0; i < 128; i++)
        pattern += static_cast<char>(i * 37 + 11);
    for (const CopyFunction &copy : kCopies) {
        for (std::size_t count = 1; count <= kMost; count++) {
            const Guarded src(pattern);
            const Guarded dest(128);
            for (std::size_t from = 0; from < 9; from++) {
                for (std::size_t to = 0; to < 9; to++) {
                    dest.Fill();
                    const int result =
                        copy.call(dest.Bytes() + to, count, src.Bytes() + from, count);
                    std::string expected = Canaries(128);
                    expected.replace(to, count, pattern, from, count);
                    if (result != 0 || dest.Held() != expected || !dest.FrontIntact())
                        FAIL_CHECK(copy.name << ' ' << count << " from " << from << " to " << to);
                }
            }
            // Both up to an unreadable page.
            const Guarded tightSrc(pattern.substr(0, count));
            const Guarded tight(count);
            if (copy.call(tight.Bytes(), count, tightSrc.Bytes(), count) != 0 ||
                tight.Held() != tightSrc.Held() || !tight.FrontIntact())
                FAIL_CHECK(copy.name << ' ' << count << " at the end");
        }
    }
}

TEST_CASE("memmove_s moves between regions that overlap")
{
    const Guarded buffer(std::string("abcdefghijklmnopq"));
    unsigned char *p = buffer.Bytes();
    CHECK(memmove_s(p + 1, 16, p, 8) == 0);
    CHECK(buffer.Held() == "aabcdefghjklmnopq");
    CHECK(memmove_s(p, 16, p + 1, 8) == 0);
    CHECK(buffer.Held() == "abcdefghhjklmnopq");
    CHECK(memmove_s(p + 4, 4, p, 5) == 162);
    CHECK(buffer.Held() == "abcd" + Zeros(4) + "hjklmnopq");
}

TEST_CASE("util_memmove moves as if through a second buffer, whatever the two places")
{
    const std::string text = "abcdefghijklmnopqrstuvwxyz";
    for (std::size_t from = 0; from < text.size(); from++) {
        for (std::size_t to = 0; to < text.size(); to++) {
            const std::size_t most = text.size() - std::max(from, to);
            for (std::size_t count = 0; count <= most; count++) {
                const Guarded buffer(text);
                util_memmove(buffer.Bytes() + to, buffer.Bytes() + from, count);
                std::string expected = text;
                expected.replace(to, count, text, from, count);
                if (buffer.Held() != expected)
                    FAIL_CHECK(from << " to " << to << " count " << count);
            }
        }
    }
    util_memmove(nullptr, nullptr, 0);
}

namespace
{

// What the functions have to do, in numbers of an arena: no wide store, no shortcut.
struct Call {
    std::size_t dest;     // index into the arena, or kNone for a null pointer
    std::size_t src;      // the same
    std::size_t destMax;  // as passed
    std::size_t count;    // as passed
    int c;
};
constexpr std::size_t kNone = kHuge;

int Cleared(std::string &arena, const Call &call, int code, char with = '\0')
{
    for (std::size_t i = 0; i < call.destMax; i++)
        arena[call.dest + i] = with;
    return code;
}

int FillModel(std::string &arena, const Call &call, bool hasLimit)
{
    const bool isSizeBad = call.destMax == 0 || call.destMax > MAX_BUFFER_SIZE;
    const bool fits = call.count <= call.destMax;
    const bool isLimitKept = call.destMax <= MAX_BUFFER_SIZE || !hasLimit;
    if (call.dest != kNone && fits && isLimitKept) {
        for (std::size_t i = 0; i < call.count; i++)
            arena[call.dest + i] = static_cast<char>(call.c & 0xFF);
        return 0;
    }
    if (isSizeBad)
        return 34;
    if (call.dest == kNone)
        return 22;
    return Cleared(arena, call, 162, static_cast<char>(call.c & 0xFF));
}

bool Overlap(const Call &call)
{
    return call.dest >= call.src ? call.src + call.count > call.dest
                                 : call.dest + call.count > call.src;
}

int CopyModel(std::string &arena, const Call &call, bool hasLimit, bool isMove)
{
    const bool isSizeBad = call.destMax == 0 || call.destMax > MAX_BUFFER_SIZE;
    const bool isTaken = !isMove && !hasLimit && call.count != 0 && call.dest != kNone &&
                         call.src != kNone && call.count <= call.destMax && !Overlap(call);
    if (isSizeBad && !isTaken)
        return 34;
    if (call.dest == kNone)
        return 22;
    if (call.src == kNone)
        return Cleared(arena, call, 150);
    if (call.count > call.destMax)
        return Cleared(arena, call, 162);
    if (call.dest == call.src || call.count == 0)
        return 0;
    if (!isMove && Overlap(call))
        return Cleared(arena, call, 182);
    arena.replace(call.dest, call.count, std::string(arena, call.src, call.count));
    return 0;
}

// A call within an arena of size bytes: mostly in order, every way of being wrong now and then.
Call AnyCall(Random &random, std::size_t size)
{
    Call call;
    call.dest = random.Below(size);
    call.src = random.Below(size);
    if (random.OneIn(8))
        call.src = call.dest;
    const std::size_t room = size - std::max(call.dest, call.src);
    call.destMax = random.Below(size - call.dest + 1);
    call.count = random.Below(std::min(room, call.destMax) + 1);
    if (random.OneIn(8))  // does not fit
        call.count = call.destMax + 1 + random.Below(40);
    if (random.OneIn(32)) {  // the sizes that are too large, with a count that could be served
        call.destMax = random.OneIn(2) ? kHuge : kAboveLimit;
        call.count = random.Below(room + 1);
    }
    if (random.OneIn(32))
        call.dest = kNone;
    if (random.OneIn(32))
        call.src = kNone;
    const int values[] = {0, 255, -1, 511, static_cast<int>(random.Below(256))};
    call.c = values[random.Below(std::size(values))];
    return call;
}

}  // namespace

TEST_CASE("random fills, copies and moves, overlapping or not, do what a byte by byte model does")
{
    const int kRounds = Rounds(300000);  // of seven calls each
    constexpr std::size_t kArena = 160;
    Random random;
    const Guarded arena(kArena);
    std::string model = arena.Held();
    const auto at = [&](std::size_t index) {
        return index == kNone ? nullptr : arena.Bytes() + index;
    };
    const auto compare = [&](const char *name, const Call &call, int result, int expected) {
        if (result == expected && arena.Held() == model && errno == kErrno)
            return;
        FAIL(name << " dest " << call.dest << " src " << call.src << " destMax " << call.destMax
                  << " count " << call.count << " c " << call.c << ": " << result << ", expected "
                  << expected);
    };

    errno = kErrno;
    for (int round = 0; round < kRounds; round++) {
        for (const FillFunction &fill : kFills) {
            const Call call = AnyCall(random, kArena);
            const int expected = FillModel(model, call, fill.hasLimit);
            const int result = fill.call(at(call.dest), call.destMax, call.c, call.count);
            compare(fill.name, call, result, expected);
        }
        for (std::size_t i = 0; i < kArena; i += 1 + random.Below(8))
            arena.Text()[i] = model[i] = static_cast<char>(random.Next());
        for (const CopyFunction &copy : kCopies) {
            const Call call = AnyCall(random, kArena);
            const int expected = CopyModel(model, call, copy.hasLimit, false);
            const int result = copy.call(at(call.dest), call.destMax, at(call.src), call.count);
            compare(copy.name, call, result, expected);
        }
        const Call call = AnyCall(random, kArena);
        const int expected = CopyModel(model, call, true, true);
        compare("memmove_s", call, memmove_s(at(call.dest), call.destMax, at(call.src), call.count),
                expected);
    }
    CHECK(arena.FrontIntact());
}

TEST_CASE("blocks above the small sizes are filled, copied and moved whole")
{
    for (const std::size_t size : {std::size_t{1024}, std::size_t{4096}, std::size_t{100000}}) {
        std::string text;
        for (std::size_t i = 0; i < size; i++)
            text += static_cast<char>(i * 7 + i / 256);
        const Guarded src(text);
        const Guarded dest(size);
        for (const std::size_t destMax : {size, std::size_t{MAX_BUFFER_SIZE}}) {
            for (const CopyFunction &copy : kCopies) {
                CAPTURE(copy.name);
                dest.Fill();
                CHECK(copy.call(dest.Bytes(), destMax, src.Bytes(), size) == 0);
                CHECK((dest.Held() == text));
            }
            for (const FillFunction &fill : kFills) {
                CAPTURE(fill.name);
                dest.Fill();
                CHECK(fill.call(dest.Bytes(), destMax, 0x1FF, size) == 0);
                CHECK((dest.Held() == std::string(size, '\xFF')));
            }
        }
        CHECK(memmove_s(src.Bytes() + 1, size - 1, src.Bytes(), size - 1) == 0);
        CHECK((src.Held() == text.substr(0, 1) + text.substr(0, size - 1)));
    }
}

TEST_CASE("getQvTamrikVersion gives the banner and the number, each where there is a place for it")
{
    const std::string banner = "Qarvel Tamrik V100R001C01SCP004B001";
    struct Row {
        const char *claim;
        int bufSize;
        std::string held;  // all 64 bytes
    };
    const Row rows[] = {
        {"room enough", 64, WithTerminator(banner) + Canaries(64 - 36)},
        {"just room enough", 36, WithTerminator(banner) + Canaries(64 - 36)},
        {"one byte less", 35, '\0' + Canaries(63)},
        {"far too little", 10, '\0' + Canaries(63)},
        {"one byte", 1, '\0' + Canaries(63)},
        {"none", 0, Canaries(64)},
        {"less than none", -1, Canaries(64)},
    };
    for (const Row &row : rows) {
        CAPTURE(row.claim);
        const Guarded buffer(64);
        unsigned short number = 0xABCD;
        getQvTamrikVersion(buffer.Text(), row.bufSize, &number);
        CHECK(buffer.Held() == row.held);
        CHECK(number == 1284);
        CHECK(buffer.FrontIntact());
        buffer.Fill();
        getQvTamrikVersion(buffer.Text(), row.bufSize, nullptr);
        CHECK(buffer.Held() == row.held);
    }
    const Guarded tight(36);
    unsigned short number = 0;
    getQvTamrikVersion(tight.Text(), 36, nullptr);
    CHECK(tight.Held() == WithTerminator(banner));
    getQvTamrikVersion(nullptr, 64, &number);
    CHECK(number == 0x0504);
    getQvTamrikVersion(nullptr, 64, nullptr);
}
