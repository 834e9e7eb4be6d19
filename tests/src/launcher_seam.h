// launcher_seam.h - takes the place of the C library functions through which the launcher's modules
// reach the outside, for one test program. Include it in one source only.
//
// Nothing sleeps: the seconds are noted and added to a clock. Commands are noted and answered as
// the test says, or run by the real shell. Directories exist when the test says so, or for real.
// Any call can be made to fail by its number. What is opened or allocated and not released is
// counted. The log's own stream, opened with other modes, is not counted.
#ifndef TESTS_SRC_LAUNCHER_SEAM_H
#define TESTS_SRC_LAUNCHER_SEAM_H

#include "tests/support/bounded_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

constexpr int kForEver = 1000000;

struct Seam {
    // What happened.
    std::vector<unsigned> sleeps;       // seconds of each call
    std::vector<std::string> commands;  // what the shell was given
    std::vector<std::string> looked;    // what opendir was given
    std::map<std::string, int> calls;   // counted calls by function
    std::set<FILE *> streams;           // open now
    std::set<DIR *> folders;            // open now
    std::set<void *> blocks;            // allocated now
    std::vector<size_t> sizes;          // what malloc was asked for, in bytes
    unsigned clock = 0;                 // seconds slept in all

    // What is to happen.
    std::function<int(const std::string &)> shell;    // the status of a command; empty: 0
    bool realShell = false;                           // the real one runs the command
    std::map<std::string, unsigned> directories;      // and when, by the clock, each appears
    bool realDirectories = false;                     // the real ones are looked at
    bool everyDirectory = false;                      // all exist, and no call is noted
    std::map<std::string, std::string> files;         // what fopen opens in a path's place
    std::function<FILE *(const std::string &)> open;  // or which stream it gives

    // Which calls fail: `times` calls of `function` from number `from` on (from 1).
    std::string function;
    int from = 0;
    int times = 1;
    int error = EIO;

    void Fail(const std::string &name, int number, int count = 1, int errorNumber = EIO)
    {
        function = name;
        from = number;
        times = count;
        error = errorNumber;
    }

    // Counts a call; whether it has to fail.
    bool Fails(const char *name)
    {
        const int number = ++calls[name];
        if (function != name || number < from || number - from >= times)
            return false;
        errno = error;
        return true;
    }

    bool Leaks() const
    {
        return !streams.empty() || !folders.empty() || !blocks.empty();
    }
};

// Never destroyed: what counts coverage allocates at the very end of the program, through the seam.
inline Seam &g_seam = *new Seam();

// Starts a test with a fresh seam.
inline Seam &FreshSeam()
{
    g_seam = Seam();
    return g_seam;
}

template <class Function>
Function *Next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);
void __real_free(void *block);
void __wrap_free(void *block);

// The linker sends the launcher's own calls here (--wrap).
void *__wrap_malloc(size_t size)
{
    g_seam.sizes.push_back(size);
    if (g_seam.Fails("malloc"))
        return nullptr;
    void *block = __real_malloc(size);
    g_seam.blocks.insert(block);
    return block;
}

void __wrap_free(void *block)
{
    g_seam.blocks.erase(block);
    __real_free(block);
}

unsigned sleep(unsigned seconds)
{
    g_seam.sleeps.push_back(seconds);
    g_seam.clock += seconds;
    return 0;
}

int system(const char *command)
{
    g_seam.commands.push_back(command);
    if (g_seam.Fails("system"))
        return -1;
    if (g_seam.realShell)
        return Next<int(const char *)>("system")(command);
    return g_seam.shell ? g_seam.shell(command) : 0;
}

DIR *opendir(const char *path)
{
    static auto *const next = Next<DIR *(const char *)>("opendir");
    if (g_seam.everyDirectory)
        return reinterpret_cast<DIR *>(&g_seam);
    g_seam.looked.push_back(path);
    if (g_seam.Fails("opendir"))
        return nullptr;
    DIR *folder = nullptr;
    if (g_seam.realDirectories) {
        folder = next(path);
    } else {
        const auto found = g_seam.directories.find(path);
        errno = ENOENT;
        if (found != g_seam.directories.end() && found->second <= g_seam.clock)
            folder = next("/");
    }
    if (folder != nullptr)
        g_seam.folders.insert(folder);
    return folder;
}

int closedir(DIR *folder)
{
    static auto *const next = Next<int(DIR *)>("closedir");
    if (folder == reinterpret_cast<DIR *>(&g_seam))
        return 0;
    g_seam.folders.erase(folder);
    return next(folder);
}

FILE *fopen(const char *path, const char *mode)
{
    static auto *const next = Next<FILE *(const char *, const char *)>("fopen");
    if (mode[0] != 'r')
        return next(path, mode);
    if (g_seam.Fails("fopen"))
        return nullptr;
    FILE *file = nullptr;
    if (g_seam.open) {
        file = g_seam.open(path);
    } else {
        const auto found = g_seam.files.find(path);
        file = next(found == g_seam.files.end() ? path : found->second.c_str(), mode);
    }
    if (file != nullptr)
        g_seam.streams.insert(file);
    return file;
}

int fclose(FILE *file)
{
    static auto *const next = Next<int(FILE *)>("fclose");
    if (g_seam.streams.erase(file) == 0)
        return next(file);
    const bool fails = g_seam.Fails("fclose");
    const int result = next(file);
    return fails ? EOF : result;
}

char *fgets(char *buffer, int size, FILE *file)
{
    static auto *const next = Next<char *(char *, int, FILE *)>("fgets");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("fgets"))
        return nullptr;
    return next(buffer, size, file);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *file)
{
    static auto *const next = Next<size_t(void *, size_t, size_t, FILE *)>("fread");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("fread"))
        return 0;
    return next(buffer, size, count, file);
}

long ftell(FILE *file)
{
    static auto *const next = Next<long(FILE *)>("ftell");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("ftell"))
        return -1;
    return next(file);
}

int fseek(FILE *file, long offset, int whence)
{
    static auto *const next = Next<int(FILE *, long, int)>("fseek");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("fseek"))
        return -1;
    return next(file, offset, whence);
}

int fputs(const char *text, FILE *file)
{
    static auto *const next = Next<int(const char *, FILE *)>("fputs");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("fputs"))
        return EOF;
    return next(text, file);
}

int fputc(int character, FILE *file)
{
    static auto *const next = Next<int(int, FILE *)>("fputc");
    if (g_seam.streams.count(file) != 0 && g_seam.Fails("fputc"))
        return EOF;
    return next(character, file);
}

}  // extern "C"

#endif
