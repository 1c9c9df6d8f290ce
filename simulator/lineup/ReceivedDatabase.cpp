#include "simulator/lineup/ReceivedDatabase.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
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

std::string list(const std::vector<std::string>& columns) {
    return fmt::format("\"{}\"", fmt::join(columns, "\", \""));
}

}  // namespace

// Puts rows into a table as they are. They go in by the batch: to begin and to end a statement costs as much as a row.
class ReceivedDatabase::Insertion {
public:
    Insertion(Database& target, const std::string& table, const std::vector<std::string>& columns)
        : m_target(target),
          m_table(fmt::format("\"{}\"({})", table, list(columns))),
          m_columns(static_cast<int>(columns.size())) {}

    void add(const Statement& row) {
        for (int i = 0; i < m_columns; ++i) {
            m_values.push_back(take(row.m_statement.get(), i));
        }
        if (++m_rows == MOST_ROWS) {
            if (!m_batch) {
                m_batch.emplace(m_target, sql());
            }
            insert(*m_batch);
        }
    }

    // Puts in what waits.
    void finish() {
        if (m_rows > 0) {
            Statement rest(m_target, sql());
            insert(rest);
        }
    }

private:
    static constexpr int MOST_ROWS = 64;

    struct Free {
        void operator()(sqlite3_value* value) const { sqlite3_value_free(value); }
    };

    // A number, a text among m_texts, or anything else.
    struct Value {
        int type = 0;
        std::int64_t number = 0;
        std::size_t begin = 0;
        std::size_t size = 0;
        std::unique_ptr<sqlite3_value, Free> other;
    };

    Value take(sqlite3_stmt* row, int column) {
        Value value;
        value.type = sqlite3_column_type(row, column);
        if (value.type == SQLITE_INTEGER) {
            value.number = sqlite3_column_int64(row, column);
        } else if (value.type == SQLITE_TEXT) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
            value.begin = m_texts.size();
            value.size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
            m_texts.append(text, value.size);
        } else {
            value.other.reset(sqlite3_value_dup(sqlite3_column_value(row, column)));
        }
        return value;
    }

    void bind(sqlite3_stmt* statement, int parameter, const Value& value) const {
        if (value.type == SQLITE_INTEGER) {
            sqlite3_bind_int64(statement, parameter, value.number);
        } else if (value.type == SQLITE_TEXT) {
            sqlite3_bind_text64(statement, parameter, m_texts.data() + value.begin, value.size, SQLITE_STATIC,
                                SQLITE_UTF8);
        } else {
            sqlite3_bind_value(statement, parameter, value.other.get());
        }
    }

    // For as many rows as wait.
    std::string sql() const {
        const std::vector<const char*> parameters(static_cast<std::size_t>(m_columns), "?");
        const std::vector<std::string> rows(static_cast<std::size_t>(m_rows),
                                            fmt::format("({})", fmt::join(parameters, ", ")));
        return fmt::format("INSERT INTO {} VALUES {}", m_table, fmt::join(rows, ", "));
    }

    void insert(Statement& statement) {
        int parameter = 0;
        for (const Value& value : m_values) {
            bind(statement.m_statement.get(), ++parameter, value);
        }
        statement.run();
        m_values.clear();
        m_texts.clear();
        m_rows = 0;
    }

    Database& m_target;
    std::string m_table;
    int m_columns;
    std::vector<Value> m_values;  // row after row
    std::string m_texts;
    int m_rows = 0;
    std::optional<Statement> m_batch;
};

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
    Insertion insertion(target, table.name, columns);
    std::uint64_t count = 0;
    for (; rows.next(); ++count) {
        insertion.add(rows);
    }
    insertion.finish();
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
