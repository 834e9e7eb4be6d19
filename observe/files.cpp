// files.cpp - see files.h.
#include "observe/files.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace observe
{

std::optional<std::string> ReadWholeFile(const std::string &path)
{
    const int file = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    std::string content;
    char block[65536];
    ssize_t count = 0;
    while ((count = read(file, block, sizeof block)) > 0 || (count < 0 && errno == EINTR))
        content.append(block, static_cast<size_t>(count > 0 ? count : 0));
    const int error = count < 0 ? errno : 0;
    if (file != STDIN_FILENO)
        (void)close(file);
    errno = error;
    return error == 0 ? std::optional(std::move(content)) : std::nullopt;
}

std::string ReadFile(const std::string &path)
{
    return ReadWholeFile(path).value_or("");
}

// In one call as far as the system takes it: some files of /proc take no second one.
bool WriteFile(const std::string &path, std::string_view content)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        return false;
    while (!content.empty()) {
        const ssize_t written = write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            const int error = errno;
            (void)close(file);
            errno = error;
            return false;
        }
        content.remove_prefix(static_cast<size_t>(written > 0 ? written : 0));
    }
    return close(file) == 0;
}

bool MakeFolders(const std::string &path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    errno = error.value();
    return !error;
}

bool IsFolder(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace observe
