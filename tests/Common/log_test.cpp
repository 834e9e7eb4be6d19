// The log: its lines, numbers and files, and what failures do to them.
#include "Common/Log.h"
#include "tamrik/tamrik.h"
#ifdef __linux__
#include "tests/support/bounded_calls.h"
#endif
#include "tests/support/descriptors.h"
#include "tests/support/log_capture.h"
#include "tests/support/rounds.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#ifdef __linux__
#include <sys/mount.h>
#endif
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

// ---- The clock and the file position on command -------------------------------------------------

static constexpr time_t kUsualTime = 1795165503;  // 2026-11-20 9:05:03 UTC

static time_t g_now = kUsualTime;
static bool g_localTimeFails;
static bool g_ftellFails;

extern "C" time_t time(time_t *result) noexcept
{
    if (result)
        *result = g_now;
    return g_now;
}

extern "C" tm *localtime_r(const time_t *at, tm *result) noexcept
{
    if (!g_localTimeFails)
        return gmtime_r(at, result);
    result->tm_hour = 17;  // a failing call may have changed something
    result->tm_mday = 28;
    return nullptr;
}

extern "C" long ftell(FILE *stream)
{
    return g_ftellFails ? -1 : static_cast<long>(ftello(stream));
}

// ---- Helpers ------------------------------------------------------------------------------------

namespace fs = std::filesystem;

// A folder of its own for one test; logging is off before and after.
struct Folder {
    std::string path;

    Folder()
    {
        CloseLogSystem();
        path = (fs::temp_directory_path() / "kestrun-log-XXXXXX").string();
        REQUIRE(mkdtemp(path.data()));
    }
    ~Folder()
    {
        CloseLogSystem();
        fs::remove_all(path);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    std::string operator/(const std::string &name) const
    {
        return path + "/" + name;
    }
};

static void StartLog(const std::string &path)
{
    InitLogSystem(path.c_str());
}

static std::string CloseAndRead(const std::string &path)
{
    CloseLogSystem();
    return FileContent(path);
}

// The number that the next line gets. Uses up the one before it.
static int NextNumber()
{
    const Folder folder;
    StartLog(folder / "probe");
    Log("x/probe", "probe", "probe");
    return atoi(CloseAndRead(folder / "probe").c_str() + strlen("line ")) + 1;
}

static std::string Prefix(int number)
{
    return "line " + std::to_string(number) + "===2026-11-20 9:5:3   ";
}

// The line that a message of the usual caller gives.
static std::string Line(int number, const std::string &message)
{
    return Prefix(number) + "Kestrun:main --- " + message + "\n";
}

static void LogUsual(const std::string &text)
{
    Log("src/Kestrun", "main", text.c_str());
}

// What a text that no arguments follow looks like in the file.
static std::string Written(const std::string &text)
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    LogUsual(text);
    const std::string content = CloseAndRead(folder / "log");
    const std::string before = Prefix(number) + "Kestrun:main --- ";
    REQUIRE(content.substr(0, before.size()) == before);
    return content.substr(before.size());
}

static void MakeFile(const std::string &path, off_t size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    REQUIRE(fd >= 0);
    REQUIRE(ftruncate(fd, size) == 0);
    close(fd);
}

static constexpr size_t kLongestLine = 2047;
static constexpr off_t kCap = 10000000;

// ---- Lines --------------------------------------------------------------------------------------

TEST_CASE("a line holds number, time without leading zeros, module, function and message")
{
    const Folder folder;
    const int first = NextNumber();
    StartLog(folder / "log");
    Log("src/Kestrun", "main", "TOOL-BrelmarkV100R001B035");
    Log("Common/INI", "ReadString", "cfg key [%s] not exists...", "name");
    Log("src/Process", "RunShellCmd", "a message\nof two lines\n");
    CHECK(CloseAndRead(folder / "log") ==
          Prefix(first) + "Kestrun:main --- TOOL-BrelmarkV100R001B035\n" + Prefix(first + 1) +
              "INI:ReadString --- cfg key [name] not exists...\n" + Prefix(first + 2) +
              "Process:RunShellCmd --- a message\nof two lines\n\n");
}

