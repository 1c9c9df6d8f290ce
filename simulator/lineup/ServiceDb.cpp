#include "simulator/lineup/ServiceDb.h"

#include <fmt/format.h>

#include <map>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/lineup/ReceivedDatabase.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char DATABASE[] = "services.db";

// Strict, so that what a received row holds is of the type that this program reads.
constexpr char SCHEMA[] = R"(
CREATE TABLE meta(service_count INTEGER NOT NULL) STRICT;
CREATE TABLE channel_groups(number INTEGER PRIMARY KEY, name TEXT NOT NULL) STRICT;
CREATE TABLE services(
    id INTEGER PRIMARY KEY, number INTEGER NOT NULL UNIQUE, identity TEXT NOT NULL UNIQUE, name TEXT NOT NULL,
    short_name TEXT NOT NULL, provider TEXT NOT NULL, type TEXT NOT NULL CHECK(type IN ('tv', 'radio')),
    channel_group INTEGER REFERENCES channel_groups(number), source TEXT NOT NULL, frequency_hz INTEGER NOT NULL,
    symbol_rate INTEGER NOT NULL, parameters TEXT NOT NULL, video_pid TEXT NOT NULL, audio_pids TEXT NOT NULL,
    text_pids TEXT NOT NULL, conditional_access TEXT NOT NULL, sid INTEGER NOT NULL, nid INTEGER NOT NULL,
    tid INTEGER NOT NULL, rid INTEGER NOT NULL, frequency_unit INTEGER NOT NULL DEFAULT 1,
    list_fields INTEGER NOT NULL DEFAULT 13) STRICT;
CREATE TABLE list_headers(before INTEGER NOT NULL, line TEXT NOT NULL) STRICT;
)";

const ReceivedDatabase::Table META = {"meta", {"service_count"}, {}};
const ReceivedDatabase::Table GROUPS = {"channel_groups", {"number", "name"}, {}};
const ReceivedDatabase::Table SERVICES = {"services",
                                          {"id",         "number",       "identity",    "name",
                                           "short_name", "provider",     "type",        "channel_group",
                                           "source",     "frequency_hz", "symbol_rate", "parameters",
                                           "video_pid",  "audio_pids",   "text_pids",   "conditional_access",
                                           "sid",        "nid",          "tid",         "rid"},
                                          {"frequency_unit", "list_fields"}};
const ReceivedDatabase::Table HEADERS = {"list_headers", {"before", "line"}, {}};

constexpr char SELECT[] =
    "SELECT id, services.number, identity, services.name, short_name, provider, type, channel_group, "
    "channel_groups.name, source, frequency_hz, symbol_rate, parameters, video_pid, audio_pids, text_pids, "
    "conditional_access, sid, nid, tid, rid, frequency_unit, "
    "list_fields "
    "FROM services LEFT JOIN channel_groups ON channel_groups.number = channel_group ";

// Into a service of before, whose texts have their memory already.
void readService(const Statement& query, Service& service) {
    const auto number = [&](int column) { return static_cast<int>(query.integer(column)); };
    service.id = static_cast<std::uint64_t>(query.integer(0));
    service.number = number(1);
    service.identity = query.view(2);
    service.name = query.view(3);
    service.shortName = query.view(4);
    service.provider = query.view(5);
    service.type = query.view(6);
    service.group = number(7);
    service.groupName = query.view(8);
    service.source = query.view(9);
    service.frequency = static_cast<std::uint64_t>(query.integer(10));
    service.symbolRate = number(11);
    service.parameters = query.view(12);
    service.videoPid = query.view(13);
    service.audioPids = query.view(14);
    service.textPids = query.view(15);
    service.conditionalAccess = query.view(16);
    service.sid = number(17);
    service.nid = number(18);
    service.tid = number(19);
    service.rid = number(20);
    service.frequencyUnit = static_cast<std::uint64_t>(query.integer(21));
    service.listFields = number(22);
}

// A database that is still beside its place, and gone after a crash: it needs no journal on the disk, and is synced
// whole before it is put in place.
Database makeBeside(const fs::path& path) {
    Database database(path, Database::Access::Create);
    database.run("PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF; PRAGMA foreign_keys = ON");
    database.run(SCHEMA);
    return database;
}

// The rows of a channel list, one after the other.
class Insertion final : public ChannelSink {
public:
    explicit Insertion(Database& database)
        : m_database(database),
          m_insert(database,
                   "INSERT INTO services VALUES(NULL, ?, ?, ?, ?, ?, ?, nullif(?, 0), ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
                   "?, ?, ?) ON CONFLICT(identity) DO NOTHING") {}

    void addGroup(const std::string& name) override {
        m_database.change("INSERT INTO channel_groups(name) VALUES(?)", name);
    }

    void addHeader(const ListHeader& header) override {
        m_database.change("INSERT INTO list_headers VALUES(?, ?)", header.before, header.text);
    }

    std::size_t addService(const Service& s) override {
        m_insert
            .bind(s.number, s.identity, s.name, s.shortName, s.provider, s.type, s.group, s.source, s.frequency,
                  s.symbolRate, s.parameters, s.videoPid, s.audioPids, s.textPids, s.conditionalAccess, s.sid, s.nid,
                  s.tid, s.rid, s.frequencyUnit, s.listFields)
            .run();
        return m_database.changes() == 1
                   ? 0
                   : static_cast<std::size_t>(
                         m_database.integer("SELECT id FROM services WHERE identity = ?", s.identity).value_or(0));
    }

private:
    Database& m_database;
    Statement m_insert;
};

