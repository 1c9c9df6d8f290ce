// Printing for people.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string_view>
#include <type_traits>

#include "simulator/base/Text.h"

namespace cli {

// A value to be printed; a text may come from anywhere, and is made safe to show.
template <typename Value>
decltype(auto) safe(const Value& value) {
    if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
        return sim::shown(value);
    } else {
        return (value);
    }
}

// Prints to a stream or to standard output. What controls a terminal comes from `format` alone.
template <typename... Values>
void print(std::FILE* stream, std::string_view format, const Values&... values) {
    fmt::print(stream, fmt::runtime(format), safe(values)...);
}
template <typename... Values>
void print(std::string_view format, const Values&... values) {
    print(stdout, format, values...);
}

}  // namespace cli
