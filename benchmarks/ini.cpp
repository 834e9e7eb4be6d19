// Looking up the last of 3 to 3000 keys of a section, the file opened and read anew each time,
// beside inih and SimpleIni: once where the other keys begin unlike it, once where all begin alike.
#include "benchmarks/harness.h"
#include "Common/INI.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#ifdef HAVE_INIH
#include <ini.h>
#endif
#ifdef HAVE_SIMPLEINI
#define SI_NO_CONVERSION  // narrow characters alone
#include <SimpleIni.h>
#endif

namespace
{

constexpr char kValue[] = "/Volumes/Orvanta/Orvanta.app/";
constexpr std::size_t kKeyCounts[] = {3, 30, 300, 3000};
std::string g_found;  // by the candidate that ran last

struct Shape {
    const char *name;
    const char *key;    // its beginning, before a number
    const char *value;  // its beginning, before the same number
};
constexpr Shape kShapes[] = {
    {"keys", "setting", "the value of setting "},
    {"keys alike", "path", "the value of setting "},
};

// A configuration file with so many keys, "path1" the last of them, and a section after it.
std::string WriteFile(const Shape &shape, std::size_t keys)
{
    char name[] = "/tmp/kestrun-benchmark-XXXXXX";
    const int descriptor = mkstemp(name);
    std::FILE *file = fdopen(descriptor, "w");
    std::fprintf(file, "[General]\nversion=1\n[Volumes]\n");
    for (std::size_t i = 1; i < keys; i++)
        std::fprintf(file, "%s%zu = %s%zu\n", shape.key, i + 1, shape.value, i + 1);
    std::fprintf(file, "path1 = %s\n[Other]\nlast=1\n", kValue);
    std::fclose(file);
    return name;
}

#ifdef HAVE_INIH
int TakeValue(void *found, const char *section, const char *name, const char *value)
{
    if (std::strcmp(section, "Volumes") == 0 && std::strcmp(name, "path1") == 0)
        *static_cast<std::string *>(found) = value;
    return 1;
}
#endif

}  // namespace

static void AddCases(const Shape &shape, std::size_t keys)
{
    static std::vector<std::string> s_paths;
    if (s_paths.empty()) {
        std::atexit([] {
            for (const std::string &path : s_paths)
                std::filesystem::remove(path);
        });
    }
    const std::string path = s_paths.emplace_back(WriteFile(shape, keys));
    Case &work = AddCase({.name = "ini/" + std::to_string(keys) + " " + shape.name,
                          .prepare =
                              [=] {
                                  g_found.clear();
                                  SetIniFileName(path.c_str());
                              },
                          .result = [] { return g_found; },
                          .expected = kValue,
                          .seconds = 0.02});
    AddCandidate(work, "ReadString", [] { g_found = ReadString("Volumes", "path1", ""); });
#ifdef HAVE_INIH
    AddCandidate(work, "inih", [=] { ini_parse(path.c_str(), TakeValue, &g_found); });
#endif
#ifdef HAVE_SIMPLEINI
    AddCandidate(work, "SimpleIni", [=] {
        CSimpleIniA file;
        file.LoadFile(path.c_str());
        g_found = file.GetValue("Volumes", "path1", "");
    });
#endif
}

void AddIniCases()
{
#ifndef HAVE_INIH
    LeaveOut("inih", "libinih-dev is not installed");
#endif
#ifndef HAVE_SIMPLEINI
    LeaveOut("SimpleIni", "libsimpleini-dev is not installed");
#endif
    for (const Shape &shape : kShapes)
        for (const std::size_t keys : kKeyCounts)
            AddCases(shape, keys);
}
