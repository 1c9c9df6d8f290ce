// Texts and numbers.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace sim {

// The parts between the separators; at least one.
std::vector<std::string> split(std::string_view text, char separator);

// The number that the whole text is; nothing when it is none, or does not fit.
template <typename Number>
std::optional<Number> toNumber(std::string_view text, int base = 10) {
    Number number = 0;
    std::from_chars_result result{};
    if constexpr (std::is_floating_point_v<Number>) {
        result = std::from_chars(text.data(), text.data() + text.size(), number);
    } else {
        result = std::from_chars(text.data(), text.data() + text.size(), number, base);
    }
    const bool isWhole = !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
    return isWhole ? std::optional<Number>(number) : std::nullopt;
}

// A foreign text as a message may show it: in quotes, of a bearable length, with '?' for what would control a terminal.
std::string inQuotes(std::string_view text);

}  // namespace sim