TEST_CASE("the time is that of the call")
{
    const struct {
        time_t now;
        const char *text;
    } rows[] = {
        {0, "1970-1-1 0:0:0"},
        {kUsualTime, "2026-11-20 9:5:3"},
        {1735689599, "2024-12-31 23:59:59"},
        {253402300800, "10000-1-1 0:0:0"},
        // The last and the first second that a broken-down time can hold: their years fit no int.
        {67768036191676799, "2147485547-12-31 23:59:59"},
        {-67768040609740800, "-2147481748-1-1 0:0:0"},
    };
    for (const auto &row : rows) {
        const Folder folder;
        const int number = NextNumber();
        StartLog(folder / "log");
        g_now = row.now;
        LogUsual("x");
        g_now = kUsualTime;
        CHECK(CloseAndRead(folder / "log") ==
              "line " + std::to_string(number) + "===" + row.text + "   Kestrun:main --- x\n");
    }
}

TEST_CASE("a local time that cannot be had is written as the cleared one")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    g_localTimeFails = true;
    LogUsual("x");
    g_localTimeFails = false;
    CHECK(CloseAndRead(folder / "log") ==
          "line " + std::to_string(number) + "===1900-1-0 0:0:0   Kestrun:main --- x\n");
}

TEST_CASE(
    "the module is the part after the last '/', by a scan that never reads the first character")
{
    const struct {
        const char *sourceFile;
        const char *shown;
    } rows[] = {
        {"src/Kestrun", "Kestrun"},
        {"a/b/Process", "Process"},
        {"/Process", "Process"},
        {"Process", "rocess"},
        {"/K", "K"},
        {"K", ""},
        {"/", ""},
        {"a/b/", ""},
        {"//", ""},
        {"", ""},
        {"a//b", "b"},
        {"ab", "b"},
        {"src/100%%", "100%"},
        {"src/%d", "%d"},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.sourceFile));
        const Folder folder;
        const int number = NextNumber();
        StartLog(folder / "log");
        Log(row.sourceFile, "f", "x");
        CHECK(CloseAndRead(folder / "log") == Prefix(number) + row.shown + ":f --- x\n");
    }
}

TEST_CASE("a function name is interpreted with the finished line")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    Log("src/a", "", "x");
    Log("src/a", "50%%", "x");
    Log("src/a", "%s%n", "100%%%%");
    CHECK(CloseAndRead(folder / "log") == Prefix(number) + "a: --- x\n" + Prefix(number + 1) +
                                              "a:50% --- x\n" + Prefix(number + 2) +
                                              "a:%s%n --- 100%%\n");
}

TEST_CASE("arguments of every kind reach the message")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    const char *const nothing = nullptr;
    char writable[] = "writable";
    Log("src/Kestrun", "main", "%d|%u|%lld|%c|%s|%s|%s|%.2f|%x", -5, 7U, 1LL << 40, 'c', "text",
        writable, nothing, 1.5, 255);
    Log("src/Kestrun", "main", "%d %d %hd", true, static_cast<short>(-3), static_cast<short>(-4));
    Log("src/Kestrun", "main", "no conversion", 1);
    CHECK(CloseAndRead(folder / "log") ==
          Line(number, "-5|7|1099511627776|c|text|writable|(null)|1.50|ff") +
              Line(number + 1, "1 -3 -4") + Line(number + 2, "no conversion"));
}

TEST_CASE("what the bounded library refuses empties the message, and the line is still written")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    Log("src/Kestrun", "main", "text %s %n", "x");
    Log("src/Kestrun", "main", "text %d %", 1);
    CHECK(CloseAndRead(folder / "log") == Line(number, "") + Line(number + 1, ""));
}

#ifdef __linux__
TEST_CASE("a line is made in cleared buffers, a text without a percent sign in the line's alone")
{
    const Folder folder;
    StartLog(folder / "log");
    CHECK(ClearedBy([] { LogUsual("plain"); }) == std::vector<size_t>{2048});
    CHECK(ClearedBy([] { LogUsual("50%%"); }) == std::vector<size_t>{2048, 2048});
    CHECK(ClearedBy([] { Log("src/Kestrun", "main", "%d", 1); }) ==
          std::vector<size_t>{2048, 2048});
}
#endif

