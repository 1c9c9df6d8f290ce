// SQLite databases as files that are made, copied and judged as a whole.
#pragma once

#include <SQLiteCpp/Database.h>

#include <filesystem>

namespace sim {

SQLite::Database openReadOnly(const std::filesystem::path& path);
SQLite::Database openNew(const std::filesystem::path& path);

// Copies a database as it is at one moment, whoever writes to it.
void snapshotDatabase(const std::filesystem::path& path, const std::filesystem::path& copy);

// Whether the database passes SQLite's own check. Throws SQLite::Exception where it is none.
bool isIntact(SQLite::Database& database);

}  // namespace sim
