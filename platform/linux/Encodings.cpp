// Encodings.cpp - characters between UTF-8, Mac OS Roman and their code points.
//
// Strings are kept as UTF-8; a character of Mac OS Roman passes through its code point on its way
// in and out. The table is Apple's since Mac OS 8.5: 0xDB is the euro sign, 0xF0 the apple in the
// private use area.

#include "Encodings.h"

namespace
{

// The code points of the bytes 0x80 to 0xFF; below them Mac OS Roman is ASCII.
constexpr size_t kAsciiSize = 0x80;

// clang-format off
constexpr uint16_t kMacRoman[kAsciiSize] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1, 0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};
// clang-format on

// The first code point that needs more than one byte, two, three; and the end of all code points.
constexpr uint32_t kTwoBytes = 0x80;
constexpr uint32_t kThreeBytes = 0x800;
constexpr uint32_t kFourBytes = 0x10000;
constexpr uint32_t kEnd = 0x110000;

constexpr uint32_t kSurrogatesBegin = 0xD800;
constexpr uint32_t kSurrogatesEnd = 0xE000;

// The bytes that a character has by its first one; 0 for a byte that begins none.
size_t LengthByFirstByte(unsigned char first)
{
    if (first < 0x80)
        return 1;
    if (first < 0xC0)
        return 0;
    if (first < 0xE0)
        return 2;
    if (first < 0xF0)
        return 3;
    return first < 0xF8 ? 4 : 0;
}

}  // namespace

size_t Utf8Character(const char *text, size_t size, uint32_t *codePoint)
{
    static constexpr uint32_t kFirstBits[kUtf8Max + 1] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    static constexpr uint32_t kLeast[kUtf8Max + 1] = {0, 0, kTwoBytes, kThreeBytes, kFourBytes};

    if (size == 0)
        return 0;
    const unsigned char first = static_cast<unsigned char>(text[0]);
    const size_t length = LengthByFirstByte(first);
    if (length == 0 || length > size)
        return 0;
    uint32_t value = first & kFirstBits[length];
    for (size_t i = 1; i < length; i++) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80)
            return 0;
        value = value << 6 | (byte & 0x3F);
    }
    if (value < kLeast[length] || value >= kEnd)
        return 0;
    if (value >= kSurrogatesBegin && value < kSurrogatesEnd)
        return 0;
    if (codePoint != nullptr)
        *codePoint = value;
    return length;
}

bool IsUtf8(const char *text, size_t size)
{
    while (size > 0) {
        const size_t length = Utf8Character(text, size, nullptr);
        if (length == 0)
            return false;
        text += length;
        size -= length;
    }
    return true;
}

size_t PutUtf8(uint32_t codePoint, char *out)
{
    static constexpr uint32_t kFirstByte[kUtf8Max + 1] = {0, 0, 0xC0, 0xE0, 0xF0};

    if (codePoint < kTwoBytes) {
        out[0] = static_cast<char>(codePoint);
        return 1;
    }
    const size_t length = codePoint < kThreeBytes ? 2 : codePoint < kFourBytes ? 3 : 4;
    for (size_t i = length - 1; i > 0; i--) {
        out[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    out[0] = static_cast<char>(kFirstByte[length] | codePoint);
    return length;
}

uint32_t MacRomanCodePoint(unsigned char byte)
{
    return byte < kAsciiSize ? byte : kMacRoman[byte - kAsciiSize];
}

int MacRomanByte(uint32_t codePoint)
{
    if (codePoint < kAsciiSize)
        return static_cast<int>(codePoint);
    for (size_t i = 0; i < kAsciiSize; i++) {
        if (kMacRoman[i] == codePoint)
            return static_cast<int>(kAsciiSize + i);
    }
    return -1;
}
