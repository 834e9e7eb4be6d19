// ActiveVolumeProgram.cpp - the reader of "SysConfig.dat", the volume lookup and the setup runner.
//
// The reader returns file offsets, so that the runner can overwrite a value in place. It uses
// src/Process for the shell and tamrik for every copy, and keeps nothing between calls.
// What surprises: keys are found only forward from the stream's position, so callers read them in
// the file's order; a name matches anywhere in a line; the two counters that the volume lookup logs
// differ; two failures of the runner leave a stream open and a buffer allocated.
#include "src/ActiveVolumeProgram.h"

#include "Common/Log.h"
#include "src/Process.h"
#include "tamrik/tamrik.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

static constexpr char kSourceFile[] = "src/ActiveVolumeProgram";

static constexpr size_t kKeyLineSize = 1024;  // bytes of one line, and of a key or value
static constexpr size_t kFileNameSize = 512;  // bytes of the setup file's name
static constexpr size_t kDigitsSize = 8;      // bytes of a duplicate's number: at most seven digits
static constexpr size_t kCommandRoom = 2048;  // bytes of a command line beside its open prefix

static constexpr size_t kSwitchSize = sizeof "No";  // bytes of the switch, its zero included
static constexpr long kLeastBlock = 512;            // the blocks of streams are multiples of this
static constexpr char kNowhere[] = "/";             // a folder takes no byte that is written to it

static constexpr int kTryInterval = 2;       // seconds between two looks for a volume
static constexpr int kFileVolumeWait = 180;  // seconds for the volume that holds the setup file
static constexpr int kPackageWait = 30;      // seconds for the volume that the setup file produces
static constexpr int kOpenTries = 10;

// ---- Key file reader ----

int64_t TrimKey(char *text)
{
    static constexpr char kTrimmed[] = " []\n\r";

    Log(kSourceFile, "TrimKey", "TrimKey Enter");
    if (text == nullptr) {
        Log(kSourceFile, "TrimKey", "TrimKey exit key is NULL");
        return -1;
    }

    const char *start = text + strspn(text, kTrimmed);
    size_t length = strlen(start);
    if (length == 0) {
        text[0] = '\0';
        Log(kSourceFile, "TrimKey", "TrimKey exit success");
        return 0;
    }
    while (strchr(kTrimmed, start[length - 1]) != nullptr)
        length--;
    memmove_s(text, length, start, length);
    text[length] = '\0';
    // Intended: only the empty result logs its success.
    return static_cast<int64_t>(length);
}

// Whether nothing but spaces stands between the name at `found` and a "[" before it.
static bool IsOpenedBefore(const char *line, const char *found)
{
    while (found > line && found[-1] == ' ')
        found--;
    return found > line && found[-1] == '[';
}

bool IsPrimaryKey(const char *line, const char *found, int64_t keyLength)
{
    Log(kSourceFile, "IsPrimaryKey", "IsPrimaryKey Enter");
    if (line == nullptr || found == nullptr || keyLength < 0 ||
        static_cast<uint64_t>(keyLength) > strlen(found) || !IsOpenedBefore(line, found)) {
        Log(kSourceFile, "IsPrimaryKey", "IsPrimaryKey exit false");
        return false;
    }
    const char *after = found + keyLength;
    if (after[strspn(after, " ")] != ']') {
        Log(kSourceFile, "IsPrimaryKey", "IsPrimaryKey exit false");
        return false;
    }
    Log(kSourceFile, "IsPrimaryKey", "IsPrimaryKey exit true");
    return true;
}

// The text after the first "=" of the rest of a line, or null when the line ends before one.
static char *FindValue(char *rest)
{
    char *equals = rest + strcspn(rest, "=\n\r");
    return *equals == '=' ? equals + 1 : nullptr;
}

// Ends a search at a line with a bracket: the next search begins at that line.
static int64_t StopAtHeader(FILE *file, long lineStart)
{
    if (fseek(file, lineStart, SEEK_SET) != 0) {
        Log(kSourceFile, "ReadKeyValue", "fseek error");
    } else {
        Log(kSourceFile, "ReadKeyValue", "pPos == '[' or pPos == ']', ReadKeyValue exit failed");
    }
    return -1;
}