TEST_CASE("a missing argument writes nothing and takes no number")
{
    const Folder folder;
    const int number = NextNumber();
    const char *const nothing = nullptr;
    StartLog(folder / "log");
    LogUsual("first");
    Log("src/Kestrun", nothing, "x");
    Log(nothing, "main", "x");
    Log("src/Kestrun", "main", nothing);
    Log("src/Kestrun", nothing, "%d", 1);
    Log(nothing, "main", "%d", 1);
    Log("src/Kestrun", "main", nothing, 1);
    LogUsual("second");
    CHECK(CloseAndRead(folder / "log") == Line(number, "first") + Line(number + 1, "second"));
}

// ---- Lengths ------------------------------------------------------------------------------------

TEST_CASE("a line is cut at 2047 characters, loses its line feed, and the next one continues it")
{
    const size_t frame = Line(NextNumber() + 2, "").size();
    const struct {
        size_t length;
        bool lineFeedLost;
    } rows[] = {
        {kLongestLine - frame, false},
        {kLongestLine - frame + 1, true},
        {2046, true},
        {2047, true},
        {2048, true},
        {3000, true},
        {100000, true},
    };
    for (const auto &row : rows) {
        for (const bool asArgument : {false, true}) {
            CAPTURE(row.length);
            CAPTURE(asArgument);
            const Folder folder;
            const int number = NextNumber();
            const std::string text(row.length, 'x');
            StartLog(folder / "log");
            if (asArgument)
                Log("src/Kestrun", "main", "%s", text.c_str());
            else
                LogUsual(text);
            LogUsual("next");
            const std::string cut = Line(number, text).substr(0, kLongestLine);
            CHECK((cut.back() != '\n') == row.lineFeedLost);
            CHECK(CloseAndRead(folder / "log") == cut + Line(number + 1, "next"));
        }
    }
}

TEST_CASE("a pair of percent signs that the cut parts leaves one")
{
    const Folder folder;
    const int number = NextNumber();
    const std::string frame = Prefix(number) + "Kestrun:main --- ";
    const std::string text = std::string(kLongestLine - 1 - frame.size(), 'x') + "%%";
    StartLog(folder / "log");
    Log("src/Kestrun", "main", "%s", text.c_str());
    CHECK(CloseAndRead(folder / "log") == (frame + text).substr(0, kLongestLine));
}

TEST_CASE("a doubled sign in a line that is cut becomes single, and nothing after the line is read")
{
    const Folder folder;
    const int number = NextNumber();
    const std::string frame = Prefix(number) + "Kestrun:main --- ";
    const std::string rest(kLongestLine - 2 - frame.size(), 'x');
    StartLog(folder / "log");
    Log("src/Kestrun", "main", "%s", ("%%" + rest + "cut").c_str());
    CHECK(CloseAndRead(folder / "log") == frame + "%" + rest);
}

TEST_CASE("long names are cut with their line")
{
    const Folder folder;
    const int number = NextNumber();
    const std::string longName(5000, 'n');
    StartLog(folder / "log");
    Log(("src/" + longName).c_str(), longName.c_str(), "x");
    CHECK(CloseAndRead(folder / "log") == (Prefix(number) + longName).substr(0, kLongestLine));
}

TEST_CASE("an invalid conversion empties the message unless that was already too long")
{
    // The engine has 2048 places and notices the end at the character after them.
    for (const size_t length :
         std::initializer_list<size_t>{0, 1, 2046, 2047, 2048, 2049, 2050, 5000}) {
        for (const char *const bad : {"%y", "%", "%n tail", "%5*d"}) {
            CAPTURE(length);
            CAPTURE(std::string(bad));
            const Folder folder;
            const int number = NextNumber();
            const std::string text(length, 'x');
            StartLog(folder / "log");
            LogUsual(text + bad);
            Log("src/Kestrun", "main", (text + bad).c_str(), 0);
            const std::string kept = length > 2048 ? text : "";
            CHECK(CloseAndRead(folder / "log") ==
                  Line(number, kept).substr(0, kLongestLine) +
                      Line(number + 1, kept).substr(0, kLongestLine));
        }
    }
}

// ---- Text as a format ---------------------------------------------------------------------------

