// Shell commands: what is run how often, what is logged, what is captured.
#include "src/Process.h"

#include "tests/src/launcher_seam.h"
#include "tests/support/guarded.h"
#include "tests/support/log_capture.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

// Both texts of one message come from here, in one buffer, as a C library may do it.
extern "C" char *strerror(int number) noexcept
{
    static char buffer[64];
    snprintf(buffer, sizeof buffer, "error <%d>", number);
    return buffer;
}

static constexpr char kOutput[] = "/usr/local/Tarnwell/cmd.txt";

static std::string Program(const std::string &text)
{
    return "Process:RunShellProgram --- " + text;
}

static std::string Cmd(const std::string &text)
{
    return "Process:RunShellCmd --- " + text;
}

static std::string Failed(int attempt, int status, const std::string &command, int error)
{
    const std::string number = std::to_string(status);
    return Program("system failed " + std::to_string(attempt) + " time, return " + number +
                   "[error <" + number + ">]:(" + command + "), err = (error <" +
                   std::to_string(error) + ">)");
}

// What a command run by RunShellCmd leaves in the temporary file.
struct OutputFile {
    std::string path = "/tmp/kestrun-cmd-XXXXXX";

    OutputFile()
    {
        const int fd = mkstemp(path.data());
        REQUIRE(fd >= 0);
        close(fd);
        g_seam.files[kOutput] = path;
    }
    ~OutputFile()
    {
        unlink(path.c_str());
    }
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void Holds(const std::string &text) const
    {
        const int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        REQUIRE(fd >= 0);
        REQUIRE(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
        close(fd);
    }
};

TEST_CASE("a missing command is refused before the entry line")
{
    FreshSeam();
    LogCapture log;
    CHECK_FALSE(RunShellProgram(nullptr, 3));
    CHECK(log.Take() == Lines{Program("param error")});
    CHECK(g_seam.commands.empty());
}

TEST_CASE("a command that succeeds at once is run once and costs no sleep")
{
    FreshSeam();
    LogCapture log;
    CHECK(RunShellProgram("true", 10));
    CHECK(log.Take() ==
          Lines{Program("RunShellProgram Enter"), Program("RunShellProgram exit true.(true)")});
    CHECK(g_seam.commands == std::vector<std::string>{"true"});
    CHECK(g_seam.sleeps.empty());
}

TEST_CASE("a command that always fails is run as often as asked, a second of sleep after each run")
{
    FreshSeam().shell = [](const std::string &) {
        errno = 7;
        return 256;
    };
    LogCapture log;
    CHECK_FALSE(RunShellProgram("false", 10));
    Lines expected{Program("RunShellProgram Enter")};
    for (int attempt = 0; attempt < 10; attempt++)
        expected.push_back(Failed(attempt, 256, "false", 7));
    expected.push_back(Program("(false) false, RunShellProgram exit failed"));
    CHECK(log.Take() == expected);
    CHECK(g_seam.commands == std::vector<std::string>(10, "false"));
    CHECK(g_seam.sleeps == std::vector<unsigned>(10, 1));
}

TEST_CASE("no tries, or fewer, run nothing")
{
    for (const int tries : {0, -1, -2147483647 - 1}) {
        FreshSeam();
        LogCapture log;
        CHECK_FALSE(RunShellProgram("true", tries));
        CHECK(log.Take() == Lines{Program("RunShellProgram Enter"),
                                  Program("(true) false, RunShellProgram exit failed")});
        CHECK(g_seam.commands.empty());
        CHECK(g_seam.sleeps.empty());
    }
}

TEST_CASE("the raw status decides which line a failed attempt gets")
{
    struct Row {
        int status;
        std::string line;
    };
    const Row rows[] = {
        {-1, Program("system failed 0 time because fork or waitpid. (x)")},
        {127, Program("system failed 0 time because shell failed. (x)")},
        {127 * 256, Failed(0, 32512, "x", 5)},  // a shell that could not run it: not decoded
        {1, Failed(0, 1, "x", 5)},              // ended by a signal
        {128, Failed(0, 128, "x", 5)},
        {-2, Failed(0, -2, "x", 5)},
    };
    for (const Row &row : rows) {
        CAPTURE(row.status);
        FreshSeam().shell = [&row](const std::string &) {
            errno = 5;
            return row.status;
        };
        LogCapture log;
        CHECK_FALSE(RunShellProgram("x", 1));
        CHECK(log.Take() == Lines{Program("RunShellProgram Enter"), row.line,
                                  Program("(x) false, RunShellProgram exit failed")});
        CHECK(g_seam.sleeps == std::vector<unsigned>{1});
    }
}

TEST_CASE("the first success ends the tries")
{
    FreshSeam().shell = [](const std::string &) {
        errno = 3;
        return g_seam.commands.size() < 3 ? 512 : 0;
    };
    LogCapture log;
    CHECK(RunShellProgram("later", 10));
    CHECK(log.Take() == Lines{Program("RunShellProgram Enter"), Failed(0, 512, "later", 3),
                              Failed(1, 512, "later", 3),
                              Program("RunShellProgram exit true.(later)")});
    CHECK(g_seam.sleeps == std::vector<unsigned>{1, 1});
}

TEST_CASE("a percent sign in a command stays what it is in the messages that show it")
{
    FreshSeam();
    LogCapture log;
    CHECK(RunShellProgram("stat -f%Su", 1));
    CHECK(log.Take() == Lines{Program("RunShellProgram Enter"),
                              Program("RunShellProgram exit true.(stat -f%Su)")});
}

TEST_CASE("wrong arguments are refused and leave the output as it is")
{
    struct Row {
        const char *command;
        bool output;
        int size;
    };
    const Row rows[] = {
        {nullptr, true, 8},        {"ls", false, 8},  {"ls", true, 0}, {"ls", true, -1},
        {"ls", true, -2147483647}, {"0 ls", true, 8}, {"0", true, 8},
    };
    for (const Row &row : rows) {
        CAPTURE(row.size);
        FreshSeam();
        LogCapture log;
        const Guarded output(8);
        CHECK_FALSE(RunShellCmd(row.command, row.output ? output.Text() : nullptr, row.size));
        CHECK(log.Take() == Lines{Cmd("enter RunShellCmd, but parmer is wrong, exit")});
        CHECK(output.Held() == Canaries(8));
        CHECK(g_seam.commands.empty());
        CHECK(g_seam.sleeps.empty());
    }
}

// The lines of a run whose file holds something, up to the one about what was read.
static Lines CapturedRun(const std::string &command, const std::string &redirected)
{
    return {Cmd("enter RunShellCmd (" + command + ")"), Program("RunShellProgram Enter"),
            Program("RunShellProgram exit true.(" + redirected + ")")};
}

static Lines Then(Lines lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

static const Lines kDeleted{
    Program("RunShellProgram Enter"),
    Program("RunShellProgram exit true.(rm -f /usr/local/Tarnwell/cmd.txt)")};

TEST_CASE("output is captured, cut to the buffer, and the file deleted")
{
    struct Row {
        std::string printed;
        int size;
        std::string held;  // the whole buffer
        std::string received;
    };
    const Row rows[] = {
        {"hi\n", 8, std::string("hi\n\0\0\0\0\0", 8), "hi\n"},
        {"abcdefg", 8, std::string("abcdefg\0", 8), "abcdefg"},
        {"abcdefgh", 8, std::string("abcdefg\0", 8), "abcdefg"},
        {"abcdefghij", 8, std::string("abcdefg\0", 8), "abcdefg"},
        {"x", 1, std::string("\0", 1), ""},
        {std::string("a\0b", 3), 8, std::string("a\0b\0\0\0\0\0", 8), "a"},
        {"50%d %s%n", 16, std::string("50%d %s%n\0\0\0\0\0\0\0", 16), "50%d %s%n"},
    };
    for (const Row &row : rows) {
        CAPTURE(row.printed);
        FreshSeam();
        const OutputFile file;
        g_seam.shell = [&](const std::string &) {
            if (g_seam.commands.size() == 1)
                file.Holds(row.printed);
            return 0;
        };
        LogCapture log;
        const Guarded output(static_cast<size_t>(row.size));
        CHECK(RunShellCmd("print", output.Text(), row.size));
        CHECK(log.Take() == Then(Then(CapturedRun("print", "print > /usr/local/Tarnwell/cmd.txt"),
                                      {Cmd("recv [" + row.received + "]")}),
                                 kDeleted));
        CHECK(output.Held() == row.held);
        CHECK(output.FrontIntact());
        CHECK(g_seam.commands == std::vector<std::string>{"print > /usr/local/Tarnwell/cmd.txt",
                                                          "rm -f /usr/local/Tarnwell/cmd.txt"});
        CHECK(g_seam.sleeps == std::vector<unsigned>{1});
        CHECK(g_seam.calls["fread"] == 1);
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("the command line and the caller's whole buffer are cleared")
{
    FreshSeam();
    LogCapture log;
    char output[77];
    CHECK(ClearedBy([&] { RunShellCmd("print", output, sizeof output); }, kLogLineSize) ==
          std::vector<size_t>{1024, 77});
}

TEST_CASE("a command that prints nothing fails, and the file is still deleted")
{
    for (const std::string command : {"true", ""}) {  // the empty command runs its redirection
        FreshSeam();
        const OutputFile file;
        LogCapture log;
        const Guarded output(8);
        CHECK_FALSE(RunShellCmd(command.c_str(), output.Text(), 8));
        CHECK(log.Take() ==
              Then(Then(CapturedRun(command, command + " > /usr/local/Tarnwell/cmd.txt"),
                        {Cmd("fread failed")}),
                   kDeleted));
        CHECK(output.Held() == std::string(8, '\0'));
        CHECK(g_seam.sleeps == std::vector<unsigned>{1});
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a read that fails counts as nothing read")
{
    FreshSeam().Fail("fread", 1);
    const OutputFile file;
    file.Holds("something");
    LogCapture log;
    const Guarded output(8);
    CHECK_FALSE(RunShellCmd("print", output.Text(), 8));
    CHECK(log.Take() == Then(Then(CapturedRun("print", "print > /usr/local/Tarnwell/cmd.txt"),
                                  {Cmd("fread failed")}),
                             kDeleted));
    CHECK(output.Held() == std::string(8, '\0'));
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("a command that fails ten times clears the output and leaves the file alone")
{
    FreshSeam().shell = [](const std::string &) {
        errno = 2;
        return 256;
    };
    const OutputFile file;
    file.Holds("left");
    LogCapture log;
    const Guarded output(8);
    CHECK_FALSE(RunShellCmd("no", output.Text(), 8));
    Lines expected{Cmd("enter RunShellCmd (no)"), Program("RunShellProgram Enter")};
    const std::string redirected = "no > /usr/local/Tarnwell/cmd.txt";
    for (int attempt = 0; attempt < 10; attempt++)
        expected.push_back(Failed(attempt, 256, redirected, 2));
    expected.push_back(Program("(" + redirected + ") false, RunShellProgram exit failed"));
    expected.push_back(Cmd("RunShellProgram cmdBuff 1 failed"));
    CHECK(log.Take() == expected);
    CHECK(output.Held() == std::string(8, '\0'));
    CHECK(g_seam.commands == std::vector<std::string>(10, redirected));
    CHECK(g_seam.sleeps == std::vector<unsigned>(10, 1));
    CHECK(g_seam.calls["fopen"] == 0);
}

TEST_CASE("output that cannot be opened is reported by the error's text, and the file stays")
{
    FreshSeam().Fail("fopen", 1, 1, 13);
    LogCapture log;
    const Guarded output(8);
    CHECK_FALSE(RunShellCmd("print", output.Text(), 8));
    CHECK(log.Take() == Then(CapturedRun("print", "print > /usr/local/Tarnwell/cmd.txt"),
                             {Cmd("fopen failed for [error <13>]")}));
    CHECK(output.Held() == std::string(8, '\0'));
    CHECK(g_seam.commands.size() == 1);
    CHECK(g_seam.sleeps == std::vector<unsigned>{1});
}

TEST_CASE("a file that cannot be deleted is reported and does not change the result")
{
    for (const bool prints : {true, false}) {
        FreshSeam();
        const OutputFile file;
        file.Holds(prints ? "ab" : "");
        g_seam.Fail("system", 2, kForEver);
        LogCapture log;
        const Guarded output(8);
        CHECK(RunShellCmd("print", output.Text(), 8) == prints);
        const std::string rm = "rm -f /usr/local/Tarnwell/cmd.txt";
        Lines expected = CapturedRun("print", "print > /usr/local/Tarnwell/cmd.txt");
        expected.push_back(Cmd(prints ? "recv [ab]" : "fread failed"));
        expected.push_back(Program("RunShellProgram Enter"));
        for (int attempt = 0; attempt < 10; attempt++)
            expected.push_back(Program("system failed " + std::to_string(attempt) +
                                       " time because fork or waitpid. (" + rm + ")"));
        expected.push_back(Program("(" + rm + ") false, RunShellProgram exit failed"));
        expected.push_back(Cmd("delete tmp file failed!"));
        CHECK(log.Take() == expected);
        CHECK(g_seam.sleeps == std::vector<unsigned>(11, 1));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("a command line that is too long runs as its first 1023 characters")
{
    const std::string tail = " > /usr/local/Tarnwell/cmd.txt";
    for (const size_t length : {1023 - tail.size(), 1024 - tail.size(), size_t{1022}, size_t{1023},
                                size_t{1024}, size_t{5000}}) {
        CAPTURE(length);
        FreshSeam();
        const OutputFile file;
        const std::string command(length, 'c');
        const Guarded output(8);
        CHECK_FALSE(RunShellCmd(command.c_str(), output.Text(), 8));
        CHECK(g_seam.commands.at(0) == (command + tail).substr(0, 1023));
    }
}

TEST_CASE("the real shell writes, reads and deletes the real file")
{
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    FreshSeam().realShell = true;
    LogCapture log;
    fflush(nullptr);  // what is pending is written once, not by both
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        // A folder of its own under /usr/local, seen by nobody else.
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/usr/local", "tmpfs", 0, nullptr) != 0 ||
            mkdir("/usr/local/Tarnwell", 0755) != 0)
            _exit(77);
        char output[8];
        const bool received = RunShellCmd("echo abcdefghij", output, sizeof output);
        const bool there = access(kOutput, F_OK) == 0;
        CloseLogSystem();
        const bool sent = write(ends[1], output, sizeof output) == sizeof output;
        _exit(received && !there && sent ? 0 : 1);
    }
    close(ends[1]);
    char output[9] = {};
    const ssize_t got = read(ends[0], output, 8);
    close(ends[0]);
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    REQUIRE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        MESSAGE("skipped: no mount namespace of its own is allowed here");
        return;
    }
    CHECK(WEXITSTATUS(status) == 0);
    CHECK(got == 8);
    CHECK(std::string(output, 8) == std::string("abcdefg\0", 8));
    CHECK(log.Take() ==
          Then(Then(CapturedRun("echo abcdefghij", "echo abcdefghij > /usr/local/Tarnwell/cmd.txt"),
                    {Cmd("recv [abcdefg]")}),
               kDeleted));
}

TEST_CASE("the real shell's exit code shows as the raw status")
{
    FreshSeam().realShell = true;
    LogCapture log;
    errno = 0;
    CHECK_FALSE(RunShellProgram("exit 1", 1));
    const Lines lines = log.Take();
    REQUIRE(lines.size() == 3);
    CHECK(lines[1].find("system failed 0 time, return 256[error <256>]:(exit 1), err = (") !=
          std::string::npos);
    CHECK_FALSE(RunShellProgram("exit 127", 1));
    CHECK(log.Take().at(1).find("return 32512[") != std::string::npos);
}
