#include "simulator/tv/ReceivedDatabase.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr int MOST_BYTES_OF_A_ROW = limits::ROW_BYTES;
constexpr int MOST_COLUMNS = 100;
constexpr int MOST_STEPS_OF_A_STATEMENT = 10'000;

// A byte of a plain table costs about a step, for checking and copying it; what takes more is no plain table.
constexpr std::uint64_t STEPS_AT_LEAST = 2'000'000;
constexpr std::uint64_t STEPS_A_BYTE = 4;
constexpr int STEPS_BETWEEN_CHECKS = 1000;

std::int64_t checksFor(std::uint64_t bytes) {
    return static_cast<std::int64_t>((STEPS_AT_LEAST + STEPS_A_BYTE * bytes) / STEPS_BETWEEN_CHECKS);
}

// Called every STEPS_BETWEEN_CHECKS steps; non-zero interrupts.
int spend(void* checksLeft) {
    return --*static_cast<std::int64_t*>(checksLeft) < 0 ? 1 : 0;
}

void confine(sqlite3* database) {
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, MOST_BYTES_OF_A_ROW);
    sqlite3_limit(database, SQLITE_LIMIT_SQL_LENGTH, MOST_BYTES_OF_A_ROW);
    sqlite3_limit(database, SQLITE_LIMIT_COLUMN, MOST_COLUMNS);
    sqlite3_limit(database, SQLITE_LIMIT_VDBE_OP, MOST_STEPS_OF_A_STATEMENT);
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
}

// Binds the value of a row's column as it is, without a copy: it has to be used before the row is left.
void bindColumn(sqlite3_stmt* row, int column, sqlite3_stmt* target) {
    const int parameter = column + 1;
    const auto size = [&] { return static_cast<sqlite3_uint64>(sqlite3_column_bytes(row, column)); };
    switch (sqlite3_column_type(row, column)) {
        case SQLITE_INTEGER:
            sqlite3_bind_int64(target, parameter, sqlite3_column_int64(row, column));
            break;
        case SQLITE_TEXT: {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
            sqlite3_bind_text64(target, parameter, text, size(), SQLITE_STATIC, SQLITE_UTF8);
            break;
        }
        default:
            sqlite3_bind_value(target, parameter, sqlite3_column_value(row, column));
    }
}

std::string list(const std::vector<std::string>& columns) {
    return fmt::format("\"{}\"", fmt::join(columns, "\", \""));
}

}  // namespace

ReceivedDatabase::ReceivedDatabase(const fs::path& file)
    : m_database(file, Database::Access::Look), m_checksLeft(checksFor(sizeOf(file))) {
    confine(m_database.m_database.get());
    sqlite3_progress_handler(m_database.m_database.get(), STEPS_BETWEEN_CHECKS, &spend, &m_checksLeft);
    Statement check(m_database, "PRAGMA integrity_check(1)");
    if (!check.next() || check.text(0) != "ok") {
        throw Error(Error::Kind::Damaged, fmt::format("{}: {}", file.string(), check.text(0)));
    }
}

bool ReceivedDatabase::has(const Table& table) const {
    Statement real(m_database, "SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ? AND rootpage > 0");
    return real.bind(table.name).next();
}

std::uint64_t ReceivedDatabase::copy(const Table& table, Database& target) const {
    const std::vector<std::string> columns = realColumnsOf(table);
    Statement rows(m_database, fmt::format("SELECT {} FROM \"{}\" NOT INDEXED", list(columns), table.name));
    const std::vector<std::string> parameters(columns.size(), "?");
    Statement insert(target, fmt::format("INSERT INTO \"{}\"({}) VALUES({})", table.name, list(columns),
                                         fmt::join(parameters, ", ")));
    std::uint64_t count = 0;
    for (; rows.next(); ++count) {
        for (int i = 0; i < static_cast<int>(columns.size()); ++i) {
            bindColumn(rows.m_statement.get(), i, insert.m_statement.get());
        }
        insert.run();
    }
    return count;
}

// Those that are wanted, of neither a view nor a virtual table, and none of them computed.
std::vector<std::string> ReceivedDatabase::realColumnsOf(const Table& table) const {
    Statement columns(m_database, "SELECT name FROM pragma_table_xinfo(?) WHERE hidden = 0");
    std::set<std::string> present;
    bool isReal = has(table);
    for (columns.bind(table.name); isReal && columns.next();) {
        present.insert(columns.text(0));
    }
    isReal = isReal && std::all_of(table.columns.begin(), table.columns.end(),
                                   [&](const std::string& column) { return present.count(column) == 1; });
    if (!isReal) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: no table {} with the columns {}", m_database.m_name,
                                                      table.name, list(table.columns)));
    }
    std::vector<std::string> wanted = table.columns;
    std::copy_if(table.optionalColumns.begin(), table.optionalColumns.end(), std::back_inserter(wanted),
                 [&](const std::string& column) { return present.count(column) == 1; });
    return wanted;
}

}  // namespace sim
