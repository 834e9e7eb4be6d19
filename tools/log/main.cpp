// main.cpp - kestrun-log: explains a log of the daemon.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include "observe/daemon.h"
#include "observe/files.h"
#include "observe/program.h"
#include "tools/log/follow.h"
#include "tools/log/render.h"

static const char kProgram[] = "kestrun-log";
static const useconds_t kFollowPause = 250000;  // microseconds between two looks at the file

static const char kUsage[] =
    "usage: kestrun-log [--json] [--calls] [--svg FILE] [FILE]\n"
    "       kestrun-log --follow [FILE]\n"
    "Explains a log of Kestrun: what came, how long each step took, and what became of it.\n"
    "FILE is the log, - for standard input; else /usr/local/Tarnwell/Kestrun.log.\n"
    "  --calls      lists every call of the daemon's functions too\n"
    "  --follow     shows the log while it grows\n"
    "  --json       writes JSON\n"
    "  --svg FILE   draws the time line into FILE, besides\n"
    "  --help       shows this\n"
    "  --version    shows the version\n"
    "exit status: 0 every arrival ended with the application opened, 1 something else is in the log,\n"
    "2 wrong arguments, or a file cannot be read or written\n";

namespace
{

struct Arguments {
    std::string log = observe::kLogFile;
    std::optional<std::string> svg;
    bool json = false;
    bool follow = false;
    klog::TextOptions text;
};

}  // namespace

static int CouldNotRead(const Arguments &arguments)
{
    return observe::CouldNot(kProgram, arguments.log + ": " + strerror(errno));
}

// Whether the picture would take the place of the log that it shows.
static bool IsTheLog(const Arguments &arguments)
{
    struct stat log = {};
    struct stat picture = {};
    return stat(arguments.log.c_str(), &log) == 0 && stat(arguments.svg->c_str(), &picture) == 0 &&
           log.st_dev == picture.st_dev && log.st_ino == picture.st_ino;
}

static int Explain(const Arguments &arguments)
{
    auto content = observe::ReadWholeFile(arguments.log);
    if (!content)
        return CouldNotRead(arguments);
    if (arguments.svg && IsTheLog(arguments))
        return observe::CouldNot(kProgram, *arguments.svg + ": that is the log itself");
    const std::vector<std::string> notes = klog::UndoConversions(*content);
    klog::LogText log = klog::ParseLog(*content);
    klog::Untangle(log);
    klog::Story story = klog::TellStory(log);
    story.notes.insert(story.notes.begin(), notes.begin(), notes.end());
    const std::string text = arguments.json ? klog::RenderJson(log, story)
                                            : klog::RenderText(log, story, arguments.text);
    if (arguments.svg && !observe::WriteFile(*arguments.svg, klog::RenderSvg(log, story)))
        return observe::CouldNot(kProgram, *arguments.svg + ": " + strerror(errno));
    return observe::Say(kProgram, text,
                        klog::HasFindings(story) ? observe::kExitFound : observe::kExitFine);
}

// Returns when the file cannot be read, or nobody takes the output any more. One that is not there
// is waited for.
static int Follow(const Arguments &arguments)
{
    klog::Shown shown;
    struct stat before = {};
    for (;; usleep(kFollowPause)) {
        struct stat now = {};
        if (stat(arguments.log.c_str(), &now) != 0) {
            if (errno != ENOENT || arguments.log.empty())
                return CouldNotRead(arguments);
            continue;
        }
        // A time of change counts in seconds: within one the file may change and keep its size.
        const bool old = now.st_mtime < time(nullptr) - 1;
        if (old && now.st_size == before.st_size && now.st_ino == before.st_ino &&
            now.st_mtime == before.st_mtime)
            continue;
        const auto content = observe::ReadWholeFile(arguments.log);
        if (!content && errno == ENOENT)
            continue;
        if (!content)
            return CouldNotRead(arguments);
        if (now.st_ino != before.st_ino)
            shown = {};
        before = now;
        const std::string text = klog::ShowNews(shown, *content);
        if (observe::Say(kProgram, text, observe::kExitFine) != observe::kExitFine)
            return observe::kExitCouldNot;
    }
}

// Takes the options. Returns an exit status when there is nothing more to do, else -1.
static int TakeArguments(int argc, char **argv, Arguments &arguments)
{
    static const option kOptions[] = {
        {"calls", no_argument, nullptr, 'c'},
        {"follow", no_argument, nullptr, 'f'},
        {"help", no_argument, nullptr, 'h'},
        {"json", no_argument, nullptr, 'j'},
        {"svg", required_argument, nullptr, 's'},
        {"version", no_argument, nullptr, 'v'},
        {nullptr, 0, nullptr, 0},
    };
    int letter = 0;
    while ((letter = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
        switch (letter) {
        case 'c': arguments.text.calls = true; break;
        case 'f': arguments.follow = true; break;
        case 'h': return observe::Say(kProgram, kUsage, observe::kExitFine);
        case 'j': arguments.json = true; break;
        case 's': arguments.svg = optarg; break;
        case 'v': return observe::SayVersion(kProgram);
        default: fputs(kUsage, stderr); return observe::kExitCouldNot;
        }
    }
    if (optind < argc)
        arguments.log = argv[optind];
    const bool mixed = arguments.follow && (arguments.json || arguments.text.calls ||
                                            arguments.svg || arguments.log == "-");
    if (argc - optind > 1 || mixed) {
        fputs(kUsage, stderr);
        return observe::kExitCouldNot;
    }
    return -1;
}

int main(int argc, char **argv)
{
    Arguments arguments;
    const int status = TakeArguments(argc, argv, arguments);
    if (status != -1)
        return status;
    return arguments.follow ? Follow(arguments) : Explain(arguments);
}
