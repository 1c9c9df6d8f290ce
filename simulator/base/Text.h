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

// The parts between the separators. An empty text has one part.
std::vector<std::string> split(std::string_view text, char separator);

// A text with another character in the place of some.
std::string without(std::string_view characters, std::string text, char instead);

// A text that must not end its line.
std::string inALine(std::string text);

// The text from the first character that is no blank or tab to the last.
std::string_view trimmed(std::string_view text);

// "1 service", "2 services".
std::string plural(std::uint64_t count, std::string_view one, std::string_view many = {});

// Parses the whole text as a number. Returns nothing if it is not one, or does not fit.
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

// Returns the text if it is UTF-8; otherwise converts it from ISO 8859-1.
std::string toUtf8(std::string_view text);

// A text from outside, safe for a terminal: characters that would control the terminal or reorder the line, and bytes
// that are not UTF-8, become visible, as \n, \x1b, \u{202e}.
std::string shown(std::string_view text);

// The first bytes of a text, at most `maxBytes` of them, without a part of a character at the end.
std::string_view startOf(std::string_view text, std::size_t maxBytes);

// A text as shown(), in quotes and cut after 40 bytes, for messages.
std::string inQuotes(std::string_view text);

// " (did you mean 'x'?)" if one of the candidates is close to the word; else the empty string.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

// Throws Error if a text cannot name an account or a snapshot (`what`): up to 64 letters, digits, '.', '_' and '-', and
// no '.' first.
void requireName(std::string_view what, std::string_view text);

// How many columns a shown() text takes on a terminal.
std::size_t columnsOf(std::string_view text);

// A text as shown(), padded to a number of columns; a longer one is cut and ends with "…".
std::string inColumns(std::string_view text, std::size_t columns);

}  // namespace sim
