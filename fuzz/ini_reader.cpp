// The INI reader on any bytes, beside a naive reading of the format: what is found, the whole line
// buffer, both offsets and the stream's position. The first three bytes choose the calls.
#include "Common/INI.h"
#include "fuzz/check.h"
#include "tests/support/ini_model.h"

#include <stdio.h>

#include <memory>

static const char *const kSections[] = {"Volumes", "s", "", "s]", "[", "%s%n", "\xFF", " s"};
static const char *const kKeys[] = {"name", "path1", "k", "", "=", "[k]", " k", "\xFF"};
static const std::size_t kHead = 3;
static const int kCalls = 5;

struct CloseFile {
    void operator()(FILE *file) const
    {
        fclose(file);
    }
};

static void CheckState(const IniModel &model, FILE *file)
{
    std::string line = model.line;
    line.resize(sizeof g_linetext, '\0');
    FUZZ_CHECK(line == std::string(g_linetext, sizeof g_linetext));
    FUZZ_CHECK(g_current_line_offset == model.current);
    FUZZ_CHECK(g_last_line_offset == model.last);
    FUZZ_CHECK(ftell(file) == model.current);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size <= kHead)
        return 0;
    const char *const section = kSections[data[0] % std::size(kSections)];
    const char *const key = kKeys[data[1] % std::size(kKeys)];
    std::string content(reinterpret_cast<const char *>(data) + kHead, size - kHead);
    const std::unique_ptr<FILE, CloseFile> file(fmemopen(content.data(), content.size(), "r"));
    FUZZ_CHECK(file != nullptr);

    memset(g_linetext, 'X', sizeof g_linetext - 1);
    g_current_line_offset = 0;
    IniModel model(content);
    // A lookup is a search for the section and then for the key; mixed, the calls go on from
    // wherever the stream stands.
    unsigned choice = data[2];
    for (int call = 0; call < kCalls; call++, choice /= 3) {
        std::string text;
        switch (choice % 3) {
        case 0: FUZZ_CHECK(SectionExists(file.get(), section) == model.Section(section)); break;
        case 1: FUZZ_CHECK((ReadLine(file.get()) == g_linetext) == model.Read(text)); break;
        case 2: FUZZ_CHECK(KeyExists(file.get(), key) == model.Key(key)); break;
        }
        CheckState(model, file.get());
    }
    std::string expected = model.Value(true);
    expected.erase(expected.find_last_not_of(' ') + 1);
    const char *const value = GetKeyValue(g_linetext);
    FUZZ_CHECK(value == nullptr || Trim(g_linetext + (value - g_linetext)) == expected);
    return 0;
}
