// The cloud store that TVs share: backups by account, client id and category, each taken whole or not at all.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// Whose backups, and of what.
struct Address {
    std::string account;
    std::string clientId;
    std::string category;
};

struct BackupName : Address {
    std::string id;    // begins with digits that count up within the category: the newest is the last
    std::string mark;  // another one where another backup has come under the name; empty: not known

    std::string path() const { return account + "/" + clientId + "/" + category + "/" + id; }
};

struct StoredBackup : BackupName {
    std::string time;                       // UTC, ISO 8601
    std::string name;                       // file name of the bundle as it was handed over
    std::string metadata;                   // JSON text
    std::uint64_t size = 0;                 // of the bundle, bytes
    std::string device;                     // serial number of the set that made it; empty: not known
    std::optional<std::uint64_t> services;  // that the set had then
    std::string damage;                     // why it cannot be handed out; empty: it can, and all of the above is known
};

// A backup that is handed over.
struct NewBackup : Address {
    std::string metadata;
    std::string device;  // as of StoredBackup
    std::optional<std::uint64_t> services;
    bool refuseDuplicate = false;  // where the newest one has the very same bundle
};

struct StoreContent {
    std::vector<BackupName> backups;   // oldest first within their category
    std::vector<std::string> foreign;  // what lies there and is no backup
};

// Called after each try of a request to a remote store, with one line each for the request and its outcome.
using RequestObserver = std::function<void(const std::string& request, const std::string& outcome)>;

// What is wrong with the store itself is thrown as Error: Unreachable where it does not answer, Denied where it
// refuses. One object is for one thread.
class CloudStore {
public:
    CloudStore() = default;
    virtual ~CloudStore() = default;
    CloudStore(const CloudStore&) = delete;
    CloudStore& operator=(const CloudStore&) = delete;

    // Where it is, as a person says it.
    virtual std::string place() const = 0;

    // Whether each look at it is a request to another machine.
    virtual bool isRemote() const = 0;

    // The folders of this machine that it writes to. They are made where they are missing.
    virtual std::vector<std::filesystem::path> makeLocalFolders() const = 0;

    // Makes the place itself, where it is missing.
    virtual void create() = 0;

    // Takes a copy of the bundle. Gives the new backup's id. Throws Error (Duplicate) as `refuseDuplicate` says.
    virtual std::string put(const NewBackup& backup, const std::filesystem::path& bundle) = 0;

    // Removes a backup, whole or not at all; its id is never used again. Throws Error (Missing) if there is no such
    // backup.
    virtual void remove(const BackupName& backup) = 0;

    // The newest backup at an address, damaged or not; nothing if there is none.
    virtual std::optional<BackupName> newest(const Address& address) const = 0;

    virtual StoreContent content() const = 0;

    // What is known of a backup without its bundle. Throws Error (Missing) where there is none of the name.
    virtual StoredBackup look(const BackupName& name) const = 0;

    // The same, and brings the bundle into `folder`, under its name, in the place of what is there; but not that of a
    // damaged backup.
    virtual StoredBackup fetch(const BackupName& name, const std::filesystem::path& folder) const = 0;
};

// The name of a bundle's file as a store has it, without folders. Throws Error (Damaged) where it is none.
std::string bundleName(const std::string& name);

// The store at a place: s3://BUCKET[/PREFIX], else a folder. Throws Error where the place is neither, or what it takes
// to reach an object store is not in the environment.
std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer = {});

// What is known of the named backups that are still there, and of all, oldest first within their category.
std::vector<StoredBackup> lookAt(const CloudStore& store, const std::vector<BackupName>& names);
std::vector<StoredBackup> listBackups(const CloudStore& store);

}  // namespace sim
