// nearest.cpp - see nearest.h.
#include "observe/nearest.h"

#include <algorithm>

#include "observe/names.h"

namespace observe
{

static std::vector<std::string_view> Characters(std::string_view text)
{
    std::vector<std::string_view> characters;
    while (!text.empty()) {
        const size_t length = std::max<size_t>(Utf8Length(text), 1);
        characters.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return characters;
}

size_t Distance(std::string_view one, std::string_view other)
{
    const auto a = Characters(one);
    const auto b = Characters(other);
    // The distances of the first i characters of `a` to all beginnings of `b`, for the last three
    // i.
    std::vector<size_t> before(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::vector<size_t> now(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        now[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        before.swap(last);
        last.swap(now);
        now[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                now[j] = std::min(now[j], before[j - 2] + 1);
        }
    }
    return now[b.size()];
}

static std::string Lower(std::string_view text)
{
    std::string lower(text);
    for (char &ch : lower)
        ch = ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
    return lower;
}

static std::string WithoutBlanks(std::string_view text)
{
    std::string rest(text);
    std::erase_if(rest, [](char ch) { return ch == ' ' || ch == '\t'; });
    return rest;
}

const char *SmallDifference(std::string_view one, std::string_view other)
{
    if (one == other)
        return nullptr;
    if (Lower(one) == Lower(other))
        return "the letter case";
    if (WithoutBlanks(one) == WithoutBlanks(other))
        return "a blank";
    return Distance(one, other) == 1 ? "one letter" : nullptr;
}

std::string Nearest(std::string_view name, const std::vector<std::string> &candidates)
{
    static const size_t kFarthest = 2;
    size_t nearest = std::min(kFarthest + 1, Characters(name).size());
    std::string found;
    for (const std::string &candidate : candidates) {
        const size_t distance = Distance(Lower(name), Lower(candidate));
        if (distance < nearest) {
            nearest = distance;
            found = candidate;
        }
    }
    return found;
}

}  // namespace observe
