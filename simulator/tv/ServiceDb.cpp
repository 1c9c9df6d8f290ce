#include "simulator/tv/ServiceDb.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/tv/ChannelList.h"
#include "simulator/tv/Sqlite.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char SCHEMA[] = R"(
CREATE TABLE meta(service_count INTEGER NOT NULL);
CREATE TABLE channel_groups(number INTEGER PRIMARY KEY, name TEXT NOT NULL);
CREATE TABLE services(
    id INTEGER PRIMARY KEY, number INTEGER NOT NULL UNIQUE, identity TEXT NOT NULL UNIQUE, name TEXT NOT NULL,
    short_name TEXT NOT NULL, provider TEXT NOT NULL, type TEXT NOT NULL CHECK(type IN ('tv', 'radio')),
    channel_group INTEGER REFERENCES channel_groups(number), source TEXT NOT NULL, frequency_hz INTEGER NOT NULL,
    symbol_rate INTEGER NOT NULL, parameters TEXT NOT NULL, video_pid TEXT NOT NULL, audio_pids TEXT NOT NULL,
    text_pids TEXT NOT NULL, conditional_access TEXT NOT NULL, sid INTEGER NOT NULL, nid INTEGER NOT NULL,
    tid INTEGER NOT NULL, rid INTEGER NOT NULL);
)";

// By name, so that the order of the received columns does not matter.
constexpr char ADOPT[] = R"(
INSERT INTO channel_groups SELECT number, name FROM received.channel_groups;
INSERT INTO services
    SELECT id, number, identity, name, short_name, provider, type, channel_group, source, frequency_hz, symbol_rate,
        parameters, video_pid, audio_pids, text_pids, conditional_access, sid, nid, tid, rid
    FROM received.services;
INSERT INTO meta SELECT service_count FROM received.meta;
)";

void insertServices(SQLite::Database& database, const ChannelList& list) {
    SQLite::Statement insertGroup(database, "INSERT INTO channel_groups(name) VALUES(?)");
    for (const std::string& name : list.groups) {
        insertGroup.bind(1, name);
        insertGroup.exec();
        insertGroup.reset();
    }
    SQLite::Statement insert(
        database,
        "INSERT INTO services VALUES(NULL, ?, ?, ?, ?, ?, ?, nullif(?, 0), ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const Service& service : list.services) {
        SQLite::bind(insert, service.number, service.identity, service.name, service.shortName, service.provider,
                     service.radio ? "radio" : "tv", service.group, service.source,
                     static_cast<std::int64_t>(service.frequency), service.symbolRate, service.parameters,
                     service.videoPid, service.audioPids, service.textPids,
                     fmt::format("{:04X}", fmt::join(service.conditionalAccess, ",")), service.sid, service.nid,
                     service.tid, service.rid);
        insert.exec();
        insert.reset();
    }
}

// Judges a database from outside, and rebuilds it in tables of this TV's own making, so that nothing but rows comes in.
std::optional<ReplaceStatus> adopt(const fs::path& received, const fs::path& built) {
    try {
        SQLite::Database database = openReadOnly(received);
        if (!isIntact(database)) {
            return ReplaceStatus::DatabaseDamaged;
        }
    } catch (const SQLite::Exception&) {
        return ReplaceStatus::DatabaseDamaged;
    }
    try {
        SQLite::Database database = openNew(built);
        database.exec(SCHEMA);
        SQLite::Statement attach(database, "ATTACH ? AS received");
        attach.bind(1, received.string());
        attach.exec();
        SQLite::Transaction transaction(database);
        database.exec(ADOPT);
        SQLite::Statement counts(database, "SELECT (SELECT count(*) FROM services), (SELECT service_count FROM meta)");
        counts.executeStep();
        const int count = counts.getColumn(0);
        if (count == 0 || count != counts.getColumn(1).getInt()) {
            return ReplaceStatus::CountDiffers;
        }
        counts.reset();
        transaction.commit();
    } catch (const SQLite::Exception&) {
        return ReplaceStatus::TablesDiffer;
    }
    return std::nullopt;
}

std::uint64_t scalar(const fs::path& path, const char* query) {
    SQLite::Database database = openReadOnly(path);
    return static_cast<std::uint64_t>(database.execAndGet(query).getInt64());
}

}  // namespace

void ServiceDb::create(const ChannelList& list, const std::string& ipServices) const {
    const ScratchFolder scratch(m_folder);
    {
        SQLite::Database database = openNew(scratch / "services.db");
        SQLite::Transaction transaction(database);
        database.exec(SCHEMA);
        insertServices(database, list);
        database.exec("INSERT INTO meta SELECT count(*) FROM services");
        transaction.commit();
    }
    writeFile(scratch / "ipsrv", ipServices);
    putInPlace(scratch / "ipsrv", ipsrv());
    putInPlace(scratch / "services.db", database());
}

void ServiceDb::snapshot(const fs::path& archive) const {
    const ScratchFolder scratch(m_folder);
    const fs::path copy = scratch / "services.db";
    snapshotDatabase(database(), copy);
    writeArchive(archive, {copy, ipsrv()});
}

std::optional<ReplaceStatus> ServiceDb::replace(const fs::path& archive) const {
    const ScratchFolder scratch(m_folder);
    const fs::path received = scratch / "received.db";
    const fs::path built = scratch / "services.db";
    try {
        if (!extractEntry(archive, "services.db", received)) {
            return ReplaceStatus::NoDatabase;
        }
    } catch (const Error&) {
        return ReplaceStatus::ArchiveUnreadable;
    }
    if (const std::optional<ReplaceStatus> problem = adopt(received, built)) {
        return problem;
    }
    try {
        putInPlace(built, database());
    } catch (const fs::filesystem_error&) {
        return ReplaceStatus::NotPutInPlace;
    }
    return std::nullopt;
}

bool ServiceDb::exists(std::uint64_t serviceId) const {
    const SQLite::Database database = openReadOnly(this->database());
    SQLite::Statement query(database, "SELECT 1 FROM services WHERE id = ?");
    query.bind(1, static_cast<std::int64_t>(serviceId));
    return query.executeStep();
}

std::uint64_t ServiceDb::firstService() const {
    return scalar(database(), "SELECT id FROM services ORDER BY number LIMIT 1");
}

std::uint64_t ServiceDb::groupCount() const {
    return scalar(database(), "SELECT count(*) FROM channel_groups");
}

std::vector<ServiceDb::Row> ServiceDb::services() const {
    const SQLite::Database database = openReadOnly(this->database());
    SQLite::Statement query(database,
                            "SELECT services.*, coalesce(channel_groups.name, '') AS channel_group_name FROM services "
                            "LEFT JOIN channel_groups ON channel_groups.number = channel_group ORDER BY id");
    std::vector<Row> rows;
    while (query.executeStep()) {
        Row row;
        for (int i = 0; i < query.getColumnCount(); ++i) {
            row.emplace(query.getColumnName(i), query.getColumn(i).getString());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::string ServiceDb::ipServices() const {
    return readFile(ipsrv());
}

std::uint64_t ServiceDb::countInBundle(const fs::path& bundle) {
    const ScratchFolder scratch(fs::temp_directory_path());
    const fs::path archive = scratch / "ServiceDB.zip";
    const fs::path database = scratch / "services.db";
    if (!extractEntry(bundle, "ServiceDB.zip", archive) || !extractEntry(archive, "services.db", database)) {
        throw Error(fmt::format("{}: no channel database in it", bundle.string()));
    }
    return scalar(database, "SELECT count(*) FROM services");
}

}  // namespace sim
