// The INI reader: its format, its functions one by one, and random files against a naive reading of
// the rules.
#include "Common/INI.h"
#ifdef __linux__
#include "tests/support/bounded_calls.h"
#endif
#include "tests/support/ini_model.h"
#include "tests/support/log_capture.h"
#include "tests/support/rounds.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace std::string_literals;

static const std::string kNameAtStart = g_filename;

// ---- Files in memory ----------------------------------------------------------------------------

static constexpr char kMemoryFile[] = "/memory/config";
static std::string g_memory;  // what the file of that name holds

static FILE *OpenMemory(std::string &content)
{
    static char nothing[1];
    return fmemopen(content.empty() ? nothing : content.data(), content.size(), "r");
}

extern "C" FILE *fopen(const char *path, const char *mode)
{
    if (strcmp(path, kMemoryFile) == 0)
        return OpenMemory(g_memory);
    const int flags = mode[0] == 'r'   ? O_RDONLY
                      : mode[0] == 'a' ? O_RDWR | O_CREAT | O_APPEND
                                       : O_RDWR | O_CREAT | O_TRUNC;
    const int fd = open(path, flags | O_CLOEXEC, 0644);
    return fd < 0 ? nullptr : fdopen(fd, mode);
}

struct CloseFile {
    void operator()(FILE *file) const
    {
        fclose(file);
    }
};
using File = std::unique_ptr<FILE, CloseFile>;

// A stream over `content`, which must outlive it.
static File Open(std::string &content)
{
    File file(OpenMemory(content));
    REQUIRE(file);
    return file;
}

static void UseMemory(const std::string &content)
{
    g_memory = content;
    REQUIRE(SetIniFileName(kMemoryFile));
}

// A folder with one real file in it.
struct RealFile {
    std::string folder;
    std::string path;