// A failure of what was received, and not of the place where it is worked on.
template <typename Step>
bool isRefused(Step step) {
    try {
        step();
        return false;
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Damaged && error.kind() != Error::Kind::Missing) {
            throw;
        }
        return true;
    }
}

// The rows of a received database in tables of our own.
std::optional<ReplaceStatus> adoptRows(const ReceivedDatabase& received, const fs::path& built) {
    Database database = makeBeside(built);
    Transaction transaction(database);
    std::uint64_t count = 0;
    if (isRefused([&] {
            received.copy(GROUPS, database);
            count = received.copy(SERVICES, database);
            received.copy(META, database);
            if (received.has(HEADERS)) {  // older ones have none
                received.copy(HEADERS, database);
            }
        })) {
        return ReplaceStatus::TablesDiffer;
    }
    if (count == 0 || database.integer("SELECT service_count FROM meta") != static_cast<std::int64_t>(count)) {
        return ReplaceStatus::CountDiffers;
    }
    transaction.commit();
    return std::nullopt;
}

}  // namespace

std::optional<ReplaceStatus> adoptServices(const fs::path& archive, const fs::path& built) {
    const ScratchFolder scratch(built.parent_path());
    bool isThere = false;
    if (isRefused([&] { isThere = extractEntry(archive, DATABASE, scratch / DATABASE); })) {
        return ReplaceStatus::ArchiveUnreadable;
    }
    if (!isThere) {
        return ReplaceStatus::NoDatabase;
    }
    std::optional<ReceivedDatabase> received;
    if (isRefused([&] { received.emplace(scratch / DATABASE); })) {
        return ReplaceStatus::DatabaseDamaged;
    }
    return adoptRows(*received, built);
}

void ServiceDb::create(const ChannelSource& list, const std::string& ipServices) const {
    const ScratchFolder scratch(m_folder);
    {
        Database database = makeBeside(scratch / DATABASE);
        Transaction transaction(database);
        Insertion insertion(database);
        list(insertion);
        database.run("INSERT INTO meta SELECT count(*) FROM services");
        transaction.commit();
    }
    writeFile(scratch / "ipsrv", ipServices);
    putInPlace(scratch / "ipsrv", ipsrv());
    putInPlace(scratch / DATABASE, database());
}

void ServiceDb::snapshot(const fs::path& archive, std::time_t time) const {
    const ScratchFolder scratch(m_folder);
    const fs::path copy = scratch / DATABASE;
    Database(database(), Database::Access::Look).snapshot(copy);
    writeArchive(archive, {copy, ipsrv()}, time);
}

std::optional<ReplaceStatus> ServiceDb::replace(const fs::path& archive) const {
    const ScratchFolder scratch(m_folder);
    const fs::path built = scratch / DATABASE;
    if (const std::optional<ReplaceStatus> problem = adoptServices(archive, built)) {
        return problem;
    }
    try {
        putInPlace(built, database());
    } catch (const Error&) {
        return ReplaceStatus::NotPutInPlace;
    }
    return std::nullopt;
}

ServiceDb::Counts ServiceDb::counts() const {
    const Database database(this->database(), Database::Access::Look);
    Statement query(database,
                    "SELECT count(*), coalesce(sum(type = 'radio'), 0), (SELECT count(*) FROM channel_groups) "
                    "FROM services");
    query.next();
    const auto count = [&](int column) { return static_cast<std::uint64_t>(query.integer(column)); };
    return {count(0), count(1), count(2)};
}

std::optional<Service> ServiceDb::find(std::uint64_t id) const {
    const Database database(this->database(), Database::Access::Look);
    Statement query(database, std::string(SELECT) + "WHERE id = ?");
    if (!query.bind(id).next()) {
        return std::nullopt;
    }
    std::optional<Service> service(std::in_place);
    readService(query, *service);
    return service;
}

std::uint64_t ServiceDb::first() const {
    const Database database(this->database(), Database::Access::Look);
    return static_cast<std::uint64_t>(database.integer("SELECT id FROM services ORDER BY number").value_or(0));
}

void ServiceDb::forEach(const std::function<void(const Service&)>& visit) const {
    const Database database(this->database(), Database::Access::Look);
    Statement query(database, std::string(SELECT) + "ORDER BY services.number");
    Service service;
    while (query.next()) {
        readService(query, service);
        visit(service);
    }
}

void ServiceDb::copyTo(ChannelSink& sink) const {
    std::map<int, int> groups = {{0, 0}};  // those of a received database need not count from 1
    {
        const Database database(this->database(), Database::Access::Look);
        Statement query(database, "SELECT number, name FROM channel_groups ORDER BY number");
        while (query.next()) {
            sink.addGroup(query.text(1));
            groups.emplace(static_cast<int>(query.integer(0)), static_cast<int>(groups.size()));
        }
    }
    forEach([&](const Service& service) {
        Service copy = service;
        copy.group = groups[service.group];
        sink.addService(copy);
    });
    for (const ListHeader& header : headers()) {
        sink.addHeader(header);
    }
}

std::vector<Service> ServiceDb::services() const {
    std::vector<Service> services;
    forEach([&](const Service& service) { services.push_back(service); });
    return services;
}

std::vector<ListHeader> ServiceDb::headers() const {
    const Database database(this->database(), Database::Access::Look);
    Statement query(database, "SELECT before, line FROM list_headers ORDER BY rowid");
    std::vector<ListHeader> headers;
    while (query.next()) {
        headers.push_back({static_cast<int>(query.integer(0)), query.text(1)});
    }
    return headers;
}

std::string ServiceDb::ipServices() const {
    return readFile(ipsrv());
}

}  // namespace sim
