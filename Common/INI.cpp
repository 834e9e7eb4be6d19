// INI.cpp - string values by section and key from the daemon's configuration file.
//
// Owns the file's name, the one line buffer that every value points into, and the offsets of the
// line in it. Uses the log and the bounded library. Each lookup opens the file, scans it and closes
// it; nothing is kept but the last line.
//
// What looks careless in the format (see INI.h) is what the configuration files in the field are
// written against.

#include "Common/INI.h"

#include "Common/Log.h"
#include "tamrik/tamrik.h"

#include <string.h>

static constexpr char kSourceFile[] = "Common/INI";
static constexpr size_t kHeaderSize = 128;
static constexpr size_t kBlockSize = 4096;  // read at a time: on the stack, not the stream's own

// ---- Module state -------------------------------------------------------------------------------

char g_filename[1024] = "/Applications/Veltrane.app/Contents/Resources/SysConfig.dat";
char g_linetext[1024];
int g_current_line_offset;
int g_last_line_offset;
int g_filesize;

// ---- Reading lines ------------------------------------------------------------------------------

// A scan of one file, line by line into g_linetext.
struct Scan {
    FILE *file;
    long position;  // of the file, moved along; -1 when it has none
    char *zeros;    // in g_linetext: from here on all of it is zero
};

static Scan StartScan(FILE *file)
{
    return {file, ftell(file), g_linetext + sizeof g_linetext};
}

// Reads up to and including the first line feed that ends a line with something in it, and stores
// the line without it at the start of g_linetext. Returns where the line ends there; what follows
// is left of earlier lines.
//
// Intended: the end of the file is noticed by reading, so its mark is stored as a character, 0xFF.
// A read error ends the line in the same way. When a stream that has failed before gives nothing
// but an error again, that is the end: a folder can be opened like a file, but never gives a
// character.
static char *CollectLine(Scan *scan)
{
    FILE *const file = scan->file;
    if (feof(file))
        return g_linetext;
    const bool hadFailed = ferror(file);
    char *const end = g_linetext + sizeof g_linetext - 1;
    char *to = g_linetext;
    long dropped = 0;  // characters that are not stored
    int ch = EOF;
    for (;;) {
        ch = getc_unlocked(file);
        if (ch <= '\r') {  // most characters are above, and need no further test
            if (ch == EOF || (ch == '\n' && to != g_linetext))
                break;
            if (ch == '\n' || ch == '\r') {
                dropped++;
                continue;
            }
        }
        if (to != end)
            *to++ = static_cast<char>(ch);
        else
            dropped++;
    }
    if (scan->position >= 0)
        scan->position += to - g_linetext + dropped + (ch == '\n');
    if (ch == EOF && to != end && (to != g_linetext || !hadFailed || feof(file)))
        *to++ = static_cast<char>(ch);
    return to;
}

// Reads the next line and leaves the module's state as ReadLine does.
static char *NextLine(Scan *scan)
{
    char *const end = CollectLine(scan);
    if (end < scan->zeros) {
        const size_t rest = static_cast<size_t>(scan->zeros - end);
        memset_s(end, rest, 0, rest);
    }
    scan->zeros = end;
    g_last_line_offset = g_current_line_offset;
    g_current_line_offset = static_cast<int>(scan->position);
    return g_linetext[0] != '\0' ? g_linetext : nullptr;
}

// ---- Sections and keys --------------------------------------------------------------------------

// Makes the text that opens `section` in a buffer of kHeaderSize bytes.
static void MakeHeader(char *header, const char *section)
{
    memset_s(header, kHeaderSize, 0, kHeaderSize);
    snprintf_s(header, kHeaderSize, kHeaderSize - 1, "[%s]", section);
}

static char *CutBlanks(char *text)
{
    while (*text == ' ')
        text++;
    char *end = text + strlen(text);
    while (end != text && end[-1] == ' ')
        *--end = '\0';
    return text;
}

// Intended: the key may be anywhere in the line, while the character after it is looked for at the
// key's length from the start of the line. The second test comes first because it is cheaper.
static bool IsKeyLine(char *line, const char *key, size_t keyLength)
{
    const char *text = CutBlanks(line);
    if (strnlen(text, keyLength) < keyLength)
        return false;
    const char *after = text + keyLength;
    while (*after == ' ')
        after++;
    return (*after == '\0' || *after == '=') && strstr(text, key) != nullptr;
}

static bool FindSection(Scan *scan, const char *section)
{
    char header[kHeaderSize];
    MakeHeader(header, section);
    while (const char *line = NextLine(scan)) {
        if (strstr(line, header) != nullptr)
            return true;
    }
    Log(kSourceFile, "SectionExists", "not found the section");
    return false;
}

static bool FindKey(Scan *scan, const char *key)
{
    const size_t keyLength = strlen(key);
    while (char *line = NextLine(scan)) {
        if (IsKeyLine(line, key, keyLength))
            return true;
        // Intended: tried after the key, so a header-like line can be the key line.
        if (strchr(line, '[') != nullptr && strchr(line, ']') != nullptr)
            return false;
    }
    Log(kSourceFile, "KeyExists", "not found the key");
    return false;
}