    explicit RealFile(const std::string &content)
    {
        folder = (fs::temp_directory_path() / "kestrun-ini-XXXXXX").string();
        REQUIRE(mkdtemp(folder.data()));
        path = folder + "/config";
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        REQUIRE(fd >= 0);
        REQUIRE(write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~RealFile()
    {
        fs::remove_all(folder);
    }
    RealFile(const RealFile &) = delete;
    RealFile &operator=(const RealFile &) = delete;
};

// The whole line buffer.
static std::string LineBuffer()
{
    return {g_linetext, sizeof g_linetext};
}

static std::string ZeroFilled(std::string text)
{
    text.resize(sizeof g_linetext, '\0');
    return text;
}

static bool IsInLineBuffer(const char *text)
{
    return text >= g_linetext && text < g_linetext + sizeof g_linetext;
}

static constexpr char kDefault[] = "default";

// ---- The format ---------------------------------------------------------------------------------

TEST_CASE("a value is found by the rules of the format")
{
    const std::string longName(200, 'n');
    const std::string longLine(1023, 'v');
    const struct {
        const char *what;
        std::string content;
        std::string section;
        std::string key;
        std::string value;
    } rows[] = {
        {"trailing and leading blanks go", "[Volumes]\nname = Modem Disk  \n", "Volumes", "name",
         "Modem Disk"},
        {"blanks around everything", "  [V]  \n   name   =   x y   \n", "V", "name", "x y"},
        {"an empty value", "[V]\nname=\n", "V", "name", ""},
        {"a value of blanks", "[V]\nname=   \n", "V", "name", ""},
        {"a line of the key alone", "[V]\nname\n", "V", "name", ""},
        {"a line of the key and blanks", "[V]\n  name   \n", "V", "name", ""},
        {"a value with =", "[V]\nname=a=b = c\n", "V", "name", "a=b = c"},
        {"tabs stay", "[V]\nname=\t x\t\n", "V", "name", "\t x\t"},
        {"quotes, semicolons and # stay", "[V]\nname=\"x\" ; y # z\n", "V", "name",
         "\"x\" ; y # z"},
        {"no comments", "[V]\n;name=1\nname=2\n", "V", "name", "2"},
        {"# is no comment", "[V]\n#=x\n", "V", "#", "x"},
        {"CR LF reads like LF", "[V]\r\nname=x\r\n", "V", "name", "x"},
        {"carriage returns go wherever they stand", "[\rV]\nna\rme=\rx\ry\r\r\n", "V", "name",
         "xy"},
        {"a lone CR ends no line", "[V]\nname=x\rkey=y\n", "V", "name", "xkey=y"},
        {"empty lines are skipped", "\n\n[V]\n\n\r\n\nname=x\n", "V", "name", "x"},
        {"a byte-order mark before the header", "\xEF\xBB\xBF[V]\nname=x\n", "V", "name", "x"},
        {"a header inside other text", "x[V]y\nname=x\n", "V", "name", "x"},
        {"two headers on a line", "[U][V]\nname=x\n", "V", "name", "x"},
        {"a section name with a percent sign", "[%s%n]\nname=x\n", "%s%n", "name", "x"},
        {"an empty section name", "[]\nname=x\n", "", "name", "x"},
        {"a section's case counts", "[v]\nname=a\n[V]\nname=b\n", "V", "name", "b"},
        {"a key's case counts", "[V]\nName=a\nname=b\n", "V", "name", "b"},
        {"the first header counts", "[V]\nname=a\n[V]\nname=b\n", "V", "name", "a"},
        {"the first key line counts", "[V]\nname=a\nname=b\n", "V", "name", "a"},
        {"a key before the header is not seen", "name=a\n[V]\nname=b\n", "V", "name", "b"},
        {"a longer key does not match", "[V]\npath10=/a\npath1=/b\n", "V", "path1", "/b"},
        {"text of the key's length before it", "[V]\nabcd=name\n", "V", "name", "name"},
        {"text and blanks before it", "[V]\nabcd =name\n", "V", "name", "name"},
        {"the key in the value of a key of another length", "[V]\nabc=name\nname=x\n", "V", "name",
         "x"},
        {"the key twice", "[V]\nnamename=y\nname=x\n", "V", "name", "x"},
        {"a key with blanks in it", "[V]\nmy name=x\n", "V", "my name", "x"},
        {"an empty key takes the line that begins with =", "[V]\nx\n =y\n", "V", "", "y"},
        {"an empty key takes a line of blanks", "[V]\nx\n   \n=y\n", "V", "", ""},
        {"the = of a key with = in it", "[V]\na=b\na=b=c\n", "V", "a=b", "b"},
        {"a header-like key line", "[V]\nna[m]e=x\n", "V", "na[m]e", "x"},
        {"a value in brackets", "[V]\nname=[x]\nname=y\n", "V", "name", "[x]"},
        {"only one bracket ends nothing", "[V]\na[b\nc]d\nname=x\n", "V", "name", "x"},
        {"the value's = counted from the line's start", "[V]\n=name\nname=x\n", "V", "name", "x"},
        {"no final line feed", "[V]\nname=x", "V", "name", "x\xFF"},
        {"blanks before the end mark stay", "[V]\nname=x  ", "V", "name", "x  \xFF"},
        {"a header on an unterminated line has no keys after it", "[V]", "V", "name", kDefault},
        {"the line after the final line feed", "[V]\n", "V", "\xFF", ""},
        {"an empty file", "", "V", "name", kDefault},
        {"no section", "name=x\n", "V", "name", kDefault},
        {"the header without a bracket", "[V\nV]\nname=x\n", "V", "name", kDefault},
        {"blanks in the brackets", "[ V ]\nname=x\n", "V", "name", kDefault},
        {"no key", "[V]\nother=x\n", "V", "name", kDefault},
        {"a key in the next section", "[V]\n[U]\nname=x\n", "V", "name", kDefault},
        {"a section ended by brackets in the wrong order", "[V]\n]a[\nname=x\n", "V", "name",
         kDefault},
        {"a section ended by a value in brackets", "[V]\nother=[x]\nname=y\n", "V", "name",
         kDefault},
        {"the key with no = but more text", "[V]\nname x\n", "V", "name", kDefault},
        {"the key after a tab", "[V]\n\tname=x\n", "V", "name", kDefault},
        {"a tab before =", "[V]\nname\t=x\n", "V", "name", kDefault},
        {"a header with a zero byte", "[V\0]\nname=x\n"s, "V", "name", kDefault},
        {"a zero byte ends the value", "[V]\nname=x\0y\n"s, "V", "name", "x"},
        {"a zero byte ends the line for the trimming", "[V]\nname=x \0y\n"s, "V", "name", "x"},
        {"a zero byte at the line's start ends the file", "[V]\n\0\nname=x\n"s, "V", "name",
         kDefault},
        {"a header name of 125 characters fits", "[" + longName.substr(0, 125) + "]\nname=x\n",
         longName.substr(0, 125), "name", "x"},
        {"a longer one is matched by its start", "[" + longName + "]\nname=x\n", longName, "name",
         "x"},
        {"a cut header needs no ]", "[" + longName.substr(0, 126) + "\nname=x\n", longName, "name",
         "x"},
        {"a line of 1023 characters is whole", "[V]\nn=" + longLine.substr(2) + "\nname=x\n", "V",
         "n", longLine.substr(2)},
        {"the line after a line of 1023 characters", "[V]\n" + longLine + "\nname=x\n", "V", "name",
         "x"},
        {"a line of 1024 characters is cut", "[V]\nn=" + longLine.substr(2) + "w\nname=x\n", "V",
         "n", longLine.substr(2)},
        {"the rest of a long line is dropped", "[V]\n" + longLine + "\rname=y\nname=x\n", "V",
         "name", "x"},
        {"a long line without an end", "[V]\nn=" + longLine, "V", "n", longLine.substr(2)},
        {"a long line of exactly 1022 takes the end mark", "[V]\nn=" + longLine.substr(3), "V", "n",
         longLine.substr(3) + "\xFF"},
        {"a label of more than 64 bytes", "[V]\nname=" + longName + "\n", "V", "name", longName},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.what));
        UseMemory(row.content);
        const char *value = ReadString(row.section.c_str(), row.key.c_str(), kDefault);
        CHECK(std::string(value) == row.value);
        CHECK(IsInLineBuffer(value) == (row.value != kDefault));
        const RealFile file(row.content);
        REQUIRE(SetIniFileName(file.path.c_str()));
        memset(g_linetext, 'X', sizeof g_linetext);
        const char *again = ReadString(row.section.c_str(), row.key.c_str(), kDefault);
        CHECK(std::string(again) == row.value);
        CHECK(LineBuffer().back() == '\0');
    }
}

