// JSON texts.
#pragma once

#include <json/value.h>

#include <string>

namespace sim {

// Parses one whole JSON text. False, and a null value: the text is anything else, or nested too deep.
bool parseJson(const std::string& text, Json::Value& value);

enum class JsonStyle { Compact, Indented };
std::string writeJson(const Json::Value& value, JsonStyle style = JsonStyle::Compact);

}  // namespace sim
