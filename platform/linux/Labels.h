// Labels.h - the names that udev gives its links, and the labels that they stand for.
#ifndef PLATFORM_LINUX_LABELS_H
#define PLATFORM_LINUX_LABELS_H

#include <stddef.h>

// The longest label in bytes: a file's name is no longer, and a label is not longer than its name.
constexpr size_t kLabelMax = 255;

// Writes the label that the link's name stands for, zero-terminated, to label of labelSize bytes.
// udev writes a byte that is neither one of 0-9A-Za-z#+-.:=@_ nor part of valid UTF-8 as \xNN, with
// two small hexadecimal digits. False, with an empty label (if labelSize is at least 1), for a name
// that udev would not have written, for a label that does not fit, and for one that is no name of a
// folder: nothing, ".", "..", and any with a zero byte.
bool DecodeLabel(const char *name, char *label, size_t labelSize);

// True for a name of the form under which udev makes a link before it renames it: ".#", a name, 16
// small hexadecimal digits. A label may look so too; its link stays, that of udev is gone at the
// next look.
bool IsTemporaryName(const char *name);

#endif