// Returns a value that was found: trims it and copies it into `keyIO`. `offset` is where it begins
// in the file, `lineStart` where its line does.
static int64_t TakeValue(FILE *file, long lineStart, int64_t offset, char *value, char *keyIO,
                         int keyIOSize, int64_t *capacity)
{
    const int64_t length = TrimKey(value);
    if (length >= *capacity) {
        *capacity = length + 1;
        keyIO[0] = '\0';
        if (fseek(file, lineStart, SEEK_SET) != 0) {
            Log(kSourceFile, "ReadKeyValue", "fseek error");
        } else {
            Log(kSourceFile, "ReadKeyValue",
                "pKeyIOValue's space is small, ReadKeyValue exit failed");
        }
        return -1;
    }
    strncpy_s(keyIO, static_cast<size_t>(keyIOSize), value, static_cast<size_t>(keyIOSize) - 1);
    // "%d" takes 32 bits: an offset above 2 GiB is logged as its lower half.
    Log(kSourceFile, "ReadKeyValue", "lPos == %d, ReadKeyValue exit true",
        static_cast<int>(offset));
    return offset;
}

int64_t ReadKeyValue(FILE *file, char *keyIO, int keyIOSize, int64_t *capacity, bool sectionMode)
{
    Log(kSourceFile, "ReadKeyValue", "ReadKeyValue Enter");
    if (file == nullptr || keyIO == nullptr || keyIOSize < 1 || keyIO[0] == '\0' ||
        (capacity == nullptr && !sectionMode)) {
        Log(kSourceFile, "ReadKeyValue", "ReadKeyValue exit failed");
        return -1;
    }
    Log(kSourceFile, "ReadKeyValue", "pKeyIOValue=%s", keyIO);
    const int64_t keyLength = TrimKey(keyIO);
    if (keyLength == -1) {
        Log(kSourceFile, "ReadKeyValue", "TrimKey error!");
        return -1;
    }
    long lineStart = ftell(file);
    if (lineStart == -1) {
        Log(kSourceFile, "ReadKeyValue", "ftell error");
        return -1;
    }

    char line[kKeyLineSize];
    while (fgets(line, sizeof line, file) != nullptr) {
        if (!sectionMode && strpbrk(line, "[]") != nullptr)
            return StopAtHeader(file, lineStart);
        // Intended: only the first occurrence is judged, and in key mode it may be anywhere.
        char *found = strstr(line, keyIO);
        if (found != nullptr && sectionMode && IsPrimaryKey(line, found, keyLength)) {
            Log(kSourceFile, "ReadKeyValue",
                "find szTmp=%s is key and pPos=%s, and ReadKeyValue exit",
                static_cast<const char *>(line), found);
            return lineStart;
        }
        char *value = found != nullptr && !sectionMode ? FindValue(found + keyLength) : nullptr;
        if (value != nullptr) {
            return TakeValue(file, lineStart, lineStart + (value - line), value, keyIO, keyIOSize,
                             capacity);
        }
        lineStart = ftell(file);
        if (lineStart == -1) {
            Log(kSourceFile, "ReadKeyValue", "ftell error in while");
            return -1;
        }
    }
    Log(kSourceFile, "ReadKeyValue", "ReadKeyValue exit failed");
    return -1;
}

// Looks up `key` in `section`, from the stream's position on, into `value`, which is `size` bytes.
static bool ReadSectionKey(FILE *file, const char *section, const char *key, char *value, int size)
{
    const size_t bytes = static_cast<size_t>(size);
    int64_t capacity = size;

    if (strlen(section) > bytes - 1)
        return false;
    strncpy_s(value, bytes, section, bytes - 1);
    if (ReadKeyValue(file, value, size, &capacity, true) == -1)
        return false;
    if (strlen(key) > bytes - 1)
        return false;
    strncpy_s(value, bytes, key, bytes - 1);
    return ReadKeyValue(file, value, size, &capacity, false) != -1;
}

