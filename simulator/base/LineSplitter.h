// Lines of a text that comes in pieces.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

class LineSplitter {
public:
    using Take = std::function<void(std::string_view line)>;

    // Passes each line to `take`, without its line break. `name` is for the error.
    LineSplitter(std::string name, std::size_t maxBytes, Take take)
        : m_name(std::move(name)), m_maxBytes(maxBytes), m_take(std::move(take)) {}

    // Throws Error (Damaged) if a line is longer than the maximum.
    void add(std::string_view piece);

    // Passes on the last line if no line break ends it.
    void finish();

    void setMaxBytes(std::size_t maxBytes) { m_maxBytes = maxBytes; }

private:
    std::string m_name;
    std::size_t m_maxBytes;
    Take m_take;
    std::string m_begun;
};

}  // namespace sim
