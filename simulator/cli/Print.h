// Printing for people, and for scripts.
#pragma once

#include <fmt/format.h>
#include <json/value.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include "simulator/base/Json.h"
#include "simulator/base/Text.h"

namespace cli {

// A value to print; a text is made safe to show, as it may come from anywhere.
template <typename Value>
decltype(auto) safe(const Value& value) {
    if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
        return sim::shown(value);
    } else {
        return (value);
    }
}

// Prints to a stream, or to standard output. Only `format` can hold what controls a terminal. A stream that cannot be
// written gets its error flag, and nothing is thrown: an exception would replace the message that is being printed.
template <typename... Values>
void print(std::FILE* stream, std::string_view format, const Values&... values) {
    const std::string text = fmt::format(fmt::runtime(format), safe(values)...);
    std::fwrite(text.data(), 1, text.size(), stream);
}
template <typename... Values>
void print(std::string_view format, const Values&... values) {
    print(stdout, format, values...);
}

// Prints one JSON object.
inline void printJson(const Json::Value& value) {
    std::fputs(sim::writeJson(value, sim::JsonStyle::Indented).c_str(), stdout);
    std::fputs("\n", stdout);
}
inline void printJson(const sim::JsonDocument& document) {
    sim::writeJson(document, stdout);
    std::fputs("\n", stdout);
}

}  // namespace cli
