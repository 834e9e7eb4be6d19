// names.h - bytes that a device, a user or another program chose, put so that people can read them
// and files and tables can hold them.
#ifndef OBSERVE_NAMES_H
#define OBSERVE_NAMES_H

#include <string>
#include <string_view>
#include <vector>

namespace observe
{

// How many bytes at the start of `bytes` make one character of UTF-8; 0 when they make none.
size_t Utf8Length(std::string_view bytes);

// `bytes` as a person can read them on one line: line feeds as \n; other bytes that are no
// character, or one without a picture (it steers a terminal, or reorders the line), as \xNN. Other
// UTF-8 stays.
std::string Printable(std::string_view bytes);

// The same in double quotes.
std::string Quoted(std::string_view bytes);

// udev's way of writing a label as a file name: all but 0-9A-Za-z#+-.:=@_ and valid UTF-8 is \xnn.
std::string EscapeLabel(std::string_view label);

// The label that such a file name stands for.
std::string UnescapeLabel(std::string_view name);

// The kernel and libmount write blank, tab, line feed and backslash in the fields of their tables
// as three octal digits: the field without them.
std::string UnescapeField(std::string_view field);

// `text` up to its first line feed, which is left out.
std::string FirstLine(std::string_view text);

// What stands between the separators; nothing for an empty text.
std::vector<std::string> Split(const std::string &text, char separator);

// Whether `option` is one of `options`, which commas separate.
bool HasOption(const std::string &options, const std::string &option);

}  // namespace observe

#endif
