#include "tests/tamrik/input_support.h"

#include <doctest/doctest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

static const std::string kMark = "\xEF\xBB\xBF";
static constexpr std::size_t kBlock = 1024;

// A file with that content, standing at an offset.
static FILE *FileWith(const std::string &content, long offset = 0)
{
    FILE *file = std::tmpfile();
    REQUIRE(file != nullptr);
    REQUIRE(std::fwrite(content.data(), 1, content.size(), file) == content.size());
    REQUIRE(std::fflush(file) == 0);
    REQUIRE(std::fseek(file, offset, SEEK_SET) == 0);
    return file;
}

// A stream that has no position, with that content and nothing more to come.
static FILE *PipeWith(const std::string &content)
{
    int ends[2] = {};
    REQUIRE(pipe(ends) == 0);
    REQUIRE(write(ends[1], content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(ends[1]);
    FILE *stream = fdopen(ends[0], "r");
    REQUIRE(stream != nullptr);
    return stream;
}

// All that can still be read.
static std::string Rest(FILE *stream)
{
    std::string rest;
    for (int ch = std::getc(stream); ch != EOF; ch = std::getc(stream))
        rest += static_cast<char>(ch);
    return rest;
}

// A source between scans holds no memory and no block.
static bool IsIdle(const InputSource &source)
{
    return source.base == nullptr && source.cur == nullptr && source.count == 0 &&
           source.kind == kFileSource;
}

// Lets a scan that reads nothing free the block.
static void LetGo(InputSource *source)
{
    CHECK(ScanSource(source, "") == 0);
}

// ---- Files ----

TEST_CASE("after a scan the file stands just past the last character used")
{
    struct Row {
        const char *content;
        const char *format;
        int result;
        long position;
    };
    for (const Row &row : {Row{"12 34", "%d", 1, 2}, Row{"12 34", "%d ", 1, 3},
                           Row{"12 34", "%2d", 1, 2}, Row{"12", "%d", 1, 2}, Row{"12x", "%d", 1, 2},
                           Row{"  x", "%d", 0, 2}, Row{"x", "%d", 0, 0}, Row{"", "%d", -1, 0},
                           Row{"   ", "%d", -1, 3}, Row{"12x", "12", 0, 2}, Row{"13", "12", 0, 1},
                           Row{"12", "", 0, 0}, Row{"0xg", "%i", 0, 2}, Row{"12", "%y", 0, 0}}) {
        CAPTURE(row.content);
        CAPTURE(row.format);
        for (const long offset : {0L, 5L}) {
            FILE *file =
                FileWith(std::string(static_cast<std::size_t>(offset), '#') + row.content, offset);
            InputSource source = FileSource(file);
            int value = 0;
            errno = 77;
            CHECK(ScanSource(&source, row.format, &value) == row.result);
            CHECK(errno == 77);
            CHECK(std::ftell(file) == offset + row.position);
            CHECK(IsIdle(source));
            CHECK(Rest(file) ==
                  std::string(row.content).substr(static_cast<std::size_t>(row.position)));
            std::fclose(file);
        }
    }
}

TEST_CASE("at every block border the position is just past the last character used")
{
    for (const std::string &mark : {std::string(), kMark}) {
        for (std::size_t length = kBlock - 5; length <= kBlock + 5; ++length) {
            for (const std::size_t blocks : {0UL, kBlock, 2 * kBlock}) {
                const std::size_t blanks = blocks + length;
                CAPTURE(blanks);
                CAPTURE(mark.size());
                FILE *file = FileWith(mark + std::string(blanks, ' ') + "123 tail");
                InputSource source = FileSource(file);
                int value = 0;
                CHECK(ScanSource(&source, "%d", &value) == 1);
                CHECK(value == 123);
                CHECK(std::ftell(file) == static_cast<long>(mark.size() + blanks + 3));
                CHECK(Rest(file) == " tail");
                std::fclose(file);
            }
        }
    }
}

TEST_CASE("files of just a block's size, one less and one more are read to their end")
{
    for (const std::string &mark : {std::string(), kMark}) {
        for (const std::size_t size : {kBlock - 4, kBlock - 3, kBlock - 2, kBlock - 1, kBlock,
                                       kBlock + 1, 2 * kBlock - 1, 2 * kBlock, 2 * kBlock + 1}) {
            CAPTURE(size);
            CAPTURE(mark.size());
            FILE *file = FileWith(mark + std::string(size, 'a'));
            InputSource source = FileSource(file);
            const Guarded dest(size + 1);
            CHECK(ScanSource(&source, "%s", dest.Text(), static_cast<unsigned int>(size + 1)) == 1);
            CHECK(dest.Held() == WithTerminator(std::string(size, 'a')));
            CHECK(std::ftell(file) == static_cast<long>(mark.size() + size));
            CHECK(std::feof(file) != 0);
            CHECK(ScanSource(&source, "%s", dest.Text(), 2U) == -1);
            std::fclose(file);
        }
    }
}

TEST_CASE("a file that starts with a byte-order mark is read as if the mark were absent")
{
    FILE *file = FileWith(kMark + "12 ab");
    InputSource source = FileSource(file);
    int value = 0;
    int n = 0;
    char word[4];
    CHECK(ScanSource(&source, "%d%n", &value, &n) == 1);
    CHECK(value == 12);
    CHECK(n == 2);
    CHECK(std::ftell(file) == 5);
    CHECK(ScanSource(&source, "%s", word, 4U) == 1);
    CHECK(std::string(word) == "ab");
    CHECK(std::ftell(file) == 8);
    std::fclose(file);
}

TEST_CASE("a mark in the middle of a file is text, also where a second scan begins with it")
{
    for (const bool isPipe : {false, true}) {
        CAPTURE(isPipe);
        const std::string content = kMark + "1" + kMark + "z";
        FILE *file = isPipe ? PipeWith(content) : FileWith(content);
        InputSource source = FileSource(file);
        int value = 0;
        char word[8];
        CHECK(ScanSource(&source, "%d", &value) == 1);
        CHECK(value == 1);
        CHECK(ScanSource(&source, "%s", word, 8U) == 1);
        CHECK(std::string(word) == kMark + "z");
        std::fclose(file);
    }
    FILE *file = FileWith("##" + kMark + "z", 2);
    InputSource source = FileSource(file);
    char word[8];
    CHECK(ScanSource(&source, "%s", word, 8U) == 1);
    CHECK(std::string(word) == kMark + "z");
    std::fclose(file);
}

TEST_CASE("consumed tells the same as the file's position: what a scan gives back is not counted")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    struct Row {
        const char *content;
        const char *format;
        const wchar_t *wideFormat;
        int consumed;
    };
    for (const Row &row :
         {Row{"12x", "%d", L"%d", 2}, Row{"12 x", "%d ", L"%d ", 3}, Row{"12", "%d", L"%d", 2},
          Row{"x", "%d", L"%d", 0}, Row{"ab c", "%s", L"%s", 2},
          Row{"ab\xC3\xA4 ", "%ls", L"%ls", 4}, Row{"ab\xC3(", "%ls", L"%ls", 2},
          Row{"\xE6\x97\xA6", "\xE6\x97\xA5", L"\u65E5", 0}}) {
        for (const std::string &mark : {std::string(), kMark}) {
            for (const std::size_t blanks : {std::size_t{0}, kBlock - mark.size() - 2}) {
                for (const bool wide : {false, true}) {
                    for (const bool isPipe : {false, true}) {
                        CAPTURE(row.content);
                        CAPTURE(blanks);
                        CAPTURE(wide);
                        const std::string content = mark + std::string(blanks, ' ') + row.content;
                        FILE *file = isPipe ? PipeWith(content) : FileWith(content);
                        InputSource source = FileSource(file);
                        char text[16];
                        if (wide)
                            WideScanSource(&source, (std::wstring(L" ") + row.wideFormat).c_str(),
                                           text, 4U);
                        else
                            ScanSource(&source, (std::string(" ") + row.format).c_str(), text, 4U);
                        const int used = static_cast<int>(blanks) + row.consumed;
                        CHECK(source.consumed == used);
                        if (!isPipe)
                            CHECK(std::ftell(file) == static_cast<long>(mark.size()) + used);
                        std::fclose(file);
                    }
                }
            }
        }
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("what looks like a mark at the start of a later block is text")
{
    const std::string content = std::string(kBlock, 'a') + kMark + "b";
    FILE *file = FileWith(content);
    InputSource source = FileSource(file);
    const Guarded dest(content.size() + 1);
    CHECK(ScanSource(&source, "%s", dest.Text(), static_cast<unsigned int>(dest.size)) == 1);
    CHECK(dest.Held() == WithTerminator(content));
    std::fclose(file);
}

TEST_CASE("a zero in a file is a character that does not match, and stays there")
{
    for (const bool wide : {false, true}) {
        CAPTURE(wide);
        const std::string content("\0x", 2);
        FILE *file = FileWith(content);
        InputSource source = FileSource(file);
        int value = 0;
        CHECK((wide ? WideScanSource(&source, L"%d", &value) : ScanSource(&source, "%d", &value)) ==
              0);
        CHECK(std::ftell(file) == 0);
        CHECK(Rest(file) == content);
        std::fclose(file);
    }
}

TEST_CASE("a zero in a file is a character of a text")
{
    FILE *file = FileWith(std::string("\0b\0", 3));
    InputSource source = FileSource(file);
    const Guarded dest(2);
    wchar_t wide = L'x';
    int n = 0;
    CHECK(ScanSource(&source, "%2c%lc%n", dest.Text(), 2U, &wide, 1U, &n) == 2);
    CHECK(dest.Held() == std::string("\0b", 2));
    CHECK(wide == L'\0');
    CHECK(n == 3);
    std::fclose(file);
}

TEST_CASE("the bytes of wide text from a file are counted, those that were given back are not")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    FILE *file = FileWith("a\xC3\xA4 b");
    InputSource source = FileSource(file);
    wchar_t wide[4];
    int n = 0;
    CHECK(ScanSource(&source, "%ls%n", wide, 4U, &n) == 1);
    CHECK(std::wstring(wide) == L"a\u00E4");
    CHECK(n == 3);
    std::fclose(file);
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("from a pipe that is still open no more than the field is read")
{
    for (const std::string &text : {std::string("7"), std::string("78")}) {
        CAPTURE(text);
        int ends[2] = {};
        REQUIRE(pipe(ends) == 0);
        REQUIRE(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()));
        FILE *stream = fdopen(ends[0], "r");
        REQUIRE(stream != nullptr);
        InputSource source = FileSource(stream);
        int value = 0;
        CHECK(ScanSource(&source, text.size() == 1 ? "%1d" : "%2d", &value) == 1);
        CHECK(std::to_string(value) == text);
        close(ends[1]);
        std::fclose(stream);
    }
}

TEST_CASE("in a file too, a character that was given back is not counted as read")
{
    for (const bool wide : {false, true}) {
        CAPTURE(wide);
        FILE *file = FileWith("12x");
        InputSource source = FileSource(file);
        int value = 0;
        int n = 0;
        CHECK((wide ? WideScanSource(&source, L"%d%n", &value, &n)
                    : ScanSource(&source, "%d%n", &value, &n)) == 1);
        CHECK(value == 12);
        CHECK(n == 2);
        std::fclose(file);
    }
}

TEST_CASE("a file that is a mark alone is empty, and a mark that is not whole is text")
{
    char text[8];
    FILE *file = FileWith(kMark);
    InputSource source = FileSource(file);
    CHECK(ScanSource(&source, "%s", text, 8U) == -1);
    std::fclose(file);
    for (const char *content :
         {"\xEF\xBB", "\xEF", "\xEF\xBBx", "\xEFxx", "\xBB\xBF", " \xEF\xBB\xBF"}) {
        file = FileWith(content);
        source = FileSource(file);
        CHECK(ScanSource(&source, "%s", text, 8U) == 1);
        CHECK(std::string(text) == (content[0] == ' ' ? content + 1 : content));
        std::fclose(file);
    }
}

TEST_CASE("scan after scan goes on where the one before ended")
{
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content += std::to_string(i) + "\n";
    FILE *file = FileWith(content);
    InputSource source = FileSource(file);
    for (int i = 0; i < 3000; ++i) {
        int value = -1;
        REQUIRE(ScanSource(&source, "%d", &value) == 1);
        REQUIRE(value == i);
    }
    int value = -1;
    CHECK(ScanSource(&source, "%d", &value) == -1);
    std::fclose(file);
}

TEST_CASE("a literal of several bytes that differs at a block border is given back whole")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (std::size_t blanks = kBlock - 4; blanks <= kBlock + 1; ++blanks) {
        FILE *file = FileWith(std::string(blanks, ' ') + "\xE6\x97\xA6");
        InputSource source = FileSource(file);
        CHECK(ScanSource(&source, " \xE6\x97\xA5") == 0);
        CHECK(std::ftell(file) == static_cast<long>(blanks));
        CHECK(Rest(file) == "\xE6\x97\xA6");
        std::fclose(file);
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a character of several bytes given back at a block border is read again by what follows")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (std::size_t blanks = kBlock - 4; blanks <= kBlock + 1; ++blanks) {
        CAPTURE(blanks);
        for (const bool isPipe : {false, true}) {
            const std::string content = std::string(blanks, ' ') + "\xE6\x97\xA5z";
            FILE *file = isPipe ? PipeWith(content) : FileWith(content);
            InputSource source = FileSource(file);
            wchar_t none[4];
            char bytes[4] = {};
            CHECK(ScanSource(&source, " %*l[^\xE6\x97\xA5]") == 0);
            CHECK(ScanSource(&source, "%l[x]", none, 4U) == 0);
            CHECK(ScanSource(&source, "%3c", bytes, 3U) == 1);
            CHECK(std::string(bytes) == "\xE6\x97\xA5");
            CHECK(Rest(file) == "z");
            std::fclose(file);
        }
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("wide formats read a file as the locale's multibyte text")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (const std::string &mark : {std::string(), kMark}) {
        for (std::size_t blanks = kBlock - 6; blanks <= kBlock + 2; ++blanks) {
            CAPTURE(blanks);
            FILE *file = FileWith(mark + std::string(blanks, ' ') +
                                  "\xC3\xA4\xE6\x97\xA5 7\xF0\x9F\x98\x80z");
            InputSource source = FileSource(file);
            wchar_t wide[8];
            char narrow[8];
            int value = 0;
            CHECK(WideScanSource(&source, L"%l[^\u65E5]", wide, 8U) == (blanks > 6 ? 0 : 1));
            REQUIRE(std::fseek(file, 0, SEEK_SET) == 0);
            CHECK(WideScanSource(&source, L" %l[^\u65E5]", wide, 8U) == 1);
            CHECK(std::wstring(wide) == L"\u00E4");
            CHECK(std::ftell(file) == static_cast<long>(mark.size() + blanks + 2));
            CHECK(WideScanSource(&source, L"%s%d", narrow, 8U, &value) == 2);
            CHECK(std::string(narrow) == "\xE6\x97\xA5");
            CHECK(value == 7);
            CHECK(Rest(file) == "\xF0\x9F\x98\x80z");
            std::fclose(file);
        }
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a wide scan reads a file's bytes and leaves the stream byte-oriented")
{
    FILE *file = FileWith("1 2");
    InputSource source = FileSource(file);
    int value = 0;
    CHECK(WideScanSource(&source, L"%d", &value) == 1);
    CHECK(std::fwide(file, 0) < 0);
    CHECK(std::fgetwc(file) == WEOF);
    CHECK(Rest(file) == " 2");
    std::fclose(file);
}

TEST_CASE("bytes that are no character end a wide format's input and stay in the file")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    for (const bool isPipe : {false, true}) {
        FILE *file = isPipe ? PipeWith("7\xC3(") : FileWith("7\xC3(");
        InputSource source = FileSource(file);
        int value = 0;
        char word[4];
        CHECK(WideScanSource(&source, L"%d", &value) == 1);
        CHECK(WideScanSource(&source, L"%s", word, 4U) == -1);
        CHECK(Rest(file) == "\xC3(");
        std::fclose(file);
    }
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a file that cannot be read is at its end")
{
    FILE *file = std::fopen("/", "r");  // a folder
    REQUIRE(file != nullptr);
    InputSource source = FileSource(file);
    int value = 0;
    errno = 77;
    CHECK(ScanSource(&source, "%d", &value) == -1);
    CHECK(errno == 77);
    CHECK(IsIdle(source));
    std::fclose(file);
}

// ---- Streams without a position ----

TEST_CASE("from a stream without a position nothing is lost that was not used")
{
    for (const std::string &mark : {std::string(), kMark}) {
        FILE *stream = PipeWith(mark + "12x34 w rest of it");
        InputSource source = FileSource(stream);
        int value = 0;
        char word[4];
        CHECK(ScanSource(&source, "%d", &value) == 1);
        CHECK(value == 12);
        CHECK(IsIdle(source));
        CHECK(ScanSource(&source, "x%d", &value) == 1);
        CHECK(value == 34);
        CHECK(ScanSource(&source, "%s", word, 4U) == 1);
        CHECK(Rest(stream) == " rest of it");
        std::fclose(stream);
    }
}

TEST_CASE("a mark on such a stream is passed over, its beginning alone is text")
{
    for (const char *content :
         {"\xEF\xBB", "\xEF", "\xEF\xBBx", "\xEFxx", "\xBB\xBF", "\xEF\xEF\xBB\xBF"}) {
        FILE *stream = PipeWith(std::string(content) + " z");
        InputSource source = FileSource(stream);
        int value = 0;
        char word[8];
        CHECK(ScanSource(&source, "%d", &value) == 0);
        CHECK(ScanSource(&source, "%s", word, 8U) == 1);
        CHECK(std::string(word) == content);
        CHECK(Rest(stream) == " z");
        std::fclose(stream);
    }
    FILE *stream = PipeWith(kMark);
    InputSource source = FileSource(stream);
    char word[8];
    CHECK(ScanSource(&source, "%s", word, 8U) == -1);
    std::fclose(stream);
}

TEST_CASE("a stream without a position may end at once, or within a mark")
{
    for (const std::string content : {"", "\xEF", "\xEF\xBB"}) {
        CAPTURE(content.size());
        FILE *stream = PipeWith(content);
        InputSource source = FileSource(stream);
        char word[8] = "before";
        CHECK(ScanSource(&source, "%s", word, 8U) == (content.empty() ? -1 : 1));
        CHECK(std::string(word) == (content.empty() ? "before" : content));
        CHECK(Rest(stream).empty());
        CHECK(IsIdle(source));
        std::fclose(stream);
    }
}

#ifndef __APPLE__
// A mark, then one failure, then a digit. *cookie counts the reads.
static ssize_t ReadMarkThenFail(void *cookie, char *buffer, std::size_t /*size*/)
{
    int *reads = static_cast<int *>(cookie);
    switch ((*reads)++) {
    case 0: std::memcpy(buffer, kMark.data(), kMark.size()); return 3;
    case 1: return -1;
    case 2: *buffer = '7'; return 1;
    default: return 0;
    }
}

TEST_CASE("a stream without a position that fails after its mark is at its end")
{
    int reads = 0;
    FILE *stream = fopencookie(&reads, "r", {ReadMarkThenFail, nullptr, nullptr, nullptr});
    REQUIRE(stream != nullptr);
    InputSource source = FileSource(stream);
    CHECK(_inc(&source) == EOF);
    CHECK(reads == 2);
    CHECK(_inc(&source) == '7');
    LetGo(&source);
    std::fclose(stream);
}
#endif

TEST_CASE("a long stream without a position begins its count anew nowhere")
{
    FILE *stream = PipeWith("abc");
    InputSource source = FileSource(stream);
    CHECK(_inc(&source) == 'a');
    CHECK(source.startOffset == -1);
    source.consumed = INT_MAX / 2 + 1;
    CHECK(_inc(&source) == 'b');
    CHECK(source.consumed == INT_MAX / 2 + 2);
    CHECK(source.startOffset == -1);
    LetGo(&source);
    CHECK(Rest(stream) == "c");
    std::fclose(stream);
}

TEST_CASE("a scan from a pipe waits for no character that it does not need")
{
    int ends[2] = {};
    REQUIRE(pipe(ends) == 0);
    REQUIRE(write(ends[1], "12 ab", 5) == 5);
    // The pipe stays open: reading once too often would wait for ever.
    alarm(20);
    FILE *stream = fdopen(ends[0], "r");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    InputSource source = FileSource(stream);
    int value = 0;
    char word[3] = {};
    CHECK(ScanSource(&source, "%d %2c", &value, word, 2U) == 2);
    CHECK(value == 12);
    CHECK(std::string(word) == "ab");
    alarm(0);
    close(ends[1]);
    std::fclose(stream);
}

// ---- Standard input ----

// Lets standard input be a file with that content.
static void PutOnStdin(const std::string &content)
{
    FILE *file = FileWith(content);
    char path[64];
    std::snprintf(path, sizeof path, "/dev/fd/%d", fileno(file));
    REQUIRE(std::freopen(path, "r", stdin) != nullptr);
    std::fclose(file);
}

static InputSource StdinSource()
{
    InputSource source = {};
    source.kind = kStdinSource;
    return source;
}

TEST_CASE("standard input is read by single characters, and the one too far stays in the stream")
{
    PutOnStdin("12x 3.5 ab\xC3\xA4 rest");
    InputSource source = StdinSource();
    int value = 0;
    double number = 0;
    char word[8];
    errno = 77;
    CHECK(ScanSource(&source, "%d", &value) == 1);
    CHECK(value == 12);
    CHECK(source.pushbackValid == 0);
    CHECK(std::getchar() == 'x');
    CHECK(ScanSource(&source, "%lf", &number) == 1);
    CHECK(number == 3.5);
    // Another source finds the same.
    InputSource second = StdinSource();
    CHECK(ScanSource(&second, "%s", word, 8U) == 1);
    CHECK(std::string(word) == "ab\xC3\xA4");
    CHECK(Rest(stdin) == " rest");
    CHECK(ScanSource(&source, "%d", &value) == -1);
    CHECK(errno == 77);
}

TEST_CASE("whole characters go back to standard input too")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    PutOnStdin("\xE6\x97\xA6\xE6\x97\xA5z");
    InputSource source = StdinSource();
    wchar_t wide[4];
    CHECK(ScanSource(&source, "\xE6\x97\xA5") == 0);
    CHECK(ScanSource(&source, "%l[x]", wide, 4U) == 0);
    CHECK(ScanSource(&source, "%2ls", wide, 4U) == 1);
    CHECK(std::wstring(wide) == L"\u65E6\u65E5");
    CHECK(Rest(stdin) == "z");
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("wide formats read standard input through fgetwc")
{
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    PutOnStdin("12\xC3\xA4 \xE6\x97\xA5 z");
    InputSource source = StdinSource();
    int value = 0;
    wchar_t wide[4];
    char narrow[8];
    CHECK(WideScanSource(&source, L"%d", &value) == 1);
    CHECK(value == 12);
    CHECK(std::fwide(stdin, 0) > 0);
    CHECK(std::getwchar() == L'\u00E4');
    CHECK(WideScanSource(&source, L"%ls", wide, 4U) == 1);
    CHECK(std::wstring(wide) == L"\u65E5");
    CHECK(WideScanSource(&source, L"%s", narrow, 8U) == 1);
    CHECK(std::string(narrow) == "z");
    CHECK(WideScanSource(&source, L"%s", narrow, 8U) == -1);
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("a wide scan of standard input puts nothing into it that was not there")
{
    PutOnStdin("ab c");
    InputSource source = StdinSource();
    wchar_t wide = L'x';
    CHECK(WideScanSource(&source, L"%lc", &wide, 1U) == 1);
    CHECK(wide == L'a');
    CHECK(std::getwchar() == L'b');
    CHECK(std::getwchar() == L' ');
}

TEST_CASE("_inc and _un_inc hold one character of standard input, which a scan finds")
{
    PutOnStdin("ab1");
    InputSource source = StdinSource();
    CHECK(_inc(&source) == 'a');
    CHECK(source.pushback == 'a');
    CHECK(source.pushbackValid == 0);
    _un_inc('a', &source);
    CHECK(source.pushbackValid == 1);
    _un_inc(EOF, &source);
    CHECK(source.pushback == 'a');
    CHECK(_inc(&source) == 'a');
    CHECK(source.pushbackValid == 0);
    CHECK(_inc(&source) == 'b');
    _un_inc('c', &source);  // another one than was read
    CHECK(_inc(&source) == 'c');
    _un_inc('b', &source);
    int value = 0;
    CHECK(ScanSource(&source, "b%d", &value) == 1);
    CHECK(value == 1);
    CHECK(_inc(&source) == EOF);
}

TEST_CASE("a character that was put back is in the stream after a scan that reads nothing")
{
    PutOnStdin("abc");
    InputSource source = StdinSource();
    CHECK(_inc(&source) == 'a');
    _un_inc('a', &source);
    CHECK(ScanSource(&source, "") == 0);
    CHECK(source.pushbackValid == 0);
    CHECK(Rest(stdin) == "abc");

    PutOnStdin("xyz");
    source = StdinSource();
    source.pushback = L'\u00E4';
    source.pushbackValid = 1;
    REQUIRE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr);
    CHECK(WideScanSource(&source, L"") == 0);
    CHECK(source.pushbackValid == 0);
    CHECK(std::getwchar() == L'\u00E4');
    CHECK(std::getwchar() == L'x');
    std::setlocale(LC_ALL, "C");
}

TEST_CASE("standard input that cannot be read leaves errno alone")
{
    REQUIRE(std::freopen("/", "r", stdin) != nullptr);  // a folder
    InputSource source = StdinSource();
    errno = 77;
    CHECK(_inc(&source) == EOF);
    CHECK(errno == 77);
    PutOnStdin("");
}

// ---- _inc on files ----

TEST_CASE("_inc on a file source without a stream is at its end")
{
    InputSource source = FileSource(nullptr);
    errno = 77;
    CHECK(_inc(&source) == EOF);
    CHECK(errno == 77);
    CHECK(IsIdle(source));
}

TEST_CASE("a stream that cannot be read leaves errno alone")
{
    FILE *file = fopen("/dev/null", "w");
    REQUIRE(file != nullptr);
    InputSource source = FileSource(file);
    errno = 77;
    CHECK(_inc(&source) == EOF);
    CHECK(errno == 77);
    LetGo(&source);
    std::fclose(file);
}

TEST_CASE("_inc loads a file in blocks of 1024 bytes with a zero after them")
{
    FILE *file = FileWith("##" + std::string(kBlock, 'a') + "bc", 2);
    InputSource source = FileSource(file);
    CHECK(_inc(&source) == 'a');
    CHECK(source.kind == (kFileSource | 0x8));
    CHECK(source.count == static_cast<int>(kBlock - 1));
    CHECK(source.cur == source.base + 1);
    CHECK(source.base[kBlock] == '\0');
    CHECK(source.consumed == 1);
    CHECK(source.startOffset == 2);
    CHECK(std::ftell(file) == static_cast<long>(2 + kBlock));
    for (std::size_t i = 1; i < kBlock; ++i)
        REQUIRE(_inc(&source) == 'a');
    CHECK(_inc(&source) == 'b');
    CHECK(source.consumed == static_cast<int>(kBlock + 1));
    CHECK(source.startOffset == 2);
    CHECK(source.count == 1);
    _un_inc('b', &source);
    CHECK(source.consumed == static_cast<int>(kBlock));
    CHECK(source.count == 2);
    CHECK(_inc(&source) == 'b');
    CHECK(_inc(&source) == 'c');
    CHECK(_inc(&source) == EOF);
    CHECK(source.consumed == static_cast<int>(kBlock + 2));
    CHECK(_inc(&source) == EOF);
    LetGo(&source);
    CHECK(IsIdle(source));
    std::fclose(file);
}

TEST_CASE("_inc does not count the mark among the bytes handed out")
{
    FILE *file = FileWith(kMark + "ab");
    InputSource source = FileSource(file);
    CHECK(_inc(&source) == 'a');
    CHECK(source.consumed == 1);
    CHECK(source.startOffset == 0);
    CHECK(source.count == 1);
    CHECK(source.kind == (kFileSource | 0x8 | 0x10));
    LetGo(&source);
    CHECK(std::ftell(file) == 4);
    std::fclose(file);
}

TEST_CASE("a file longer than an int counts is put back to the right place")
{
    FILE *file = FileWith(std::string(2 * kBlock, ' ') + "12 ");
    InputSource source = FileSource(file);
    CHECK(_inc(&source) == ' ');
    // As though more than half of what an int holds had been read in front of this block.
    const int before = INT_MAX / 2;
    source.consumed += before;
    int value = 0;
    for (std::size_t i = 1; i <= kBlock; ++i)
        REQUIRE(_inc(&source) == ' ');
    CHECK(source.consumed == 1);
    CHECK(source.startOffset == before + static_cast<long>(kBlock));
    source.startOffset -= before;
    CHECK(ScanSource(&source, "%d", &value) == 1);
    CHECK(value == 12);
    CHECK(std::ftell(file) == static_cast<long>(2 * kBlock + 2));
    std::fclose(file);
}

TEST_CASE("_whiteout reads files as it reads strings")
{
    FILE *file = FileWith(std::string(kBlock, ' ') + "x");
    InputSource source = FileSource(file);
    int counter = 0;
    CHECK(_whiteout(&counter, &source) == 'x');
    CHECK(counter == static_cast<int>(kBlock + 1));
    LetGo(&source);
    std::fclose(file);
}
