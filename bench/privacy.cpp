// privacy.cpp - see privacy.h.
#include "bench/privacy.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <strings.h>

namespace bench
{
namespace
{

const char *const kNoPersons[] = {"root", "nobody", "Shared"};
const char *const kHomes[] = {"/Users/", "/home/"};
const char kModemPart[] = "QARVELMobile-Pcui";
const size_t kSerialLength = 6;
const long kSerialDigits = 4;

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

// The stand-in of one word: a user's, a serial number's or the word itself.
std::string MaskWord(Privacy *privacy, const std::string &word)
{
    for (const auto &[user, standIn] : privacy->users) {
        if (strcasecmp(user.c_str(), word.c_str()) == 0)
            return standIn;
    }
    return IsSerial(word) ? StandIn(&privacy->serials, "serial", word) : word;
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

// Names with other bytes than letters and digits are no words: they are replaced wherever they stand.
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
    for (size_t at = 0; at < plain.size();) {
        size_t end = at;
        while (end < plain.size() && IsWordByte(plain[end]))
            ++end;
        masked += end > at ? MaskWord(privacy, plain.substr(at, end - at)) : plain.substr(at, 1);
        at = std::max(end, at + 1);
    }
    return masked;
}

std::string MaskPort(Privacy *privacy, const std::string &name)
{
    const size_t interface = name.rfind("-if");
    const size_t serial = name.rfind('_', interface);
    if (name.compare(0, 4, "usb-") != 0 || interface == std::string::npos ||
        serial == std::string::npos || name.find(kModemPart, serial) != std::string::npos) {
        return MaskText(privacy, name);
    }
    const std::string number = name.substr(serial + 1, interface - serial - 1);
    return MaskText(privacy, name.substr(0, serial + 1)) +
           StandIn(&privacy->serials, "serial", number) + name.substr(interface);
}

}  // namespace bench
