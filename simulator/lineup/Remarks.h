// Lines for people about parts of a long list.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Keeps the first ten lines of each kind and counts the others, so that any number of lines takes little memory.
class Remarks {
public:
    // `reason` is the part of the line that says what kind it is of: texts in quotes and numbers in it do not count.
    void add(const std::string& line, std::string_view reason);

    std::size_t count() const { return m_count; }

    // The lines in their order, then a line for each kind that has more.
    std::vector<std::string> lines() const;

private:
    std::size_t m_count = 0;
    std::vector<std::string> m_lines;
    struct Kind {
        std::size_t count = 0;
        std::string example;
    };
    std::map<std::string, Kind> m_kinds;
};

}  // namespace sim