bool IsKeyValueCaseEqual(const char *path, const char *section, const char *key,
                         const char *expected)
{
    Log(kSourceFile, "IsKeyValueCaseEqual", "IsKeyValueCaeEqual Enter");  // sic
    if (path == nullptr || section == nullptr || key == nullptr || expected == nullptr) {
        Log(kSourceFile, "IsKeyValueCaseEqual", "IsKeyValueCaseEqual exit failed");
        return false;
    }
    FILE *file = fopen(path, "r");
    if (file == nullptr) {
        Log(kSourceFile, "IsKeyValueCaseEqual", "open %s failed, IsKeyValueCaseEqual exit failed",
            path);
        return false;
    }

    char value[kKeyLineSize];
    memset_s(value, sizeof value, 0, sizeof value);
    const bool found = ReadSectionKey(file, section, key, value, static_cast<int>(sizeof value));
    fclose(file);
    if (!found) {
        Log(kSourceFile, "IsKeyValueCaseEqual", "IsKeyValueCaseEqual exit failed");
        return false;
    }
    Log(kSourceFile, "IsKeyValueCaseEqual", "IsKeyValueCaseEqual exit");
    return strcasecmp(value, expected) == 0;
}

// ---- Volume lookup ----

static bool IsDirectory(const char *path)
{
    DIR *directory = opendir(path);
    if (directory == nullptr)
        return false;
    closedir(directory);
    return true;
}

static bool IsEmpty(const char *text)
{
    return text == nullptr || text[0] == '\0';
}

bool IsVolumeExist(const char *name, const char *directory, int testTime)
{
    if (name == nullptr) {
        Log(kSourceFile, "IsVolumeExist", "param error");
        return false;
    }
    Log(kSourceFile, "IsVolumeExist", "IsVolumeExist Enter");
    if (testTime <= 0) {
        Log(kSourceFile, "IsVolumeExist", "testTime <= 0, can't check.");
        return false;
    }

    char *joined = nullptr;
    if (!IsEmpty(directory)) {
        const size_t size = strlen(directory) + strlen(name) + 1;
        joined = static_cast<char *>(malloc(size));
        if (joined == nullptr) {
            Log(kSourceFile, "IsVolumeExist", "malloc failed, IsVolumeExist exit failed");
            return false;
        }
        memset_s(joined, size, 0, size);
        strncpy_s(joined, size, directory, size - 1);
        strncat_s(joined, size, name, size - 1 - strlen(joined));
    }
    const char *path = joined != nullptr ? joined : name;
    if (path[0] == '\0') {
        Log(kSourceFile, "IsVolumeExist", "IsVolumeExist exit false");
        free(joined);
        return false;
    }

    // 64 bits, since the counter passes a budget of INT_MAX before the loop ends.
    for (int64_t counter = 0; counter < testTime; counter += kTryInterval) {
        if (IsDirectory(path)) {
            free(joined);
            // Intended: this line gives the seconds that have passed, the one below the number of
            // the attempt.
            Log(kSourceFile, "IsVolumeExist", "opertor %d time, IsVolumeExist exit true",
                static_cast<int>(counter));  // sic
            return true;
        }
        // Intended: only the joined path is shown, so without a directory this prints "(null)".
        Log(kSourceFile, "IsVolumeExist", " %d time, open (%s) failed, open again",
            static_cast<int>(counter / kTryInterval), joined);
        sleep(kTryInterval);  // after the last attempt too
    }
    free(joined);
    Log(kSourceFile, "IsVolumeExist", "IsVolumeExist exit false");
    return false;
}

size_t SplitIntoWords(char *split, const char *name)
{
    size_t length = 0;
    for (size_t i = 0; name[i] != '\0'; i++) {
        if (i > 0 && name[i] >= 'A' && name[i] <= 'Z' && name[i - 1] != ' ')
            split[length++] = ' ';
        split[length++] = name[i];
    }
    split[length] = '\0';
    return length;
}

// Puts a space and `number` after the first `length` bytes of `path`, a buffer of `size` bytes.
// False, with `path` unchanged, when the number has more than seven digits or the buffer no room.
static bool AppendNumber(char *path, size_t size, size_t length, int number)
{
    char digits[kDigitsSize];
    const int count = snprintf_s(digits, sizeof digits, sizeof digits - 1, "%d", number);
    if (count < 0 || length + static_cast<size_t>(count) + 1 >= size)
        return false;
    path[length] = ' ';
    strncpy_s(path + length + 1, size - length - 1, digits, size - length - 2);
    return true;
}

