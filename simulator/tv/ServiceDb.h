// The TV service's channel database: an SQLite database of services beside an "ipsrv" entry, the IP services of this
// set.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct ChannelList;

// What ReplaceServiceDb() reports in its status. Below 1: it has not come so far as to look at the archive.
enum class ReplaceStatus : int {
    ArchiveUnreadable = 1,
    NoDatabase = 2,       // the archive holds no services.db
    DatabaseDamaged = 3,  // no SQLite database, or one that fails its integrity check
    TablesDiffer = 4,     // not the tables of a channel database, or rows that do not fit them
    CountDiffers = 5,     // other services than stored with it, or none at all
    NotPutInPlace = 6,
};

// services.db is only ever built beside its place and put there whole, so that no journal of an older one can be taken
// for its own.
class ServiceDb {
public:
    // A service's columns by name, as text.
    using Row = std::map<std::string, std::string>;

    explicit ServiceDb(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // Makes the database of a channel list, its ids counted from 1, and the set's own ipsrv. Throws on failure.
    void create(const ChannelList& list, const std::string& ipServices) const;

    // Writes the database and ipsrv as a zip archive. Throws on failure.
    void snapshot(const std::filesystem::path& archive) const;

    // Replaces the database by the archive's, if it is a whole one; this set's ipsrv stays. Nothing on success. Throws
    // when there is no place to build it in.
    std::optional<ReplaceStatus> replace(const std::filesystem::path& archive) const;

    bool exists(std::uint64_t serviceId) const;
    std::uint64_t firstService() const;
    std::uint64_t groupCount() const;
    std::vector<Row> services() const;
    std::string ipServices() const;

    // The number of services in the "ServiceDB.zip" of a bundle. Throws Error when there is no such.
    static std::uint64_t countInBundle(const std::filesystem::path& bundle);

private:
    std::filesystem::path database() const { return m_folder / "services.db"; }
    std::filesystem::path ipsrv() const { return m_folder / "ipsrv"; }

    std::filesystem::path m_folder;
};

}  // namespace sim
