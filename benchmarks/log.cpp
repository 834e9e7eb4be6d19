// One log line, beside the bare calls that each line costs whatever is done around them, spdlog and
// glog. All write through to the file with each line, as the log's seek does.
#include "benchmarks/harness.h"
#include "Common/Log.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#ifdef HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif
#ifdef HAVE_GLOG
#include <glog/logging.h>
#endif

namespace
{

constexpr long kCap = 10000000;  // the log's own size cap, kept by the bare calls too
constexpr char kMessage[] = "----------------------Device inserted!---------------";

std::string Folder()
{
    static const std::string folder = [] {
        char name[] = "/tmp/kestrun-benchmark-XXXXXX";
        const std::string made = mkdtemp(name);
        std::atexit([] { std::filesystem::remove_all(Folder()); });
        return made;
    }();
    return folder;
}

// The message of the last line of a file, which every candidate writes at its end.
std::string LastMessage(const std::string &path)
{
    std::ifstream file(path);
    std::string line, last;
    while (std::getline(file, line))
        last = line;
    const std::size_t at = last.rfind(kMessage);
    return at == std::string::npos ? "" : last.substr(at);
}

// The stream of the bare calls. What they write is a finished line.
std::FILE *g_bare;

void WriteBare()
{
    std::fseek(g_bare, 0, SEEK_END);
    if (std::ftell(g_bare) > kCap)
        g_bare = std::freopen((Folder() + "/bare.log").c_str(), "w+", g_bare);
    std::fprintf(g_bare, Hidden("line 1234===2026-11-20 9:5:37   Kestrun:DiskPeekCallback --- "
                                "----------------------Device inserted!---------------\n"));
}

}  // namespace

void AddLogCases()
{
    static const std::string s_bare = Folder() + "/bare.log", s_ours = Folder() + "/Kestrun.log";
    static const std::string *s_written;  // by the candidate that ran last
    g_bare = std::fopen(s_bare.c_str(), "a+");
    InitLogSystem(s_ours.c_str());

    Case &work = AddCase({.name = "log/line",
                          .prepare = [] {},
                          .result =
                              [] {
                                  std::fflush(nullptr);
                                  return LastMessage(*s_written);
                              },
                          .expected = kMessage,
                          .seconds = 0.05,
                          .isCounted = true});
    AddCandidate(work, "bare fseek, ftell, fprintf", [] {
        s_written = &s_bare;
        WriteBare();
    });
    AddCandidate(work, "Log", [] {
        s_written = &s_ours;
        Log("src/Kestrun", "DiskPeekCallback", Hidden(kMessage));
    });
#ifdef HAVE_SPDLOG
    static const std::string s_spdlog = Folder() + "/spdlog.log";
    static const auto s_logger = spdlog::basic_logger_st("benchmark", s_spdlog);
    s_logger->set_pattern("line %Y-%m-%d %H:%M:%S   %s:%! --- %v");
    s_logger->flush_on(spdlog::level::info);
    AddCandidate(work, "spdlog", [] {
        s_written = &s_spdlog;
        s_logger->log(spdlog::source_loc{"Kestrun", 1, "DiskPeekCallback"}, spdlog::level::info,
                      Hidden(kMessage));
    });
#else
    LeaveOut("spdlog", "libspdlog-dev is not installed");
#endif
#ifdef HAVE_GLOG
    static const std::string s_glog = Folder() + "/glog.log";
    FLAGS_timestamp_in_logfile_name = false;
    FLAGS_logbufsecs = 0;
    FLAGS_logtostderr = false;
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    google::SetLogDestination(google::GLOG_INFO, s_glog.c_str());
    google::InitGoogleLogging("benchmark");
    AddCandidate(work, "glog", [] {
        s_written = &s_glog;
        LOG(INFO) << "DiskPeekCallback --- " << Hidden(kMessage);
    });
#else
    LeaveOut("glog", "libgoogle-glog-dev is not installed");
#endif
}
