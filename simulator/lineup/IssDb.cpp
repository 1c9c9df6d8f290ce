#include "simulator/lineup/IssDb.h"

#include <fmt/format.h>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/lineup/ReceivedDatabase.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char DATABASE[] = "iss.db";

constexpr char SCHEMA[] = "CREATE TABLE iss(key TEXT PRIMARY KEY, value TEXT NOT NULL) STRICT";

}  // namespace

void adoptIss(const fs::path& archive, const fs::path& built) {
    const ScratchFolder scratch(built.parent_path());
    if (!extractEntry(archive, DATABASE, scratch / DATABASE)) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: holds no {}", archive.string(), DATABASE));
    }
    // Only rows are taken over: a schema from outside could bring triggers and views.
    Database database = Database::makeBeside(built, SCHEMA);
    ReceivedDatabase received(scratch / DATABASE, database);
    Transaction transaction(database);
    received.copy({"iss", {"key", "value"}, {}});
    transaction.commit();
}

void IssDb::create(const Entries& entries) const {
    const ScratchFolder scratch(m_file.parent_path());
    // The block closes the database, which writes what is left of it, before the file is put in place.
    {
        Database database = Database::makeBeside(scratch / DATABASE, SCHEMA);
        Transaction transaction(database);
        for (const auto& [key, value] : entries) {
            database.change("INSERT INTO iss VALUES(?, ?)", key, value);
        }
        transaction.commit();
    }
    putInPlace(scratch / DATABASE, m_file);
}

void IssDb::snapshot(const fs::path& archive, std::time_t time) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path copy = scratch / DATABASE;
    Database(m_file, Database::Access::Look).snapshot(copy);
    writeArchive(archive, {copy}, time);
}

Entries IssDb::entries() const {
    const Database database(m_file, Database::Access::Look);
    Statement query(database, "SELECT key, value FROM iss");
    Entries entries;
    while (query.next()) {
        entries.emplace(query.text(0), query.text(1));
    }
    return entries;
}

bool IssDb::restore(const fs::path& archive) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path built = scratch / DATABASE;
    try {
        adoptIss(archive, built);
        putInPlace(built, m_file);
    } catch (const Error&) {
        return false;
    }
    return true;
}

}  // namespace sim