TEST_CASE("without trimming a value keeps its leading blanks alone")
{
    const struct {
        const char *content;
        const char *value;
    } rows[] = {
        {"[V]\nname =  x  \n", "  x"}, {"[V]\nname=\t x\t \n", "\t x\t"},
        {"[V]\nname=\n", ""},          {"[V]\nname=   \n", ""},
        {"[V]\n name \n", ""},         {"[V]\nname= x ", " x \xFF"},
        {"[V]\nother=x\n", kDefault},  {"", kDefault},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.content));
        UseMemory(row.content);
        const char *value = ReadStringEx("V", "name", kDefault);
        CHECK(std::string(value) == row.value);
        CHECK(IsInLineBuffer(value) == (strcmp(row.value, kDefault) != 0));
    }
}

// ---- Every way out of every function ------------------------------------------------------------

TEST_CASE("before a file is named, the name is the built-in one")
{
    CHECK(kNameAtStart == "/Applications/Veltrane.app/Contents/Resources/SysConfig.dat");
    CHECK(g_filesize == 0);
}

TEST_CASE("SetIniFileName stores the path of a file that can be opened")
{
    LogCapture log;
    const RealFile file("");
    memset(g_filename, 'X', sizeof g_filename);
    g_filename[sizeof g_filename - 1] = '\0';
    CHECK(SetIniFileName(file.path.c_str()));
    std::string expected = file.path;
    expected.resize(sizeof g_filename, '\0');
    CHECK(std::string(g_filename, sizeof g_filename) == expected);
    CHECK(log.Take() == Lines{});
}

#ifdef __linux__
TEST_CASE("the stored name and a header are put into cleared buffers")
{
    LogCapture log;
    const RealFile file("");
    CHECK(ClearedBy([&] { SetIniFileName(file.path.c_str()); }) == std::vector<size_t>{1024});
    CHECK(ClearedBy([] { SectionExistsInLine("[s]", "s"); }) == std::vector<size_t>{128});
}
#endif

TEST_CASE("SetIniFileName takes its own stored name, whole or in part")
{
    LogCapture log;
    const RealFile file("");
    REQUIRE(SetIniFileName(("//" + file.path).c_str()));
    CHECK(SetIniFileName(g_filename));
    CHECK(g_filename == "//" + file.path);
    CHECK(SetIniFileName(g_filename + 1));
    CHECK(g_filename == "/" + file.path);
    CHECK(log.Take() == Lines{});
}

TEST_CASE("SetIniFileName keeps the previous name when it fails")
{
    LogCapture log;
    UseMemory("");
    CHECK_FALSE(SetIniFileName(nullptr));
    CHECK_FALSE(SetIniFileName("/no/such/file"));
    CHECK_FALSE(SetIniFileName("/no/100%/%s%n"));
    CHECK_FALSE(SetIniFileName(""));
    CHECK(g_filename == std::string(kMemoryFile));
    CHECK(log.Take() ==
          Lines{"INI:SetIniFileName --- param error.",
                "INI:SetIniFileName --- open file: /no/such/file failed, please check...\n",
                "INI:SetIniFileName --- open file: /no/100%/%s%n failed, please check...\n",
                "INI:SetIniFileName --- open file:  failed, please check...\n"});
}

TEST_CASE("SetIniFileName opens a long path whole and stores its first 1023 characters")
{
    LogCapture log;
    const RealFile file("[V]\nname=x\n");
    for (const size_t length : std::initializer_list<size_t>{1022, 1023, 1024, 1500}) {
        CAPTURE(length);
        std::string path = file.folder;
        while (path.size() + strlen("/config") < length)
            path += "/";
        path += "/config";
        path.erase(0, path.size() - length);
        path[0] = '/';
        REQUIRE(path.size() == length);
        REQUIRE(SetIniFileName(path.c_str()));
        CHECK(g_filename == path.substr(0, 1023));
        // The cut name of the third is that of no file.
        CHECK(std::string(ReadString("V", "name", kDefault)) == (length <= 1023 ? "x" : kDefault));
    }
}

TEST_CASE("ReadString says what was missing, in this order")
{
    LogCapture log;
    const char *const nothing = nullptr;
    UseMemory("[V]\nname=x\n[U]\nother=y\n");
    CHECK(ReadString(nothing, "name", kDefault) == kDefault);
    CHECK(ReadString("V", nothing, kDefault) == kDefault);
    CHECK(ReadString("V", "name", nothing) == nothing);
    CHECK(log.Take() == Lines{"INI:ReadString --- param error.", "INI:ReadString --- param error.",
                              "INI:ReadString --- param error."});
    CHECK(ReadString("W", "name", kDefault) == kDefault);
    CHECK(log.Take() == Lines{"INI:SectionExists --- not found the section",
                              "INI:ReadString --- cfg section [W] not exists..."});
    CHECK(ReadString("V", "other", kDefault) == kDefault);
    CHECK(log.Take() == Lines{"INI:ReadString --- cfg key [other] not exists..."});
    CHECK(ReadString("U", "name", kDefault) == kDefault);
    CHECK(log.Take() == Lines{"INI:KeyExists --- not found the key",
                              "INI:ReadString --- cfg key [name] not exists..."});
    CHECK(ReadString("V", "name", kDefault) == "x"s);
    CHECK(log.Take() == Lines{});
}

