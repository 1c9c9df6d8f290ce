// Texts and numbers.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace sim {

// The parts between the separators; at least one.
std::vector<std::string> split(std::string_view text, char separator);

// "1 service", "2 services".
std::string plural(std::uint64_t count, std::string_view one, std::string_view many = {});

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

// The text itself where it is UTF-8; otherwise each of its bytes taken for a character of ISO 8859-1.
std::string toUtf8(std::string_view text);

// A text from anywhere as a person's terminal may show it: what would control the terminal, reorder the line or is no
// UTF-8 stands there visibly instead, as \n, \x1b, \u{202e}.
std::string shown(std::string_view text);

// The same in quotes and of a bearable length, for messages.
std::string inQuotes(std::string_view text);

// " (did you mean 'x'?)" if one of the candidates is close to the word; else the empty string.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

// Throws Error unless a text can name an account or a snapshot (`what`): up to 64 letters, digits, '.', '_' and '-', no
// '.' first.
void requireName(std::string_view what, std::string_view text);

// How many columns of a terminal a shown text takes.
std::size_t columnsOf(std::string_view text);

// A shown text with blanks at its end up to a number of columns; a longer one is cut, and says so with "…".
std::string inColumns(std::string_view text, std::size_t columns);

}  // namespace sim
