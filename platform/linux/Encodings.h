// Encodings.h - characters between UTF-8, Mac OS Roman and their code points.
#ifndef PLATFORM_LINUX_ENCODINGS_H
#define PLATFORM_LINUX_ENCODINGS_H

#include <stddef.h>
#include <stdint.h>

// The bytes of the longest character in UTF-8.
constexpr size_t kUtf8Max = 4;

// The number of bytes, 1 to kUtf8Max, of the character that begins at text, of which `size` bytes
// are there; 0 when no valid character does. A zero byte is a character of one byte. Overlong
// forms, surrogates and code points above 0x10FFFF are not valid. *codePoint is set if not null.
size_t Utf8Character(const char *text, size_t size, uint32_t *codePoint);

// True if all `size` bytes are valid UTF-8.
bool IsUtf8(const char *text, size_t size);

// Writes the character in UTF-8, 1 to kUtf8Max bytes, and returns their number. codePoint is a
// valid one.
size_t PutUtf8(uint32_t codePoint, char *out);

// The code point of a byte of Mac OS Roman; every byte has one.
uint32_t MacRomanCodePoint(unsigned char byte);

// The byte of a code point in Mac OS Roman, -1 if it has none.
int MacRomanByte(uint32_t codePoint);

#endif
