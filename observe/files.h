// files.h - files and folders as wholes. What fails leaves the reason in errno.
#ifndef OBSERVE_FILES_H
#define OBSERVE_FILES_H

#include <optional>
#include <string>
#include <string_view>

namespace observe
{

// The whole of the file at `path` ("-" is standard input), or nothing when it cannot be opened or
// read.
std::optional<std::string> ReadWholeFile(const std::string &path);

// The same where a file that cannot be read is as good as an empty one.
std::string ReadFile(const std::string &path);

// Writes `content` to the file at `path`, which is made or replaced. False when that did not work.
bool WriteFile(const std::string &path, std::string_view content);

// Makes the folder and those above it, as far as they are missing. False when one cannot be made.
bool MakeFolders(const std::string &path);

bool IsFolder(const std::string &path);

}  // namespace observe

#endif
