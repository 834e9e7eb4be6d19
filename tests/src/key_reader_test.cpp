// The reader of "SysConfig.dat": trimming, headers, keys, offsets and stream positions.
#include "src/ActiveVolumeProgram.h"

#include "tests/src/launcher_seam.h"
#include "tests/support/guarded.h"
#include "tests/support/key_model.h"
#include "tests/support/log_capture.h"
#include "tests/support/rounds.h"

#include <limits.h>

#include <random>

static std::string Trim(const std::string &text)
{
    return "ActiveVolumeProgram:TrimKey --- " + text;
}

static std::string Primary(const std::string &text)
{
    return "ActiveVolumeProgram:IsPrimaryKey --- " + text;
}

static std::string Read(const std::string &text)
{
    return "ActiveVolumeProgram:ReadKeyValue --- " + text;
}

static std::string Equal(const std::string &text)
{
    return "ActiveVolumeProgram:IsKeyValueCaseEqual --- " + text;
}

static Lines Then(Lines lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// The log lines that every search for `key` begins with.
static Lines Start(const std::string &key)
{
    return {Read("ReadKeyValue Enter"), Read("pKeyIOValue=" + key), Trim("TrimKey Enter")};
}

// A stream over bytes in memory; the seam counts it like a file.
static FILE *Memory(const std::string &bytes)
{
    FILE *file = fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "rb");
    REQUIRE(file != nullptr);
    g_seam.streams.insert(file);
    return file;
}

// A key buffer that ends at an unreadable page, and what one call did with it.
struct Call {
    int64_t result = 0;
    int64_t capacity = 0;
    std::string keyIO;  // the text it holds afterwards
    long position = 0;  // of the stream
    Lines lines;
};

static Call ReadOne(FILE *file, const std::string &key, bool sectionMode, int64_t capacity = 1024,
                    int keyIOSize = 1024)
{
    LogCapture log;
    const Guarded keyIO(std::max(static_cast<size_t>(keyIOSize), key.size() + 1));
    memcpy(keyIO.Text(), key.c_str(), key.size() + 1);
    Call call;
    call.result = ReadKeyValue(file, keyIO.Text(), keyIOSize, &capacity, sectionMode);
    call.capacity = capacity;
    call.keyIO = keyIO.Text();
    call.lines = log.Take();
    const auto held = g_seam;  // the test's own look at the position is no call of the reader's
    call.position = ftell(file);
    g_seam = held;
    CHECK(keyIO.FrontIntact());
    return call;
}

// ---- TrimKey ----

TEST_CASE("TrimKey cuts spaces, brackets and line ends off both ends, and nothing else")
{
    struct Row {
        std::string text;
        std::string trimmed;
    };
    const Row rows[] = {
        {"[SD_THIRDPARTY_SETUP]", "SD_THIRDPARTY_SETUP"},
        {" yes\r\n", "yes"},
        {"\tx ", "\tx"},
        {"x", "x"},
        {"", ""},
        {" ", ""},
        {" []\r\n[ ]", ""},
        {"a [b] c", "a [b] c"},
        {"]] a\n\nb [", "a\n\nb"},
        {"\v\f\t", "\v\f\t"},
        {"\xA0 \xFF", "\xA0 \xFF"},
        {std::string(1000, ' ') + "k" + std::string(1000, ']'), "k"},
        {" " + std::string(3000, 'v') + " ", std::string(3000, 'v')},
    };
    for (const Row &row : rows) {
        CAPTURE(row.text);
        LogCapture log;
        const Guarded text(WithTerminator(row.text));
        CHECK(TrimKey(text.Text()) == static_cast<int64_t>(row.trimmed.size()));
        CHECK(std::string(text.Text()) == row.trimmed);
        CHECK(text.FrontIntact());
        // Only the empty result logs its success.
        CHECK(log.Take() == (row.trimmed.empty()
                                 ? Lines{Trim("TrimKey Enter"), Trim("TrimKey exit success")}
                                 : Lines{Trim("TrimKey Enter")}));
    }
}

TEST_CASE("TrimKey of no text is -1")
{
    LogCapture log;
    CHECK(TrimKey(nullptr) == -1);
    CHECK(log.Take() == Lines{Trim("TrimKey Enter"), Trim("TrimKey exit key is NULL")});
}

// ---- IsPrimaryKey ----

