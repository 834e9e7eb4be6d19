// Log.cpp - the process's one log.
//
// Owns the log's path, its stream and the running line number. Every line is formatted by the
// bounded library, then written through a stream that stays open and is not flushed: the seek to
// the end, with which the next line begins, is what brings a line into the file.
//
// Two things surprise. A message is taken as a format twice: once when it is made, and once more as
// part of the finished line. And text from outside (a device path) arrives as a format, so a
// conversion that has no argument must be written unchanged instead of being converted.

#include "Common/Log.h"

#include "tamrik/tamrik.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

static constexpr size_t kLogPathSize = 1025;
static constexpr size_t kLogPathMax = 1023;
static constexpr size_t kLogLineSize = 2048;  // of a message, and of a whole line
static constexpr long kLogFileMax = 10000000;

// ---- Module state -------------------------------------------------------------------------------

static char g_szlogFileName[kLogPathSize];  // the log file's path; empty at start
static bool g_blogSystemInitSuccess;        // whether logging is enabled; false at start
static FILE *g_stream;                      // the open log; null until a line is written

// ---- Text as a format ---------------------------------------------------------------------------

// Makes the message of a text that is a format without arguments: from the first conversion that
// needs one on, the text is taken unchanged.
static void FormatText(char *message, const char *text)
{
    const char *rest = nullptr;
    const int made = snprintf_text(message, kLogLineSize, text, &rest);
    if (made >= 0) {
        const size_t room = kLogLineSize - static_cast<size_t>(made);
        strncpy_s(message + made, room, rest, room - 1);
    }
}

// Makes the finished line what printing it as a format without arguments gives, and returns its new
// length.
//
// Intended: a '%' in the line is interpreted here for the second time, so a doubled one becomes
// single. A '%' before anything else has no argument; from it on the line stays unchanged.
static size_t InterpretLine(char *line, size_t length)
{
    char *to = static_cast<char *>(memchr(line, '%', length));
    if (to == nullptr)
        return length;
    const char *from = to;
    while (from[0] == '%' && from[1] == '%') {
        *to++ = '%';
        from += 2;
        while (*from != '\0' && *from != '%')
            *to++ = *from++;
    }
    const size_t rest = static_cast<size_t>(line + length - from);
    memmove_s(to, rest + 1, from, rest + 1);
    return static_cast<size_t>(to - line) + rest;
}

// ---- The line and the file ----------------------------------------------------------------------

// Intended: the scan never looks at the first character, so a name without '/' loses it, and a '/'
// there is dropped too.
static const char *BaseName(const char *sourceFile)
{
    size_t n = strlen(sourceFile);
    if (n == 0)
        return sourceFile;
    while (n != 1 && sourceFile[n - 1] != '/')
        n--;
    return sourceFile + n;
}

static tm LocalTime()
{
    const time_t now = time(nullptr);
    tm local = {};
    if (localtime_r(&now, &local) == nullptr)
        return {};
    return local;
}

// Returns the stream, at its end and below the cap, or null when the file cannot be opened.
static FILE *StreamForNextLine()
{
    if (g_stream == nullptr)
        g_stream = fopen(g_szlogFileName, "a+");
    if (g_stream == nullptr)
        return nullptr;
    if (fseek(g_stream, 0, SEEK_END) == 0 && ftell(g_stream) > kLogFileMax) {
        fclose(g_stream);
        g_stream = fopen(g_szlogFileName, "w+");
    }
    return g_stream;
}

static void WriteLine(const char *sourceFile, const char *functionName, const char *message)
{
    static int iCnt;  // the running line number, never reset
    char line[kLogLineSize];
    memset_s(line, sizeof line, 0, sizeof line);
    const tm at = LocalTime();
    const long long year = at.tm_year + 1900LL;  // the highest do not fit an int
    iCnt++;  // before the file is opened: a lost line leaves a gap in the numbers
    const int length = snprintf_s(line, sizeof line, sizeof line - 1,
                                  "line %d===%lld-%d-%d %d:%d:%d   %s:%s --- %s\n", iCnt, year,
                                  at.tm_mon + 1, at.tm_mday, at.tm_hour, at.tm_min, at.tm_sec,
                                  BaseName(sourceFile), functionName, message);
    FILE *stream = StreamForNextLine();
    if (stream == nullptr)
        return;
    // Intended: a line that was cut has no line feed, and the next one continues it.
    const size_t made = length < 0 ? strlen(line) : static_cast<size_t>(length);
    fwrite(line, 1, InterpretLine(line, made), stream);
}

static bool IsRefused(const char *sourceFile, const char *functionName, const char *format)
{
    return format == nullptr || functionName == nullptr || sourceFile == nullptr ||
           !g_blogSystemInitSuccess;
}

// ---- Public functions ---------------------------------------------------------------------------

void InitLogSystem(const char *path)
{
    if (path == nullptr || strlen(path) > kLogPathMax) {
        g_blogSystemInitSuccess = false;
        return;
    }
    strncpy_s(g_szlogFileName, sizeof g_szlogFileName, path, sizeof g_szlogFileName - 1);
    g_blogSystemInitSuccess = true;
}

void LogFormatted(const char *sourceFile, const char *functionName, const char *format, ...)
{
    if (IsRefused(sourceFile, functionName, format))
        return;
    char message[kLogLineSize];
    memset_s(message, sizeof message, 0, sizeof message);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf_s(message, sizeof message, sizeof message - 1, format, arguments);
    va_end(arguments);
    WriteLine(sourceFile, functionName, message);
}

void Log(const char *sourceFile, const char *functionName, const char *text)
{
    if (IsRefused(sourceFile, functionName, text))
        return;
    // Without a '%' the text is its own message, which the line cuts where the message would be.
    if (strchr(text, '%') == nullptr) {
        WriteLine(sourceFile, functionName, text);
        return;
    }
    char message[kLogLineSize];
    memset_s(message, sizeof message, 0, sizeof message);
    FormatText(message, text);
    WriteLine(sourceFile, functionName, message);
}

void CloseLogSystem()
{
    if (g_stream != nullptr) {
        fclose(g_stream);
        g_stream = nullptr;
    }
    g_blogSystemInitSuccess = false;
}
