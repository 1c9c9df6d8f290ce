#include "simulator/base/Database.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cstring>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr int BUSY_TIMEOUT_MS = 10'000;
constexpr int MAX_STATEMENT_STEPS = 10'000;  // of a confined database

Error::Kind kindOfSqliteCode(int code, int systemError) {
    switch (code & 0xFF) {
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH:
        case SQLITE_ERROR:      // the statements are right, so the tables are not
        case SQLITE_TOOBIG:     // more than a limit allows
        case SQLITE_INTERRUPT:  // more steps than a budget allows
            return Error::Kind::Damaged;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return Error::Kind::Locked;
        case SQLITE_FULL:
            return Error::Kind::Full;
        case SQLITE_CANTOPEN:
        case SQLITE_IOERR:
            return kindOfErrno(systemError);
        default:
            return Error::Kind::Unusable;
    }
}

[[noreturn]] void failAsMoved(const std::string& name) {
    throw Error(Error::Kind::Locked, fmt::format("{}: another has taken its place just now; try again", name));
}

[[noreturn]] void fail(sqlite3* database, const std::string& name) {
    const int code = sqlite3_extended_errcode(database);
    const int systemError = sqlite3_system_errno(database);
    const bool isOfSystem = (code & 0xFF) == SQLITE_CANTOPEN || (code & 0xFF) == SQLITE_IOERR;
    std::string reason = sqlite3_errmsg(database);
    if (isOfSystem && systemError != 0) {
        reason = fmt::format("{}: {}", reason, std::strerror(systemError));
    }
    // A reset puts another file in the place of one that is open here, and SQLite no longer writes to that.
    int hasMoved = 0;
    sqlite3_file_control(database, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    if (code == SQLITE_READONLY_DBMOVED || (hasMoved != 0 && (code & 0xFF) == SQLITE_IOERR)) {
        failAsMoved(name);
    }
    // How SQLite says that a statement is longer than the limit.
    if (code == SQLITE_NOMEM && sqlite3_limit(database, SQLITE_LIMIT_VDBE_OP, -1) == MAX_STATEMENT_STEPS) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: more tables or columns than the limit of {} steps allows",
                                                      name, MAX_STATEMENT_STEPS));
    }
    if (code == SQLITE_INTERRUPT) {
        reason = "reading it takes more steps than a file of its size should need";
    }
    throw Error(kindOfSqliteCode(code, systemError), fmt::format("{}: {}", name, reason));
}

// A file opened like this is read without locks, and without a file beside it.
std::string immutableUri(const fs::path& file) {
    std::string uri = "file:";
    for (const char c : absolutePath(file).string()) {
        uri += c == '?' || c == '#' || c == '%' ? fmt::format("%{:02x}", static_cast<unsigned char>(c))
                                                : std::string(1, c);
    }
    return uri + "?immutable=1";
}

int flagsFor(Database::Access access) {
    return access == Database::Access::Change
               ? SQLITE_OPEN_READWRITE
               : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI;  // for attach()
}

}  // namespace

Statement::Statement(const Database& database, std::string_view sql)
    : m_statement(nullptr, &sqlite3_finalize), m_name(database.m_name) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database.m_database.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr) !=
        SQLITE_OK) {
        fail(database.m_database.get(), m_name);
    }
    m_statement.reset(statement);
}

bool Statement::next() {
    const int code = sqlite3_step(m_statement.get());
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code != SQLITE_DONE) {
        fail(sqlite3_db_handle(m_statement.get()), m_name);
    }
    // Values can only be bound to a statement that has been reset.
    reset();
    return false;
}

void Statement::run() {
    while (next()) {
    }
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(m_statement.get(), column);
}

std::string_view Statement::view(int column) const {
    // In this order: the size is that of the text which this may have converted the value to.
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(m_statement.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column));
    return bytes != nullptr ? std::string_view(bytes, size) : std::string_view();
}

void Statement::reset() {
    sqlite3_reset(m_statement.get());
}

void Statement::check(int code) {
    if (code != SQLITE_OK) {
        fail(sqlite3_db_handle(m_statement.get()), m_name);
    }
}

void Statement::setInteger(int parameter, std::int64_t value) {
    check(sqlite3_bind_int64(m_statement.get(), parameter, value));
}

void Statement::setNull(int parameter) {
    check(sqlite3_bind_null(m_statement.get(), parameter));
}

