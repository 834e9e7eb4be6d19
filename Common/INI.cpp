// INI.cpp - string values by section and key from the daemon's configuration file.
//
// Owns the file's name, the one line buffer that every value points into, and the offsets of the
// line in it. Leans on the log and on the bounded library. A lookup is a closed unit: open, scan,
// close; nothing is cached but the last line.
//
// What looks careless in the format (see INI.h) is what the configuration files in the field are
// written against.

#include "Common/INI.h"

#include "Common/Log.h"
#include "tamrik/tamrik.h"

#include <string.h>

static const char kSourceFile[] = "Common/INI";
static const size_t kHeaderSize = 128;
static const size_t kBlockSize = 4096;  // read at a time: on the stack, not the stream's own

// ---- Module state -------------------------------------------------------------------------------

char g_filename[1024] = "/Applications/Veltrane.app/Contents/Resources/SysConfig.dat";
char g_linetext[1024];
int g_current_line_offset;
int g_last_line_offset;
int g_filesize;

// ---- Reading lines ------------------------------------------------------------------------------

// What a character of a line can mean to a scan. Lines without the marks that matter are passed by
// without a second look: that is what makes a lookup in a long file quick.
static const unsigned char kOpens = 1;
static const unsigned char kCloses = 2;
static const unsigned char kStarts = 4;  // is the first character of what is sought
static const unsigned char kBrackets = kOpens | kCloses;

// A scan of one file, line by line into g_linetext.
struct Scan {
    FILE *file;
    long position;             // of the file, moved along; -1 when it has none
    size_t length;             // of the line, as it was stored
    size_t dirty;              // bytes at the start of g_linetext that may be other than zero
    unsigned char seen;        // the marks of the line's characters, together
    unsigned char marks[256];  // of each character
};

static void Mark(Scan *scan, char ch, unsigned char mark)
{
    scan->marks[static_cast<unsigned char>(ch)] |= mark;
}

// Makes the lines matter in which `sought` may start: with an empty text, every line.
static void Seek(Scan *scan, const char *sought)
{
    const unsigned char usual = *sought == '\0' ? kStarts : 0;
    memset_s(scan->marks, sizeof scan->marks, usual, sizeof scan->marks);
    Mark(scan, *sought, kStarts);
    Mark(scan, '[', kOpens);
    Mark(scan, ']', kCloses);
}

// `position` is where `file` stands: 0 when it was just opened, so that no system call is needed to
// ask.
static void StartScan(Scan *scan, FILE *file, long position)
{
    scan->file = file;
    scan->position = position;
    scan->dirty = sizeof g_linetext;
}

// Opens the configuration file and starts a scan of it. What is read at a time goes into `block`, which
// must be there until the scan's file is closed. False when it cannot be opened.
static bool OpenScan(Scan *scan, char (&block)[kBlockSize])
{
    FILE *file = fopen(g_filename, "rb");
    if (!file)
        return false;
    setvbuf(file, block, _IOFBF, sizeof block);
    StartScan(scan, file, 0);
    return true;
}

// Reads up to and including the first line feed that ends a line with something in it, and stores
// the line without it at the start of g_linetext. What stood behind it there still does. Returns by
// how much the file moved.
//
// Intended: the end of the file is met by reading it, so its mark is stored as a character, 0xFF.
// A read error counts as the end: a folder opens like a file but never gives a character.
static long CollectLine(Scan *scan)
{
    FILE *const file = scan->file;
    const unsigned char *const marks = scan->marks;
    char *const end = g_linetext + sizeof g_linetext - 1;
    char *to = g_linetext;
    unsigned seen = 0;
    long unstored = 0;  // characters that the file moved by beside those
    bool atEnd = feof(file) || ferror(file);
    while (!atEnd) {
        const int ch = getc_unlocked(file);
        if (ch <= '\r') {  // most characters are not, and need no further look
            if (ch == '\n' || ch == '\r')
                unstored++;
            if (ch == '\n' && to != g_linetext)
                break;
            if (ch == '\n' || ch == '\r')
                continue;
            atEnd = ch == EOF;
            unstored -= atEnd;
        }
        if (to == end) {
            unstored++;
            continue;
        }
        *to++ = static_cast<char>(ch);
        seen |= marks[static_cast<unsigned char>(ch)];
    }
    scan->length = static_cast<size_t>(to - g_linetext);
    scan->seen = static_cast<unsigned char>(seen);
    return static_cast<long>(scan->length) + unstored;
}

// Whether the line may hold what is sought or end the section, or ends the file.
static bool Matters(const Scan *scan)
{
    return (scan->seen & kStarts) || (scan->seen & kBrackets) == kBrackets || scan->length == 0 ||
           g_linetext[0] == '\0';
}

// Reads on to the next line that matters and leaves the module's state as ReadLine does.
static char *NextLine(Scan *scan)
{
    do {
        const long consumed = CollectLine(scan);
        if (scan->position >= 0)
            scan->position += consumed;
        g_last_line_offset = g_current_line_offset;
        g_current_line_offset = static_cast<int>(scan->position);
        if (scan->dirty < scan->length)
            scan->dirty = scan->length;
    } while (!Matters(scan));
    const size_t behind = scan->dirty - scan->length;
    memset_s(g_linetext + scan->length, behind, 0, behind);
    scan->dirty = scan->length;
    return g_linetext[0] != '\0' ? g_linetext : nullptr;
}

// ---- Sections and keys --------------------------------------------------------------------------