TEST_CASE("a text without arguments is a format as far as that is defined, and then unchanged")
{
    const struct {
        const char *text;
        const char *written;  // after both interpretations
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"tab\tbell\a\x7f\x80\xff", "tab\tbell\a\x7f\x80\xff"},
        // Doubled signs: one step each.
        {"100%%", "100%"},
        {"100%%%%", "100%"},
        {"100%%%%%%", "100%%"},
        {"100%%%%%%%%", "100%%"},
        {"%% a", "% a"},
        {"%%%% %%%%", "% %"},
        {"a%%d", "a%d"},
        {"%%s and %%%%", "%s and %%"},
        // A conversion without an argument, and all that follows it.
        {"%s", "%s"},
        {"a %d b", "a %d b"},
        {"%s%n%99999999d%ls%", "%s%n%99999999d%ls%"},
        {"%d%y", "%d%y"},
        {"%%%d%%", "%d%"},
        {"a%%b%sc%%d", "a%b%sc%%d"},
        {"%%%%%s", "%%s"},
        {"%%%%%s%%%%", "%%s%%%%"},
        {"%lc%C%S%ls", "%lc%C%S%ls"},
        {"%p", "%p"},
        {"%f%e%E%g%G%F", "%f%e%E%g%G%F"},
        {"%*d", "%*d"},
        {"%.*f", "%.*f"},
        {"%-*", "%-*"},
        {"%*y", "%*y"},
        {"%5-d", "%5-d"},
        {"%214748369d", "%214748369d"},
        {"%.214748369s", "%.214748369s"},
        {"%hhd%lld%qd%Lf%zu%jd%td%wc%Nd%Zd", "%hhd%lld%qd%Lf%zu%jd%td%wc%Nd%Zd"},
        {"%I64d", "%I64d"},
        {"%I32x", "%I32x"},
        {"%Id", "%Id"},
        {"%II64d", "II64d"},
        // Invalid or unfinished.
        {"a%y", ""},
        {"a%n", ""},
        {"a%a", ""},
        {"a%A", ""},
        {"a%!", ""},
        {"a%\x80", ""},
        {"a%{", ""},
        {"abc%", ""},
        {"abc%5", ""},
        {"abc%.", ""},
        {"abc%ll", ""},
        {"%%%", ""},
        {"a%5%", ""},
        {"a%.-d", ""},
        {"a%.5.d", ""},
        {"a%5*d", ""},
        {"a%l5d", ""},
        {"a%214748370d", ""},
        {"a%.214748370d", ""},
        {"a%2147483690d", ""},
        {"a%.2147483690d", ""},
        {"a%99999999999999999999999d", ""},
        {"a%y%s", ""},
        {"a%%%y", ""},
        // 'I' that is no size is printed, the characters from the '%' to it are not.
        {"%I", "I"},
        {"a%I5d", "aI5d"},
        {"%I6", "I6"},
        {"%I3", "I3"},
        {"%-08.3I6d", "I6d"},
        {"%Is%%", "Is%"},
        {"%lIy", "Iy"},
        {"%I%s", "I%s"},
        {"%I64", ""},
        {"%I32y", ""},
        {"%I64I64d", "%I64I64d"},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.text));
        CHECK(Written(row.text) == std::string(row.written) + "\n");
    }
}

TEST_CASE("a doubled sign before a line feed stays single and harmless")
{
    CHECK(Written("50%%\n%%%%\n") == "50%\n%%\n\n");
}

// A second, naive reading of the two rules, for random texts.

static bool IsOneOf(char ch, const char *set)
{
    return ch != '\0' && strchr(set, ch);
}

enum class Kind { Prints, Takes, Bad };

// Judges the conversion after the '%' at `at` and moves `at` past its characters.
static Kind JudgeConversion(const std::string &text, size_t &at, char &printed)
{
    const auto here = [&] { return at < text.size() ? text[at] : '\0'; };
    const char *const sizes = "ILNZhjlqtwz";
    const char *const types = "CEFGSXcdefgiopsux";
    if (here() == '%') {
        at++;
        printed = '%';
        return Kind::Prints;
    }
    double number = 0;
    bool inWidth = false;
    for (; IsOneOf(here(), " #+-*0123456789"); at++) {
        if (here() == '*')
            return inWidth ? Kind::Bad : Kind::Takes;
        const bool isDigit = isdigit(here()) && (here() != '0' || inWidth);
        if (!isDigit) {
            inWidth = false;
            continue;
        }
        if (!inWidth)
            number = 0;
        if (number > 21474836)
            return Kind::Bad;
        number = number * 10 + (here() - '0');
        inWidth = true;
    }
    if (here() == '.') {
        at++;
        if (here() == '*')
            return Kind::Takes;
        for (number = 0; isdigit(here()); at++) {
            if (number > 21474836)
                return Kind::Bad;
            number = number * 10 + (here() - '0');
        }
    }
    while (IsOneOf(here(), sizes)) {
        if (text[at++] != 'I')
            continue;
        if (text.compare(at, 2, "64") == 0 || text.compare(at, 2, "32") == 0) {
            at += 2;
        } else if (!IsOneOf(here(), "dioxXu")) {
            printed = 'I';
            return Kind::Prints;
        }
    }
    return IsOneOf(here(), types) ? Kind::Takes : Kind::Bad;
}

