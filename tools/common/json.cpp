// json.cpp - see json.h.
#include "tools/common/json.h"

#include <cstdio>

#include "tools/common/program.h"

namespace tools
{

static void AppendQuoted(std::string &to, std::string_view text)
{
    to += '"';
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        const size_t length = Utf8Length(text);
        char escape[8];
        if (byte == '"' || byte == '\\') {
            to += '\\';
            to += text[0];
        } else if (byte == '\n') {
            to += "\\n";
        } else if (byte < ' ') {
            snprintf(escape, sizeof escape, "\\u%04x", byte);
            to += escape;
        } else if (length == 0) {
            to += "\xEF\xBF\xBD";
        } else {
            to.append(text.substr(0, length));
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    to += '"';
}

void JsonWriter::NewLine()
{
    if (form_ == Form::OneLine) {
        if (text_.back() == ',')
            text_ += ' ';
        return;
    }
    text_ += '\n';
    text_.append(2 * levels_.size(), ' ');
}

void JsonWriter::Separate()
{
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (levels_.empty())
        return;
    if (!levels_.back().empty)
        text_ += ',';
    levels_.back().empty = false;
    NewLine();
}

JsonWriter &JsonWriter::BeginObject()
{
    Separate();
    text_ += '{';
    levels_.push_back({'}', true});
    return *this;
}

JsonWriter &JsonWriter::BeginArray()
{
    Separate();
    text_ += '[';
    levels_.push_back({']', true});
    return *this;
}

JsonWriter &JsonWriter::End()
{
    const Level level = levels_.back();
    levels_.pop_back();
    if (!level.empty)
        NewLine();
    text_ += level.closing;
    return *this;
}

JsonWriter &JsonWriter::Key(std::string_view key)
{
    Separate();
    AppendQuoted(text_, key);
    text_ += ": ";
    afterKey_ = true;
    return *this;
}

JsonWriter &JsonWriter::Value(std::string_view text)
{
    Separate();
    AppendQuoted(text_, text);
    return *this;
}

JsonWriter &JsonWriter::Value(const char *text)
{
    return Value(std::string_view(text));
}

JsonWriter &JsonWriter::Value(int64_t number)
{
    Separate();
    text_ += std::to_string(number);
    return *this;
}

JsonWriter &JsonWriter::Value(bool truth)
{
    Separate();
    text_ += truth ? "true" : "false";
    return *this;
}

JsonWriter &JsonWriter::Null()
{
    Separate();
    text_ += "null";
    return *this;
}

std::string JsonWriter::Text() const
{
    return text_ + "\n";
}

}  // namespace tools
