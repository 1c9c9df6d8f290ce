// The TVs that a server shows, by name, and their cloud.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"

namespace sim {

class Lab {
public:
    // The one TV at `home`, under its folder's name; or, where `folder` is not empty, each TV directly in that folder.
    Lab(std::filesystem::path home, std::filesystem::path folder, std::string cloud)
        : m_home(std::move(home)), m_folder(std::move(folder)), m_cloud(std::move(cloud)) {}

    // Their names, sorted; TVs may come and go.
    std::vector<std::string> names() const;

    // Throws Error (Missing) where there is no such TV. A name never leads anywhere else.
    std::filesystem::path homeOf(const std::string& name) const;

    const std::string& cloud() const { return m_cloud; }

    // The cloud's backups, oldest first within their category. What an object store holds is read only once: the page
    // asks for all of it at each change. May be called on several threads.
    std::vector<StoredBackup> backups() const;

    // Where the token is kept.
    std::filesystem::path tokenFile() const;

private:
    std::map<std::string, std::filesystem::path> tvs() const;

    std::filesystem::path m_home;
    std::filesystem::path m_folder;
    std::string m_cloud;
    mutable std::mutex m_mutex;
    mutable std::map<std::string, StoredBackup> m_read;  // by path and entity tag
};

}  // namespace sim