static std::string ModelOfMessage(const std::string &text, bool &takesArgument)
{
    std::string message;
    takesArgument = false;
    for (size_t at = 0; at < text.size() && message.size() <= 2048;) {
        if (text[at] != '%') {
            message += text[at++];
            continue;
        }
        const size_t spec = at++;
        char printed = '\0';
        switch (JudgeConversion(text, at, printed)) {
        case Kind::Prints: message += printed; break;
        case Kind::Bad: return "";
        case Kind::Takes:
            takesArgument = true;
            return (message + text.substr(spec)).substr(0, kLongestLine);
        }
    }
    return message.substr(0, kLongestLine);
}

static std::string ModelOfLine(std::string line)
{
    line = line.substr(0, kLongestLine);
    std::string written;
    for (size_t at = 0; at < line.size(); at++) {
        if (line[at] == '%' && (at + 1 == line.size() || line[at + 1] != '%'))
            return written + line.substr(at);
        if (line[at] == '%')
            at++;
        written += line[at];
    }
    return written;
}

static std::string RandomText(std::mt19937 &random)
{
    static const char *const kPieces[] = {
        "%", "%", "%", "%%", "%%",  "I",   "I64", "I32", "6",  "3",         "d", "s",
        "n", "y", "l", "hh", "*",   ".",   "0",   "5",   "-",  "214748369", "#", "x",
        "q", " ", "w", "S",  "%5d", "%ls", "abc", "\n",  "%I", "99999999"};
    std::string text;
    const size_t pieces = random() % 100 == 0 ? 1500 : random() % 12;
    for (size_t i = 0; i < pieces; i++) {
        if (random() % 8 == 0)
            text += static_cast<char>(1 + random() % 255);
        else
            text += kPieces[random() % std::size(kPieces)];
    }
    if (random() % 100 == 0)
        text.insert(0, 2035 + random() % 30, 'x');
    return text;
}

// vsnprintf_s without arguments, for texts that need none.
static std::string Formatted(const char *format, ...)
{
    char message[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf_s(message, sizeof message, sizeof message - 1, format, arguments);
    va_end(arguments);
    return message;
}

TEST_CASE("random texts of any bytes are written as a naive reading of the rules has them")
{
    const int kFiles = Rounds(200);
    const int kTextsPerFile = 500;
    std::mt19937 random(4711);
    for (int file = 0; file < kFiles; file++) {
        const Folder folder;
        int number = NextNumber();
        std::string expected;
        StartLog(folder / "log");
        for (int i = 0; i < kTextsPerFile; i++) {
            const std::string text = RandomText(random);
            bool takesArgument = false;
            const std::string message = ModelOfMessage(text, takesArgument);
            if (!takesArgument)
                REQUIRE(message == Formatted(text.c_str()));
            expected += ModelOfLine(Line(number++, message));
            LogUsual(text);
        }
        // Not compared inside the macro: a report of both would be megabytes.
        const bool same = CloseAndRead(folder / "log") == expected;
        REQUIRE(same);
    }
}

TEST_CASE("nothing after the text's terminating zero is read")
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *const memory =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    REQUIRE(memory != MAP_FAILED);
    char *const end = static_cast<char *>(memory) + page;
    REQUIRE(mprotect(end, page, PROT_NONE) == 0);
    for (const char *const text : {"", "abc", "abc%", "%%", "abc%I", "%I6", "%I3", "%5", "%.", "%h",
                                   "%l", "%s", "%*", "%y", "100%%%%", "%I64"}) {
        CAPTURE(std::string(text));
        const size_t size = strlen(text) + 1;
        memcpy(end - size, text, size);
        const Folder folder;
        StartLog(folder / "log");
        Log("src/Kestrun", "main", end - size);
        Log("src/Kestrun", end - size, "x");
        Log(end - size, "main", "x");
        CHECK_FALSE(CloseAndRead(folder / "log").empty());
    }
    munmap(memory, 2 * page);
}

