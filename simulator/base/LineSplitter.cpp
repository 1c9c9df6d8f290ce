#include "simulator/base/LineSplitter.h"

#include "simulator/base/Limits.h"

namespace sim {

void LineSplitter::add(std::string_view piece) {
    while (!piece.empty()) {
        const std::size_t end = piece.find('\n');
        const std::string_view part = piece.substr(0, end);
        // Compared here, so that the text for require() is not made for each line.
        if (m_begun.size() + part.size() > m_maxBytes) {
            limits::require(m_name + ": bytes of a line", m_begun.size() + part.size(), m_maxBytes);
        }
        if (end == std::string_view::npos) {
            m_begun += part;
            return;
        }
        // Most lines lie within one piece, and need no copy.
        m_take(m_begun.empty() ? part : m_begun += part);
        m_begun.clear();
        piece.remove_prefix(end + 1);
    }
}

void LineSplitter::finish() {
    if (!m_begun.empty()) {
        m_take(m_begun);
        m_begun.clear();
    }
}

}  // namespace sim
