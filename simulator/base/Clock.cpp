#include "simulator/base/Clock.h"

#include <fmt/chrono.h>

#include <string_view>
#include <utility>

#include "simulator/base/Text.h"

namespace sim {

namespace {

using std::chrono::milliseconds;

std::optional<milliseconds> fromCalendar(const std::string& text, const char* form) {
    std::tm parts = {};
    const char* end = ::strptime(text.c_str(), form, &parts);
    if (end == nullptr || *end != '\0') {
        return std::nullopt;
    }
    const std::time_t time = ::timegm(&parts);
    // What no calendar has, such as February 30, turns into another day.
    return toUtc(time).compare(0, text.size(), text) == 0 ? std::optional(std::chrono::seconds(time)) : std::nullopt;
}

}  // namespace

std::string toUtc(std::time_t time) {
    std::tm parts = {};
    if (::gmtime_r(&time, &parts) == nullptr) {
        return fmt::format("{} seconds", time);  // a year beyond what a calendar counts
    }
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", parts);
}

std::string toUtc(milliseconds sinceEpoch) {
    return toUtc(static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(sinceEpoch).count()));
}

std::optional<milliseconds> fromUtc(const std::string& text, milliseconds now) {
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        const std::optional<milliseconds> duration = toDuration(text.substr(1));
        return duration ? std::optional(text.front() == '+' ? now + *duration : now - *duration) : std::nullopt;
    }
    const std::optional<milliseconds> date = fromCalendar(text, "%Y-%m-%d");
    return date ? date : fromCalendar(text, "%Y-%m-%dT%H:%M:%SZ");
}

std::optional<milliseconds> toDuration(const std::string& text) {
    constexpr std::pair<std::string_view, milliseconds> UNITS[] = {
        {"ms", milliseconds(1)},      {"s", std::chrono::seconds(1)}, {"min", std::chrono::minutes(1)},
        {"h", std::chrono::hours(1)}, {"d", std::chrono::hours(24)},  {"w", std::chrono::hours(24 * 7)},
    };
    // A thousand years: added to any time, it stays far within what a count of milliseconds holds.
    constexpr milliseconds LONGEST = std::chrono::hours(24 * 366 * 1000);
    const std::size_t unit = text.find_first_not_of("0123456789");
    const std::optional<std::int64_t> count = toNumber<std::int64_t>(text.substr(0, unit));
    for (const auto& [name, length] : UNITS) {
        if (count && unit != std::string::npos && text.substr(unit) == name && *count <= LONGEST / length) {
            return *count * length;
        }
    }
    return std::nullopt;
}

milliseconds machineTime() {
    return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
}

}  // namespace sim