static void MakeHeader(char (&header)[kHeaderSize], const char *section)
{
    memset_s(header, sizeof header, 0, sizeof header);
    snprintf_s(header, sizeof header, sizeof header - 1, "[%s]", section);
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

// Intended: the key may stand anywhere in the line, while what must follow it is looked for at its
// length from the line's start. The second test comes first here because it is the cheaper one.
static bool IsKeyLine(char *line, const char *key, size_t keyLength)
{
    const char *text = CutBlanks(line);
    if (strnlen(text, keyLength) < keyLength)
        return false;
    const char *behind = text + keyLength;
    while (*behind == ' ')
        behind++;
    return (*behind == '\0' || *behind == '=') && strstr(text, key);
}

static bool FindSection(Scan *scan, const char *section)
{
    char header[kHeaderSize];
    MakeHeader(header, section);
    Seek(scan, header);
    while (const char *line = NextLine(scan)) {
        if (strstr(line, header))
            return true;
    }
    Log(kSourceFile, "SectionExists", "not found the section");
    return false;
}

static bool FindKey(Scan *scan, const char *key)
{
    const size_t keyLength = strlen(key);
    Seek(scan, key);
    while (char *line = NextLine(scan)) {
        if (IsKeyLine(line, key, keyLength))
            return true;
        // Intended: tried after the key, so a header-like line can be the key line.
        if (strchr(line, '[') && strchr(line, ']'))
            return false;
    }
    Log(kSourceFile, "KeyExists", "not found the key");
    return false;
}

// What follows the first '=' of g_linetext; the empty text at its end when there is none.
static char *ValueInLine()
{
    char *equals = strchr(g_linetext, '=');
    return equals ? equals + 1 : g_linetext + strlen(g_linetext);
}

// ---- Public functions ---------------------------------------------------------------------------

bool SetIniFileName(const char *path)
{
    if (!path) {
        Log(kSourceFile, "SetIniFileName", "param error.");
        return false;
    }
    FILE *file = fopen(path, "rb");
    if (!file) {
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
    if (!section || !key || !defaultValue) {
        Log(kSourceFile, "ReadString", "param error.");
        return defaultValue;
    }
    char block[kBlockSize];
    Scan scan;
    if (!OpenScan(&scan, block)) {
        Log(kSourceFile, "ReadString", "open file: %s failed, please check...", g_filename);
        return defaultValue;
    }
    const char *value = defaultValue;
    if (!FindSection(&scan, section))
        Log(kSourceFile, "ReadString", "cfg section [%s] not exists...", section);
    else if (!FindKey(&scan, key))
        Log(kSourceFile, "ReadString", "cfg key [%s] not exists...", key);
    else
        value = CutBlanks(ValueInLine());
    fclose(scan.file);
    return value;
}

const char *ReadStringEx(const char *section, const char *key, const char *defaultValue)
{
    if (!section || !key) {
        Log(kSourceFile, "ReadStringEx", "param error.");
        return defaultValue;
    }
    char block[kBlockSize];
    Scan scan;
    if (!OpenScan(&scan, block)) {
        Log(kSourceFile, "ReadStringEx", "open file: %s failed, please check...\n", g_filename);
        return defaultValue;
    }
    const char *value = defaultValue;
    if (FindSection(&scan, section) && FindKey(&scan, key))
        value = ValueInLine();
    fclose(scan.file);
    return value;
}

int ReadInteger(const char *section, const char *key, int defaultValue)
{
    if (!section || !key) {
        Log(kSourceFile, "ReadInteger", "param error");
        return defaultValue;
    }
    // Intended: this release has no integer settings; the first line bears the other reader's name.
    Log(kSourceFile, "ReadString", "param error.");
    Log(kSourceFile, "ReadInteger", "ReadString error");
    return defaultValue;
}

const char *GetInitKey(void * /*reserved*/, const char *section, const char *key)
{
    if (!section || !key) {
        Log(kSourceFile, "GetInitKey", "param error.");
        return nullptr;
    }
    return ReadString(section, key, "");
}

bool SectionExists(FILE *file, const char *section)
{
    if (!file || !section) {
        Log(kSourceFile, "SectionExists", "param error");
        return false;
    }
    Scan scan;
    StartScan(&scan, file, ftell(file));
    return FindSection(&scan, section);
}

bool KeyExists(FILE *file, const char *key)
{
    if (!file || !key) {
        Log(kSourceFile, "KeyExists", "param error");
        return false;
    }
    Scan scan;
    StartScan(&scan, file, ftell(file));
    return FindKey(&scan, key);
}

char *GetKeyValue(char *line)
{
    if (!line) {
        Log(kSourceFile, "GetKeyValue", "param error");
        return nullptr;
    }
    char *equals = strchr(line, '=');
    return equals ? equals + 1 : nullptr;
}

char *Trim(char *text)
{
    if (!text) {
        Log(kSourceFile, "Trim", "param error.");
        return nullptr;
    }
    return CutBlanks(text);
}

char *ReadLine(FILE *file)
{
    if (!file) {
        Log(kSourceFile, "ReadLine", "param error");
        return nullptr;
    }
    Scan scan;
    StartScan(&scan, file, ftell(file));
    Seek(&scan, "");
    return NextLine(&scan);
}

bool KeyExistsInLine(char *line, const char *key)
{
    if (!line || !key) {
        Log(kSourceFile, "KeyExistsInLine", "param error.");
        return false;
    }
    return IsKeyLine(line, key, strlen(key));
}

bool SectionExistsInLine(const char *line, const char *section)
{
    if (!line || !section) {
        Log(kSourceFile, "SectionExistsInLine", "param error.");
        return false;
    }
    char header[kHeaderSize];
    MakeHeader(header, section);
    return strstr(line, header);
}
