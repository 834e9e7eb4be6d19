// program.cpp - see program.h.
#include "tools/common/program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace tools
{

int CouldNot(const char *program, const std::string &message)
{
    fprintf(stderr, "%s: %s\n", program, message.c_str());
    return kExitCouldNot;
}

int Say(const char *program, std::string_view text, int status)
{
    (void)signal(SIGPIPE, SIG_IGN);  // else it ends the program without a word
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
        return CouldNot(program, std::string("standard output: ") + strerror(errno));
    return status;
}

int SayVersion(const char *program)
{
    return Say(program, std::string(program) + " " + KESTRUN_VERSION + "\n", kExitFine);
}

std::optional<std::string> ReadWholeFile(const std::string &path)
{
    FILE *file = path == "-" ? stdin : fopen(path.c_str(), "rb");
    if (!file)
        return std::nullopt;
    std::string content;
    char block[65536];
    size_t count = 0;
    while ((count = fread(block, 1, sizeof block, file)) > 0)
        content.append(block, count);
    const int error = ferror(file) ? errno : 0;
    if (file != stdin)
        fclose(file);
    errno = error;
    return error == 0 ? std::optional(std::move(content)) : std::nullopt;
}

bool WriteWholeFile(const std::string &path, std::string_view content)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (!file)
        return false;
    const bool written = fwrite(content.data(), 1, content.size(), file) == content.size();
    return fclose(file) == 0 && written;
}

// Whether `bytes`, of which the first `length` are one sequence by its first byte, is in the
// shortest form, no half of a pair and within the range of characters.
static bool IsProperSequence(std::string_view bytes, size_t length)
{
    const auto first = static_cast<unsigned char>(bytes[0]);
    const auto second = static_cast<unsigned char>(bytes[1]);
    for (size_t i = 1; i < length; i++) {
        if ((static_cast<unsigned char>(bytes[i]) & 0xC0) != 0x80)
            return false;
    }
    return !(first == 0xE0 && second < 0xA0) && !(first == 0xED && second > 0x9F) &&
           !(first == 0xF0 && second < 0x90) && !(first == 0xF4 && second > 0x8F);
}

size_t Utf8Length(std::string_view bytes)
{
    if (bytes.empty())
        return 0;
    const auto first = static_cast<unsigned char>(bytes[0]);
    if (first < 0x80)
        return 1;
    if (first < 0xC2 || first > 0xF4)
        return 0;
    const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    return bytes.size() >= length && IsProperSequence(bytes, length) ? length : 0;
}

// The character that the `length` bytes make.
static char32_t CharacterOf(std::string_view bytes, size_t length)
{
    const auto first = static_cast<unsigned char>(bytes[0]);
    char32_t character = length == 1 ? first : first & (0x7F >> length);
    for (size_t i = 1; i < length; i++)
        character = character << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    return character;
}

// Whether the character is seen, or is a gap, and changes nothing around it: no control character,
// none that turns or joins the text beside it, and none of those that never are characters.
static bool HasPicture(char32_t character)
{
    static const char32_t kWithout[][2] = {
        {0x00, 0x1F},     {0x7F, 0x9F},     {0x200B, 0x200F},
        {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF},
    };
    for (const auto &range : kWithout) {
        if (character >= range[0] && character <= range[1])
            return false;
    }
    return (character & 0xFFFE) != 0xFFFE;
}

static void AppendNumbers(std::string &text, std::string_view bytes)
{
    for (const char byte : bytes) {
        char escape[8];
        snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(byte));
        text += escape;
    }
}

std::string Printable(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const size_t length = Utf8Length(bytes);
        const std::string_view taken = bytes.substr(0, length > 0 ? length : 1);
        if (bytes[0] == '\n')
            text += "\\n";
        else if (length > 0 && HasPicture(CharacterOf(bytes, length)))
            text.append(taken);
        else
            AppendNumbers(text, taken);
        bytes.remove_prefix(taken.size());
    }
    return text;
}

std::string Quoted(std::string_view bytes)
{
    return "\"" + Printable(bytes) + "\"";
}

}  // namespace tools
