// privacy.cpp - see privacy.h.
#include "modem/privacy.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>
#include <utility>
#include <vector>

#include <strings.h>

#include "observe/daemon.h"

namespace modem
{
namespace
{

const char *const kNoPersons[] = {"root", "nobody", "Shared"};
const char *const kHomes[] = {"/Users/", "/home/"};
const size_t kSerialLength = 6;
const long kSerialDigits = 4;
const char kNameKey[] = "name";
const size_t kNameLength = 63;  // bytes of a volume's name that the daemon takes

bool IsWordByte(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0;
}

bool IsDigit(char c)
{
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

// "user12" for the word "user".
bool IsStandIn(const std::string &text, const char *word)
{
    const size_t length = strlen(word);
    return text.size() > length && text.compare(0, length, word) == 0 &&
           std::all_of(text.begin() + static_cast<long>(length), text.end(), IsDigit);
}

std::string StandIn(std::map<std::string, std::string> *known, const char *word,
                    const std::string &text)
{
    if (IsStandIn(text, word))
        return text;
    const auto found = known->find(text);
    if (found != known->end())
        return found->second;
    return (*known)[text] = word + std::to_string(known->size() + 1);
}

bool IsSerial(const std::string &word)
{
    return word.size() >= kSerialLength &&
           std::count_if(word.begin(), word.end(), IsDigit) >= kSerialDigits &&
           !IsStandIn(word, "serial") && !IsStandIn(word, "user");
}

// The words of a text: each begins at a first index and ends before the second.
std::vector<std::pair<size_t, size_t>> WordsOf(const std::string &text)
{
    std::vector<std::pair<size_t, size_t>> words;
    for (size_t at = 0; at < text.size(); ++at) {
        size_t end = at;
        while (end < text.size() && IsWordByte(text[end]))
            ++end;
        if (end > at)
            words.emplace_back(at, end);
        at = end;
    }
    return words;
}

void KeepWords(Privacy *privacy, const std::string &text)
{
    for (const auto &[start, end] : WordsOf(text))
        privacy->kept.insert(text.substr(start, end - start));
}

// The stand-in of one word: a user's, a serial number's or the word itself.
std::string MaskWord(Privacy *privacy, const std::string &word)
{
    for (const auto &[user, standIn] : privacy->users) {
        if (strcasecmp(user.c_str(), word.c_str()) == 0)
            return standIn;
    }
    return IsSerial(word) && !privacy->kept.contains(word)
               ? StandIn(&privacy->serials, "serial", word)
               : word;
}

// A user's name may hold more than letters and digits: what stands behind /Users/ up to the next
// slash or quote becomes known as one.
void LearnHomes(Privacy *privacy, const std::string &text)
{
    for (const char *home : kHomes) {
        for (size_t at = text.find(home); at != std::string::npos; at = text.find(home, at + 1)) {
            const size_t start = at + strlen(home);
            const std::string name =
                text.substr(start, text.find_first_of("/\"'\n\r)", start) - start);
            if (!name.empty())
                (void)MaskUser(privacy, name);
        }
    }
}

// Names with other bytes than letters and digits are no words: they are replaced wherever they
// stand.
std::string MaskOddNames(const Privacy &privacy, std::string text)
{
    for (const auto &[user, standIn] : privacy.users) {
        if (std::all_of(user.begin(), user.end(), IsWordByte))
            continue;
        for (size_t at = text.find(user); at != std::string::npos;
             at = text.find(user, at + standIn.size())) {
            text.replace(at, user.size(), standIn);
        }
    }
    return text;
}

}  // namespace

void KeepVolumeName(Privacy *privacy, const std::string &config)
{
    std::istringstream lines(config);
    for (std::string line; std::getline(lines, line);) {
        const size_t key = line.find_first_not_of(' ');
        const size_t value = line.find('=');
        if (key == std::string::npos || value == std::string::npos ||
            line.compare(key, strlen(kNameKey), kNameKey) != 0)
            continue;
        const size_t start = line.find_first_not_of(' ', value + 1);
        const std::string name = start == std::string::npos ? "" : line.substr(start);
        KeepWords(privacy, name);
        KeepWords(privacy, name.substr(0, kNameLength));
    }
}

std::string MaskUser(Privacy *privacy, const std::string &user)
{
    const bool person = std::none_of(std::begin(kNoPersons), std::end(kNoPersons),
                                     [&](const char *name) { return user == name; });
    return person && !user.empty() ? StandIn(&privacy->users, "user", user) : user;
}

std::string MaskText(Privacy *privacy, const std::string &text)
{
    LearnHomes(privacy, text);
    const std::string plain = MaskOddNames(*privacy, text);
    std::string masked;
    size_t at = 0;
    for (const auto &[start, end] : WordsOf(plain)) {
        masked +=
            plain.substr(at, start - at) + MaskWord(privacy, plain.substr(start, end - start));
        at = end;
    }
    return masked + plain.substr(at);
}

std::string MaskPort(Privacy *privacy, const std::string &name)
{
    const size_t interface = name.rfind("-if");
    const size_t serial = name.rfind('_', interface);
    if (name.compare(0, 4, "usb-") != 0 || interface == std::string::npos ||
        serial == std::string::npos || name.find(observe::kPortName, serial) != std::string::npos) {
        return MaskText(privacy, name);
    }
    const std::string number = name.substr(serial + 1, interface - serial - 1);
    return MaskText(privacy, name.substr(0, serial + 1)) +
           StandIn(&privacy->serials, "serial", number) + name.substr(interface);
}

}  // namespace modem
