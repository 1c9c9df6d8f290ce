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

    // Returns nothing if the key has no value of that type.
    std::optional<std::string> get(const std::string& key, SettingType type) const;

    // Returns false if the key holds a value of another type. Throws Error if key and value exceed
    // limits::SETTING_BYTES.
    bool set(const std::string& key, SettingType type, const std::string& value);

    // The name of a favourite list, 1 to application::FAVOURITE_LISTS; empty if there is none.
    std::string favouriteName(int list) const;
    void setFavouriteName(int list, const std::string& name);

private:
    Database& m_database;
};

}  // namespace sim