TEST_CASE("ReadString and ReadStringEx without the file give the default, each with its own text")
{
    LogCapture log;
    {
        const RealFile file("");
        REQUIRE(SetIniFileName(file.path.c_str()));
    }
    const std::string name = g_filename;
    CHECK(ReadString("V", "name", kDefault) == kDefault);
    CHECK(ReadStringEx("V", "name", kDefault) == kDefault);
    CHECK(GetInitKey(nullptr, "V", "name") == ""s);
    CHECK(log.Take() ==
          Lines{"INI:ReadString --- open file: " + name + " failed, please check...",
                "INI:ReadStringEx --- open file: " + name + " failed, please check...\n",
                "INI:ReadString --- open file: " + name + " failed, please check..."});
}

TEST_CASE("ReadStringEx leaves the missing section and key to the searches to tell")
{
    LogCapture log;
    const char *const nothing = nullptr;
    UseMemory("[V]\nname=x\n[U]\nother=y\n");
    CHECK(ReadStringEx(nothing, "name", kDefault) == kDefault);
    CHECK(ReadStringEx("V", nothing, nothing) == nothing);
    CHECK(log.Take() ==
          Lines{"INI:ReadStringEx --- param error.", "INI:ReadStringEx --- param error."});
    CHECK(ReadStringEx("W", "name", nothing) == nothing);
    CHECK(log.Take() == Lines{"INI:SectionExists --- not found the section"});
    CHECK(ReadStringEx("V", "other", kDefault) == kDefault);
    CHECK(log.Take() == Lines{});
    CHECK(ReadStringEx("U", "name", kDefault) == kDefault);
    CHECK(log.Take() == Lines{"INI:KeyExists --- not found the key"});
    CHECK(ReadStringEx("V", "name", nothing) == "x"s);
    CHECK(log.Take() == Lines{});
}

TEST_CASE("ReadInteger reads nothing and gives the default")
{
    LogCapture log;
    const char *const nothing = nullptr;
    UseMemory("[Volumes]\nn=5\n");
    memset(g_linetext, 'X', sizeof g_linetext);
    CHECK(ReadInteger("Volumes", "n", 7) == 7);
    CHECK(log.Take() ==
          Lines{"INI:ReadString --- param error.", "INI:ReadInteger --- ReadString error"});
    CHECK(ReadInteger(nothing, "n", -7) == -7);
    CHECK(ReadInteger("Volumes", nothing, 8) == 8);
    CHECK(log.Take() ==
          Lines{"INI:ReadInteger --- param error", "INI:ReadInteger --- param error"});
    CHECK(LineBuffer() == std::string(sizeof g_linetext, 'X'));
}

TEST_CASE("GetInitKey is ReadString with an empty default")
{
    LogCapture log;
    const char *const nothing = nullptr;
    char reserved[] = "ignored";
    UseMemory("[V]\nname= x \n");
    CHECK(GetInitKey(nullptr, "V", "name") == "x"s);
    CHECK(GetInitKey(reserved, "V", "name") == "x"s);
    CHECK(log.Take() == Lines{});
    CHECK(GetInitKey(reserved, nothing, "name") == nothing);
    CHECK(GetInitKey(reserved, "V", nothing) == nothing);
    CHECK(log.Take() ==
          Lines{"INI:GetInitKey --- param error.", "INI:GetInitKey --- param error."});
    CHECK(GetInitKey(nullptr, "W", "name") == ""s);
    CHECK(log.Take() == Lines{"INI:SectionExists --- not found the section",
                              "INI:ReadString --- cfg section [W] not exists..."});
}

TEST_CASE("SectionExists leaves the file after the header line")
{
    LogCapture log;
    std::string content = "a\n x[V]y \nname=x\n";
    const File file = Open(content);
    CHECK_FALSE(SectionExists(nullptr, "V"));
    CHECK_FALSE(SectionExists(file.get(), nullptr));
    CHECK(log.Take() ==
          Lines{"INI:SectionExists --- param error", "INI:SectionExists --- param error"});
    CHECK(ftell(file.get()) == 0);
    CHECK(SectionExists(file.get(), "V"));
    CHECK(ftell(file.get()) == 10);
    CHECK(LineBuffer() == ZeroFilled(" x[V]y "));
    CHECK(g_last_line_offset == 2);
    CHECK(g_current_line_offset == 10);
    CHECK(log.Take() == Lines{});
    CHECK_FALSE(SectionExists(file.get(), "V"));
    CHECK(log.Take() == Lines{"INI:SectionExists --- not found the section"});
    CHECK(ftell(file.get()) == 17);
    CHECK(LineBuffer() == ZeroFilled(""));
    CHECK(g_last_line_offset == 17);
    CHECK(g_current_line_offset == 17);
}

