// DecodeLabel takes udev's escapes off a link's name, within the name and within the label's
// buffer.
//
// Assumes: a terminated name in a block that ends with it, and a buffer of labelSize bytes.
// Shows:   it ends, and nothing outside of the two is read or written; a refused name leaves an
//          empty label, a good one a label that is no longer than the name, of plain characters,
//          escaped ones and UTF-8.
//
// takes: platform/linux/Encodings.cpp kUtf8Max kTwoBytes kThreeBytes kFourBytes
// takes: platform/linux/Encodings.cpp kEnd kSurrogatesBegin kSurrogatesEnd LengthByFirstByte Utf8Character
// takes: platform/linux/Labels.cpp kEscape kHexDigits HexValue IsPlain ReadEscape Decode DecodeLabel
// with: --unwindset strchr.0:18
// proves: AnyName LENGTH=3 LENGTH=6: every name of up to LENGTH bytes, every size of the buffer up to that
#include "arena.h"
#include "libc.h"
#include <string.h>
#include "product.h"

void AnyName(void)
{
    char name[LENGTH + 1], label[LENGTH + 2], before[LENGTH + 2];
    const size_t start = nondet_size(), size = nondet_size();
    ASSUME(start <= LENGTH && size <= LENGTH + 1);
    name[LENGTH] = '\0';
    for (size_t i = 0; i < LENGTH; i++)
        ASSUME(i < start || name[i] != '\0');
    for (size_t i = 0; i < LENGTH + 2; i++)
        before[i] = label[i];
    char *const place = label + (LENGTH + 2 - size);  // so that the buffer's end is the block's
    const bool isGood = DecodeLabel(name + start, place, size);

    for (size_t i = 0; i < LENGTH + 2; i++)
        SHOW(label[i] == before[i] || i >= LENGTH + 2 - size,
             "nothing before the buffer is written");
    if (size == 0) {
        SHOW(!isGood, "there is no label without a buffer");
        return;
    }
    const size_t length = strnlen(place, size);
    SHOW(length < size && length <= LENGTH - start,
         "the label is terminated and no longer than the name");
    SHOW(isGood == (length > 0), "a label that is refused is empty, and no other");
    SHOW(!(length == 1 && place[0] == '.') && !(length == 2 && place[0] == '.' && place[1] == '.'),
         "the label is a folder's name");
}
