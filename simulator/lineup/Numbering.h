// Which numbers the services of a list have.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace sim {

class Numbering {
public:
    static constexpr int MAX_NUMBER = 999'999;

    // Numbers that a list sets, and those that follow: a list may be longer.
    bool isFree(int number) const {
        const auto place = static_cast<std::size_t>(number);
        return number > 0 && place <= m_count + MAX_NUMBER && (place >= m_isTaken.size() || !m_isTaken[place]);
    }
    int behindAll() const { return m_highest + 1; }

    void take(int number) {
        const auto place = static_cast<std::size_t>(number);
        m_isTaken.resize(std::max(m_isTaken.size(), place + 1));
        m_isTaken[place] = true;
        m_highest = std::max(m_highest, number);
        ++m_count;
    }

private:
    std::vector<bool> m_isTaken;
    int m_highest = 0;
    std::size_t m_count = 0;
};

}  // namespace sim
