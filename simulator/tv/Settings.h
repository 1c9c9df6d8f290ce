// The settings store: values by key, each of one type.
#pragma once

#include <optional>
#include <string>

#include "simulator/lineup/Codes.h"

namespace sim {

class Database;

class Settings {
public:
    explicit Settings(Database& database) : m_database(database) {}

    // Nothing: no value of that type under the key.
    std::optional<std::string> get(const std::string& key, SettingType type) const;

    // False: the key holds a value of another type. Throws Error beyond the limit.
    bool set(const std::string& key, SettingType type, const std::string& value);

    // The name of a favourite list, 1 to application::FAVOURITE_LISTS; empty where there is none.
    std::string favouriteName(int list) const;
    void setFavouriteName(int list, const std::string& name);

private:
    Database& m_database;
};

}  // namespace sim
