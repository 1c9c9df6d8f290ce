// The TV service's iss database.
#pragma once

#include <ctime>
#include <filesystem>
#include <map>
#include <string>

namespace sim {

using Entries = std::map<std::string, std::string>;  // values by key

// The file is only ever replaced as a whole, like the channel database.
class IssDb {
public:
    explicit IssDb(std::filesystem::path file) : m_file(std::move(file)) {}

    // These throw Error if they fail.
    void create(const Entries& entries) const;
    void snapshot(const std::filesystem::path& archive, std::time_t time = std::time(nullptr)) const;
    Entries entries() const;

    // Replaces the database by the archive's. Returns false, with nothing changed, if the archive holds no whole one.
    // Throws Error if there is no room to build it.
    bool restore(const std::filesystem::path& archive) const;

private:
    std::filesystem::path m_file;
};

// Rebuilds the database of an archive from outside in a table of our own, as `built`. Throws Error (Damaged) if the
// archive holds no whole one.
void adoptIss(const std::filesystem::path& archive, const std::filesystem::path& built);

}  // namespace sim