// ---- Files --------------------------------------------------------------------------------------

TEST_CASE("a line reaches the file with the next one, the last with the close")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    CHECK_FALSE(fs::exists(folder / "log"));
    LogUsual("one");
    CHECK(fs::exists(folder / "log"));
    CHECK(FileContent(folder / "log") == "");
    LogUsual("two");
    CHECK(FileContent(folder / "log") == Line(number, "one"));
    LogUsual("three");
    CHECK(FileContent(folder / "log") == Line(number, "one") + Line(number + 1, "two"));
    CHECK(CloseAndRead(folder / "log") ==
          Line(number, "one") + Line(number + 1, "two") + Line(number + 2, "three"));
}

TEST_CASE("a file that exists is appended to")
{
    const Folder folder;
    const int number = NextNumber();
    for (int i = 0; i < 2; i++) {
        StartLog(folder / "log");
        LogUsual("x");
        CloseLogSystem();
    }
    CHECK(FileContent(folder / "log") == Line(number, "x") + Line(number + 1, "x"));
}

TEST_CASE("a closed log writes nothing, and numbering goes on when it is enabled again")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    LogUsual("one");
    CloseLogSystem();
    LogUsual("lost, without a number");
    CloseLogSystem();
    StartLog(folder / "log");
    LogUsual("two");
    CHECK(CloseAndRead(folder / "log") == Line(number, "one") + Line(number + 1, "two"));
}

TEST_CASE("a path of 1023 characters is taken, one of 1024 disables logging")
{
    for (const size_t length : std::initializer_list<size_t>{1022, 1023, 1024, 1025, 5000}) {
        CAPTURE(length);
        const Folder folder;
        const int number = NextNumber();
        std::string path = folder.path + "/";
        while (path.size() + 2 < length)
            path += "./";
        path.append(length - path.size(), 'l');
        REQUIRE(path.size() == length);
        StartLog(folder / "other");
        StartLog(path);
        LogUsual("x");
        if (length <= 1023)
            CHECK(CloseAndRead(path) == Line(number, "x"));
        CHECK(fs::exists(folder / "other") == false);
        CHECK(fs::is_empty(folder.path) == (length > 1023));
    }
}

TEST_CASE("a refused path disables logging and leaves the stream, which goes on when enabled again")
{
    const std::string tooLong(1024, 'l');
    for (const char *const refused : {static_cast<const char *>(nullptr), tooLong.c_str()}) {
        const Folder folder;
        const int number = NextNumber();
        StartLog(folder / "log");
        LogUsual("one");
        InitLogSystem(refused);
        LogUsual("lost, without a number");
        StartLog(folder / "other");
        LogUsual("two");
        CHECK(CloseAndRead(folder / "log") == Line(number, "one") + Line(number + 1, "two"));
        CHECK_FALSE(fs::exists(folder / "other"));
    }
}

TEST_CASE("a second path takes effect when the stream is opened anew")
{
    const Folder folder;
    const int number = NextNumber();
    MakeFile(folder / "old", kCap);
    StartLog(folder / "old");
    LogUsual("one");
    StartLog(folder / "new");
    LogUsual("two");  // the old file is full by now: the new path is what is reopened
    LogUsual("three");
    CHECK(CloseAndRead(folder / "new") == Line(number + 1, "two") + Line(number + 2, "three"));
    CHECK(fs::file_size(folder / "old") == kCap + Line(number, "one").size());
}

TEST_CASE("while the folder is missing lines are lost and their numbers used")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "later/log");
    LogUsual("lost");
    LogUsual("lost");
    Log("src/Kestrun", "main", "%s", "lost");
    CHECK_FALSE(fs::exists(folder / "later"));
    fs::create_directory(folder / "later");
    LogUsual("found");
    CHECK(CloseAndRead(folder / "later/log") == Line(number + 3, "found"));
}

