// The key file reader on any bytes, beside a plain model: offsets, values, the capacity that is
// told and the stream's position. The first two bytes choose the calls.
#include "fuzz/check.h"
#include "src/ActiveVolumeProgram.h"
#include "tests/support/key_model.h"

#include <stdio.h>
#include <string.h>

#include <memory>

static const char *const kSections[] = {"SEC", "[SD_THIRDPARTY_SETUP]", " [ S ] ", "[]"};
static const char *const kKeys[] = {"KEY", "SD_THIRD_SETUP", "K", "="};
static const int64_t kCapacities[] = {1024, 5, 1, 0};
static const std::size_t kSizes[] = {1024, 512, 4, 1};
static const std::size_t kHead = 2;
static const int kCalls = 4;

static void ReadBoth(FILE *file, KeyModel *model, const std::string &name, bool sectionMode,
                     unsigned choice)
{
    const std::size_t size = kSizes[choice % std::size(kSizes)];
    int64_t capacity = kCapacities[choice / 4 % std::size(kCapacities)];
    int64_t modelCapacity = capacity;
    std::string modelIO = name;
    const int64_t expected =
        sectionMode ? model->Section(modelIO) : model->Key(modelIO, size, modelCapacity);
    if (sectionMode)
        modelIO = KeyModel::Trimmed(name);

    // Memory of just the size that is stated, or of the name's where that is larger.
    const std::size_t room = std::max(size, name.size() + 1);
    const auto keyIO = std::make_unique<char[]>(room);
    memcpy(keyIO.get(), name.c_str(), name.size() + 1);
    const int64_t result =
        ReadKeyValue(file, keyIO.get(), static_cast<int>(size), &capacity, sectionMode);
    FUZZ_CHECK(result == expected);
    FUZZ_CHECK(modelIO == keyIO.get());
    FUZZ_CHECK(capacity == modelCapacity);
    FUZZ_CHECK(ftell(file) == static_cast<long>(model->position));
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size <= kHead)
        return 0;
    KeyModel model{std::string(reinterpret_cast<const char *>(data) + kHead, size - kHead)};
    FILE *file = fmemopen(model.bytes.data(), model.bytes.size(), "rb");
    FUZZ_CHECK(file != nullptr);
    const char *const section = kSections[data[0] % std::size(kSections)];
    const char *const key = kKeys[data[0] / 4 % std::size(kKeys)];
    for (int call = 0; call < kCalls; call++) {
        const bool sectionMode = ((data[0] >> (4 + call)) & 1) == 0;
        ReadBoth(file, &model, sectionMode ? section : key, sectionMode, data[1]);
    }
    fclose(file);
    return 0;
}
