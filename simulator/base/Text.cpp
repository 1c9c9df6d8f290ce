#include "simulator/base/Text.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "simulator/base/Error.h"

namespace sim {

namespace {

// The first character of a text. A byte that is not UTF-8 is a character with a negative code.
struct Character {
    utf8proc_int32_t code = -1;
    std::string_view bytes;
};

// Most are ASCII, which needs no table.
Character firstOf(std::string_view text) {
    if (static_cast<unsigned char>(text.front()) < 0x80) {
        return {text.front(), text.substr(0, 1)};
    }
    Character first;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &first.code);
    first.bytes = text.substr(0, length > 0 ? static_cast<std::size_t>(length) : 1);
    return first;
}

template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const Character character = firstOf(text);
        visit(character);
        text.remove_prefix(character.bytes.size());
    }
}

// False for control and format characters, line separators, and unassigned or private code points.
bool isSafe(utf8proc_int32_t code) {
    if (code >= ' ' && code <= '~') {
        return true;
    }
    switch (utf8proc_category(code)) {
        case UTF8PROC_CATEGORY_CC:
        case UTF8PROC_CATEGORY_CF:
        case UTF8PROC_CATEGORY_CN:
        case UTF8PROC_CATEGORY_CO:
        case UTF8PROC_CATEGORY_CS:
        case UTF8PROC_CATEGORY_ZL:
        case UTF8PROC_CATEGORY_ZP:
            return false;
        default:
            return true;
    }
}

void append(std::string& text, const Character& character) {
    if (character.code == '\n' || character.code == '\t') {
        text += character.code == '\n' ? "\\n" : "\\t";
    } else if (character.code < 0 || (character.code < 0x100 && !isSafe(character.code))) {
        for (const char byte : character.bytes) {
            fmt::format_to(std::back_inserter(text), "\\x{:02x}", static_cast<unsigned char>(byte));
        }
    } else if (!isSafe(character.code)) {
        fmt::format_to(std::back_inserter(text), "\\u{{{:x}}}", character.code);
    } else {
        text += character.bytes;
    }
}

std::size_t columnsOf(const Character& character) {
    return character.code < 0 ? 1 : static_cast<std::size_t>(std::max(utf8proc_charwidth(character.code), 0));
}

// How many characters must be added, removed, replaced or swapped with a neighbour to turn one text into the other.
std::size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::vector<std::size_t>> distance(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                distance[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = distance[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            distance[i][j] = std::min({distance[i - 1][j] + 1, distance[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                distance[i][j] = std::min(distance[i][j], distance[i - 2][j - 2] + 1);
            }
        }
    }
    return distance[left.size()][right.size()];
}

}  // namespace

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::string without(std::string_view characters, std::string text, char instead) {
    std::replace_if(
        text.begin(), text.end(), [&](char c) { return characters.find(c) != std::string_view::npos; }, instead);
    return text;
}

std::string inALine(std::string text) {
    return without("\n\r", std::move(text), ' ');
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

std::string plural(std::uint64_t count, std::string_view one, std::string_view many) {
    if (count == 1) {
        return fmt::format("1 {}", one);
    }
    return many.empty() ? fmt::format("{} {}s", count, one) : fmt::format("{} {}", count, many);
}

std::string toUtf8(std::string_view text) {
    bool isUtf8 = true;
    forEachCharacter(text, [&](const Character& character) { isUtf8 = isUtf8 && character.code >= 0; });
    if (isUtf8) {
        return std::string(text);
    }
    // The bytes of ISO 8859-1 are the first 256 code points.
    std::string converted;
    for (const char byte : text) {
        utf8proc_uint8_t encoded[4];
        const auto length = utf8proc_encode_char(static_cast<unsigned char>(byte), encoded);
        converted.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(length));
    }
    return converted;
}

std::string shown(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    forEachCharacter(text, [&](const Character& character) { append(result, character); });
    return result;
}

std::string_view startOf(std::string_view text, std::size_t maxBytes) {
    std::size_t size = 0;
    while (size < text.size()) {
        const std::size_t next = size + firstOf(text.substr(size)).bytes.size();
        if (next > maxBytes) {
            break;
        }
        size = next;
    }
    return text.substr(0, size);
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t MAX_BYTES = 40;
    return fmt::format("'{}{}'", shown(startOf(text, MAX_BYTES)), text.size() > MAX_BYTES ? "..." : "");
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates) {
    std::size_t nearest = word.size() / 3 + 2;  // a more distant word is a different one
    std::string best;
    for (const std::string& candidate : candidates) {
        if (const std::size_t distance = editDistance(word, candidate); distance < nearest) {
            nearest = distance;
            best = candidate;
        }
    }
    return best.empty() ? "" : fmt::format(" (did you mean {}?)", inQuotes(best));
}

void requireName(std::string_view what, std::string_view text) {
    constexpr std::size_t MAX_BYTES = 64;
    constexpr char ALLOWED[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    if (text.empty() || text.size() > MAX_BYTES || text.front() == '.' ||
        text.find_first_not_of(ALLOWED) != std::string_view::npos) {
        throw Error(
            fmt::format("{} is not a valid {}: use up to {} letters, digits, '.', '_' and '-', and no '.' first",
                        inQuotes(text), what, MAX_BYTES));
    }
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    forEachCharacter(text, [&](const Character& character) { columns += columnsOf(character); });
    return columns;
}

std::string inColumns(std::string_view text, std::size_t columns) {
    std::string safe = shown(text);
    const std::size_t width = columnsOf(safe);
    if (width <= columns) {
        return safe.append(columns - width, ' ');
    }
    std::string cut;
    std::size_t taken = 0;
    forEachCharacter(safe, [&](const Character& character) {
        taken += columnsOf(character);
        // The last column is for the "…".
        if (taken < columns) {
            cut += character.bytes;
        }
    });
    // Padded again: if a character of two columns did not fit, one column is left.
    return inColumns(cut + "…", columns);
}

}  // namespace sim