// Turns the path of a volume, the first `length` bytes of `path`, into that of its highest
// duplicate that can be reached without a gap. False when a number finds no room.
static bool FindNewestDuplicate(char *path, size_t size, size_t length)
{
    int number = 1;
    do {
        if (!AppendNumber(path, size, length, number))
            return false;
        number++;
    } while (IsDirectory(path));

    const int newest = number - 2;  // the last one tried does not exist, and number is one higher
    path[length] = '\0';
    return newest == 0 || AppendNumber(path, size, length, newest);
}

bool GetTempVolumeName(char *pVPStr, int size, int64_t *capacity, const char *directory,
                       int testTime)
{
    if (capacity == nullptr) {
        Log(kSourceFile, "GetTempVolumeName", "param error");
        return false;
    }
    Log(kSourceFile, "GetTempVolumeName", "GetTempVolumeName Enter");
    if (size <= 0 && IsEmpty(pVPStr))
        return false;

    // A null name counts as an empty one, which fails at the wait for the volume.
    const char *name = pVPStr != nullptr ? pVPStr : "";
    const size_t nameLength = strlen(name);
    const size_t directoryLength = IsEmpty(directory) ? 0 : strlen(directory);
    // The directory, the split name, a space and a number with its zero.
    const size_t workSize = directoryLength + 2 * nameLength + 1 + kDigitsSize;
    char *work = static_cast<char *>(malloc(workSize));
    if (work == nullptr)
        return false;
    memset_s(work, workSize, 0, workSize);
    if (directoryLength > 0)
        strncpy_s(work, workSize, directory, workSize - 1);
    const size_t splitLength = SplitIntoWords(work + directoryLength, name);

    // Only an empty name is not shorter than twice its length.
    if (!IsVolumeExist(work, nullptr, testTime) || splitLength >= 2 * nameLength) {
        Log(kSourceFile, "GetTempVolumeName",
            "Error pVPStr=%s, is not exist, GetTempVolumeName exit false", work);
        free(work);
        return false;
    }
    if (!FindNewestDuplicate(work, workSize, directoryLength + splitLength)) {
        Log(kSourceFile, "GetTempVolumeName",
            "pVPStr's space is small, GetTempVolumeName exit false");
        free(work);
        return false;
    }
    const int64_t length = static_cast<int64_t>(strlen(work));
    if (length >= *capacity) {
        *capacity = length + 1;
        Log(kSourceFile, "GetTempVolumeName", "pVPStr's space is small");
        Log(kSourceFile, "GetTempVolumeName",
            "Error pVPStr=%s, is not exist, GetTempVolumeName exit false", work);
        free(work);
        return false;
    }

    // As an unsigned number a size below 1 is 0 or above every limit: nothing is copied then.
    strncpy_s(pVPStr, static_cast<size_t>(size), work, static_cast<size_t>(size) - 1);
    free(work);
    Log(kSourceFile, "GetTempVolumeName", "volumeName is %s, GetTempVolumeName exit success",
        pVPStr);
    return true;
}

// ---- Setup runner ----

// Looks up `key`, or the section of that name, in `file` and puts its value into `buffer`. Returns
// what ReadKeyValue does.
static int64_t ReadSetupKey(FILE *file, const char *key, char *buffer, size_t size,
                            int64_t *capacity, bool sectionMode)
{
    strncpy_s(buffer, size, key, size - 1);
    return ReadKeyValue(file, buffer, static_cast<int>(size), capacity, sectionMode);
}

void StripExtension(char *name)
{
    for (size_t i = strlen(name); i > 1; i--) {
        if (name[i - 1] == '.') {
            name[i - 1] = '\0';
            return;
        }
    }
}

// Makes what is still pending in `file`, which stays open, go nowhere instead of into its file.
static void DivertStream(FILE *file)
{
    const int stream = fileno(file);
    int nowhere = open(kNowhere, O_RDONLY);
    if (nowhere == -1) {
        close(stream);  // no descriptor was free; now its own is
        nowhere = open(kNowhere, O_RDONLY);
    }
    if (nowhere != -1 && nowhere != stream) {
        dup2(nowhere, stream);
        close(nowhere);
    }
}

