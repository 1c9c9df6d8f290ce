// JSON texts.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>

namespace sim {

// More values in a text are refused: parsed, each takes some fifty bytes.
constexpr std::size_t JSON_VALUES = 100'000;

// Parses a whole JSON text. Returns false and sets a null value if it is not JSON, nested more than 1,000 deep, or
// holds more than `maxValues` values.
bool parseJson(const std::string& text, Json::Value& value, std::size_t maxValues = JSON_VALUES);

enum class JsonStyle { Compact, Indented };
std::string writeJson(const Json::Value& value, JsonStyle style = JsonStyle::Compact);

}  // namespace sim
