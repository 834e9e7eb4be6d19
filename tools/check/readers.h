// readers.h - the daemon's own readers, called as the daemon calls them. Nothing is written, no
// command is run, and the log stays off.
#ifndef TOOLS_CHECK_READERS_H
#define TOOLS_CHECK_READERS_H

#include <cstdint>
#include <optional>
#include <string>

namespace kcheck
{

// A value and where its line is.
struct IniValue {
    std::string value;
    size_t lineEnd;  // offset in the file, behind the line
};

// Whether the INI reader keeps the whole of `path`; if not, its lookups open another file.
bool IsPathKept(const std::string &path);

// What ReadString gives for `key` of `section` in the file at `path`; nothing when it would return
// its default.
std::optional<IniValue> ReadIni(const std::string &path, const char *section, const char *key);

// The offset behind the header line that the INI reader takes for `section`'s.
std::optional<size_t> FindIniSection(const std::string &path, const char *section);

struct KeyValue {
    std::string value;
    size_t offset;  // in the file, of the first byte behind the "="
};

// What the key file reader gives for `key` of `section`, read as the daemon reads its switch.
std::optional<KeyValue> ReadKey(const std::string &path, const char *section, const char *key);

// Whether the daemon takes the switch for on.
bool IsSwitchOn(const std::string &path, const char *section, const char *key);

// The offset of the header line that the key file reader takes for `section`'s.
std::optional<size_t> FindKeySection(const std::string &path, const char *section);

// The request for a setup package, read key after key as the setup runner does. A key that is not
// found ends the reading; `stoppedAt` is where in the file the search for it began.
struct SetupRequest {
    std::optional<size_t> header;  // offset of the section's line
    std::optional<KeyValue> run, path, name, once;
    size_t nameLength = 0;  // of the whole name, of which `name` holds 511 bytes at most
    size_t stoppedAt = 0;
};
SetupRequest ReadSetup(const std::string &path);

// The volume that a package of that name brings: a space before each capital letter but the first.
std::string PackageVolume(const std::string &name);

// The name without its extension.
std::string PackageName(std::string fileName);

// The command that opens the application at `path`, as far as it fits its buffer.
std::string OpenCommand(const std::string &path);

}  // namespace kcheck

#endif
