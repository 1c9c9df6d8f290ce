// The TVs that a server shows, and their cloud.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Tv.h"

namespace sim {

class Lab {
public:
    // Shows each TV directly in `folder`; if that is empty, the one TV at `home`.
    Lab(std::filesystem::path home, std::filesystem::path folder, std::string cloud)
        : m_home(std::move(home)), m_folder(std::move(folder)), m_cloud(std::move(cloud)) {}

    // The homes of the TVs that are there now, by the names of their folders.
    std::map<std::string, std::filesystem::path> tvs() const;

    // Throw Error (Missing) if there is no TV of that name. A name never leads outside the lab.
    std::filesystem::path homeOf(const std::string& name) const;
    Tv look(const std::string& name) const { return Tv(homeOf(name), Database::Access::Look); }

    const std::filesystem::path& home() const { return m_home; }
    const std::filesystem::path& folder() const { return m_folder; }
    const std::string& cloud() const { return m_cloud; }

    // The folder that the TVs are in.
    std::filesystem::path place() const { return m_folder.empty() ? m_home.parent_path() : m_folder; }

    // The cloud's backups, oldest first within their category. Throws Error if the store cannot be read. May be called
    // on several threads. A backup in an object store is read only once, as the page asks for all at each change.
    std::vector<StoredBackup> backups() const;

    // The file that keeps the token.
    std::filesystem::path tokenFile() const;

private:
    std::filesystem::path m_home;
    std::filesystem::path m_folder;
    std::string m_cloud;
    mutable std::mutex m_mutex;
    mutable std::map<std::string, StoredBackup> m_read;  // by path and entity tag
};

// The name of a TV, which may be any bytes, as a part of an address and a text of JSON; and back.
std::string keyOf(const std::string& name);
std::string nameOfKey(const std::string& key);

// All that the page shows of a TV except its channels; "list" is another text if these may have changed. Throws Error
// if the TV cannot be read.
Json::Value stateOf(const std::string& name, const Tv& tv);

// The same of a TV that cannot be read, with the reason.
Json::Value brokenStateOf(const std::string& name, const std::filesystem::path& home, const std::string& problem);

// The snapshot that a restore from the page makes first, so that the page can show what it has changed.
inline constexpr char BEFORE_RUN[] = "before-run";

// The number of the restore before which that snapshot was made; 0 if there is none, or if a reset has undone it.
std::int64_t runOfSnapshot(const Tv& tv);

}  // namespace sim
