// JSON text helpers. They never throw.
#pragma once

#include <json/value.h>

#include <istream>
#include <string>

namespace JsonUtil {

// Parses one whole JSON text. False: `text` is anything else (empty, followed by more, nested too
// deep); `value` is null then.
bool StringToJson(const std::string& text, Json::Value& value);

// The same for the rest of a stream.
bool StreamToJson(std::istream& stream, Json::Value& value);

// The JSON text of `value`. Its layout is not fixed.
std::string JsonToString(const Json::Value& value);

}  // namespace JsonUtil
