#include "simulator/lineup/Remarks.h"

#include <fmt/format.h>

#include <cctype>

namespace sim {

namespace {

constexpr std::size_t SHOWN = 10;

std::string kindOf(std::string_view reason) {
    std::string kind;
    bool isQuoted = false;
    for (const char c : reason) {
        isQuoted = isQuoted != (c == '\'');
        if (!isQuoted && std::isdigit(static_cast<unsigned char>(c)) == 0) {
            kind += c;
        }
    }
    return kind;
}

}  // namespace

void Remarks::add(const std::string& line, std::string_view reason) {
    constexpr std::size_t KINDS = 50;
    ++m_count;
    std::string name = kindOf(reason);
    // A list can make its reasons up.
    if (m_kinds.size() >= KINDS && m_kinds.count(name) == 0) {
        name.clear();
    }
    Kind& kind = m_kinds[name];
    if (++kind.count <= SHOWN) {
        m_lines.push_back(line);
        kind.example = name.empty() ? "others" : fmt::format("like: {}", reason);
    }
}

std::vector<std::string> Remarks::lines() const {
    std::vector<std::string> lines = m_lines;
    for (const auto& [name, kind] : m_kinds) {
        if (kind.count > SHOWN) {
            lines.push_back(fmt::format("... and {} more {}", kind.count - SHOWN, kind.example));
        }
    }
    return lines;
}

}  // namespace sim
