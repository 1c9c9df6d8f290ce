// SQLite databases. Every function that fails throws Error: Damaged if the file or its tables are not what they should
// be, Locked if another process keeps the database locked, or the kind of the system's error.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

struct sqlite3;
struct sqlite3_stmt;

namespace sim {

class Database;

// A prepared statement. It must not outlive its database.
class Statement {
public:
    Statement(const Database& database, std::string_view sql);

    // Resets the statement and binds these values to its parameters; std::nullopt is NULL.
    template <typename... Values>
    Statement& bind(const Values&... values) {
        reset();
        int parameter = 0;
        (set(++parameter, values), ...);
        return *this;
    }

    // Binds one parameter, counted from 1. The statement must not be at a row.
    template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    void set(int parameter, Integer value) {
        setInteger(parameter, static_cast<std::int64_t>(value));
    }
    void set(int parameter, std::string_view value);
    template <typename Value>
    void set(int parameter, const std::optional<Value>& value) {
        if (value) {
            set(parameter, *value);
        } else {
            setNull(parameter);
        }
    }

    // Steps to the next row. Returns false if there is none, and resets the statement, so that it holds no lock.
    bool next();

    // Steps to its end.
    void run();

    // The columns of the current row, counted from 0.
    std::int64_t integer(int column) const;
    std::string_view view(int column) const;  // valid until the next row
    std::string text(int column) const { return std::string(view(column)); }

private:
    // Releases the lock on the database; what is bound stays bound.
    void reset();
    void check(int code);
    void setInteger(int parameter, std::int64_t value);
    void setNull(int parameter);
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> m_statement;
    std::string m_name;  // of the database, for messages
};

class Database {
public:
    enum class Access {
        Look,    // reads only, and needs no right to write, not even to the folder. Whoever made it, looking ends: see
                 // confine(); and a file that is no regular one is Damaged
        Change,  // reads and writes; the file must exist
        Create,  // reads and writes, and creates the file if it does not exist
    };

    Database(const std::filesystem::path& file, Access access);

    // Makes one that is not in place yet, and gone after a crash: it needs no journal, and is synced as a whole
    // when it is put in place.
    static Database makeBeside(const std::filesystem::path& file, const std::string& schema);

    // Attaches a file that nobody changes under a name, for reading only.
    void attach(const std::filesystem::path& file, std::string_view name);

    // Runs statements without parameters and rows.
    void run(const std::string& script);

    // Runs one statement and returns the number of rows that it changed. Throws Error (Locked) if another file is in
    // the place of the database that was opened.
    template <typename... Values>
    std::int64_t change(std::string_view sql, const Values&... values) {
        requireInPlace();
        Statement(*this, sql).bind(values...).run();
        return changes();
    }

    // The first column of a query's first row; nothing if there is no row.
    template <typename... Values>
    std::optional<std::int64_t> integer(std::string_view sql, const Values&... values) const {
        Statement query(*this, sql);
        return query.bind(values...).next() ? std::optional(query.integer(0)) : std::nullopt;
    }

    std::int64_t lastRow() const;
    std::int64_t changes() const;  // rows that the last INSERT, UPDATE or DELETE changed

    // Copies the database as it is at one moment, even if others write to it, to a file that does not exist yet.
    void snapshot(const std::filesystem::path& copy) const;

    // The same as the bytes of a file.
    std::string image() const;

private:
    friend class Statement;
    friend class Transaction;
    friend class ReceivedDatabase;

    void open(const std::string& name, int flags);
    void openToLook(const std::filesystem::path& file);

    // From now on nothing of a schema is run: no view, no trigger, no function. Rows and texts of statements have
    // limits, and all statements together a budget of steps.
    void confine(int maxRowBytes, std::uint64_t maxSteps);
    void endBudget();
    void requireInPlace() const;

    std::unique_ptr<sqlite3, int (*)(sqlite3*)> m_database;
    std::string m_name;
    std::unique_ptr<std::int64_t> m_checksLeft;  // of the budget; SQLite counts it down
};

// Undoes the changes of its scope at the end, unless commit() was called.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& m_database;
    bool m_isOpen = true;
};

}  // namespace sim
