// Wall-clock times and durations as people and records write them.
#pragma once

#include <chrono>
#include <ctime>
#include <optional>
#include <string>

namespace sim {

// A time in UTC, ISO 8601 to the second: 2026-01-31T18:00:00Z.
std::string toUtc(std::time_t time);
std::string toUtc(std::chrono::milliseconds sinceEpoch);

// Of a time of that form, of a date alone, which means its first second in UTC, or of a duration from `now` on with its
// sign: +1d, -90s. Returns nothing if the text is none of these.
std::optional<std::chrono::milliseconds> fromUtc(const std::string& text, std::chrono::milliseconds now);

// Of a number with its unit: ms, s, min, h, d or w. Returns nothing if the text is not of that form, or stands for more
// than a thousand years.
std::optional<std::chrono::milliseconds> toDuration(const std::string& text);

// This machine's time, since 1970.
std::chrono::milliseconds machineTime();

}  // namespace sim