TEST_CASE("a folder where the file should be loses the lines")
{
    const Folder folder;
    const int number = NextNumber();
    fs::create_directory(folder / "log");
    StartLog(folder / "log");
    LogUsual("lost");
    fs::remove(folder / "log");
    LogUsual("found");
    CHECK(CloseAndRead(folder / "log") == Line(number + 1, "found"));
}

TEST_CASE("a file of exactly 10,000,000 bytes takes one more line, one more byte empties it first")
{
    for (const off_t size : {kCap - 1, kCap, kCap + 1, kCap + 1000}) {
        CAPTURE(size);
        const Folder folder;
        const int number = NextNumber();
        MakeFile(folder / "log", size);
        StartLog(folder / "log");
        LogUsual("one");
        CloseLogSystem();
        if (size <= kCap) {
            REQUIRE(fs::file_size(folder / "log") ==
                    static_cast<size_t>(size) + Line(number, "one").size());
            CHECK(FileContent(folder / "log").substr(static_cast<size_t>(size)) ==
                  Line(number, "one"));
        } else {
            CHECK(FileContent(folder / "log") == Line(number, "one"));
        }
    }
}

TEST_CASE("a log that starts at 9.9 MB runs over once and goes on numbering in the emptied file")
{
    const Folder folder;
    const int descriptor = NextDescriptor();
    int number = NextNumber();
    const std::string text(1000, 'x');
    MakeFile(folder / "log", 9900000);
    StartLog(folder / "log");
    std::string expected(9900000, '\0');
    uintmax_t largest = 0;
    for (int i = 0; i < 200; i++) {
        if (expected.size() > static_cast<size_t>(kCap))
            expected.clear();
        expected += Line(number++, text);
        LogUsual(text);
        largest = std::max(largest, fs::file_size(folder / "log"));
    }
    CHECK(expected.size() < 200000);
    CHECK(largest <= static_cast<uintmax_t>(kCap) + kLongestLine);
    const bool same = CloseAndRead(folder / "log") == expected;
    CHECK(same);
    CHECK(NextDescriptor() == descriptor);
}

TEST_CASE("a full file that cannot be reopened loses the line, and the next call begins anew")
{
    const Folder folder;
    const int number = NextNumber();
    fs::create_directory(folder / "here");
    MakeFile(folder / "here/log", kCap);
    StartLog(folder / "here/log");
    LogUsual("fills it up");
    fs::rename(folder / "here", folder / "away");
    LogUsual("lost at the reopening");
    LogUsual("lost at the opening");
    fs::rename(folder / "away", folder / "here");
    CHECK(fs::file_size(folder / "here/log") == kCap + Line(number, "fills it up").size());
    LogUsual("found full and emptied");
    LogUsual("next");
    CHECK(CloseAndRead(folder / "here/log") ==
          Line(number + 3, "found full and emptied") + Line(number + 4, "next"));
}

TEST_CASE("a size that cannot be asked for counts as below the cap")
{
    const Folder folder;
    const int number = NextNumber();
    MakeFile(folder / "log", kCap + 1);
    StartLog(folder / "log");
    g_ftellFails = true;
    LogUsual("one");
    g_ftellFails = false;
    CloseLogSystem();
    CHECK(fs::file_size(folder / "log") == kCap + 1 + Line(number, "one").size());
}

