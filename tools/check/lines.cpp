// lines.cpp - see lines.h.
#include "tools/check/lines.h"

#include <algorithm>
#include <cstdio>

namespace kcheck
{

std::vector<Line> SplitLines(std::string_view content)
{
    std::vector<Line> lines;
    size_t start = 0;
    while (start < content.size()) {
        const size_t feed = content.find('\n', start);
        const bool ended = feed != std::string_view::npos;
        const size_t end = ended ? feed : content.size();
        lines.push_back({lines.size() + 1, start, content.substr(start, end - start), ended});
        start = end + 1;
    }
    return lines;
}

size_t LineAt(std::string_view content, size_t offset)
{
    const std::string_view before = content.substr(0, std::min(offset, content.size()));
    return 1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
}

size_t LineBefore(std::string_view content, size_t end)
{
    return LineAt(content, end > 0 && end <= content.size() ? end - 1 : end);
}

bool HasBothBrackets(std::string_view text)
{
    return text.find('[') != std::string_view::npos && text.find(']') != std::string_view::npos;
}

bool HasBracket(std::string_view text)
{
    return text.find_first_of("[]") != std::string_view::npos;
}

std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char &ch : lower) {
        if (ch >= 'A' && ch <= 'Z')
            ch = static_cast<char>(ch - 'A' + 'a');
    }
    return lower;
}

bool LooksLikeKey(std::string_view text, std::string_view key)
{
    const size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos || text.size() - start < key.size())
        return false;
    if (Lower(text.substr(start, key.size())) != Lower(key))
        return false;
    const std::string_view behind = text.substr(start + key.size());
    return behind.empty() || std::string_view(" \t=\r").find(behind[0]) != std::string_view::npos;
}

static std::string_view Trimmed(std::string_view text)
{
    static const char kBlanks[] = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return "";
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view KeyIn(std::string_view text)
{
    const size_t equals = text.find('=');
    const std::string_view key = Trimmed(text.substr(0, equals));
    const bool isComment = key.starts_with('#') || key.starts_with(';');
    return equals == std::string_view::npos || isComment ? "" : key;
}

std::string_view HeaderIn(std::string_view text)
{
    const std::string_view header = Trimmed(text);
    return header.starts_with('[') && header.ends_with(']') ? header : "";
}

std::string Hex(std::string_view bytes)
{
    std::string hex;
    for (const char ch : bytes) {
        char text[4];
        snprintf(text, sizeof text, "%02X", static_cast<unsigned char>(ch));
        hex += hex.empty() ? "" : " ";
        hex += text;
    }
    return hex;
}

}  // namespace kcheck
