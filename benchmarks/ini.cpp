// Looking up the last of 3 to 3000 keys of a section, the file opened and read anew each time, beside
// inih and SimpleIni.
#include "benchmarks/harness.h"
#include "Common/INI.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

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

// A configuration file with so many keys, "path1" the last of them, and a section behind it.
std::string WriteFile(std::size_t keys)
{
    char name[] = "/tmp/kestrun-benchmark-XXXXXX";
    const int descriptor = mkstemp(name);
    std::FILE *file = fdopen(descriptor, "w");
    std::fprintf(file, "[General]\nversion=1\n[Volumes]\n");
    for (std::size_t i = 1; i < keys; i++)
        std::fprintf(file, "setting%zu = the value of setting %zu\n", i, i);
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

void AddIniCases()
{
#ifndef HAVE_INIH
    LeaveOut("inih", "libinih-dev is not installed");
#endif
#ifndef HAVE_SIMPLEINI
    LeaveOut("SimpleIni", "libsimpleini-dev is not installed");
#endif
    static std::string s_paths[std::size(kKeyCounts)];
    std::atexit([] {
        for (const std::string &path : s_paths)
            std::filesystem::remove(path);
    });
    for (std::size_t i = 0; i < std::size(kKeyCounts); i++) {
        s_paths[i] = WriteFile(kKeyCounts[i]);
        const char *path = s_paths[i].c_str();
        Case &work = AddCase({.name = "ini/" + std::to_string(kKeyCounts[i]) + " keys",
                              .prepare =
                                  [=] {
                                      g_found.clear();
                                      SetIniFileName(path);
                                  },
                              .result = [] { return g_found; },
                              .expected = kValue,
                              .seconds = 0.02});
        AddCandidate(work, "ReadString", [] { g_found = ReadString("Volumes", "path1", ""); });
#ifdef HAVE_INIH
        AddCandidate(work, "inih", [=] { ini_parse(path, TakeValue, &g_found); });
#endif
#ifdef HAVE_SIMPLEINI
        AddCandidate(work, "SimpleIni", [=] {
            CSimpleIniA file;
            file.LoadFile(path);
            g_found = file.GetValue("Volumes", "path1", "");
        });
#endif
    }
}