TEST_CASE("KeyExists leaves the key's line with its trailing blanks cut, and the file after it")
{
    LogCapture log;
    std::string content = "a\n name = x  \n[U]\nb\n";
    const File file = Open(content);
    CHECK_FALSE(KeyExists(nullptr, "name"));
    CHECK_FALSE(KeyExists(file.get(), nullptr));
    CHECK(log.Take() == Lines{"INI:KeyExists --- param error", "INI:KeyExists --- param error"});
    CHECK(ftell(file.get()) == 0);
    CHECK(KeyExists(file.get(), "name"));
    CHECK(LineBuffer() == ZeroFilled(" name = x"));
    CHECK(ftell(file.get()) == 14);
    CHECK_FALSE(KeyExists(file.get(), "name"));
    CHECK(LineBuffer() == ZeroFilled("[U]"));
    CHECK(ftell(file.get()) == 18);
    CHECK(log.Take() == Lines{});
    CHECK_FALSE(KeyExists(file.get(), "name"));
    CHECK(log.Take() == Lines{"INI:KeyExists --- not found the key"});
    CHECK(LineBuffer() == ZeroFilled(""));
    CHECK(ftell(file.get()) == 20);
}

TEST_CASE("GetKeyValue gives what follows the first =")
{
    LogCapture log;
    const struct {
        const char *line;
        int at;  // -1: none
    } rows[] = {{"name=x", 5}, {"=x", 1}, {"a=b=c", 2}, {"name=", 5}, {"name", -1}, {"", -1}};
    for (const auto &row : rows) {
        CAPTURE(std::string(row.line));
        std::string line = row.line;
        char *value = GetKeyValue(line.data());
        CHECK(value == (row.at < 0 ? nullptr : line.data() + row.at));
        CHECK(line == row.line);
    }
    CHECK(log.Take() == Lines{});
    CHECK(GetKeyValue(nullptr) == nullptr);
    CHECK(log.Take() == Lines{"INI:GetKeyValue --- param error"});
}

TEST_CASE("Trim skips leading blanks and zeroes trailing ones in place")
{
    LogCapture log;
    const struct {
        std::string text;
        size_t at;
        std::string after;
    } rows[] = {
        {"", 0, ""},       {"x", 0, "x"},   {"  x y  ", 2, "  x y\0\0"s},
        {"x ", 0, "x\0"s}, {" x", 1, " x"}, {"\t x \t", 0, "\t x \t"},
        {"   ", 3, "   "}, {" ", 1, " "},
    };
    for (const auto &row : rows) {
        CAPTURE(row.text);
        std::string buffer = "#" + row.text + "\0#"s;
        CHECK(Trim(buffer.data() + 1) == buffer.data() + 1 + row.at);
        CHECK(buffer == "#" + row.after + "\0#"s);
    }
    CHECK(log.Take() == Lines{});
    CHECK(Trim(nullptr) == nullptr);
    CHECK(log.Take() == Lines{"INI:Trim --- param error."});
}

TEST_CASE("KeyExistsInLine applies the key rule and trims the line")
{
    LogCapture log;
    const struct {
        const char *line;
        const char *key;
        bool matches;
    } rows[] = {
        {"path1 = /x", "path1", true},
        {"path10=/x", "path1", false},
        {"abcd=name", "name", true},
        {"abcde=name", "name", false},
        {"name", "name", true},
        {"  name  ", "name", true},
        {"name x", "name", false},
        {"nam", "name", false},
        {"", "name", false},
        {"", "", true},
        {"   ", "", true},
        {"=x", "", true},
        {"x", "", false},
        {"x =name", "name", false},
        {"xxxx=x", "name", false},
        {"name\t=", "name", false},
        {"==", "=", true},
        {"a==", "=", true},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.line));
        CAPTURE(std::string(row.key));
        std::string line = row.line;
        CHECK(KeyExistsInLine(line.data(), row.key) == row.matches);
        std::string trimmed = row.line;
        Trim(trimmed.data());
        CHECK(line == trimmed);
    }
    char line[] = "name ";
    CHECK(log.Take() == Lines{});
    CHECK_FALSE(KeyExistsInLine(nullptr, "name"));
    CHECK_FALSE(KeyExistsInLine(line, nullptr));
    CHECK(line == "name "s);
    CHECK(log.Take() ==
          Lines{"INI:KeyExistsInLine --- param error.", "INI:KeyExistsInLine --- param error."});
}

TEST_CASE("SectionExistsInLine looks for the name in brackets anywhere")
{
    LogCapture log;
    const std::string longName(300, 'n');
    const struct {
        std::string line;
        std::string section;
        bool matches;
    } rows[] = {
        {"[Volumes]", "Volumes", true},
        {"x[Volumes]y", "Volumes", true},
        {"[ Volumes]", "Volumes", false},
        {"[volumes]", "Volumes", false},
        {"[Volumes", "Volumes", false},
        {"Volumes]", "Volumes", false},
        {"[[Volumes]]", "Volumes", true},
        {"[]", "", true},
        {"", "", false},
        {"[%d]", "%d", true},
        {"[100%%]", "100%%", true},
        {"[" + longName.substr(0, 125) + "]", longName.substr(0, 125), true},
        {"[" + longName.substr(0, 126), longName.substr(0, 126), true},
        {"[" + longName.substr(0, 126), longName, true},
        {"[" + longName.substr(0, 125), longName, false},
    };
    for (const auto &row : rows) {
        CAPTURE(row.line);
        CHECK(SectionExistsInLine(row.line.c_str(), row.section.c_str()) == row.matches);
    }
    CHECK(log.Take() == Lines{});
    CHECK_FALSE(SectionExistsInLine(nullptr, "V"));
    CHECK_FALSE(SectionExistsInLine("[V]", nullptr));
    CHECK(log.Take() == Lines{"INI:SectionExistsInLine --- param error.",
                              "INI:SectionExistsInLine --- param error."});
}

