// The cloud store that TVs share: backups by client id and category, each taken whole or not at all.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct StoredBackup {
    std::string id;  // digits, counted up in its category: the newest has the highest
    std::string clientId;
    std::string category;
    std::string time;                       // UTC, ISO 8601
    std::string name;                       // file name of the bundle as it was handed over
    std::string metadata;                   // JSON text
    std::uint64_t size = 0;                 // of the bundle, bytes
    std::string device;                     // serial number of the set that made it; empty: not known
    std::optional<std::uint64_t> services;  // that the set had then
    std::string damage;                     // why it cannot be handed out; empty: it can, and all of the above is known
};

// A backup that is handed over.
struct NewBackup {
    std::string clientId;
    std::string category;
    std::string metadata;
    std::string device;  // as of StoredBackup
    std::optional<std::uint64_t> services;
};

// What is wrong with the store itself is thrown as Error.
class CloudStore {
public:
    CloudStore() = default;
    virtual ~CloudStore() = default;
    CloudStore(const CloudStore&) = delete;
    CloudStore& operator=(const CloudStore&) = delete;

    // Where it is, as a person says it.
    virtual std::string place() const = 0;

    // The folders of this machine that it writes to. They are made where they are missing.
    virtual std::vector<std::filesystem::path> makeLocalFolders() const = 0;

    // Takes a copy of the bundle. Gives the new backup's id.
    virtual std::string put(const NewBackup& backup, const std::filesystem::path& bundle) = 0;

    // Removes a backup, whole or not at all. No later one gets its id.
    virtual void remove(const StoredBackup& backup) = 0;

    // The newest backup, or the one of the given id. Nothing when there is none.
    virtual std::optional<StoredBackup> find(const std::string& clientId, const std::string& category,
                                             const std::string& id) const = 0;

    // All of them, oldest first within their category.
    virtual std::vector<StoredBackup> list() const = 0;

    // Brings the bundle of an undamaged backup into the file `target`, in the place of what is there.
    virtual void fetch(const StoredBackup& backup, const std::filesystem::path& target) const = 0;
};

// The store at a place: a folder.
std::unique_ptr<CloudStore> openCloud(const std::string& place);

}  // namespace sim
