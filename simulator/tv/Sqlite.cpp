#include "simulator/tv/Sqlite.h"

#include <SQLiteCpp/SQLiteCpp.h>

namespace fs = std::filesystem;

namespace sim {

SQLite::Database openReadOnly(const fs::path& path) {
    return {path.string(), SQLite::OPEN_READONLY};
}

SQLite::Database openNew(const fs::path& path) {
    return {path.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE};
}

void snapshotDatabase(const fs::path& path, const fs::path& copy) {
    const SQLite::Database database = openReadOnly(path);
    SQLite::Statement vacuum(database, "VACUUM INTO ?");
    vacuum.bind(1, copy.string());
    vacuum.exec();
}

bool isIntact(SQLite::Database& database) {
    return database.execAndGet("PRAGMA integrity_check").getString() == "ok";
}

}  // namespace sim