// Moves the stream to where the switch is to be written, in such a way that its three bytes reach
// the file in one write.
static bool SeekToSwitch(FILE *file, long offset)
{
    if (fseek(file, offset, SEEK_SET) == -1)
        return false;
    if (offset % kLeastBlock + static_cast<long>(kSwitchSize) <= kLeastBlock)
        return true;
    // A block of the stream may end among the three bytes, and would be written by itself. After
    // the stream has dropped what it had read, its next block begins at the stream's position.
    fflush(file);
    return fseek(file, 0, SEEK_CUR) != -1;
}

// Overwrites the three bytes at `offset` with "No" and a zero byte.
static bool SwitchSetupOff(FILE *file, long offset)
{
    if (!SeekToSwitch(file, offset)) {
        Log(kSourceFile, "RunSDProgram", "fseek error.");
        return false;
    }
    // Intended: a zero byte is left in the file; the line keeps its length.
    if (fputs("No", file) == -1 || fputc(0, file) == -1) {
        DivertStream(file);
        Log(kSourceFile, "RunSDProgram", "fputc error.");
        return false;
    }
    Log(kSourceFile, "RunSDProgram",
        "Have change value of SD_THIRD_SETUP to No, next time will not run SDProgram");
    return true;
}

// Does steps 3 to 15 of RunSDProgram. `*buffer` becomes that of both commands, which the caller
// frees, whatever the result. True leaves in `*switchOffset` where the switch is to be overwritten,
// or -1 when it is to stay.
static bool RunPackage(FILE *file, const char *openPrefix, const char *volumesDir, char **buffer,
                       int64_t *switchOffset)
{
    char text[kKeyLineSize];  // a key, then its value; later the volume's path
    char name[kFileNameSize];
    memset_s(text, sizeof text, 0, sizeof text);
    memset_s(name, sizeof name, 0, sizeof name);
    int64_t capacity = sizeof text;

    // 3. The section.
    if (ReadSetupKey(file, "[SD_THIRDPARTY_SETUP]", text, sizeof text, &capacity, true) == -1) {
        Log(kSourceFile, "RunSDProgram",
            "szKeyOrValue=[SD_THIRDPARTY_SETUP], ReadKeyValue false, RunSDProgram exit false");
        return false;
    }

    // 4. The switch, whose offset is kept.
    const int64_t setupOffset =
        ReadSetupKey(file, "SD_THIRD_SETUP", text, sizeof text, &capacity, false);
    if (setupOffset == -1) {
        Log(kSourceFile, "RunSDProgram",
            "szKeyOrValue=SD_THIRD_SETUP, ReadKeyValue false, RunSDProgram exit false");
        return false;
    }
    if (strcasecmp(text, "yes") != 0) {
        Log(kSourceFile, "RunSDProgram",
            "SD_THIRD_SETUP is not yes, not run SD Program, RunSDProgram exit");
        return false;
    }

    // 5. The folder of the file to open.
    if (ReadSetupKey(file, "SD_THIRD_FILE_PATH", text, sizeof text, &capacity, false) == -1) {
        Log(kSourceFile, "RunSDProgram", "SD_THIRD_FILE_PATH read false, RunSDProgram exit");
        return false;
    }

    // 6. It must exist.
    if (!IsVolumeExist(text, volumesDir, kFileVolumeWait)) {
        Log(kSourceFile, "RunSDProgram", "%s is not exist, RunSDProgram exit",
            static_cast<const char *>(text));
        return false;
    }

    // 7. Room for the two commands.
    const size_t prefixLength = strlen(openPrefix);
    const size_t commandSize = prefixLength + kCommandRoom;
    char *const command = static_cast<char *>(malloc(commandSize));
    *buffer = command;
    if (command == nullptr) {
        Log(kSourceFile, "RunSDProgram", "malloc failed, RunSDProgram exit false");
        return false;
    }
    memset_s(command, commandSize, 0, commandSize);

    // 8. The file to open.
    if (ReadSetupKey(file, "SD_THIRD_FILE_NAME", name, sizeof name, &capacity, false) == -1) {
        Log(kSourceFile, "RunSDProgram", "SD_THIRD_FILE_NAME read false, RunSDProgram exit false");
        return false;
    }

    // 9. The first command must fit, with its slash and its closing quote.
    if (prefixLength + strlen(volumesDir) + strlen(text) + strlen(name) + 2 >= commandSize) {
        Log(kSourceFile, "RunSDProgram",
            "filename or path is too long to can't open, RunSDProgram exit false");  // sic
        return false;
    }

    // 10. The first command opens the file. Intended: it is logged as a format.
    snprintf_s(command, commandSize, commandSize - 1, "%s%s%s/%s\"", openPrefix, volumesDir, text,
               name);
    Log(kSourceFile, "RunSDProgram", command);
    if (!RunShellProgram(command, kOpenTries)) {
        Log(kSourceFile, "RunSDProgram",
            "first RunShellProgram failed, RunSDProgram exit fals ");  // sic
        return false;
    }

    // 11. The name without its extension names the volume that opening the file produces.
    StripExtension(name);

    // 12. That volume.
    capacity = static_cast<int64_t>(sizeof text) - static_cast<int64_t>(prefixLength);
    strncpy_s(text, sizeof text, name, sizeof text - 1);
    if (!GetTempVolumeName(text, static_cast<int>(sizeof text), &capacity, volumesDir,
                           kPackageWait)) {
        Log(kSourceFile, "RunSDProgram",
            "GetTempVolumeName failed,  RunSDProgram exit false");  // sic
        return false;
    }

    // 13. The second command must fit, with its slash, ".pkg" and its closing quote.
    if (prefixLength + strlen(text) + strlen(name) + 6 >= commandSize) {
        Log(kSourceFile, "RunSDProgram",
            "SDProgram's name is too long to can't run, RunSDProgram exit false");  // sic
        return false;
    }

    // 14. The second command opens the package. Intended: it is logged as a format.
    snprintf_s(command, commandSize, commandSize - 1, "%s%s/%s.pkg\"", openPrefix, text, name);
    Log(kSourceFile, "RunSDProgram", command);
    if (!RunShellProgram(command, kOpenTries)) {
        Log(kSourceFile, "RunSDProgram",
            "second RunShellProgram failed,  RunSDProgram exit false");  // sic
        return false;
    }

    // 15. Whether it is to run only once.
    if (ReadSetupKey(file, "SD_RUN_THIRD_FILE_ONCE", text, sizeof text, &capacity, false) == -1) {
        Log(kSourceFile, "RunSDProgram",
            "SD_RUN_THIRD_FILE_ONCE read false, RunSDProgram exit false");
        return false;
    }
    *switchOffset = strcasecmp(text, "yes") == 0 ? setupOffset : -1;
    return true;
}

