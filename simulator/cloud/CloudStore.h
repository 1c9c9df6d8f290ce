// The cloud store: a folder that TVs share. It takes a backup whole or not at all.
//
//   <client id>/<category>/<backup id>/{bundle.zip, metadata.json, info.json}
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct StoredBackup {
    std::string id;  // six digits, counted up in its category
    std::string clientId;
    std::string category;
    std::string time;      // UTC, ISO 8601
    std::string name;      // file name of the bundle as it was handed over
    std::string metadata;  // JSON text
    std::filesystem::path bundle;
};

class CloudStore {
public:
    explicit CloudStore(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // Takes a copy of the bundle and the metadata. Gives the new backup's id; throws on failure.
    std::string put(const std::string& clientId, const std::string& category, const std::string& metadata,
                    const std::filesystem::path& bundle) const;

    // The newest backup, or the one of the given id. Nothing when there is none. Throws Error where it is not whole.
    std::optional<StoredBackup> find(const std::string& clientId, const std::string& category,
                                     const std::string& id) const;

    struct Listing {
        std::vector<StoredBackup> backups;  // oldest first within their category
        std::vector<std::string> problems;  // a line for each that is not whole
    };
    Listing list() const;

    const std::filesystem::path& folder() const { return m_folder; }

private:
    std::filesystem::path m_folder;
};

}  // namespace sim
