// names.cpp - see names.h.
#include "observe/names.h"

#include <cctype>
#include <cstdio>
#include <sstream>

namespace observe
{

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

static void AppendNumbers(std::string &text, std::string_view bytes, const char *format)
{
    for (const char byte : bytes) {
        char escape[8];
        snprintf(escape, sizeof escape, format, static_cast<unsigned char>(byte));
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
            AppendNumbers(text, taken, "\\x%02X");
        bytes.remove_prefix(taken.size());
    }
    return text;
}

std::string Quoted(std::string_view bytes)
{
    return "\"" + Printable(bytes) + "\"";
}

std::string EscapeLabel(std::string_view label)
{
    static const std::string_view kPlain = "#+-.:=@_";
    std::string name;
    while (!label.empty()) {
        const size_t length = Utf8Length(label);
        const bool plain = length > 1 || isalnum(static_cast<unsigned char>(label[0])) != 0 ||
                           kPlain.find(label[0]) != std::string_view::npos;
        const std::string_view taken = label.substr(0, plain ? std::max<size_t>(length, 1) : 1);
        if (plain)
            name.append(taken);
        else
            AppendNumbers(name, taken, "\\x%02x");
        label.remove_prefix(taken.size());
    }
    return name;
}

// `text` with each number behind `mark`, of so many digits to this base, as the byte that it stands
// for.
static std::string Unescaped(std::string_view text, std::string_view mark, size_t digits, int base)
{
    std::string plain;
    while (!text.empty()) {
        const bool marked = text.starts_with(mark);
        const std::string number(marked ? text.substr(mark.size(), digits) : "");
        char *end = nullptr;
        const long byte = strtol(number.c_str(), &end, base);
        const bool whole = number.size() == digits && *end == '\0' &&
                           isxdigit(static_cast<unsigned char>(number[0])) != 0;
        plain += whole ? static_cast<char>(byte) : text[0];
        text.remove_prefix(whole ? mark.size() + digits : 1);
    }
    return plain;
}

std::string UnescapeLabel(std::string_view name)
{
    return Unescaped(name, "\\x", 2, 16);
}

std::string UnescapeField(std::string_view field)
{
    return Unescaped(field, "\\", 3, 8);
}

std::string FirstLine(std::string_view text)
{
    return std::string(text.substr(0, text.find('\n')));
}

std::vector<std::string> Split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

bool HasOption(const std::string &options, const std::string &option)
{
    return ("," + options + ",").find("," + option + ",") != std::string::npos;
}

}  // namespace observe