void Statement::set(int parameter, std::string_view value) {
    check(sqlite3_bind_text64(m_statement.get(), parameter, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

Database::Database(const fs::path& file, Access access)
    : m_database(nullptr, &sqlite3_close_v2), m_name(file.string()) {
    if (access == Access::Look) {
        openToLook(file);
    } else {
        open(file.string(), flagsFor(access));
    }
}

// Even a reader of a write-ahead log needs a file beside it. If it cannot create that, and there is no log, nobody
// writes to the database. Or its folder has just been replaced: then it is opened again.
void Database::openToLook(const fs::path& file) {
    std::uint64_t bytes = 0;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        const std::string part = file.string() + suffix;
        if (pathExists(part) && !isRegularFile(part)) {
            throw Error(Error::Kind::Damaged, fmt::format("{}: not a regular file", part));
        }
        bytes += pathExists(part) ? sizeOf(part) : 0;
    }
    constexpr int ATTEMPTS = 3;
    for (int i = 0; i < ATTEMPTS; ++i) {
        open(file.string(), SQLITE_OPEN_READONLY);
        // To open a database reads nothing of it yet: this does.
        const int code = sqlite3_exec(m_database.get(), "PRAGMA schema_version", nullptr, nullptr, nullptr) & 0xFF;
        if (code != SQLITE_CANTOPEN && code != SQLITE_READONLY) {
            break;
        }
        if (!pathExists(file.string() + "-wal")) {
            open(immutableUri(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
            break;
        }
    }
    constexpr int MAX_ROW_BYTES = 1 << 20;
    constexpr std::uint64_t MIN_STEPS = 50'000'000;
    constexpr std::uint64_t STEPS_PER_BYTE = 32;  // for all that is asked of it
    confine(MAX_ROW_BYTES, MIN_STEPS + STEPS_PER_BYTE * bytes);
}

void Database::confine(int maxRowBytes, std::uint64_t maxSteps) {
    constexpr int MAX_COLUMNS = 100;
    constexpr int CHECK_INTERVAL = 1000;  // steps
    sqlite3* database = m_database.get();
    // A schema from outside could run functions, views and triggers of its own wherever a table is used.
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, maxRowBytes);
    sqlite3_limit(database, SQLITE_LIMIT_SQL_LENGTH, maxRowBytes);
    sqlite3_limit(database, SQLITE_LIMIT_COLUMN, MAX_COLUMNS);
    sqlite3_limit(database, SQLITE_LIMIT_VDBE_OP, MAX_STATEMENT_STEPS);
    // For attach().
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 1);
    // On the heap: SQLite keeps the address, and this object may be moved.
    m_checksLeft = std::make_unique<std::int64_t>(static_cast<std::int64_t>(maxSteps / CHECK_INTERVAL));
    const auto spend = [](void* checksLeft) { return --*static_cast<std::int64_t*>(checksLeft) < 0 ? 1 : 0; };
    sqlite3_progress_handler(database, CHECK_INTERVAL, spend, m_checksLeft.get());
}

void Database::endBudget() {
    sqlite3_progress_handler(m_database.get(), 0, nullptr, nullptr);
}

Database Database::makeBeside(const fs::path& file, const std::string& schema) {
    Database database(file, Access::Create);
    database.run("PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF; PRAGMA foreign_keys = ON");
    database.run(schema);
    return database;
}

void Database::attach(const fs::path& file, std::string_view name) {
    Statement(*this, "ATTACH ? AS ?").bind(immutableUri(file), name).run();
}

void Database::open(const std::string& name, int flags) {
    // Threads do not share databases, and nobody asks for memory statistics: neither needs a mutex.
    static const int configured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    static_cast<void>(configured);
    sqlite3* database = nullptr;
    const int code = sqlite3_open_v2(name.c_str(), &database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    // Also if it could not be opened: then the handle has the reason, and must be closed.
    m_database.reset(database);
    if (code != SQLITE_OK) {
        fail(database, m_name);
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, BUSY_TIMEOUT_MS);
    sqlite3_exec(database, "PRAGMA temp_store = MEMORY", nullptr, nullptr, nullptr);  // no files outside the TV
}

void Database::run(const std::string& script) {
    if (sqlite3_exec(m_database.get(), script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(m_database.get(), m_name);
    }
}

// With a write-ahead log SQLite does not look: a change would go to the file that was moved away, and be lost.
void Database::requireInPlace() const {
    int hasMoved = 0;
    sqlite3_file_control(m_database.get(), "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    if (hasMoved != 0) {
        failAsMoved(m_name);
    }
}

std::int64_t Database::lastRow() const {
    return sqlite3_last_insert_rowid(m_database.get());
}

std::int64_t Database::changes() const {
    return sqlite3_changes64(m_database.get());
}

void Database::snapshot(const fs::path& copy) const {
    Statement(*this, "VACUUM INTO ?").bind(copy.string()).run();
}

std::string Database::image() const {
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, void (*)(void*)> bytes(sqlite3_serialize(m_database.get(), "main", &size, 0),
                                                                &sqlite3_free);
    if (!bytes) {
        fail(m_database.get(), m_name);
    }
    return {bytes.get(), bytes.get() + size};
}

// Immediate, so that what is read in the transaction still holds when it writes.
Transaction::Transaction(Database& database) : m_database(database) {
    m_database.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (m_isOpen) {
        sqlite3_exec(m_database.m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit() {
    m_database.run("COMMIT");
    m_isOpen = false;
}

}  // namespace sim
