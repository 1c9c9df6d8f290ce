#include "simulator/tv/IssDb.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/tv/Sqlite.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

bool isWhole(const fs::path& path) {
    try {
        SQLite::Database database = openReadOnly(path);
        const SQLite::Statement entries(database, "SELECT key, value FROM iss");
        return isIntact(database);
    } catch (const SQLite::Exception&) {
        return false;
    }
}

}  // namespace

void IssDb::create(const Entries& entries) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path built = scratch / "iss.db";
    {
        SQLite::Database database = openNew(built);
        SQLite::Transaction transaction(database);
        database.exec("CREATE TABLE iss(key TEXT PRIMARY KEY, value TEXT NOT NULL)");
        for (const auto& [key, value] : entries) {
            SQLite::Statement insert(database, "INSERT INTO iss VALUES(?, ?)");
            SQLite::bind(insert, key, value);
            insert.exec();
        }
        transaction.commit();
    }
    putInPlace(built, m_file);
}

void IssDb::snapshot(const fs::path& archive) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path copy = scratch / "iss.db";
    snapshotDatabase(m_file, copy);
    writeArchive(archive, {copy});
}

IssDb::Entries IssDb::entries() const {
    const SQLite::Database database = openReadOnly(m_file);
    SQLite::Statement query(database, "SELECT key, value FROM iss");
    Entries entries;
    while (query.executeStep()) {
        entries.emplace(query.getColumn(0).getString(), query.getColumn(1).getString());
    }
    return entries;
}

bool IssDb::restore(const fs::path& archive) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path received = scratch / "received.db";
    const fs::path built = scratch / "iss.db";
    try {
        if (!extractEntry(archive, "iss.db", received) || !isWhole(received)) {
            return false;
        }
        snapshotDatabase(received, built);  // without a journal of its own
        putInPlace(built, m_file);
    } catch (const Error&) {
        return false;
    } catch (const fs::filesystem_error&) {
        return false;
    }
    return true;
}

}  // namespace sim
