// readers.cpp - see readers.h.
#include "tools/check/readers.h"

#include <cstdio>
#include <cstring>

#include "Common/INI.h"
#include "src/ActiveVolumeProgram.h"
#include "src/Kestrun.h"

namespace kcheck
{

static const size_t kValueSize = 1024;  // of the setup runner's and the switch's buffer
static const size_t kNameSize = 512;    // of its buffer for the file's name

bool IsPathKept(const std::string &path)
{
    return path.size() < sizeof g_filename;
}

std::optional<IniValue> ReadIni(const std::string &path, const char *section, const char *key)
{
    static const char kDefault[] = "";
    if (!SetIniFileName(path.c_str()))
        return std::nullopt;
    const char *value = ReadString(section, key, kDefault);
    if (value == kDefault)
        return std::nullopt;
    return IniValue{value, static_cast<size_t>(g_current_line_offset)};
}

std::optional<size_t> FindIniSection(const std::string &path, const char *section)
{
    FILE *file = fopen(path.c_str(), "rb");
    if (!file)
        return std::nullopt;
    const bool found = SectionExists(file, section);
    fclose(file);
    return found ? std::optional(static_cast<size_t>(g_current_line_offset)) : std::nullopt;
}

// Reads on in `file` for the section or key `name`, with a buffer of `size` bytes.
static std::optional<KeyValue> ReadOn(FILE *file, const char *name, size_t size, bool section)
{
    char value[kValueSize] = {};
    int64_t capacity = kValueSize;
    snprintf(value, size, "%s", name);
    const int64_t offset = ReadKeyValue(file, value, static_cast<int>(size), &capacity, section);
    if (offset == -1)
        return std::nullopt;
    return KeyValue{value, static_cast<size_t>(offset)};
}

std::optional<KeyValue> ReadKey(const std::string &path, const char *section, const char *key)
{
    FILE *file = fopen(path.c_str(), "r");
    if (!file)
        return std::nullopt;
    std::optional<KeyValue> value = ReadOn(file, section, kValueSize, true);
    if (value)
        value = ReadOn(file, key, kValueSize, false);
    fclose(file);
    return value;
}

bool IsSwitchOn(const std::string &path, const char *section, const char *key)
{
    return IsKeyValueCaseEqual(path.c_str(), section, key, "true");
}

std::optional<size_t> FindKeySection(const std::string &path, const char *section)
{
    FILE *file = fopen(path.c_str(), "r");
    if (!file)
        return std::nullopt;
    const std::optional<KeyValue> header = ReadOn(file, section, kValueSize, true);
    fclose(file);
    return header ? std::optional(header->offset) : std::nullopt;
}

// How many bytes the value of the file's name has in all: the line is read once more.
static size_t WholeLength(FILE *file, size_t from)
{
    const long behind = ftell(file);
    fseek(file, static_cast<long>(from), SEEK_SET);
    const std::optional<KeyValue> whole = ReadOn(file, "SD_THIRD_FILE_NAME", kValueSize, false);
    fseek(file, behind, SEEK_SET);
    return whole ? whole->value.size() : 0;
}

static void ReadSetupKeys(FILE *file, SetupRequest &request)
{
    const auto read = [&](const char *key, size_t size) {
        request.stoppedAt = static_cast<size_t>(ftell(file));
        return ReadOn(file, key, size, false);
    };
    request.run = read("SD_THIRD_SETUP", kValueSize);
    if (request.run)
        request.path = read("SD_THIRD_FILE_PATH", kValueSize);
    if (request.path)
        request.name = read("SD_THIRD_FILE_NAME", kNameSize);
    if (request.name) {
        request.nameLength = WholeLength(file, request.stoppedAt);
        request.once = read("SD_RUN_THIRD_FILE_ONCE", kValueSize);
    }
}

SetupRequest ReadSetup(const std::string &path)
{
    SetupRequest request;
    FILE *file = fopen(path.c_str(), "r");
    if (!file)
        return request;
    const auto header = ReadOn(file, "[SD_THIRDPARTY_SETUP]", kValueSize, true);
    if (header) {
        request.header = header->offset;
        ReadSetupKeys(file, request);
    }
    fclose(file);
    return request;
}

std::string PackageVolume(const std::string &name)
{
    std::string volume(2 * name.size() + 1, '\0');
    volume.resize(SplitIntoWords(volume.data(), name.c_str()));
    return volume;
}

std::string PackageName(std::string fileName)
{
    StripExtension(fileName.data());
    fileName.resize(strlen(fileName.c_str()));
    return fileName;
}

std::string OpenCommand(const std::string &path)
{
    char command[kOpenCommandSize];
    BuildOpenCommand(path.c_str(), command);
    return command;
}

}  // namespace kcheck
