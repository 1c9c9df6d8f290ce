// The TVs that a server shows, by name, and their cloud.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

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

    // Where the token is kept.
    std::filesystem::path tokenFile() const;

private:
    std::map<std::string, std::filesystem::path> tvs() const;

    std::filesystem::path m_home;
    std::filesystem::path m_folder;
    std::string m_cloud;
};

}  // namespace sim
