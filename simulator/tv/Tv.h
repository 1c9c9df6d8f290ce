// A simulated TV: one folder, the TV home.
//
//   tv.db         the TV's state, settings store, fault rules, runs with their log and call journal
//   service-db/   the TV service's channel database
//   iss.db        the iss database
//   ci/           the CI module's own files
//   apps/, tmp/   what the path variables for application and temporary data stand for
#pragma once

#include <SQLiteCpp/Database.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "simulator/tv/CiModule.h"
#include "simulator/tv/IssDb.h"
#include "simulator/tv/ServiceDb.h"

namespace sim {

struct ChannelList;

// What is on.
struct Viewing {
    int antennaMode = 0;  // 0 terrestrial, 1 cable, 2 satellite
    int serviceMode = 0;  // 0 all, 1 television, 2 radio
    std::uint64_t serviceId = 0;
    int source = 0;                   // 0 the tuner, 1 to 4 an external input
    int category = 0;                 // 0 all services, 1 a favourite list, 2 a group of the channel list
    std::uint64_t categoryParam = 0;  // number of the favourite list or the group, from 1; otherwise 0
    int sortMode = 0;                 // 0 by number, 1 by name, 2 by provider
};

bool operator==(const Viewing& one, const Viewing& other);

constexpr int FAVOURITE_LISTS = 5;

class Tv {
public:
    // A folder's path, absolute and without a '/' at its end.
    static std::filesystem::path normalised(const std::filesystem::path& folder);

    // $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv, else ~/.local/state/halcyon-tv. Throws Error without any of
    // them.
    static std::filesystem::path defaultHome();

    // $HALCYON_CLOUD, else "cloud" beside the TV home.
    static std::filesystem::path defaultCloud(const std::filesystem::path& home);

    // Makes a factory-fresh TV with this channel list, whole or not at all; `serial` tells its own files from another
    // set's. Throws Error when there is anything at `home` already.
    static void create(const std::filesystem::path& home, const ChannelList& list, const std::string& serial);

    // Opens a TV. Throws Error when there is none.
    explicit Tv(const std::filesystem::path& home);

    Viewing viewing();
    // Reads, changes and writes in one transaction. What `change` throws leaves the state as it was.
    void changeViewing(const std::function<void(Viewing&)>& change);

    // Whether the TV has what a setter is given.
    bool hasMode(int antennaMode, int serviceMode) const;
    bool hasSource(int source) const;
    bool hasCategory(int category, std::uint64_t param, int sortMode) const;

    // Connection status codes of the antenna inputs.
    std::set<int> antenna();
    void setAntenna(const std::set<int>& statuses);

    bool isScanning();
    void setScanning(bool scanning);

    // The settings store: `type` is "int", "bool", "double" or "string". Nothing: no value of that type under the key.
    std::optional<std::string> setting(const std::string& key, const std::string& type);
    // False: the key holds a value of another type.
    bool setSetting(const std::string& key, const std::string& type, const std::string& value);

    // The key of a favourite list's name, 1 to FAVOURITE_LISTS.
    static std::string favouriteKey(int list);

    const std::filesystem::path& home() const { return m_home; }
    SQLite::Database& database() { return m_database; }
    const ServiceDb& serviceDb() const { return m_serviceDb; }
    const IssDb& issDb() const { return m_issDb; }
    const CiModule& ciModule() const { return m_ciModule; }

private:
    std::filesystem::path m_home;
    SQLite::Database m_database;
    ServiceDb m_serviceDb;
    IssDb m_issDb;
    CiModule m_ciModule;
};

}  // namespace sim
