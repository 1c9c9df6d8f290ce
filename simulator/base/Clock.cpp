#include "simulator/base/Clock.h"

#include <fmt/chrono.h>

namespace sim {

std::string toUtc(std::time_t time) {
    std::tm parts = {};
    if (::gmtime_r(&time, &parts) == nullptr) {
        return fmt::format("{} seconds", time);  // a year beyond what a calendar counts
    }
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", parts);
}

std::optional<std::time_t> fromUtc(const std::string& text) {
    std::tm parts = {};
    const char* end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    const bool isWhole = end != nullptr && *end == '\0';
    const std::time_t time = ::timegm(&parts);
    return isWhole && toUtc(time) == text ? std::optional(time) : std::nullopt;
}

}  // namespace sim
