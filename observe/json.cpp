// json.cpp - see json.h.
#include "observe/json.h"

namespace observe
{

static std::string Dumped(const Json &json, int indent)
{
    return json.dump(indent, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string JsonText(const Json &json)
{
    return Dumped(json, 2);
}

std::string JsonLine(const Json &json)
{
    return Dumped(json, -1);
}

}  // namespace observe
