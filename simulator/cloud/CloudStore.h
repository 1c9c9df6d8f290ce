// The cloud store that TVs share: backups by account, client id and category, each stored whole or not at all.
#pragma once

#include <json/forwards.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/base/Error.h"

namespace sim {

// Whose backups they are, and of what.
struct Address {
    std::string account;
    std::string clientId;
    std::string category;
};

struct BackupName : Address {
    std::string id;         // begins with digits that count up within the category: the newest is the last
    std::string etag;       // changes if another backup takes the name; empty: not known
    bool isPinned = false;  // it shall stay; known of what is listed

    std::string path() const { return account + "/" + clientId + "/" + category + "/" + id; }
};

struct StoredBackup : BackupName {
    explicit StoredBackup(const BackupName& backup) : BackupName(backup) {}

    std::string time;                       // UTC, ISO 8601
    std::string name;                       // file name of the bundle when it was stored
    std::string metadata;                   // JSON text
    std::uint64_t size = 0;                 // of the bundle, bytes
    std::string sha256;                     // of the bundle, hexadecimal digits; empty: not known
    std::string device;                     // serial number of the set that made it; empty: not known
    std::optional<std::uint64_t> services;  // channels of that set at the time
    std::string damage;                     // why it cannot be restored; if empty, all of the above is known
};

struct NewBackup : Address {
    std::string metadata;                   // JSON text
    std::string device;                     // see StoredBackup
    std::optional<std::uint64_t> services;  // see StoredBackup
    bool refuseDuplicate = false;           // refuse the bundle if the newest backup has the same bytes
    std::string time = {};                  // see StoredBackup; empty: the machine's
};

struct StoreContent {
    std::vector<BackupName> backups;   // oldest first within their category
    std::vector<std::string> foreign;  // paths or keys of everything else
};

struct StoreTrial {
    std::string what;
    bool isFit;
    std::string detail;
};

// Called after each try of a request to a remote store, with one line each for the request and its outcome.
using RequestObserver = std::function<void(const std::string& request, const std::string& outcome)>;

// Every function throws Error: Unreachable if the store does not answer, Denied if it refuses, or the kind of the
// system's error. A store object is not thread-safe; any number of them, in any processes, may share a place.
class CloudStore {
public:
    CloudStore() = default;
    virtual ~CloudStore() = default;
    CloudStore(const CloudStore&) = delete;
    CloudStore& operator=(const CloudStore&) = delete;

    // The place as the user writes it.
    virtual std::string place() const = 0;

    // Whether it is on another machine, so that each call costs requests.
    virtual bool isRemote() const = 0;

    // The local folders that the store writes to, which are created if they are missing.
    virtual std::vector<std::filesystem::path> makeLocalFolders() const = 0;

    // Whether it does what backups need, found out by trying.
    virtual std::vector<StoreTrial> examine() const = 0;

    // What is set to lead to the store and has no effect, in words.
    virtual std::vector<std::string> unusedSettings() const { return {}; }

    // Creates the store's place if it is missing.
    virtual void create() = 0;

    // Stores a copy of the bundle file and returns the id of the new backup. Throws Error (Duplicate) if
    // `refuseDuplicate` is set and the newest backup has the same bundle.
    virtual std::string put(const NewBackup& backup, const std::filesystem::path& bundle) = 0;

    // Removes a backup, whole or not at all; its id is never used again. Throws Error (Missing) if there is no such
    // backup.
    virtual void remove(const BackupName& backup) = 0;

    // Notes that a backup shall stay, or need not any more. remove() does not look at that.
    virtual void pin(const BackupName& backup, bool isPinned) = 0;

    // The newest backup at an address, damaged or not; nothing if there is none.
    virtual std::optional<BackupName> newest(const Address& address) const = 0;

    StoreContent content() const { return contentOf(""); }

    // What is stored of an account; of all if it is empty.
    virtual StoreContent contentOf(const std::string& account) const = 0;

    // What is known of a backup without its bundle. Throws Error (Missing) if there is no such backup.
    virtual StoredBackup look(const BackupName& name) const = 0;

    // Does the same, and writes the bundle to `folder` under its name, replacing a file or link there. If the backup is
    // damaged, no file is left.
    virtual StoredBackup fetch(const BackupName& name, const std::filesystem::path& folder) const = 0;
};

// Visits what is known of those of the named backups that are still there, in their order. Several are looked at
// at the same time, each thread with a store of its own that `open` opens.
void visitBackups(const std::function<std::unique_ptr<CloudStore>()>& open, const std::vector<BackupName>& names,
                  const std::function<void(const StoredBackup&)>& visit);

// The same of one store, as a list.
std::vector<StoredBackup> lookAt(const CloudStore& store, const std::vector<BackupName>& names);

// For stores: what they throw if there is no such backup, and if the newest backup has the bundle that shall be stored.
Error missingBackup(const CloudStore& store, const BackupName& name);
Error duplicateBackup(const CloudStore& store, const std::string& newestId);

// For stores: the JSON object that they keep with a bundle. `readInfo` sets the members of a backup that the object
// holds; it throws Error (Damaged) if it is not such an object.
Json::Value infoOf(const NewBackup& backup, const std::filesystem::path& bundle);
void readInfo(const Json::Value& info, StoredBackup& backup);

}  // namespace sim