TEST_CASE("ReadLine with a null file changes nothing")
{
    LogCapture log;
    memset(g_linetext, 'X', sizeof g_linetext);
    g_current_line_offset = 17;
    g_last_line_offset = 4;
    CHECK(ReadLine(nullptr) == nullptr);
    CHECK(LineBuffer() == std::string(sizeof g_linetext, 'X'));
    CHECK(g_current_line_offset == 17);
    CHECK(g_last_line_offset == 4);
    CHECK(log.Take() == Lines{"INI:ReadLine --- param error"});
}

TEST_CASE("ReadLine goes through a file line by line, offsets along, to its marked end")
{
    LogCapture log;
    const std::string longLine(1023, 'l');
    const struct {
        const char *what;
        std::string content;
        struct {
            std::string text;
            int end;
        } lines[4];  // as many as have a text
    } rows[] = {
        {"an empty file", "", {{"\xFF", 0}}},
        {"line feeds alone", "\n\r\n\n", {{"\xFF", 4}}},
        {"a final line feed", "ab\n\nc\n", {{"ab", 3}, {"c", 6}, {"\xFF", 6}}},
        {"none", "ab\nc", {{"ab", 3}, {"c\xFF", 4}}},
        {"a carriage return at the end", "ab\r", {{"ab\xFF", 3}}},
        {"blanks", "  \n", {{"  ", 3}, {"\xFF", 3}}},
        {"a byte 0xFF", "\xFF\n\xFF", {{"\xFF", 2}, {"\xFF\xFF", 3}}},
        {"a zero byte", "a\0b\nc\n"s, {{"a\0b"s, 4}, {"c", 6}, {"\xFF", 6}}},
        {"1023 characters", longLine + "\nc", {{longLine, 1024}, {"c\xFF", 1025}}},
        {"1024 characters", longLine + "m\nc", {{longLine, 1025}, {"c\xFF", 1026}}},
        {"3000 characters",
         longLine + std::string(1977, 'm') + "\nc\n",
         {{longLine, 3001}, {"c", 3003}, {"\xFF", 3003}}},
        {"1023 at the end", longLine, {{longLine, 1023}}},
        {"1022 at the end", longLine.substr(1), {{longLine.substr(1) + "\xFF", 1022}}},
    };
    for (const auto &row : rows) {
        CAPTURE(std::string(row.what));
        std::string content = row.content;
        const File file = Open(content);
        g_current_line_offset = -99;
        int before = -99;
        for (const auto &line : row.lines) {
            if (line.text.empty())
                break;
            memset(g_linetext, 'X', sizeof g_linetext);
            CHECK(ReadLine(file.get()) == g_linetext);
            CHECK(LineBuffer() == ZeroFilled(line.text));
            CHECK(g_last_line_offset == before);
            CHECK(g_current_line_offset == line.end);
            CHECK(ftell(file.get()) == line.end);
            before = line.end;
        }
        for (int i = 0; i < 2; i++) {
            memset(g_linetext, 'X', sizeof g_linetext);
            CHECK(ReadLine(file.get()) == nullptr);
            CHECK(LineBuffer() == ZeroFilled(""));
            CHECK(g_last_line_offset == before);
            CHECK(g_current_line_offset == before);
        }
    }
    CHECK(log.Take() == Lines{});
}

TEST_CASE("a line that begins with a zero byte reads as the end, and the file goes on after it")
{
    std::string content = "\0ab\nc\n"s;
    const File file = Open(content);
    CHECK(ReadLine(file.get()) == nullptr);
    CHECK(LineBuffer() == ZeroFilled("\0ab"s));
    CHECK(ReadLine(file.get()) == g_linetext);
    CHECK(LineBuffer() == ZeroFilled("c"));
}

TEST_CASE("ReadLine goes on where the file stands")
{
    std::string content = "first\nsecond\nthird\n";
    const File file = Open(content);
    REQUIRE(fseek(file.get(), 8, SEEK_SET) == 0);
    CHECK(ReadLine(file.get()) == "cond"s);
    CHECK(g_current_line_offset == 13);
    REQUIRE(fseek(file.get(), -3, SEEK_END) == 0);
    CHECK(ReadLine(file.get()) == "rd"s);
    CHECK(ReadLine(file.get()) == "\xFF"s);
    CHECK(ReadLine(file.get()) == nullptr);
    REQUIRE(fseek(file.get(), 0, SEEK_SET) == 0);
    CHECK(ReadLine(file.get()) == "first"s);
    CHECK(g_last_line_offset == 19);
    CHECK(g_current_line_offset == 6);
}

TEST_CASE("a second lookup overwrites the first result")
{
    UseMemory("[V]\na=first\nb=second\n");
    const char *first = ReadString("V", "a", kDefault);
    CHECK(first == "first"s);
    const char *second = ReadString("V", "b", kDefault);
    CHECK(second == "second"s);
    CHECK(first == second);
}

