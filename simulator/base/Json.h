// JSON texts.
#pragma once

#include <json/value.h>

#include <string>

namespace sim {

// Parses a whole JSON text. Returns false and sets a null value if it is not JSON, or nested too deep.
bool parseJson(const std::string& text, Json::Value& value);

enum class JsonStyle { Compact, Indented };
std::string writeJson(const Json::Value& value, JsonStyle style = JsonStyle::Compact);

}  // namespace sim
