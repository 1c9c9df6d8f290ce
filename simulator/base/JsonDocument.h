// JSON texts that are too long for memory.
#pragma once

#include <json/value.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "simulator/base/Json.h"

namespace sim {

// Hands out the elements of a list, one after the other.
using JsonList = std::function<void(const std::function<void(const Json::Value& element)>& take)>;

// An object whose long lists are not in memory.
struct JsonDocument {
    Json::Value object;                     // has an empty array in place of each list
    std::map<std::string, JsonList> lists;  // of objects; by their place in the object, such as "services.added"
};

// Writes what writeJson() makes of the object with its lists, indented. As with std::fwrite, the file keeps its errors.
void writeJson(const JsonDocument& document, std::FILE* file);

}  // namespace sim