TEST_CASE("a name is a header when brackets surround it with nothing but spaces between")
{
    struct Row {
        const char *line;
        bool header;
    };
    const Row rows[] = {
        {"[KEY]", true},     {"[ KEY ]\r\n", true}, {"x[  KEY   ]y", true}, {"[a][KEY]", true},
        {"KEY", false},      {" KEY]", false},      {"[KEY", false},        {"[KEY ", false},
        {"[\tKEY]", false},  {"[KEY\t]", false},    {"[xKEY]", false},      {"[KEYx]", false},
        {"]KEY]", false},    {"[KEY[", false},      {"KEY]", false},        {"[KEY\n]", false},
        {"[KEY]KEY]", true}, {"(KEY)", false},      {"  KEY  ]", false},    {"[[KEY]]", true},
    };
    for (const Row &row : rows) {
        CAPTURE(row.line);
        LogCapture log;
        const Guarded line(WithTerminator(row.line));
        CHECK(IsPrimaryKey(line.Text(), strstr(line.Text(), "KEY"), 3) == row.header);
        CHECK(log.Take() ==
              Lines{Primary("IsPrimaryKey Enter"),
                    Primary(row.header ? "IsPrimaryKey exit true" : "IsPrimaryKey exit false")});
    }
}

TEST_CASE("nothing before the start of the line is read")
{
    const char bracketBefore[] = "[KEY]";
    CHECK_FALSE(IsPrimaryKey(bracketBefore + 1, bracketBefore + 1, 3));
    const char spaceBefore[] = "[  KEY]";
    CHECK_FALSE(IsPrimaryKey(spaceBefore + 1, spaceBefore + 3, 3));
    // A block of its own, in which one step before the start is an error under AddressSanitizer.
    const std::vector<char> line{' ', 'K', 'E', 'Y', ']', '\0'};
    CHECK_FALSE(IsPrimaryKey(line.data(), line.data() + 1, 3));
}

