#include "simulator/tv/IssDb.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>

#include "simulator/tv/Archive.h"
#include "simulator/tv/Error.h"
#include "simulator/tv/Files.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

bool isWhole(const fs::path& path) {
    try {
        const SQLite::Database database(path.string(), SQLite::OPEN_READONLY);
        SQLite::Statement integrity(database, "PRAGMA integrity_check");
        return integrity.executeStep() && integrity.getColumn(0).getString() == "ok" && database.tableExists("iss");
    } catch (const SQLite::Exception&) {
        return false;
    }
}

}  // namespace

void IssDb::create(const Entries& entries) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path built = scratch / "iss.db";
    {
        SQLite::Database database(built.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
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
    {
        const SQLite::Database database(m_file.string(), SQLite::OPEN_READONLY);
        SQLite::Statement vacuum(database, "VACUUM INTO ?");
        vacuum.bind(1, copy.string());
        vacuum.exec();
    }
    writeArchive(archive, {copy});
}

IssDb::Entries IssDb::entries() const {
    const SQLite::Database database(m_file.string(), SQLite::OPEN_READONLY);
    SQLite::Statement query(database, "SELECT key, value FROM iss");
    Entries entries;
    while (query.executeStep()) {
        entries.emplace(query.getColumn(0).getString(), query.getColumn(1).getString());
    }
    return entries;
}

bool IssDb::restore(const fs::path& archive) const {
    const ScratchFolder scratch(m_file.parent_path());
    const fs::path built = scratch / "iss.db";
    try {
        if (!extractEntry(archive, "iss.db", built) || !isWhole(built)) {
            return false;
        }
        putInPlace(built, m_file);
    } catch (const Error&) {
        return false;
    } catch (const fs::filesystem_error&) {
        return false;
    }
    return true;
}

}  // namespace sim
