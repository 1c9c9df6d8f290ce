// Printing for people, and for scripts.
#pragma once

#include <fmt/format.h>
#include <json/value.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "simulator/base/JsonDocument.h"
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

// Prints to a stream, or to standard output, without blanks at the end of the line. Only `format` can hold what
// controls a terminal. A stream that cannot be written gets its error flag, and nothing is thrown: an exception would
// replace the message that is being printed.
template <typename... Values>
void print(std::FILE* stream, std::string_view format, const Values&... values) {
    std::string text = fmt::format(fmt::runtime(format), safe(values)...);
    if (const std::size_t end = text.find_last_not_of(" \n"); end != std::string::npos && text.back() == '\n') {
        text.erase(end + 1, text.size() - end - 2);
    }
    std::fwrite(text.data(), 1, text.size(), stream);
}
template <typename... Values>
void print(std::string_view format, const Values&... values) {
    print(stdout, format, values...);
}

// Prints lines of one kind, each after `prefix`: of many, the first ten and how many follow.
inline void printLines(std::FILE* stream, std::string_view prefix, const std::vector<std::string>& lines) {
    constexpr std::size_t MOST = 10;
    for (std::size_t i = 0; i < lines.size() && i < MOST; ++i) {
        print(stream, "{}{}\n", prefix, lines[i]);
    }
    if (lines.size() > MOST) {
        print(stream, "{}... and {} more like these\n", prefix, lines.size() - MOST);
    }
}

// Prints lines of which there are few of each kind.
inline void printLinesOfKinds(std::FILE* stream, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        print(stream, "{}\n", line);
    }
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