TEST_CASE("a missing text or an impossible length is no header")
{
    const char line[] = "[KEY]";
    const Lines no{Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit false")};
    LogCapture log;
    CHECK_FALSE(IsPrimaryKey(nullptr, line + 1, 3));
    CHECK(log.Take() == no);
    CHECK_FALSE(IsPrimaryKey(line, nullptr, 3));
    CHECK(log.Take() == no);
    for (const int64_t length : {int64_t{-1}, INT64_MIN, int64_t{6}, INT64_MAX}) {
        CHECK_FALSE(IsPrimaryKey(line, line + 1, length));
        CHECK(log.Take() == no);
    }
    CHECK_FALSE(IsPrimaryKey("[]", "[]", 0));
    const char empty[] = "[  ]";
    CHECK(IsPrimaryKey(empty, empty + 2, 0));
}

// ---- ReadKeyValue ----

static constexpr char kFile[] = "[SD_THIRDPARTY_SETUP]\nSD_THIRD_SETUP=yes\n";

TEST_CASE("a section gives the offset of its header, and its key the offset of the value")
{
    FreshSeam();
    const std::string bytes = kFile;
    FILE *file = Memory(bytes);
    const Call section = ReadOne(file, "[SD_THIRDPARTY_SETUP]", true);
    CHECK(section.result == 0);
    CHECK(section.position == 22);
    CHECK(section.keyIO == "SD_THIRDPARTY_SETUP");
    CHECK(section.capacity == 1024);
    CHECK(section.lines == Then(Start("[SD_THIRDPARTY_SETUP]"),
                                {Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit true"),
                                 Read("find szTmp=[SD_THIRDPARTY_SETUP]\n is key and "
                                      "pPos=SD_THIRDPARTY_SETUP]\n, and ReadKeyValue exit")}));
    const Call key = ReadOne(file, "SD_THIRD_SETUP", false);
    CHECK(key.result == 37);
    CHECK(key.position == 41);
    CHECK(key.keyIO == "yes");
    CHECK(key.lines == Then(Start("SD_THIRD_SETUP"),
                            {Trim("TrimKey Enter"), Read("lPos == 37, ReadKeyValue exit true")}));
    fclose(file);
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("what a key line may look like")
{
    struct Row {
        std::string file;
        int64_t offset;  // -1: not found
        std::string value;
        long position;
    };
    const Row rows[] = {
        {"KEY=yes\n", 4, "yes", 8},
        {"KEY=yes", 4, "yes", 7},  // no line feed at the end
        {"KEY=yes\r\n", 4, "yes", 9},
        {"KEY = yes\n", 5, "yes", 10},  // the offset is that of the space
        {"KEY=  yes \n", 4, "yes", 11},
        {"KEY=\n", 4, "", 5},
        {"KEY=", 4, "", 4},
        {"KEY=  \r\n", 4, "", 8},
        {"XKEY=1\n", 5, "1", 7},  // the name may be anywhere
        {"KEY_OLD=1\n", 8, "1", 10},
        {"KEY whatever: =1=2\n", 15, "1=2", 19},
        {"#KEY=c\n", 5, "c", 7},  // there are no comments
        {";KEY=c\n", 5, "c", 7},
        {"a=KEY\nKEY=b\n", 10, "b", 12},  // "=" before the name does not count
        {"KEY\nKEY=b\n", 8, "b", 10},
        {"KEY\r=a\nKEY=b\n", 11, "b", 13},
        {"\xEF\xBB\xBFKEY=b\n", 7, "b", 9},  // a byte-order mark is ordinary text
        {"KEY=\tb\t\n", 4, "\tb\t", 8},      // tabs are not trimmed
        {"key=b\n", -1, "KEY", 6},           // the name's letter case counts
        {"", -1, "KEY", 0},
        {"\n\n\n", -1, "KEY", 3},
        {"KEY\n", -1, "KEY", 4},
        {std::string("KEY=a\0b\n", 8), 4, "a", 8},  // a zero byte ends the line's text
        {std::string("x\0KEY=b\nKEY=c\n", 14), 12, "c", 14},
        {std::string("KEY\0=b\nKEY=c\n", 13), 11, "c", 13},
        {std::string("KEY=No\0\nX=1\n", 12), 4, "No", 8},
        {"a\rKEY=b\rc\n", 6, "b\rc", 10},  // a lone CR ends no line
    };
    for (const Row &row : rows) {
        CAPTURE(row.file);
        FreshSeam();
        const std::string bytes = row.file.empty() ? " " : row.file;
        FILE *file = Memory(bytes);
        if (row.file.empty())
            fgetc(file);
        const long start = row.file.empty() ? 1 : 0;
        const Call call = ReadOne(file, "KEY", false);
        CHECK(call.result == row.offset);
        CHECK(call.keyIO == row.value);
        CHECK(call.position == row.position + start);
        Lines expected = Start("KEY");
        if (row.offset == -1) {
            expected.push_back(Read("ReadKeyValue exit failed"));
        } else {
            expected.push_back(Trim("TrimKey Enter"));
            if (row.value.empty())
                expected.push_back(Trim("TrimKey exit success"));
            expected.push_back(
                Read("lPos == " + std::to_string(row.offset) + ", ReadKeyValue exit true"));
        }
        CHECK(call.lines == expected);
        fclose(file);
    }
}

TEST_CASE("what a header may look like")
{
    struct Row {
        std::string file;
        int64_t offset;
        long position;
    };
    const Row rows[] = {
        {"[SEC]\nx", 0, 6},
        {"\r\n[ SEC ]\r\nx", 2, 11},
        {"text [SEC] text\n", 0, 16},
        {"\xEF\xBB\xBF[SEC]\n", 0, 9},
        {"[SEC]", 0, 5},
        {"SEC=1\n[SEC]\n", 6, 12},
        {"[SEC x]\n[SEC]\n", 8, 14},
        {"SEC [SEC]\n[SEC]\n", 10, 16},  // a line's first occurrence alone is judged
        {"[OTHER]\n[a]b]\n[SEC]\n", 14, 20},
        {"[\tSEC]\n", -1, 7},
        {"[sec]\n", -1, 6},
        {"[SEC\n]\n", -1, 7},
        {std::string("a\0[SEC]\n[SEC]\n", 14), 8, 14},
    };
    for (const Row &row : rows) {
        CAPTURE(row.file);
        for (const char *name : {"SEC", "[SEC]", " [ SEC ] \r\n"}) {
            FreshSeam();
            FILE *file = Memory(row.file);
            const Call call = ReadOne(file, name, true);
            CHECK(call.result == row.offset);
            CHECK(call.keyIO == "SEC");
            CHECK(call.position == row.position);
            CHECK(call.capacity == 1024);
            fclose(file);
        }
    }
}

TEST_CASE("every candidate line of a section search is logged")
{
    FreshSeam();
    const std::string bytes = "nothing\nSEC\n[SECOND]\nx [SEC] y\n";
    FILE *file = Memory(bytes);
    const Call call = ReadOne(file, "SEC", true);
    CHECK(call.result == 21);
    const Lines no{Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit false")};
    CHECK(call.lines ==
          Then(Then(Then(Start("SEC"), no), no),
               {Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit true"),
                Read("find szTmp=x [SEC] y\n is key and pPos=SEC] y\n, and ReadKeyValue exit")}));
    fclose(file);
}

TEST_CASE("a bracket anywhere ends the search for a key, and the stream goes back to its line")
{
    struct Row {
        std::string file;
        long position;
    };
    const Row rows[] = {
        {"a=1\n[NEXT]\nKEY=1\n", 4}, {"[\nKEY=1\n", 0},
        {"x\ny\n]\nKEY=1\n", 4},     {"KEY=a[b\n", 0},  // a value with a bracket cannot be read
        {"KEY=[a]\nKEY=b\n", 0},
    };
    for (const Row &row : rows) {
        CAPTURE(row.file);
        FreshSeam();
        FILE *file = Memory(row.file);
        const Call call = ReadOne(file, "KEY", false);
        CHECK(call.result == -1);
        CHECK(call.position == row.position);
        CHECK(call.keyIO == "KEY");
        CHECK(call.lines ==
              Then(Start("KEY"), {Read("pPos == '[' or pPos == ']', ReadKeyValue exit failed")}));
        fclose(file);
    }
}

TEST_CASE("a key that stands before the stream's position is not found")
{
    FreshSeam();
    const std::string bytes = "[SEC]\nA=1\nB=2\n";
    FILE *file = Memory(bytes);
    CHECK(ReadOne(file, "SEC", true).result == 0);
    CHECK(ReadOne(file, "B", false).result == 12);
    const Call call = ReadOne(file, "A", false);
    CHECK(call.result == -1);
    CHECK(call.position == 14);
    CHECK(call.lines == Then(Start("A"), {Read("ReadKeyValue exit failed")}));
    fclose(file);
}

TEST_CASE("a value of the capacity's length is refused, and the size needed is returned")
{
    struct Row {
        int64_t capacity;
        bool taken;
    };
    for (const Row &row : {Row{6, true}, Row{5, false}, Row{4, false}, Row{0, false},
                           Row{-1, false}, Row{INT64_MIN, false}, Row{INT64_MAX, true}}) {
        CAPTURE(row.capacity);
        FreshSeam();
        const std::string bytes = "x\nKEY= value \nKEY=b\n";
        FILE *file = Memory(bytes);
        const Call call = ReadOne(file, "KEY", false, row.capacity);
        CHECK(call.result == (row.taken ? 6 : -1));
        CHECK(call.keyIO == (row.taken ? "value" : ""));
        CHECK(call.capacity == (row.taken ? row.capacity : 6));
        CHECK(call.position == (row.taken ? 14 : 2));
        CHECK(call.lines ==
              Then(Start("KEY"),
                   {Trim("TrimKey Enter"),
                    Read(row.taken ? "lPos == 6, ReadKeyValue exit true"
                                   : "pKeyIOValue's space is small, ReadKeyValue exit failed")}));
        fclose(file);
    }
    FreshSeam();
    const std::string empty = "KEY=\n";
    FILE *file = Memory(empty);
    const Call call = ReadOne(file, "KEY", false, 0);
    CHECK(call.result == -1);
    CHECK(call.capacity == 1);
    fclose(file);
}

TEST_CASE("a value longer than the buffer is cut to it")
{
    for (const int size : {1, 2, 5, 6, 7}) {
        CAPTURE(size);
        FreshSeam();
        const std::string bytes = "KEY=value\n";
        FILE *file = Memory(bytes);
        const Call call = ReadOne(file, "KEY", false, 1024, size);
        CHECK(call.result == 4);
        CHECK(call.keyIO == std::string("value").substr(0, static_cast<size_t>(size) - 1));
        CHECK(call.position == 10);
        fclose(file);
    }
}

TEST_CASE("a line of more than 1023 bytes counts as several")
{
    const std::string fill(1023, 'x');
    struct Row {
        std::string file;
        int64_t offset;
        std::string value;
        long position;
    };
    const Row rows[] = {
        {"KEY=" + std::string(1019, 'v') + "\n", 4, std::string(1019, 'v'), 1023},
        {"KEY=" + std::string(1018, 'v') + "\n", 4, std::string(1018, 'v'), 1023},
        {"KEY=" + std::string(2000, 'v') + "\n", 4, std::string(1019, 'v'), 1023},
        {fill + "KEY=b\n", 1027, "b", 1029},
        {fill.substr(2) + "KEY=b\nKEY=c\n", 1031, "c", 1033},  // the name is cut in two
        {fill.substr(3) + "KEY=b\nKEY=c\n", 1030, "c", 1032},  // and here the "=" from the name
    };
    for (const Row &row : rows) {
        CAPTURE(row.file.size());
        FreshSeam();
        FILE *file = Memory(row.file);
        const Call call = ReadOne(file, "KEY", false);
        CHECK(call.result == row.offset);
        CHECK(call.keyIO == row.value);
        CHECK(call.position == row.position);
        fclose(file);
    }
    // A header after 1023 bytes is found in its own piece; one across the border is not.
    FreshSeam();
    const std::string content = fill + "[SEC]\n";
    FILE *file = Memory(content);
    CHECK(ReadOne(file, "SEC", true).result == 1023);
    fclose(file);
    const std::string across = fill.substr(1) + "[SEC]\n";
    file = Memory(across);
    CHECK(ReadOne(file, "SEC", true).result == -1);
    fclose(file);
}

TEST_CASE("a key that trims to nothing matches the first line with an equals sign")
{
    FreshSeam();
    const std::string bytes = "a\nb=c\n";
    FILE *file = Memory(bytes);
    const Call call = ReadOne(file, " [ ]", false);
    CHECK(call.result == 4);
    CHECK(call.keyIO == "c");
    CHECK(call.lines == Lines{Read("ReadKeyValue Enter"), Read("pKeyIOValue= [ ]"),
                              Trim("TrimKey Enter"), Trim("TrimKey exit success"),
                              Trim("TrimKey Enter"), Read("lPos == 4, ReadKeyValue exit true")});
    fclose(file);
    // No header has an empty name: there is nothing before the start of the line.
    file = Memory(bytes);
    CHECK(ReadOne(file, "[]", true).result == -1);
    fclose(file);
}

TEST_CASE("wrong arguments are refused and leave everything unchanged")
{
    FreshSeam();
    const std::string bytes = kFile;
    FILE *file = Memory(bytes);
    int64_t capacity = 1024;
    const Guarded key(WithTerminator("SD"));
    const Guarded empty(WithTerminator(""));
    struct Row {
        FILE *file;
        char *keyIO;
        int size;
        int64_t *capacity;
        bool sectionMode;
    };
    const Row rows[] = {
        {nullptr, key.Text(), 3, &capacity, true},     {nullptr, key.Text(), 3, &capacity, false},
        {file, nullptr, 3, &capacity, true},           {file, nullptr, 3, &capacity, false},
        {file, key.Text(), 0, &capacity, true},        {file, key.Text(), -1, &capacity, false},
        {file, key.Text(), INT_MIN, &capacity, false}, {file, empty.Text(), 1, &capacity, true},
        {file, empty.Text(), 1, &capacity, false},     {file, key.Text(), 3, nullptr, false},
    };
    for (const Row &row : rows) {
        LogCapture log;
        CHECK(ReadKeyValue(row.file, row.keyIO, row.size, row.capacity, row.sectionMode) == -1);
        CHECK(log.Take() == Lines{Read("ReadKeyValue Enter"), Read("ReadKeyValue exit failed")});
    }
    CHECK(key.Held() == WithTerminator("SD"));
    CHECK(capacity == 1024);
    CHECK(ftell(file) == 0);
    fclose(file);
}

TEST_CASE("a section is read without a capacity")
{
    FreshSeam();
    const std::string bytes = kFile;
    FILE *file = Memory(bytes);
    const Guarded key(WithTerminator("SD_THIRDPARTY_SETUP"));
    CHECK(ReadKeyValue(file, key.Text(), 1, nullptr, true) == 0);
    CHECK(key.Held() == WithTerminator("SD_THIRDPARTY_SETUP"));
    fclose(file);
}

TEST_CASE("a stream that cannot tell its position or read ends the search")
{
    struct Row {
        const char *function;
        int number;
        const char *message;
    };
    const Row rows[] = {
        {"ftell", 1, "ftell error"},
        {"ftell", 2, "ftell error in while"},
        {"ftell", 3, "ftell error in while"},
        {"fgets", 1, "ReadKeyValue exit failed"},
        {"fgets", 3, "ReadKeyValue exit failed"},
    };
    for (const Row &row : rows) {
        for (const bool sectionMode : {true, false}) {
            CAPTURE(row.message);
            FreshSeam().Fail(row.function, row.number);
            const std::string bytes = sectionMode ? "a\nb\n[KEY]\n" : "a\nb\nKEY=1\n";
            FILE *file = Memory(bytes);
            const Call call = ReadOne(file, "KEY", sectionMode);
            CHECK(call.result == -1);
            CHECK(call.keyIO == "KEY");
            CHECK(call.lines == Then(Start("KEY"), {Read(row.message)}));
            fclose(file);
        }
    }
}

TEST_CASE("a stream that cannot be repositioned is logged in place of the usual message")
{
    for (const std::string bytes : {"[NEXT]\n", "KEY=value\n"}) {
        FreshSeam().Fail("fseek", 1);
        FILE *file = Memory(bytes);
        const bool header = bytes[0] == '[';
        const Call call = ReadOne(file, "KEY", false, 5);
        CHECK(call.result == -1);
        CHECK(call.keyIO == (header ? "KEY" : ""));
        CHECK(call.capacity == (header ? 5 : 6));
        CHECK(call.position == static_cast<long>(bytes.size()));
        CHECK(call.lines ==
              Then(Start("KEY"), header ? Lines{Read("fseek error")}
                                        : Lines{Trim("TrimKey Enter"), Read("fseek error")}));
        fclose(file);
    }
}

TEST_CASE("a folder reads as an empty file")
{
    FreshSeam();
    FILE *file = fopen("/tmp", "r");
    REQUIRE(file != nullptr);
    LogCapture log;
    int64_t capacity = 1024;
    const Guarded key(WithTerminator("KEY"));
    CHECK(ReadKeyValue(file, key.Text(), 4, &capacity, false) == -1);
    CHECK(log.Take() == Then(Start("KEY"), {Read("ReadKeyValue exit failed")}));
    fclose(file);
}

TEST_CASE("an offset above 2 GiB is returned whole and logged as its lower 32 bits")
{
    FreshSeam();
    std::string path = "/tmp/kestrun-keys-XXXXXX";
    const int fd = mkstemp(path.data());
    REQUIRE(fd >= 0);
    const int64_t hole = 0x180000000;
    const std::string bytes = "\nKEY=far\n";
    const bool made =
        pwrite(fd, bytes.data(), bytes.size(), hole) == static_cast<ssize_t>(bytes.size());
    close(fd);
    REQUIRE(made);
    FILE *file = fopen(path.c_str(), "r");
    REQUIRE(file != nullptr);
    REQUIRE(fseek(file, hole, SEEK_SET) == 0);
    const Call call = ReadOne(file, "KEY", false);
    CHECK(call.result == hole + 5);
    CHECK(call.keyIO == "far");
    CHECK(call.lines.back() == Read("lPos == -2147483643, ReadKeyValue exit true"));
    fclose(file);
    unlink(path.c_str());
}

// ---- IsKeyValueCaseEqual ----

// Answers the question for a file that holds `bytes`.
static bool Ask(const std::string &bytes, const char *section, const char *key,
                const char *expected)
{
    g_seam.open = [&bytes](const std::string &) {
        return fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "rb");
    };
    return IsKeyValueCaseEqual("/config", section, key, expected);
}

TEST_CASE("a value is compared with its letter case ignored")
{
    struct Row {
        const char *file;
        const char *section;
        const char *expected;
        bool equal;
    };
    const Row rows[] = {
        {"[Volumes]\ndisable_cdrom=TRUE\n", "Volumes", "true", true},
        {"[Volumes]\ndisable_cdrom=TRUE\n", "[Volumes]", "true", true},
        {"[Volumes]\r\ndisable_cdrom = True \r\n", "Volumes", "tRUE", true},
        {"[Volumes]\ndisable_cdrom=true", "Volumes", "true", true},
        {"[Volumes]\ndisable_cdrom=truer\n", "Volumes", "true", false},
        {"[Volumes]\ndisable_cdrom=tru\n", "Volumes", "true", false},
        {"[Volumes]\ndisable_cdrom=\n", "Volumes", "true", false},
        {"[Volumes]\ndisable_cdrom=\n", "Volumes", "", true},
    };
    for (const Row &row : rows) {
        CAPTURE(row.file);
        FreshSeam();
        LogCapture log;
        CHECK(Ask(row.file, row.section, "disable_cdrom", row.expected) == row.equal);
        const Lines lines = log.Take();
        CHECK(lines.front() == Equal("IsKeyValueCaeEqual Enter"));
        CHECK(lines.back() == Equal("IsKeyValueCaseEqual exit"));
        CHECK_FALSE(g_seam.Leaks());
    }
}

TEST_CASE("the whole log of one question")
{
    FreshSeam();
    LogCapture log;
    CHECK(Ask("[Volumes]\ndisable_cdrom=TRUE\n", "Volumes", "disable_cdrom", "true"));
    Lines expected = Then({Equal("IsKeyValueCaeEqual Enter")}, Start("Volumes"));
    expected =
        Then(expected, {Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit true"),
                        Read("find szTmp=[Volumes]\n is key and pPos=Volumes]\n, and ReadKeyValue "
                             "exit")});
    expected = Then(expected, Start("disable_cdrom"));
    expected = Then(expected, {Trim("TrimKey Enter"), Read("lPos == 24, ReadKeyValue exit true"),
                               Equal("IsKeyValueCaseEqual exit")});
    CHECK(log.Take() == expected);
}

TEST_CASE("a question is asked with a cleared buffer")
{
    FreshSeam();
    LogCapture log;
    CHECK(ClearedBy([] { Ask("[a]\nkey=yes\n", "a", "key", "yes"); }, kLogLineSize) ==
          std::vector<size_t>{1024});
}

TEST_CASE("a missing argument is refused before the file is opened")
{
    for (int missing = 0; missing < 4; missing++) {
        FreshSeam();
        LogCapture log;
        const char *texts[] = {"/config", "Volumes", "key", "true"};
        texts[missing] = nullptr;
        CHECK_FALSE(IsKeyValueCaseEqual(texts[0], texts[1], texts[2], texts[3]));
        CHECK(log.Take() ==
              Lines{Equal("IsKeyValueCaeEqual Enter"), Equal("IsKeyValueCaseEqual exit failed")});
        CHECK(g_seam.calls["fopen"] == 0);
    }
}

TEST_CASE("a file that cannot be opened is named")
{
    FreshSeam();
    LogCapture log;
    CHECK_FALSE(IsKeyValueCaseEqual("/no/such/file", "Volumes", "key", "true"));
    CHECK(log.Take() == Lines{Equal("IsKeyValueCaeEqual Enter"),
                              Equal("open /no/such/file failed, IsKeyValueCaseEqual exit failed")});
}

TEST_CASE("a section or key that is missing, empty or too long makes the answer no")
{
    const std::string longName(1024, 'k');
    const std::string longest(1023, 'k');
    struct Row {
        std::string file;
        std::string section;
        std::string key;
        const char *before;  // the last line but one
    };
    const char *const notFound = "ReadKeyValue exit failed";
    const Row rows[] = {
        {"x=1\n", "Volumes", "x", notFound},
        {"[Volumes]\n", "Volumes", "x", notFound},
        {"[Volumes]\n", "", "x", notFound},
        {"[Volumes]\nx=1\n", "Volumes", "", notFound},
        {"[Volumes]\n[b]\nx=1\n", "Volumes", "x",
         "pPos == '[' or pPos == ']', ReadKeyValue exit failed"},
        {"[Volumes]\nx=1\n", longName, "x", nullptr},
        {"[Volumes]\nx=1\n", longest, "x", notFound},
        {"[Volumes]\nx=1\n", "Volumes", longest, notFound},
    };
    for (const Row &row : rows) {
        FreshSeam();
        LogCapture log;
        CHECK_FALSE(Ask(row.file, row.section.c_str(), row.key.c_str(), "1"));
        const Lines lines = log.Take();
        CHECK(lines.back() == Equal("IsKeyValueCaseEqual exit failed"));
        CHECK(lines.at(lines.size() - 2) ==
              (row.before ? Read(row.before) : Equal("IsKeyValueCaeEqual Enter")));
        CHECK_FALSE(g_seam.Leaks());
    }
    FreshSeam();
    LogCapture log;
    CHECK_FALSE(Ask("[Volumes]\nx=1\n", "Volumes", longName.c_str(), "1"));
    Lines expected = Then({Equal("IsKeyValueCaeEqual Enter")}, Start("Volumes"));
    expected =
        Then(expected, {Primary("IsPrimaryKey Enter"), Primary("IsPrimaryKey exit true"),
                        Read("find szTmp=[Volumes]\n is key and pPos=Volumes]\n, and ReadKeyValue "
                             "exit"),
                        Equal("IsKeyValueCaseEqual exit failed")});
    CHECK(log.Take() == expected);
    CHECK_FALSE(g_seam.Leaks());
}

TEST_CASE("whichever call on the file fails, the answer is no and the file is closed")
{
    struct Row {
        const char *function;
        int calls;  // of a question that is answered
    };
    for (const Row &row : {Row{"fopen", 1}, Row{"fgets", 4}, Row{"ftell", 4}}) {
        for (int number = 1; number <= row.calls; number++) {
            CAPTURE(row.function);
            CAPTURE(number);
            FreshSeam().Fail(row.function, number);
            CHECK_FALSE(Ask("a\n[Volumes]\nb\nx=1\n", "Volumes", "x", "1"));
            CHECK_FALSE(g_seam.Leaks());
        }
        FreshSeam();
        CHECK(Ask("a\n[Volumes]\nb\nx=1\n", "Volumes", "x", "1"));
        CHECK(g_seam.calls[row.function] == row.calls);
    }
}

// ---- Against a plain model ----

struct Random {
    std::mt19937 engine{20260};

    size_t Below(size_t limit)
    {
        return engine() % limit;
    }

    // Mostly lines, half of them after a header, and now and then something that breaks them.
    std::string File()
    {
        static const std::string lines[] = {
            "KEY=yes\n", "KEY = Yes \r\n", "KEY=no\n",     "K=",     "KEY",   "KEYKEY=x\n",
            "S=yes\n",   "SEC\n",          "K =YES\n",     "x=yes",  "=",     "  ",
            "\n",        "\r\n",           "\r",           "\t",     ";",     "#KEY",
            "%s%n",      "\xFF",           "\xEF\xBB\xBF", "KEY=\n", "yes\n", "=  yes",
        };
        static const std::string brackets[] = {"[", "]", "[SEC]\n", "x[ SEC ]y\n", "[KEY]\n", "[S"};
        std::string bytes = Below(2) == 0 ? "[SEC]\n" : "";
        for (size_t count = Below(12); count > 0; count--) {
            const size_t kind = Below(60);
            if (kind == 0)
                bytes.push_back('\0');
            else if (kind == 1 && Below(4) == 0)
                bytes.append(1010 + Below(30), Below(2) == 0 ? 'x' : ' ');
            else if (kind < 10)
                bytes += brackets[Below(std::size(brackets))];
            else
                bytes += lines[Below(std::size(lines))];
        }
        return bytes.empty() ? "\n" : bytes;
    }

    // Mostly a name that is in the files, else a difficult one.
    std::string Name(const std::string &usual)
    {
        static const std::string names[] = {"KEY", "K",    "SEC",   "[SEC]", " [ SEC ]\r\n",
                                            "S",   "KEYK", " KEY ", "=",     " ",
                                            "x",   "yes",  "\t",    "[KEY]", "\xFF"};
        return Below(2) == 0 ? usual : names[Below(std::size(names))];
    }
};

static const int kRandomFiles = Rounds(250000);

TEST_CASE("the reader agrees with a plain model on random files")
{
    FreshSeam();
    CloseLogSystem();
    Random random;
    int found = 0;
    int differences = 0;
    for (int round = 0; round < kRandomFiles && differences < 3; round++) {
        KeyModel model{random.File()};
        FILE *file = fmemopen(model.bytes.data(), model.bytes.size(), "rb");
        REQUIRE(file != nullptr);
        for (size_t step = 0; step < 4; step++) {
            const bool sectionMode = step == 0 || random.Below(6) == 0;
            const std::string name = random.Name(sectionMode ? "SEC" : "KEY");
            const size_t size = random.Below(2) == 0 ? 1024 : 1 + random.Below(8);
            int64_t capacity = random.Below(2) == 0 ? 1024 : static_cast<int64_t>(random.Below(6));
            int64_t modelCapacity = capacity;
            char keyIO[1032];
            memset(keyIO, 'c', sizeof keyIO);
            memcpy(keyIO, name.c_str(), name.size() + 1);
            std::string modelIO = name;
            const int64_t expected =
                sectionMode ? model.Section(modelIO) : model.Key(modelIO, size, modelCapacity);
            if (sectionMode)
                modelIO = KeyModel::Trimmed(name);
            const int64_t result =
                ReadKeyValue(file, keyIO, static_cast<int>(size), &capacity, sectionMode);
            const size_t room = std::max(size, name.size() + 1);
            const bool same = result == expected && modelIO == keyIO && capacity == modelCapacity &&
                              ftell(file) == static_cast<long>(model.position) &&
                              keyIO[room] == 'c';
            found += result != -1;
            if (!same) {
                differences++;
                CAPTURE(model.bytes);
                CAPTURE(name);
                CAPTURE(sectionMode);
                CHECK(result == expected);
                CHECK(std::string(keyIO) == modelIO);
                CHECK(capacity == modelCapacity);
                CHECK(ftell(file) == static_cast<long>(model.position));
                CHECK(same);
                break;
            }
        }
        fclose(file);
    }
    CHECK(differences == 0);
    CHECK(found > kRandomFiles / 4);  // the files are not all misses
}

TEST_CASE("the question agrees with a plain model on random files")
{
    FreshSeam();
    CloseLogSystem();
    Random random;
    random.engine.seed(711);
    int yes = 0;
    int differences = 0;
    for (int round = 0; round < kRandomFiles && differences < 3; round++) {
        KeyModel model{random.File()};
        const std::string section = random.Name("SEC");
        const std::string key = random.Name("KEY");
        const std::string expected = random.Below(2) == 0   ? "YES"
                                     : random.Below(2) == 0 ? "No"
                                                            : "";
        bool answer = false;
        std::string value = key;
        int64_t capacity = 1024;
        if (model.Section(section) != -1 && model.Key(value, 1024, capacity) != -1)
            answer = SameLetters(value, expected);
        const bool given = Ask(model.bytes, section.c_str(), key.c_str(), expected.c_str());
        yes += given;
        if (given != answer) {
            differences++;
            CAPTURE(model.bytes);
            CAPTURE(section);
            CAPTURE(key);
            CHECK(given == answer);
        }
    }
    CHECK(differences == 0);
    CHECK(yes > kRandomFiles / 100);
    CHECK_FALSE(g_seam.Leaks());
}
