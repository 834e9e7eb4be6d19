// key_model.h - a second reader of keys with file offsets, for the tests and the fuzzers to compare
// the first one with.
#ifndef TESTS_SUPPORT_KEY_MODEL_H
#define TESTS_SUPPORT_KEY_MODEL_H

#include <stdint.h>

#include <algorithm>
#include <string>

// The model sees a file as a list of pieces, each a line's text up to its first zero byte, and
// works on positions and substrings alone.
struct KeyModel {
    std::string bytes;
    size_t position = 0;

    static std::string Trimmed(const std::string &text)
    {
        const std::string set = " []\n\r";
        const size_t from = text.find_first_not_of(set);
        if (from == std::string::npos)
            return "";
        return text.substr(from, text.find_last_not_of(set) - from + 1);
    }

    // The next piece and where the one after it begins; false at the end of the file.
    bool Piece(std::string &text, size_t &next) const
    {
        if (position >= bytes.size())
            return false;
        const size_t lineFeed = bytes.find('\n', position);
        next = lineFeed == std::string::npos ? bytes.size() : lineFeed + 1;
        next = std::min(next, position + 1023);
        text = bytes.substr(position, next - position);
        text = text.substr(0, text.find('\0'));
        return true;
    }

    int64_t Section(std::string name)
    {
        name = Trimmed(name);
        std::string text;
        for (size_t next = 0; Piece(text, next); position = next) {
            const size_t at = text.find(name);
            if (at == std::string::npos)
                continue;
            std::string before = text.substr(0, at);
            std::string after = text.substr(at + name.size());
            while (!before.empty() && before.back() == ' ')
                before.pop_back();
            const size_t behind = after.find_first_not_of(' ');
            if (before.empty() || before.back() != '[' || behind == std::string::npos ||
                after[behind] != ']')
                continue;
            const size_t found = position;
            position = next;
            return static_cast<int64_t>(found);
        }
        return -1;
    }

    int64_t Key(std::string &keyIO, size_t size, int64_t &capacity)
    {
        keyIO = Trimmed(keyIO);
        std::string text;
        for (size_t next = 0; Piece(text, next); position = next) {
            if (text.find('[') != std::string::npos || text.find(']') != std::string::npos)
                return -1;
            const size_t at = text.find(keyIO);
            if (at == std::string::npos)
                continue;
            const size_t stop = text.find_first_of("=\n\r", at + keyIO.size());
            if (stop == std::string::npos || text[stop] != '=')
                continue;
            const std::string value = Trimmed(text.substr(stop + 1));
            if (static_cast<int64_t>(value.size()) >= capacity) {
                capacity = static_cast<int64_t>(value.size()) + 1;
                keyIO.clear();
                return -1;
            }
            keyIO = value.substr(0, size - 1);
            const size_t found = position + stop + 1;
            position = next;
            return static_cast<int64_t>(found);
        }
        return -1;
    }
};

inline bool SameLetters(const std::string &one, const std::string &other)
{
    if (one.size() != other.size())
        return false;
    for (size_t i = 0; i < one.size(); i++) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; };
        if (lower(one[i]) != lower(other[i]))
            return false;
    }
    return true;
}

#endif
