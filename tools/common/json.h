// json.h - writes JSON text, member by member, in the order in which it is told.
//
//     JsonWriter json;
//     json.BeginObject().Member("name", "Orvanta").Member("lines", 3).End();
//     fputs(json.Text().c_str(), stdout);
//
// Bytes that are no UTF-8 come out as U+FFFD. Every Begin needs its End, which the caller sees to.
#ifndef TOOLS_COMMON_JSON_H
#define TOOLS_COMMON_JSON_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools
{

class JsonWriter
{
  public:
    enum class Form { Set, OneLine };

    // `OneLine` puts all on one line, for programs that write a line for each thing that happens.
    explicit JsonWriter(Form form = Form::Set) : form_(form)
    {
    }

    JsonWriter &BeginObject();
    JsonWriter &BeginArray();
    JsonWriter &End();  // of the object or array that was begun last

    JsonWriter &Key(std::string_view key);  // of the value, object or array that follows
    JsonWriter &Value(std::string_view text);
    JsonWriter &Value(const char *text);
    JsonWriter &Value(int64_t number);
    JsonWriter &Value(bool truth);
    JsonWriter &Null();

    template <class T>
    JsonWriter &Member(std::string_view key, T value)
    {
        Key(key);
        return Put(value);
    }

    // The text so far, with a line feed at its end.
    std::string Text() const;

  private:
    template <class T>
    JsonWriter &Put(const std::optional<T> &value)
    {
        return value ? Put(*value) : Null();
    }
    JsonWriter &Put(const std::string &text)
    {
        return Value(std::string_view(text));
    }
    JsonWriter &Put(std::string_view text)
    {
        return Value(text);
    }
    JsonWriter &Put(const char *text)
    {
        return Value(text);
    }
    JsonWriter &Put(bool truth)
    {
        return Value(truth);
    }
    JsonWriter &Put(int number)
    {
        return Value(static_cast<int64_t>(number));
    }
    JsonWriter &Put(long number)
    {
        return Value(static_cast<int64_t>(number));
    }
    JsonWriter &Put(long long number)
    {
        return Value(static_cast<int64_t>(number));
    }
    JsonWriter &Put(unsigned long number)
    {
        return Value(static_cast<int64_t>(number));
    }
    void Separate();  // what stands between the value before and the next one
    void NewLine();   // between two values: a new line, or a blank where all stands on one

    struct Level {
        char closing;
        bool empty;
    };
    Form form_;
    std::string text_;
    std::vector<Level> levels_;
    bool afterKey_ = false;
};

}  // namespace tools

#endif
