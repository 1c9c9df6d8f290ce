#include "simulator/lineup/Service.h"

#include <fmt/format.h>

#include <algorithm>

namespace sim {

const std::array<ServiceColumn, 20> SERVICE_COLUMNS = {{
    {"id", [](const Service& s) { return std::to_string(s.id); }},
    {"number", [](const Service& s) { return std::to_string(s.number); }},
    {"identity", [](const Service& s) { return s.identity; }},
    {"name", [](const Service& s) { return s.name; }},
    {"short name", [](const Service& s) { return s.shortName; }},
    {"provider", [](const Service& s) { return s.provider; }},
    {"type", [](const Service& s) { return s.type; }},
    {"group", [](const Service& s) { return fmt::format("{} {}", s.group, s.groupName); }},
    {"source", [](const Service& s) { return s.source; }},
    {"frequency", [](const Service& s) { return std::to_string(s.frequency); }},
    {"symbol rate", [](const Service& s) { return std::to_string(s.symbolRate); }},
    {"parameters", [](const Service& s) { return s.parameters; }},
    {"video pid", [](const Service& s) { return s.videoPid; }},
    {"audio pids", [](const Service& s) { return s.audioPids; }},
    {"text pids", [](const Service& s) { return s.textPids; }},
    {"conditional access", [](const Service& s) { return s.conditionalAccess; }},
    {"service id", [](const Service& s) { return std::to_string(s.sid); }},
    {"network id", [](const Service& s) { return std::to_string(s.nid); }},
    {"transport stream id", [](const Service& s) { return std::to_string(s.tid); }},
    {"radio id", [](const Service& s) { return std::to_string(s.rid); }},
}};

std::string kindOf(const Service& service) {
    const bool isScrambled = service.conditionalAccess.find_first_not_of("0,") != std::string::npos;
    return service.type == "radio" ? "radio" : (isScrambled ? "scrambled" : "television");
}

bool operator==(const Service& one, const Service& other) {
    return std::all_of(SERVICE_COLUMNS.begin(), SERVICE_COLUMNS.end(),
                       [&](const ServiceColumn& column) { return column.valueOf(one) == column.valueOf(other); });
}

}  // namespace sim
