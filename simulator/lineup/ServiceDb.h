// The TV service's channel database: an SQLite database of services beside an "ipsrv" entry, the IP services of this
// set.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lineup/ChannelSink.h"
#include "simulator/lineup/Service.h"

namespace sim {

class Database;

// What ReplaceServiceDb() reports in its status if it has looked at the archive.
enum class ReplaceStatus : int {
    ArchiveUnreadable = 1,
    NoDatabase = 2,       // the archive holds no services.db
    DatabaseDamaged = 3,  // no SQLite database, or one that fails its integrity check
    TablesDiffer = 4,     // not the tables of a channel database, or rows that do not fit them
    CountDiffers = 5,     // other services than stored with it, or none at all
    NotPutInPlace = 6,
};

// Finds a service by its identity; null if there is none. The service is good until the next one is looked for.
using ServiceFinder = std::function<const Service*(const std::string& identity)>;

// The services of a channel database. What was opened never changes, because services.db is only ever replaced as a
// whole. Copies share one connection, so they belong to one thread. Every function throws Error if the database cannot
// be read.
class Services {
public:
    explicit Services(const std::filesystem::path& database);

    struct Counts {
        std::uint64_t services = 0;
        std::uint64_t radios = 0;  // of the services
        std::uint64_t groups = 0;
    };
    Counts counts() const;
    std::optional<Service> find(std::uint64_t id) const;
    std::uint64_t first() const;  // the id of the service with the lowest number

    // In the order of their numbers. The service is good until the next one is visited.
    void forEach(const std::function<void(const Service&)>& visit) const;
    ServiceFinder finder() const;             // must not outlive all copies of this
    std::vector<ListHeader> headers() const;  // of the list that it was made of
    std::vector<std::string> groups() const;  // their names, in the order of their numbers

    // Hands groups, services and headers to a sink.
    void copyTo(ChannelSink& sink) const;

    // SHA-256 of all services in each column that is compared.
    std::string fingerprint() const;

private:
    std::shared_ptr<Database> m_database;
};

// Whether two databases have the same services.
bool operator==(const Services& left, const Services& right);

// services.db is built beside its place and put there as a whole, so that no journal of an older one can be taken for
// its own.
class ServiceDb {
public:
    explicit ServiceDb(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    // These throw Error if they fail.

    // Makes the database of a channel list, its ids counted from 1, and the set's own ipsrv.
    void create(const ChannelSource& list, const std::string& ipServices) const;

    // Makes the database of a channel list alone. Ids that it gives are kept.
    void store(const ChannelSource& list) const;

    // Changes a copy of the database, which then replaces it as a whole. Throws what `edit` throws, and Error (Damaged)
    // if a favourite list would have a gap; then the database is as it was.
    void change(const std::function<void(Database&)>& edit) const;

    // Writes the database and ipsrv as a zip archive, as of a time.
    void snapshot(const std::filesystem::path& archive, std::time_t time = std::time(nullptr)) const;

    // Replaces the database by the archive's; this set's ipsrv stays. Returns nothing on success, otherwise why nothing
    // has changed. Throws Error if there is no room to build it.
    std::optional<ReplaceStatus> replace(const std::filesystem::path& archive) const;

    bool isThere() const;
    Services services() const { return Services(database()); }
    std::string ipServices() const;

private:
    std::filesystem::path database() const { return m_folder / "services.db"; }
    std::filesystem::path ipsrv() const { return m_folder / "ipsrv"; }

    std::filesystem::path m_folder;
};

// Rebuilds the database of an archive from outside in tables of our own, as `built`. Only rows are taken over. Returns
// nothing on success; otherwise `why` gets the channels or the counts at fault, if they are known. Throws Error if
// there is no room for it.
std::optional<ReplaceStatus> adoptServices(const std::filesystem::path& archive, const std::filesystem::path& built,
                                           std::string* why = nullptr);

}  // namespace sim
