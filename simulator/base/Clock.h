// Wall-clock times as the simulator writes them.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace sim {

// A time in UTC, ISO 8601 to the second: 2026-01-31T18:00:00Z.
std::string toUtc(std::time_t time);

// Returns nothing if the text is not of that form.
std::optional<std::time_t> fromUtc(const std::string& text);

}  // namespace sim
