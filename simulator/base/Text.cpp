#include "simulator/base/Text.h"

#include <algorithm>

namespace sim {

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

std::string inQuotes(std::string_view text) {
    constexpr std::size_t MOST = 40;
    std::string shown(text.substr(0, MOST));
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return "'" + shown + (text.size() > MOST ? "...'" : "'");
}

}  // namespace sim