TEST_CASE("where no seek is possible the line is written all the same")
{
    const Folder folder;
    const int number = NextNumber();
    REQUIRE(mkfifo((folder / "log").c_str(), 0600) == 0);
    const int reader = open((folder / "log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    REQUIRE(reader >= 0);
    StartLog(folder / "log");
    LogUsual("one");
    LogUsual("two");
    CloseLogSystem();
    char got[1000] = "";
    const ssize_t length = read(reader, got, sizeof got - 1);
    close(reader);
    CHECK(length > 0);
    CHECK(std::string(got) == Line(number, "one") + Line(number + 1, "two"));
}

TEST_CASE(
    "a file that is renamed from outside keeps the lines, one that is deleted takes them along")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    LogUsual("one");
    fs::rename(folder / "log", folder / "moved");
    LogUsual("two");
    LogUsual("three");
    CHECK_FALSE(fs::exists(folder / "log"));
    CHECK(FileContent(folder / "moved") == Line(number, "one") + Line(number + 1, "two"));
    fs::remove(folder / "moved");
    LogUsual("four");
    CloseLogSystem();
    CHECK(fs::is_empty(folder.path));
    StartLog(folder / "log");
    LogUsual("five");
    CHECK(CloseAndRead(folder / "log") == Line(number + 4, "five"));
}

TEST_CASE(
    "a file that is truncated from outside goes on at its start, and nothing after that is lost")
{
    const Folder folder;
    const int number = NextNumber();
    StartLog(folder / "log");
    LogUsual("one");
    LogUsual("two");
    REQUIRE(truncate((folder / "log").c_str(), 0) == 0);
    LogUsual("three");
    REQUIRE(truncate((folder / "log").c_str(), 0) == 0);
    LogUsual("four");
    CHECK(CloseAndRead(folder / "log") == Line(number + 2, "three") + Line(number + 3, "four"));
}

TEST_CASE(
    "after the log emptied its file, a truncation from outside leaves zeros before the next line")
{
    const Folder folder;
    const int number = NextNumber();
    MakeFile(folder / "log", kCap + 1);
    StartLog(folder / "log");
    LogUsual("one");
    LogUsual("two");
    REQUIRE(truncate((folder / "log").c_str(), 0) == 0);
    LogUsual("three");
    CHECK(CloseAndRead(folder / "log") == std::string(Line(number, "one").size(), '\0') +
                                              Line(number + 1, "two") + Line(number + 2, "three"));
}

// Lines are whole or missing in a log that ran out of room, but for the one that the room cut.
static void CheckLastLine(const std::string &content, const std::string &last)
{
    REQUIRE(content.size() >= last.size());
    CHECK(content.substr(content.size() - last.size()) == last);
}

TEST_CASE("a full disk loses lines, and the log goes on when there is room again")
{
#ifdef __linux__
    const Folder folder;
    if (mount("tmpfs", folder.path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=16k") != 0) {
        MESSAGE("not tried: no file system may be mounted here (", strerror(errno), ")");
        return;
    }
    const int number = NextNumber();
    const std::string text(1000, 'x');
    MakeFile(folder / "ballast", 0);
    const int ballast = open((folder / "ballast").c_str(), O_WRONLY | O_CLOEXEC);
    REQUIRE(write(ballast, std::string(8192, 'b').data(), 8192) == 8192);
    StartLog(folder / "log");
    for (int i = 0; i < 100; i++)
        LogUsual(text);
    const uintmax_t full = fs::file_size(folder / "log");
    CHECK(full <= 8192);
    CHECK(full >= 4096);
    REQUIRE(ftruncate(ballast, 0) == 0);
    close(ballast);
    LogUsual("room again");
    LogUsual("last");
    const std::string content = CloseAndRead(folder / "log");
    CHECK(content.substr(0, Line(number, text).size()) == Line(number, text));
    CheckLastLine(content, Line(number + 100, "room again") + Line(number + 101, "last"));
    CHECK(umount2(folder.path.c_str(), MNT_DETACH) == 0);
#else
    MESSAGE("not tried: needs Linux");
#endif
}

TEST_CASE("a limit on the file's size loses lines, and the log goes on when it is lifted")
{
    const Folder folder;
    const int number = NextNumber();
    const std::string text(1000, 'x');
    rlimit before = {};
    REQUIRE(getrlimit(RLIMIT_FSIZE, &before) == 0);
    signal(SIGXFSZ, SIG_IGN);
    StartLog(folder / "log");
    rlimit small = before;
    small.rlim_cur = 5000;
    REQUIRE(setrlimit(RLIMIT_FSIZE, &small) == 0);
    for (int i = 0; i < 100; i++)
        LogUsual(text);
    CHECK(fs::file_size(folder / "log") == 5000);
    REQUIRE(setrlimit(RLIMIT_FSIZE, &before) == 0);
    signal(SIGXFSZ, SIG_DFL);
    LogUsual("room again");
    LogUsual("last");
    const std::string content = CloseAndRead(folder / "log");
    CHECK(content.substr(0, Line(number, text).size()) == Line(number, text));
    CheckLastLine(content, Line(number + 100, "room again") + Line(number + 101, "last"));
}
