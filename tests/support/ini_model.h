// ini_model.h - a second reader of the INI format, for the tests and the fuzzers to compare the
// first one with.
#ifndef TESTS_SUPPORT_INI_MODEL_H
#define TESTS_SUPPORT_INI_MODEL_H

#include "Common/INI.h"

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

// A naive second reading of the format: the file is taken apart as a whole.
struct IniModel {
    struct Record {
        std::string text;
        long end;
    };
    std::vector<Record> records;
    size_t next = 0;
    long size;
    // What the module's state must be.
    std::string line = g_linetext;
    int current = g_current_line_offset;
    int last = g_last_line_offset;
    std::vector<std::string> log;  // the records that the lookups so far have written

    explicit IniModel(const std::string &content) : size(static_cast<long>(content.size()))
    {
        size_t from = 0;
        for (bool more = true; more;) {
            size_t end = content.find('\n', from);
            more = end != std::string::npos;
            std::string text = content.substr(from, more ? end - from : std::string::npos);
            text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
            if (!more)
                text += '\xFF';
            from = more ? end + 1 : content.size();
            if (!text.empty())
                records.push_back({text.substr(0, 1023), static_cast<long>(from)});
        }
    }

    // The text up to its first zero byte; false at the end.
    bool Read(std::string &text)
    {
        const Record record = next < records.size() ? records[next++] : Record{"", size};
        line = record.text;
        last = current;
        current = static_cast<int>(record.end);
        text = line.c_str();
        return !text.empty();
    }

    bool Section(const std::string &section)
    {
        const std::string header = ("[" + section + "]").substr(0, 127);
        for (std::string text; Read(text);) {
            if (text.find(header) != std::string::npos)
                return true;
        }
        log.push_back("INI:SectionExists --- not found the section");
        return false;
    }

    bool Key(const std::string &key)
    {
        for (std::string text; Read(text);) {
            std::string trimmed = text.substr(std::min(text.find_first_not_of(' '), text.size()));
            while (!trimmed.empty() && trimmed.back() == ' ') {
                trimmed.pop_back();
                text.pop_back();
            }
            std::fill(line.begin() + static_cast<long>(text.size()),
                      line.begin() + static_cast<long>(strlen(line.c_str())), '\0');
            if (trimmed.find(key) != std::string::npos) {
                const std::string behind = trimmed.substr(key.size());
                const size_t at = behind.find_first_not_of(' ');
                if (at == std::string::npos || behind[at] == '=')
                    return true;
            }
            if (text.find('[') != std::string::npos && text.find(']') != std::string::npos)
                return false;
        }
        log.push_back("INI:KeyExists --- not found the key");
        return false;
    }

    std::string Value(bool trim)
    {
        const std::string text = line.c_str();
        const size_t equals = text.find('=');
        std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
        return trim ? value.substr(std::min(value.find_first_not_of(' '), value.size())) : value;
    }
};

#endif
