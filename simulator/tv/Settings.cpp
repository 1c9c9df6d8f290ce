#include "simulator/tv/Settings.h"

#include "simulator/base/Database.h"
#include "simulator/base/Limits.h"
#include "simulator/lineup/Application.h"

namespace sim {

std::optional<std::string> Settings::get(const std::string& key, SettingType type) const {
    Statement query(m_database, "SELECT value FROM settings WHERE key = ? AND type = ?");
    return query.bind(key, nameOf(type)).next() ? std::optional(query.text(0)) : std::nullopt;
}

bool Settings::set(const std::string& key, SettingType type, const std::string& value) {
    limits::require("bytes of a setting and its key", key.size() + value.size(), limits::SETTING_BYTES);
    // A key keeps its type: with another one, no row changes.
    return m_database.change(
               "INSERT INTO settings VALUES(?, ?, ?) ON CONFLICT(key) DO UPDATE SET value = excluded.value "
               "WHERE type = excluded.type",
               key, nameOf(type), value) == 1;
}

std::string Settings::favouriteName(int list) const {
    return get(application::favouriteKey(list), SettingType::String).value_or("");
}

void Settings::setFavouriteName(int list, const std::string& name) {
    set(application::favouriteKey(list), SettingType::String, name);
}

}  // namespace sim
