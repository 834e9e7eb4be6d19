// Waiting for volumes and finding the newest duplicate.
#include "src/ActiveVolumeProgram.h"

#include "tests/src/launcher_seam.h"
#include "tests/support/guarded.h"
#include "tests/support/log_capture.h"

#include <limits.h>
#include <sys/stat.h>

static std::string Exist(const std::string &text)
{
    return "ActiveVolumeProgram:IsVolumeExist --- " + text;
}

static std::string Temp(const std::string &text)
{
    return "ActiveVolumeProgram:GetTempVolumeName --- " + text;
}

static std::string NotThere(int attempt, const std::string &path)
{
    return Exist(" " + std::to_string(attempt) + " time, open (" + path + ") failed, open again");
}

static std::string There(int seconds)
{
    return Exist("opertor " + std::to_string(seconds) + " time, IsVolumeExist exit true");
}

static Lines Then(Lines lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// The lines of a wait that fails after so many attempts.
static Lines WaitedInVain(int attempts, const std::string &path)
{
    Lines lines{Exist("IsVolumeExist Enter")};
    for (int attempt = 0; attempt < attempts; attempt++)
        lines.push_back(NotThere(attempt, path));
    lines.push_back(Exist("IsVolumeExist exit false"));
    return lines;
}

static const Lines kFoundAtOnce{Exist("IsVolumeExist Enter"), There(0)};

TEST_CASE("a volume that is there is found at once")
{
    FreshSeam().directories = {{"/Volumes/Orvanta", 0}};
    LogCapture log;
    CHECK(IsVolumeExist("Orvanta", "/Volumes/", 300));
    CHECK(log.Take() == kFoundAtOnce);
    CHECK(g_seam.looked == std::vector<std::string>{"/Volumes/Orvanta"});
    CHECK(g_seam.sleeps.empty());
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("a volume that comes after 5 seconds is found on the attempt with counter 6")
{
    FreshSeam().directories = {{"/Volumes/Orvanta", 5}};
    LogCapture log;
    CHECK(IsVolumeExist("Orvanta", "/Volumes/", 300));
    CHECK(log.Take() == Lines{Exist("IsVolumeExist Enter"), NotThere(0, "/Volumes/Orvanta"),
                              NotThere(1, "/Volumes/Orvanta"), NotThere(2, "/Volumes/Orvanta"),
                              There(6)});
    CHECK(g_seam.sleeps == std::vector<unsigned>{2, 2, 2});
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("a budget buys an attempt every 2 seconds, and an odd one buys one more")
{
    struct Row {
        int testTime;
        int attempts;
    };
    const Row rows[] = {{1, 1}, {2, 1}, {3, 2}, {4, 2}, {30, 15}, {31, 16}, {180, 90}, {300, 150}};
    for (const Row &row : rows) {
        CAPTURE(row.testTime);
        FreshSeam();
        LogCapture log;
        CHECK_FALSE(IsVolumeExist("Orvanta", "/Volumes/", row.testTime));
        CHECK(log.Take() == WaitedInVain(row.attempts, "/Volumes/Orvanta"));
        CHECK(g_seam.looked.size() == static_cast<size_t>(row.attempts));
        CHECK(g_seam.sleeps == std::vector<unsigned>(static_cast<size_t>(row.attempts), 2));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a volume that comes too late is not seen")
{
    struct Row {
        unsigned appears;
        bool found;
    };
    for (const Row &row : {Row{28, true}, Row{29, false}, Row{30, false}}) {
        CAPTURE(row.appears);
        FreshSeam().directories = {{"/Volumes/Orvanta", row.appears}};
        CHECK(IsVolumeExist("Orvanta", "/Volumes/", 30) == row.found);
    }
}

TEST_CASE("the longest budget there is ends without an overflow")
{
    // 2^30 attempts are too many to make: the volume comes at the last but one that is looked at.
    FreshSeam().directories = {{"/v", 4000}};
    LogCapture log;
    CHECK(IsVolumeExist("v", "/", INT_MAX));
    CHECK(log.Take().back() == There(4000));
}

TEST_CASE("a missing name is refused before the entry line")
{
    FreshSeam();
    LogCapture log;
    CHECK_FALSE(IsVolumeExist(nullptr, "/Volumes/", 300));
    CHECK_FALSE(IsVolumeExist(nullptr, nullptr, 0));
    CHECK(log.Take() == Lines{Exist("param error"), Exist("param error")});
}

TEST_CASE("without a budget nothing is looked at")
{
    for (const int testTime : {0, -1, INT_MIN}) {
        FreshSeam().directories = {{"/Volumes/Orvanta", 0}};
        LogCapture log;
        CHECK_FALSE(IsVolumeExist("Orvanta", "/Volumes/", testTime));
        CHECK(log.Take() ==
              Lines{Exist("IsVolumeExist Enter"), Exist("testTime <= 0, can't check.")});
        CHECK(g_seam.looked.empty());
        CHECK(g_seam.sleeps.empty());
        CHECK(g_seam.calls["malloc"] == 0);
    }
}

TEST_CASE("without a directory the name is the path, and a failed attempt shows (null)")
{
    const std::vector<std::pair<const char *, const char *>> calls{{"/Volumes/Third", nullptr},
                                                                   {"/Volumes/Third", ""}};
    for (const auto &[name, directory] : calls) {
        FreshSeam().directories = {{"/Volumes/Third", 2}};
        LogCapture log;
        CHECK(IsVolumeExist(name, directory, 30));
        CHECK(log.Take() == Lines{Exist("IsVolumeExist Enter"), NotThere(0, "(null)"), There(2)});
        CHECK(g_seam.looked == std::vector<std::string>{"/Volumes/Third", "/Volumes/Third"});
        CHECK(g_seam.calls["malloc"] == 0);
    }
}

TEST_CASE("an empty path does not exist")
{
    for (const char *directory : {static_cast<const char *>(nullptr), ""}) {
        FreshSeam();
        LogCapture log;
        CHECK_FALSE(IsVolumeExist("", directory, 30));
        CHECK(log.Take() == Lines{Exist("IsVolumeExist Enter"), Exist("IsVolumeExist exit false")});
        CHECK(g_seam.looked.empty());
        CHECK(g_seam.sleeps.empty());
    }
}

TEST_CASE("an empty name in a directory is that directory")
{
    FreshSeam().directories = {{"/Volumes/", 0}};
    LogCapture log;
    CHECK(IsVolumeExist("", "/Volumes/", 30));
    CHECK(log.Take() == kFoundAtOnce);
    CHECK(g_seam.looked == std::vector<std::string>{"/Volumes/"});
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("no slash is put between the directory and the name")
{
    FreshSeam().directories = {{"/VolumesOrvanta", 0}};
    CHECK(IsVolumeExist("Orvanta", "/Volumes", 2));
}

TEST_CASE("without memory the wait fails at once")
{
    FreshSeam().Fail("malloc", 1);
    LogCapture log;
    CHECK_FALSE(IsVolumeExist("Orvanta", "/Volumes/", 300));
    CHECK(log.Take() ==
          Lines{Exist("IsVolumeExist Enter"), Exist("malloc failed, IsVolumeExist exit failed")});
    CHECK(g_seam.looked.empty());
}

TEST_CASE("long names and percent signs reach the system whole")
{
    const std::string directory = "/" + std::string(3000, 'd') + "/";
    const std::string name = std::string(3000, 'n') + "%n%s";
    FreshSeam();
    CHECK_FALSE(IsVolumeExist(name.c_str(), directory.c_str(), 2));
    CHECK(g_seam.looked == std::vector<std::string>{directory + name});
    LogCapture log;
    CHECK_FALSE(IsVolumeExist("a%n%s%99999d", "/", 2));
    CHECK(log.Take() == WaitedInVain(1, "/a%n%s%99999d"));
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("real folders are looked at, and a file is none")
{
    FreshSeam().realDirectories = true;
    std::string folder = "/tmp/kestrun-volumes-XXXXXX";
    REQUIRE(mkdtemp(folder.data()) != nullptr);
    const std::string volume = folder + "/Orvanta";
    const std::string root = folder + "/";
    CHECK_FALSE(IsVolumeExist("Orvanta", root.c_str(), 2));
    const int fd = open(volume.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    REQUIRE(fd >= 0);
    close(fd);
    CHECK_FALSE(IsVolumeExist("Orvanta", root.c_str(), 2));
    unlink(volume.c_str());
    REQUIRE(mkdir(volume.c_str(), 0700) == 0);
    CHECK(IsVolumeExist("Orvanta", root.c_str(), 2));
    rmdir(volume.c_str());
    rmdir(folder.c_str());
    CHECK_FALSE(g_seam.Leaks());
}

// ---- The newest duplicate ----

static std::map<std::string, unsigned> Present(const std::vector<std::string> &paths)
{
    std::map<std::string, unsigned> directories;
    for (const std::string &path : paths)
        directories[path] = 0;
    return directories;
}

// Calls GetTempVolumeName in a buffer of `size` bytes that ends at an unreadable page.
static bool Lookup(const Guarded &buffer, const std::string &name, int64_t *capacity,
                   const char *directory = "/Volumes/", int testTime = 30)
{
    buffer.Fill();
    memcpy(buffer.Text(), name.c_str(), name.size() + 1);
    return GetTempVolumeName(buffer.Text(), static_cast<int>(buffer.size), capacity, directory,
                             testTime);
}

static std::string Padded(const std::string &text, size_t size)
{
    return text + '\0' + Canaries(size - text.size() - 1);
}

TEST_CASE("a package's name is split before its capitals")
{
    struct Row {
        const char *name;
        const char *split;
    };
    const Row rows[] = {
        {"ThirdPartySetup", "Third Party Setup"},
        {"ABC", "A B C"},
        {"My Setup", "My Setup"},
        {"setup", "setup"},
        {"S", "S"},
        {"aB", "a B"},
        {" AB", " A B"},
        {"A  B", "A  B"},
        {"x-Y_Z9A", "x- Y_ Z9 A"},
        {"a@A[Z", "a@ A[ Z"},
        {"\xC3\x84\xC3\x96", "\xC3\x84\xC3\x96"},
        {"a\tB", "a\t B"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.name);
        const std::string path = std::string("/Volumes/") + row.split;
        FreshSeam().directories = Present({path});
        LogCapture log;
        int64_t capacity = 1018;
        const Guarded buffer(1024);
        CHECK(Lookup(buffer, row.name, &capacity));
        CHECK(log.Take() ==
              Then(Then({Temp("GetTempVolumeName Enter")}, kFoundAtOnce),
                   {Temp("volumeName is " + path + ", GetTempVolumeName exit success")}));
        CHECK(std::string(buffer.Text()) == path);
        CHECK(buffer.FrontIntact());
        CHECK(capacity == 1018);
        CHECK(g_seam.looked == std::vector<std::string>{path, path + " 1"});
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("the highest duplicate that is reached without a gap is taken")
{
    const std::string base = "/Volumes/Third Party Setup";
    struct Row {
        std::vector<std::string> present;
        std::string result;
        size_t looks;
    };
    std::vector<std::string> upTo12{base};
    for (int number = 1; number <= 12; number++)
        upTo12.push_back(base + " " + std::to_string(number));
    const Row rows[] = {
        {{base}, base, 2},
        {{base, base + " 1"}, base + " 1", 3},
        {{base, base + " 1", base + " 2"}, base + " 2", 4},
        {{base, base + " 1", base + " 3"}, base + " 1", 3},
        {{base, base + " 2"}, base, 2},
        {upTo12, base + " 12", 14},
    };
    for (const Row &row : rows) {
        CAPTURE(row.result);
        FreshSeam().directories = Present(row.present);
        LogCapture log;
        int64_t capacity = 1018;
        const Guarded buffer(64);
        CHECK(Lookup(buffer, "ThirdPartySetup", &capacity));
        CHECK(buffer.Held() == Padded(row.result, 64));
        CHECK(log.Take().back() ==
              Temp("volumeName is " + row.result + ", GetTempVolumeName exit success"));
        CHECK(g_seam.looked.size() == row.looks);
        CHECK(g_seam.sleeps.empty());
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("duplicates of a name made of capitals alone fit as well")
{
    std::vector<std::string> present{"/V/A B C"};
    for (int number = 1; number <= 1000; number++)
        present.push_back("/V/A B C " + std::to_string(number));
    FreshSeam().directories = Present(present);
    int64_t capacity = 100;
    const Guarded buffer(32);
    CHECK(Lookup(buffer, "ABC", &capacity, "/V/"));
    CHECK(std::string(buffer.Text()) == "/V/A B C 1000");
}

TEST_CASE("a duplicate without its base is waited for in vain")
{
    FreshSeam().directories = Present({"/Volumes/Third Party Setup 1"});
    LogCapture log;
    int64_t capacity = 1018;
    const Guarded buffer(64);
    CHECK_FALSE(Lookup(buffer, "ThirdPartySetup", &capacity));
    CHECK(log.Take() ==
          Then(Then({Temp("GetTempVolumeName Enter")}, WaitedInVain(15, "(null)")),
               {Temp("Error pVPStr=/Volumes/Third Party Setup, is not exist, GetTempVolumeName "
                     "exit false")}));
    CHECK(buffer.Held() == Padded("ThirdPartySetup", 64));
    CHECK(g_seam.sleeps == std::vector<unsigned>(15, 2));
    CHECK(capacity == 1018);
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("a missing capacity is refused before the entry line")
{
    FreshSeam();
    LogCapture log;
    char name[] = "Setup";
    CHECK_FALSE(GetTempVolumeName(name, sizeof name, nullptr, "/Volumes/", 30));
    CHECK(log.Take() == Lines{Temp("param error")});
    CHECK(g_seam.calls["malloc"] == 0);
}

TEST_CASE("no size and no name fail without a word")
{
    int64_t capacity = 10;
    char empty[] = "";
    for (const int size : {0, -1, INT_MIN}) {
        for (char *name : {static_cast<char *>(nullptr), empty}) {
            FreshSeam();
            LogCapture log;
            CHECK_FALSE(GetTempVolumeName(name, size, &capacity, "/Volumes/", 30));
            CHECK(log.Take() == Lines{Temp("GetTempVolumeName Enter")});
            CHECK(g_seam.calls["malloc"] == 0);
            CHECK(g_seam.looked.empty());
        }
    }
}

TEST_CASE("an empty or a missing name fails after the directory itself was found")
{
    const Lines error{Temp("Error pVPStr=/Volumes/, is not exist, GetTempVolumeName exit false")};
    for (const bool present : {true, false}) {
        for (const bool named : {true, false}) {
            FreshSeam();
            if (present)
                g_seam.directories = Present({"/Volumes/"});
            LogCapture log;
            int64_t capacity = 1018;
            const Guarded buffer(std::string(1, '\0'));
            CHECK_FALSE(
                GetTempVolumeName(named ? buffer.Text() : nullptr, 1, &capacity, "/Volumes/", 2));
            CHECK(log.Take() == Then(Then({Temp("GetTempVolumeName Enter")},
                                          present ? kFoundAtOnce : WaitedInVain(1, "(null)")),
                                     error));
            CHECK(buffer.Held() == std::string(1, '\0'));
            CHECK(g_seam.looked == std::vector<std::string>{"/Volumes/"});
            CHECK_FALSE(g_seam.Leaks());
        }
    }
}

TEST_CASE("an empty name without a directory fails on the empty path")
{
    for (const char *directory : {static_cast<const char *>(nullptr), ""}) {
        FreshSeam();
        LogCapture log;
        int64_t capacity = 1018;
        CHECK_FALSE(GetTempVolumeName(nullptr, 1, &capacity, directory, 2));
        CHECK(log.Take() ==
              Lines{Temp("GetTempVolumeName Enter"), Exist("IsVolumeExist Enter"),
                    Exist("IsVolumeExist exit false"),
                    Temp("Error pVPStr=, is not exist, GetTempVolumeName exit false")});
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("without a directory the split name alone is the path")
{
    for (const char *directory : {static_cast<const char *>(nullptr), ""}) {
        FreshSeam().directories = Present({"My Setup", "My Setup 1"});
        int64_t capacity = 100;
        const Guarded buffer(32);
        CHECK(Lookup(buffer, "MySetup", &capacity, directory));
        CHECK(buffer.Held() == Padded("My Setup 1", 32));
        CHECK(g_seam.looked == std::vector<std::string>{"My Setup", "My Setup 1", "My Setup 2"});
    }
}

TEST_CASE("a result of the capacity's length or more is refused, and the size needed is told")
{
    const std::string base = "/Volumes/My Setup";  // 17 bytes
    struct Row {
        int64_t capacity;
        bool found;
    };
    for (const Row &row : {Row{18, true}, Row{17, false}, Row{16, false}, Row{0, false},
                           Row{-5, false}, Row{INT64_MIN, false}, Row{INT64_MAX, true}}) {
        CAPTURE(row.capacity);
        FreshSeam().directories = Present({base});
        LogCapture log;
        int64_t capacity = row.capacity;
        const Guarded buffer(32);
        CHECK(Lookup(buffer, "MySetup", &capacity) == row.found);
        Lines expected = Then({Temp("GetTempVolumeName Enter")}, kFoundAtOnce);
        if (row.found) {
            expected.push_back(Temp("volumeName is " + base + ", GetTempVolumeName exit success"));
        } else {
            expected.push_back(Temp("pVPStr's space is small"));
            expected.push_back(
                Temp("Error pVPStr=" + base + ", is not exist, GetTempVolumeName exit false"));
        }
        CHECK(log.Take() == expected);
        CHECK(capacity == (row.found ? row.capacity : 18));
        CHECK(buffer.Held() == Padded(row.found ? base : "MySetup", 32));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a result that is longer than the buffer is cut")
{
    FreshSeam().directories = Present({"/Volumes/My Setup"});
    LogCapture log;
    int64_t capacity = 100;
    const Guarded buffer(8);
    CHECK(Lookup(buffer, "MySetup", &capacity));
    CHECK(buffer.Held() == std::string("/Volume\0", 8));
    CHECK(buffer.FrontIntact());
    CHECK(log.Take().back() == Temp("volumeName is /Volume, GetTempVolumeName exit success"));
}

TEST_CASE("a size of 0 or less leaves the name as it is")
{
    for (const int size : {0, -1, INT_MIN}) {
        CAPTURE(size);
        FreshSeam().directories = Present({"/Volumes/My Setup"});
        LogCapture log;
        int64_t capacity = 100;
        const Guarded buffer(WithTerminator("MySetup"));
        CHECK(GetTempVolumeName(buffer.Text(), size, &capacity, "/Volumes/", 30));
        CHECK(buffer.Held() == WithTerminator("MySetup"));
        CHECK(log.Take().back() == Temp("volumeName is MySetup, GetTempVolumeName exit success"));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("without memory the lookup fails without a word")
{
    FreshSeam().Fail("malloc", 1);
    LogCapture log;
    int64_t capacity = 100;
    const Guarded buffer(32);
    CHECK_FALSE(Lookup(buffer, "MySetup", &capacity));
    CHECK(log.Take() == Lines{Temp("GetTempVolumeName Enter")});
    CHECK(buffer.Held() == Padded("MySetup", 32));
    CHECK(g_seam.looked.empty());
}

TEST_CASE("without a budget the volume counts as absent")
{
    FreshSeam().directories = Present({"/Volumes/My Setup"});
    LogCapture log;
    int64_t capacity = 100;
    const Guarded buffer(32);
    CHECK_FALSE(Lookup(buffer, "MySetup", &capacity, "/Volumes/", 0));
    CHECK(log.Take() ==
          Lines{Temp("GetTempVolumeName Enter"), Exist("IsVolumeExist Enter"),
                Exist("testTime <= 0, can't check."),
                Temp("Error pVPStr=/Volumes/My Setup, is not exist, GetTempVolumeName exit "
                     "false")});
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("duplicates without end are given up at the first number of eight digits")
{
    FreshSeam().everyDirectory = true;
    LogCapture log;
    int64_t capacity = 100;
    const Guarded buffer(32);
    CHECK_FALSE(Lookup(buffer, "S", &capacity));
    CHECK(log.Take() == Then(Then({Temp("GetTempVolumeName Enter")}, kFoundAtOnce),
                             {Temp("pVPStr's space is small, GetTempVolumeName exit false")}));
    CHECK(buffer.Held() == Padded("S", 32));
    CHECK(capacity == 100);
    CHECK_FALSE(g_seam.Leaks());
}