TEST_CASE("a result may be the next lookup's key, section or default without harm")
{
    UseMemory("[a]\na=a\nb=c\n");
    const char *first = ReadString("a", "a", kDefault);
    REQUIRE(first == "a"s);
    CHECK(ReadString("x", "y", first) == first);
    ReadString("a", ReadString("a", "a", kDefault), kDefault);
    ReadString(ReadString("a", "a", kDefault), "b", kDefault);
    CHECK(LineBuffer().back() == '\0');
}

TEST_CASE("a lookup sees the file as it is now")
{
    const RealFile file("[V]\nname=x\n");
    REQUIRE(SetIniFileName(file.path.c_str()));
    CHECK(ReadString("V", "name", kDefault) == "x"s);
    const int fd = open(file.path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    REQUIRE(write(fd, "[V]\nname=y\n", 11) == 11);
    close(fd);
    CHECK(ReadString("V", "name", kDefault) == "y"s);
}

// The lowest descriptor that is free.
static int FreeDescriptor()
{
    const int fd = dup(STDERR_FILENO);
    close(fd);
    return fd;
}

TEST_CASE("the file is closed on every way out")
{
    const RealFile file("[V]\nname=x\n[U]\n");
    REQUIRE(SetIniFileName(file.path.c_str()));
    const int before = FreeDescriptor();
    CHECK(SetIniFileName(file.path.c_str()));
    CHECK(FreeDescriptor() == before);
    for (const char *const section : {"V", "U", "W"}) {
        for (const char *const key : {"name", "other"}) {
            ReadString(section, key, kDefault);
            CHECK(FreeDescriptor() == before);
            ReadStringEx(section, key, kDefault);
            CHECK(FreeDescriptor() == before);
            GetInitKey(nullptr, section, key);
            CHECK(FreeDescriptor() == before);
        }
    }
}

TEST_CASE("a folder as the configuration file reads as an empty one")
{
    LogCapture log;
    const RealFile file("");
    CHECK(SetIniFileName(file.folder.c_str()));
    CHECK(ReadString("V", "name", kDefault) == kDefault);
    CHECK(ReadStringEx("V", "name", kDefault) == kDefault);
    CHECK(log.Take() == Lines{"INI:SectionExists --- not found the section",
                              "INI:ReadString --- cfg section [V] not exists...",
                              "INI:SectionExists --- not found the section"});
    const File folder(fopen(file.folder.c_str(), "rb"));
    REQUIRE(folder);
    CHECK(ReadLine(folder.get()) == "\xFF"s);
    CHECK(ReadLine(folder.get()) == nullptr);
}

TEST_CASE("a pipe has no offsets but can be read")
{
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    REQUIRE(write(ends[1], "[V]\nname=x\n", 11) == 11);
    close(ends[1]);
    const File file(fdopen(ends[0], "rb"));
    CHECK(SectionExists(file.get(), "V"));
    CHECK(g_current_line_offset == -1);
    CHECK(KeyExists(file.get(), "name"));
    CHECK(g_linetext == "name=x"s);
    CHECK(g_last_line_offset == -1);
    CHECK(g_current_line_offset == -1);
}

TEST_CASE("a stream whose error flag was set before is read on")
{
    LogCapture log;
    std::string content = "[V]\nname=x\nrest\n";
    const File file = Open(content);
    REQUIRE(fputc('x', file.get()) == EOF);  // it is open for reading alone
    REQUIRE(ferror(file.get()));
    CHECK(SectionExists(file.get(), "V"));
    CHECK(KeyExists(file.get(), "name"));
    CHECK(ReadLine(file.get()) == "rest"s);
    CHECK(g_current_line_offset == 16);
    CHECK(ReadLine(file.get()) == "\xFF"s);
    CHECK(ReadLine(file.get()) == nullptr);
    CHECK(log.Take() == Lines{});
}

TEST_CASE("an error ends the line that it is met in, and the next call reads on")
{
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    REQUIRE(fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0);  // an empty pipe gives an error, not the end
    const File file(fdopen(ends[0], "rb"));
    const auto deliver = [&](const std::string &text) {
        REQUIRE(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    };
    deliver("ab");
    CHECK(ReadLine(file.get()) == "ab\xFF"s);
    deliver("cd\nef");
    CHECK(ReadLine(file.get()) == "cd"s);
    CHECK(ReadLine(file.get()) == "ef\xFF"s);
    CHECK(ReadLine(file.get()) == nullptr);  // nothing but the error again
    CHECK(LineBuffer() == ZeroFilled(""));
    deliver("g");
    close(ends[1]);
    CHECK(ReadLine(file.get()) == "g\xFF"s);
    CHECK(ReadLine(file.get()) == nullptr);
}

TEST_CASE("a lookup in a configuration without a position leaves offsets of -1")
{
    LogCapture log;
    const RealFile file("");
    const std::string path = file.folder + "/fifo";
    REQUIRE(mkfifo(path.c_str(), 0600) == 0);
    const int writer = open(path.c_str(), O_RDWR | O_CLOEXEC);
    REQUIRE(SetIniFileName(path.c_str()));
    const auto offsetsAfter = [&](const char *(*lookUp)(const char *, const char *, const char *)) {
        REQUIRE(write(writer, "[V]\nname=x\n", 11) == 11);
        g_current_line_offset = 17;
        g_last_line_offset = 4;
        CHECK(lookUp("V", "name", kDefault) == "x"s);
        return std::vector<int>{g_last_line_offset, g_current_line_offset};
    };
    CHECK(offsetsAfter(ReadString) == std::vector<int>{-1, -1});
    CHECK(offsetsAfter(ReadStringEx) == std::vector<int>{-1, -1});
    close(writer);
    CHECK(log.Take() == Lines{});
}

TEST_CASE("a line far after the stream's first block is found")
{
    std::string content;
    for (int i = 0; i < 3000; i++)
        content += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    const RealFile file("[U]\n" + content + "[V]\n" + content);
    REQUIRE(SetIniFileName(file.path.c_str()));
    CHECK(ReadString("V", "key2999", kDefault) == "value 2999"s);
    CHECK(g_current_line_offset == static_cast<int>(8 + 2 * content.size()));
    CHECK(g_last_line_offset ==
          g_current_line_offset - static_cast<int>(strlen("key2999 = value 2999\n")));
}

// ---- Random files -------------------------------------------------------------------------------

static std::string RandomContent(std::mt19937 &random)
{
    static const std::string kPieces[] = {
        "[",     "]",     "=",   " ",       "\r",    "\n",         "\0"s,     "\xFF",
        "k",     "e",     "y",   "s",       "\t",    "key",        "[s]",     "\n",
        "key=",  " =",    "\n[", "key = x", "[s]\n", "\r\n",       "\n[s]\n", "\nkey = ",
        "[key]", "x=key", "  ",  "[\n",     "\n ",   "\nkey=v \n",
    };
    std::string content;
    const size_t pieces = random() % 24;
    for (size_t i = 0; i < pieces; i++)
        content += kPieces[random() % std::size(kPieces)];
    if (random() % 16 == 0)
        content.insert(random() % (content.size() + 1), 1000 + random() % 40, "x k="[random() % 4]);
    return content;
}

static void CheckState(const IniModel &model, const std::string &content)
{
    const bool same = LineBuffer() == ZeroFilled(model.line) &&
                      g_current_line_offset == model.current && g_last_line_offset == model.last;
    CAPTURE(content);
    REQUIRE(same);
}

TEST_CASE("lookups in random files are those of a naive reading of the format")
{
    const int kFiles = Rounds(200000);
    static const std::string kSections[] = {"s", "s", "s", "", "key", "s]", "["};
    static const std::string kKeys[] = {"key", "key", "key", "k",  "",
                                        "=",   "[s]", "y",   " k", "\xFF"};
    std::mt19937 random(1871);
    LogCapture log;
    Lines expected;
    for (int i = 1; i <= kFiles; i++) {
        const std::string content = RandomContent(random);
        const std::string &section = kSections[random() % std::size(kSections)];
        const std::string &key = kKeys[random() % std::size(kKeys)];
        const bool trims = random() % 2 == 0;
        UseMemory(content);
        memset(g_linetext, 'X', sizeof g_linetext - 1);
        IniModel model(content);
        const bool hasSection = model.Section(section);
        const bool hasKey = hasSection && model.Key(key);
        if (trims && !hasSection)
            model.log.push_back("INI:ReadString --- cfg section [" + section + "] not exists...");
        else if (trims && !hasKey)
            model.log.push_back("INI:ReadString --- cfg key [" + key + "] not exists...");
        expected.insert(expected.end(), model.log.begin(), model.log.end());
        const char *value = trims ? ReadString(section.c_str(), key.c_str(), kDefault)
                                  : ReadStringEx(section.c_str(), key.c_str(), kDefault);
        CAPTURE(content);
        REQUIRE((value != kDefault) == hasKey);
        if (hasKey) {
            REQUIRE(std::string(value) == model.Value(trims));
            REQUIRE(IsInLineBuffer(value));
        }
        CheckState(model, content);
        if (i % 1000 == 0) {
            REQUIRE(log.Take() == expected);
            expected.clear();
        }
    }
}

TEST_CASE("mixed calls on one stream of a random file keep its position and the offsets")
{
    const int kFiles = Rounds(50000);
    std::mt19937 random(1872);
    LogCapture log;
    Lines expected;
    for (int i = 1; i <= kFiles; i++) {
        std::string content = RandomContent(random);
        const File file = Open(content);
        IniModel model(content);
        for (int call = 0; call < 5; call++) {
            memset(g_linetext, 'X', sizeof g_linetext);
            std::string text;
            CAPTURE(content);
            switch (random() % 3) {
            case 0: REQUIRE((ReadLine(file.get()) == g_linetext) == model.Read(text)); break;
            case 1: REQUIRE(SectionExists(file.get(), "s") == model.Section("s")); break;
            case 2: REQUIRE(KeyExists(file.get(), "key") == model.Key("key")); break;
            }
            CheckState(model, content);
            REQUIRE(ftell(file.get()) == model.current);
        }
        expected.insert(expected.end(), model.log.begin(), model.log.end());
        if (i % 1000 == 0) {
            REQUIRE(log.Take() == expected);
            expected.clear();
        }
    }
}
