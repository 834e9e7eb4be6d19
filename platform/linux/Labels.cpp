// Labels.cpp - the names that udev gives its links, and the labels that they stand for.

#include "Labels.h"

#include "Encodings.h"

#include <string.h>

static constexpr char kTemporaryPrefix[] = ".#";
static constexpr size_t kTemporaryDigits = 16;
static constexpr char kEscape[] = "\\x";
static constexpr char kHexDigits[] = "0123456789abcdef";

// The value of a small hexadecimal digit, -1 for any other character.
static int HexValue(char c)
{
    const char *found = c == '\0' ? nullptr : strchr(kHexDigits, c);
    return found == nullptr ? -1 : static_cast<int>(found - kHexDigits);
}

// True for the characters of ASCII that udev leaves as they are.
static bool IsPlain(char c)
{
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))
        return true;
    return c != '\0' && strchr("#+-.:=@_", c) != nullptr;
}

// Reads one \xNN at text into *byte. False if there is none, or if udev would not have escaped the
// byte.
static bool ReadEscape(const char *text, char *byte)
{
    const size_t prefix = sizeof kEscape - 1;
    if (strncmp(text, kEscape, prefix) != 0)
        return false;
    const int high = HexValue(text[prefix]);
    const int low = high < 0 ? -1 : HexValue(text[prefix + 1]);
    if (low < 0)
        return false;
    *byte = static_cast<char>(high * 16 + low);
    return *byte != '\0' && !IsPlain(*byte);
}

static bool Decode(const char *name, char *label, size_t labelSize)
{
    constexpr size_t kEscapeLength = sizeof kEscape - 1 + 2;
    size_t left = strlen(name);
    size_t length = 0;
    while (left > 0) {
        size_t used = 1;
        size_t made = 1;
        char bytes[kUtf8Max] = {*name};
        if (!IsPlain(*name)) {
            used = Utf8Character(name, left, nullptr);
            made = used;
            if (used > 1) {
                memcpy(bytes, name, used);
            } else {
                if (!ReadEscape(name, bytes))
                    return false;
                used = kEscapeLength;
                made = 1;
            }
        }
        if (length + made >= labelSize)
            return false;
        memcpy(label + length, bytes, made);
        length += made;
        name += used;
        left -= used;
    }
    label[length] = '\0';
    return length > 0 && strcmp(label, ".") != 0 && strcmp(label, "..") != 0;
}

bool DecodeLabel(const char *name, char *label, size_t labelSize)
{
    if (labelSize == 0)
        return false;
    if (Decode(name, label, labelSize))
        return true;
    label[0] = '\0';
    return false;
}

bool IsTemporaryName(const char *name)
{
    const size_t prefix = sizeof kTemporaryPrefix - 1;
    const size_t length = strlen(name);
    if (length <= prefix + kTemporaryDigits || strncmp(name, kTemporaryPrefix, prefix) != 0)
        return false;
    return strspn(name + length - kTemporaryDigits, kHexDigits) == kTemporaryDigits;
}