bool RunSDProgram(const char *sysConfigPath, const char *openPrefix, const char *volumesDir)
{
    // 1. The arguments.
    Log(kSourceFile, "RunSDProgram", "RunSDProgram Enter");
    if (IsEmpty(sysConfigPath) || IsEmpty(openPrefix) || IsEmpty(volumesDir)) {
        Log(kSourceFile, "RunSDProgram", "cmd is 0, can't run cmd, RunSDProgram exit false");
        return false;
    }

    // 2. The file, to be read and, at the end, written.
    FILE *file = fopen(sysConfigPath, "r+");
    if (file == nullptr) {
        Log(kSourceFile, "RunSDProgram", "open file [%s] failed, RunSDProgram exit false",
            sysConfigPath);
        return false;
    }

    // 3. to 15. What the file asks for.
    char *command = nullptr;
    int64_t switchOffset = -1;
    const bool ran = RunPackage(file, openPrefix, volumesDir, &command, &switchOffset);

    // 16. The switch.
    if (ran && switchOffset != -1 && !SwitchSetupOff(file, static_cast<long>(switchOffset))) {
        // Intended: the stream stays open and the command allocated.
        return false;
    }

    // 17. Done; closing the file writes the change.
    free(command);
    fclose(file);
    if (ran)
        Log(kSourceFile, "RunSDProgram", "run SDProgram success, RunSDProgram exit");
    return ran;
}
