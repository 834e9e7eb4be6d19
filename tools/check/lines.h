// lines.h - the lines of a file as they stand, by number and offset.
#ifndef TOOLS_CHECK_LINES_H
#define TOOLS_CHECK_LINES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kcheck
{

struct Line {
    size_t number;          // from 1
    size_t offset;          // in the file
    std::string_view text;  // without the line feed
    bool ended;             // by a line feed
};

// Points into `content`.
std::vector<Line> SplitLines(std::string_view content);

// The number of the line that the byte at `offset` belongs to.
size_t LineAt(std::string_view content, size_t offset);

// The same for an offset behind a line: the number of that line.
size_t LineBefore(std::string_view content, size_t end);

bool HasBothBrackets(std::string_view text);
bool HasBracket(std::string_view text);

// Whether the line reads as `key` to a person: behind blanks and tabs the key, in any letter case,
// and behind it a blank, a tab, "=" or the end.
bool LooksLikeKey(std::string_view text, std::string_view key);

// What a person takes for the line's key: the text before its first "=", without the blanks and
// tabs around it. Empty where there is none, and in a line that a person takes for a comment.
std::string_view KeyIn(std::string_view text);

// The line's text without blanks and tabs around it, if it is a header: between "[" and "]". Else
// empty.
std::string_view HeaderIn(std::string_view text);

// `bytes` as "79 65 73".
std::string Hex(std::string_view bytes);

std::string Lower(std::string_view text);

}  // namespace kcheck

#endif
