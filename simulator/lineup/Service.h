// A service: a line of a channel list, a row of the channel database, one side of a comparison.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace sim {

struct Service {
    std::uint64_t id = 0;  // in the channel database
    int number = 0;        // as the viewer sees it
    std::string identity;  // source-nid-tid-sid-rid
    std::string name;      // texts are UTF-8 where the list was read here; those of a received database may be anything
    std::string shortName;
    std::string provider;
    std::string type;  // "tv" or "radio"
    int group = 0;     // counted from 1; 0 before the first group
    std::string groupName;
    std::string source;               // "S19.2E", "C", "T", ...
    std::uint64_t frequency = 0;      // Hz
    std::uint64_t frequencyUnit = 1;  // of the list that it was read from, Hz
    int symbolRate = 0;               // kilosymbols a second, 0 where the source has none
    std::string parameters;
    std::string videoPid;  // pids as the list has them, with modes and languages
    std::string audioPids;
    std::string textPids;
    std::string conditionalAccess;  // CA system ids as the list has them: hexadecimal, separated by commas
    int sid = 0;
    int nid = 0;
    int tid = 0;
    int rid = 0;
    int listFields = 13;  // that its line in the list had: the last may be left out
};

// A line of a channel list that is no service: a group's name, or the number of the next service.
struct ListHeader {
    int before = 0;  // how many services stand before it
    std::string text;
};

// "television", "radio" or "scrambled", as a channel list shows it.
std::string kindOf(const Service& service);

// What a service has, by name and as text.
struct ServiceColumn {
    const char* name;
    std::string (*valueOf)(const Service&);
};
extern const std::array<ServiceColumn, 20> SERVICE_COLUMNS;

// Whether two services have the same in each column.
bool operator==(const Service& one, const Service& other);

}  // namespace sim
