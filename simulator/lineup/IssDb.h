// The TV service's iss database.
#pragma once

#include <ctime>
#include <filesystem>
#include <map>
#include <string>

namespace sim {

using Entries = std::map<std::string, std::string>;  // values by key

// As with the channel database, the file is only ever put in place whole.
class IssDb {
public:
    explicit IssDb(std::filesystem::path file) : m_file(std::move(file)) {}

    // These throw Error on failure.
    void create(const Entries& entries) const;
    void snapshot(const std::filesystem::path& archive, std::time_t time = std::time(nullptr)) const;
    Entries entries() const;

    // Replaces the database by the archive's. False: the archive holds no whole one; nothing has changed. Throws when
    // there is no place to build it in.
    bool restore(const std::filesystem::path& archive) const;

private:
    std::filesystem::path m_file;
};

// Rebuilds the database of an archive from outside in a table of our own, as `built`. Throws Error, of the kind Damaged
// where the archive holds no whole one.
void adoptIss(const std::filesystem::path& archive, const std::filesystem::path& built);

}  // namespace sim
