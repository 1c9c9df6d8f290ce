// SQLite databases, behind one wall: rows leave it, and no exception but Error, whose kind says what is wrong.
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

    // Starts anew with these values for its parameters; std::nullopt is NULL.
    template <typename... Values>
    Statement& bind(const Values&... values) {
        reset();
        int parameter = 0;
        (set(++parameter, values), ...);
        return *this;
    }

    // Sets one parameter, from 1 on. The statement must be at its begin or end.
    template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    void set(int parameter, Integer value) {
        setInteger(parameter, static_cast<std::int64_t>(value));
    }
    void set(int parameter, std::string_view value);
    void set(int parameter, const std::string& value) { set(parameter, std::string_view(value)); }
    void set(int parameter, const char* value) { set(parameter, std::string_view(value)); }
    template <typename Value>
    void set(int parameter, const std::optional<Value>& value) {
        if (value) {
            set(parameter, *value);
        } else {
            setNull(parameter);
        }
    }

    // Steps to the next row. False: there is none, and the statement has been reset, so that it holds no lock.
    bool next();

    // Steps to its end.
    void run();

    // The columns of the present row, from 0 on.
    std::int64_t integer(int column) const;
    std::string_view view(int column) const;  // good until the next row
    std::string text(int column) const { return std::string(view(column)); }
    std::optional<std::int64_t> optionalInteger(int column) const;

private:
    // Lets go of the database; what is bound stays bound.
    void reset();
    void check(int code);
    void setInteger(int parameter, std::int64_t value);
    void setNull(int parameter);
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
    std::string m_name;  // of the database, for messages
};

class Database {
public:
    enum class Access {
        Look,    // reads only, and needs no right to write, not even to the folder
        Change,  // reads and writes one that is there
        Create,  // makes it
    };

    Database(const std::filesystem::path& file, Access access);

    // Makes one that is still beside its place, and gone after a crash: it needs no journal on the disk, and is synced
    // whole when it is put in place.
    static Database makeBeside(const std::filesystem::path& file, const std::string& schema);

    // Attaches a file that nobody changes under a name, for reading only.
    void attach(const std::filesystem::path& file, std::string_view name);

    // Runs statements that need no values and give no rows.
    void run(const std::string& script);

    // Runs one statement. The number of rows that it changed.
    template <typename... Values>
    std::int64_t change(std::string_view sql, const Values&... values) {
        Statement(*this, sql).bind(values...).run();
        return changes();
    }

    // The first column of the first row that a query brings.
    template <typename... Values>
    std::optional<std::int64_t> integer(std::string_view sql, const Values&... values) const {
        Statement query(*this, sql);
        return query.bind(values...).next() ? std::optional(query.integer(0)) : std::nullopt;
    }

    std::int64_t lastRow() const;
    std::int64_t changes() const;  // of the last statement that changes rows

    // Copies the database as it is at one moment, whoever writes to it, into a file that is not there.
    void snapshot(const std::filesystem::path& copy) const;

private:
    friend class Statement;
    friend class Transaction;
    friend class ReceivedDatabase;

    void open(const std::string& name, int flags);
    bool canRead() const;

    struct Close {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Close> m_database;
    std::string m_name;
};

// All changes of the scope, or none: they are undone at its end unless commit() was called.
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
