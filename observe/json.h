// json.h - JSON as the programs write it: members in the order in which they are told, in ASCII
// alone, so that a terminal takes nothing in it for a command. Bytes that are no UTF-8 come out as
// U+FFFD.
#ifndef OBSERVE_JSON_H
#define OBSERVE_JSON_H

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace observe
{

using Json = nlohmann::ordered_json;

// Over several lines, for people too, and on one. Both with a line feed at the end.
std::string JsonText(const Json &json);
std::string JsonLine(const Json &json);

template <class T>
Json OrNull(const std::optional<T> &value)
{
    return value ? Json(*value) : Json();
}

}  // namespace observe

#endif
