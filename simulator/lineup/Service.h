// A service: a line of a channel list, a row of the channel database, one side of a comparison.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace sim {

struct Service {
    std::uint64_t id = 0;  // in the channel database
    int number = 0;        // as the viewer sees it
    std::string identity;  // source-nid-tid-sid-rid
    std::string name;      // texts from a channel list are UTF-8; those of a received database may be any bytes
    std::string shortName;
    std::string provider;
    std::string type;  // "tv" or "radio"
    int group = 0;     // counted from 1; 0 before the first group
    std::string groupName;
    std::string source;               // "S19.2E", "C", "T", ...
    std::uint64_t frequency = 0;      // Hz
    std::uint64_t frequencyUnit = 1;  // of the list that it was read from, Hz
    int symbolRate = 0;               // kilosymbols a second, 0 if the source has none
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

    // What the owner has set. Places in a favourite list count from 1, without gaps; 0: not in that list.
    int favourite1 = 0;
    int favourite2 = 0;
    int favourite3 = 0;
    int favourite4 = 0;
    int favourite5 = 0;
    bool locked = false;
    bool hidden = false;
    bool renamed = false;       // the name is the owner's, and a scan keeps it
    std::string broadcastName;  // the broadcaster's, of a service that is renamed; empty if it is not known
};

// The place in each favourite list, and the name of its column in services.db by the list's number.
inline constexpr int Service::*FAVOURITE_PLACES[] = {&Service::favourite1, &Service::favourite2, &Service::favourite3,
                                                     &Service::favourite4, &Service::favourite5};
std::string favouriteColumn(int list);

// A line of a channel list that is no service: a group's name, or the number of the next service.
struct ListHeader {
    int before = 0;  // how many services stand before it
    std::string text;
};

// "television", "radio" or "scrambled", as a channel list shows it.
std::string serviceKind(const Service& service);

// A column of a service. The schema, queries, fingerprints, comparisons and JSON are made from these.
struct ServiceColumn {
    const char* label;        // for people; empty: it only says how the list was written, and is not compared
    const char* sql;          // its name in services.db; empty: from the table of groups
    const char* declaration;  // its SQL type; one with a default may be missing in a received database
    const char* json;         // empty: not in the JSON
    std::variant<int Service::*, bool Service::*, std::uint64_t Service::*, std::string Service::*> member;
};

inline constexpr ServiceColumn SERVICE_COLUMNS[] = {
    {"id", "id", "INTEGER PRIMARY KEY", "id", &Service::id},
    {"number", "number", "INTEGER NOT NULL UNIQUE", "number", &Service::number},
    {"identity", "identity", "TEXT NOT NULL UNIQUE", "identity", &Service::identity},
    {"name", "name", "TEXT NOT NULL", "name", &Service::name},
    {"short name", "short_name", "TEXT NOT NULL", "shortName", &Service::shortName},
    {"provider", "provider", "TEXT NOT NULL", "provider", &Service::provider},
    {"type", "type", "TEXT NOT NULL CHECK(type IN ('tv', 'radio'))", "type", &Service::type},
    {"group", "channel_group", "INTEGER REFERENCES channel_groups(number)", "", &Service::group},
    {"group name", "", "", "group", &Service::groupName},
    {"source", "source", "TEXT NOT NULL", "source", &Service::source},
    {"frequency", "frequency_hz", "INTEGER NOT NULL", "frequencyHz", &Service::frequency},
    {"symbol rate", "symbol_rate", "INTEGER NOT NULL", "symbolRate", &Service::symbolRate},
    {"parameters", "parameters", "TEXT NOT NULL", "parameters", &Service::parameters},
    {"video pid", "video_pid", "TEXT NOT NULL", "videoPid", &Service::videoPid},
    {"audio pids", "audio_pids", "TEXT NOT NULL", "audioPids", &Service::audioPids},
    {"text pids", "text_pids", "TEXT NOT NULL", "textPids", &Service::textPids},
    {"conditional access", "conditional_access", "TEXT NOT NULL", "conditionalAccess", &Service::conditionalAccess},
    {"service id", "sid", "INTEGER NOT NULL", "sid", &Service::sid},
    {"network id", "nid", "INTEGER NOT NULL", "nid", &Service::nid},
    {"transport stream id", "tid", "INTEGER NOT NULL", "tid", &Service::tid},
    {"radio id", "rid", "INTEGER NOT NULL", "rid", &Service::rid},
    {"favourite list 1", "favourite1", "INTEGER NOT NULL DEFAULT 0 CHECK(favourite1 >= 0)", "favourite1",
     &Service::favourite1},
    {"favourite list 2", "favourite2", "INTEGER NOT NULL DEFAULT 0 CHECK(favourite2 >= 0)", "favourite2",
     &Service::favourite2},
    {"favourite list 3", "favourite3", "INTEGER NOT NULL DEFAULT 0 CHECK(favourite3 >= 0)", "favourite3",
     &Service::favourite3},
    {"favourite list 4", "favourite4", "INTEGER NOT NULL DEFAULT 0 CHECK(favourite4 >= 0)", "favourite4",
     &Service::favourite4},
    {"favourite list 5", "favourite5", "INTEGER NOT NULL DEFAULT 0 CHECK(favourite5 >= 0)", "favourite5",
     &Service::favourite5},
    {"locked", "locked", "INTEGER NOT NULL DEFAULT 0 CHECK(locked IN (0, 1))", "locked", &Service::locked},
    {"hidden", "hidden", "INTEGER NOT NULL DEFAULT 0 CHECK(hidden IN (0, 1))", "hidden", &Service::hidden},
    {"renamed", "renamed", "INTEGER NOT NULL DEFAULT 0 CHECK(renamed IN (0, 1))", "renamed", &Service::renamed},
    {"broadcaster's name", "broadcast_name", "TEXT NOT NULL DEFAULT ''", "broadcastName", &Service::broadcastName},
    {"", "frequency_unit", "INTEGER NOT NULL DEFAULT 1", "", &Service::frequencyUnit},
    {"", "list_fields", "INTEGER NOT NULL DEFAULT 13", "", &Service::listFields},
};

// Whether a received database may lack the column, which then has its default: older ones have fewer columns.
bool isOptional(const ServiceColumn& column);

// Whether it is one of FAVOURITE_PLACES.
bool isFavouritePlace(const ServiceColumn& column);

// Whether a service has nothing in a column: 0, or an empty text.
bool isEmpty(const ServiceColumn& column, const Service& service);

// What a service has in a column, as text.
std::string textOf(const ServiceColumn& column, const Service& service);

// Whether two services differ in a column that is compared. Two ways to write the same, such as "104=deu" and
// "104=deu@4", do not differ.
bool differ(const ServiceColumn& column, const Service& left, const Service& right);

}  // namespace sim