// What follows the first '=' of g_linetext; the empty text at its end when there is none.
static char *ValueInLine()
{
    char *equals = strchr(g_linetext, '=');
    return equals != nullptr ? equals + 1 : g_linetext + strlen(g_linetext);
}

// ---- Public functions ---------------------------------------------------------------------------

bool SetIniFileName(const char *path)
{
    if (path == nullptr) {
        Log(kSourceFile, "SetIniFileName", "param error.");
        return false;
    }
    FILE *file = fopen(path, "rb");
    if (file == nullptr) {
        Log(kSourceFile, "SetIniFileName", "open file: %s failed, please check...\n", path);
        return false;
    }
    char name[sizeof g_filename];  // `path` may be g_filename, which is cleared first
    strncpy_s(name, sizeof name, path, sizeof name - 1);
    memset_s(g_filename, sizeof g_filename, 0, sizeof g_filename);
    strncpy_s(g_filename, sizeof g_filename, name, sizeof g_filename - 1);
    fclose(file);
    return true;
}

const char *ReadString(const char *section, const char *key, const char *defaultValue)
{
    if (section == nullptr || key == nullptr || defaultValue == nullptr) {
        Log(kSourceFile, "ReadString", "param error.");
        return defaultValue;
    }
    FILE *file = fopen(g_filename, "rb");
    if (file == nullptr) {
        Log(kSourceFile, "ReadString", "open file: %s failed, please check...", g_filename);
        return defaultValue;
    }
    char block[kBlockSize];
    setvbuf(file, block, _IOFBF, sizeof block);
    Scan scan = StartScan(file);
    const char *value = defaultValue;
    if (!FindSection(&scan, section))
        Log(kSourceFile, "ReadString", "cfg section [%s] not exists...", section);
    else if (!FindKey(&scan, key))
        Log(kSourceFile, "ReadString", "cfg key [%s] not exists...", key);
    else
        value = CutBlanks(ValueInLine());
    fclose(file);
    return value;
}

const char *ReadStringEx(const char *section, const char *key, const char *defaultValue)
{
    if (section == nullptr || key == nullptr) {
        Log(kSourceFile, "ReadStringEx", "param error.");
        return defaultValue;
    }
    FILE *file = fopen(g_filename, "rb");
    if (file == nullptr) {
        Log(kSourceFile, "ReadStringEx", "open file: %s failed, please check...\n", g_filename);
        return defaultValue;
    }
    char block[kBlockSize];
    setvbuf(file, block, _IOFBF, sizeof block);
    Scan scan = StartScan(file);
    const char *value = defaultValue;
    if (FindSection(&scan, section) && FindKey(&scan, key))
        value = ValueInLine();
    fclose(file);
    return value;
}

int ReadInteger(const char *section, const char *key, int defaultValue)
{
    if (section == nullptr || key == nullptr) {
        Log(kSourceFile, "ReadInteger", "param error");
        return defaultValue;
    }
    // Intended: this release has no integer settings; the first line has the other reader's name.
    Log(kSourceFile, "ReadString", "param error.");
    Log(kSourceFile, "ReadInteger", "ReadString error");
    return defaultValue;
}

const char *GetInitKey(void * /*reserved*/, const char *section, const char *key)
{
    if (section == nullptr || key == nullptr) {
        Log(kSourceFile, "GetInitKey", "param error.");
        return nullptr;
    }
    return ReadString(section, key, "");
}

bool SectionExists(FILE *file, const char *section)
{
    if (file == nullptr || section == nullptr) {
        Log(kSourceFile, "SectionExists", "param error");
        return false;
    }
    Scan scan = StartScan(file);
    return FindSection(&scan, section);
}

bool KeyExists(FILE *file, const char *key)
{
    if (file == nullptr || key == nullptr) {
        Log(kSourceFile, "KeyExists", "param error");
        return false;
    }
    Scan scan = StartScan(file);
    return FindKey(&scan, key);
}

char *GetKeyValue(char *line)
{
    if (line == nullptr) {
        Log(kSourceFile, "GetKeyValue", "param error");
        return nullptr;
    }
    char *equals = strchr(line, '=');
    return equals != nullptr ? equals + 1 : nullptr;
}

char *Trim(char *text)
{
    if (text == nullptr) {
        Log(kSourceFile, "Trim", "param error.");
        return nullptr;
    }
    return CutBlanks(text);
}

char *ReadLine(FILE *file)
{
    if (file == nullptr) {
        Log(kSourceFile, "ReadLine", "param error");
        return nullptr;
    }
    Scan scan = StartScan(file);
    return NextLine(&scan);
}

bool KeyExistsInLine(char *line, const char *key)
{
    if (line == nullptr || key == nullptr) {
        Log(kSourceFile, "KeyExistsInLine", "param error.");
        return false;
    }
    return IsKeyLine(line, key, strlen(key));
}

bool SectionExistsInLine(const char *line, const char *section)
{
    if (line == nullptr || section == nullptr) {
        Log(kSourceFile, "SectionExistsInLine", "param error.");
        return false;
    }
    char header[kHeaderSize];
    MakeHeader(header, section);
    return strstr(line, header) != nullptr;
}
