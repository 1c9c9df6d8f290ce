// A database that comes from outside, and may be made to do harm. It is attached to one of our own for reading only,
// under limits and with a budget of steps; nothing of its schema is run (no view, no trigger, no function); only rows
// of real tables of known names and columns are copied into tables of our own, whose types and constraints they must
// fit.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "simulator/base/Database.h"
#include "simulator/base/Error.h"

namespace sim {

// Whether an error is due to what was received, and not to this machine.
inline bool isOfReceived(const Error& error) {
    return error.kind() == Error::Kind::Damaged || error.kind() == Error::Kind::Missing;
}

class ReceivedDatabase {
public:
    // A table that is expected, with its columns.
    struct Table {
        std::string name;
        std::vector<std::string> columns;
        std::vector<std::string> optionalColumns;  // which older databases do not have; they get their default
    };

    // Attaches the file to `target`, which must outlive this, be in no transaction, and stays under the limits. Throws
    // Error (Damaged) if the file is no database, or fails SQLite's own check.
    ReceivedDatabase(const std::filesystem::path& file, Database& target);
    ~ReceivedDatabase();
    ReceivedDatabase(const ReceivedDatabase&) = delete;
    ReceivedDatabase& operator=(const ReceivedDatabase&) = delete;

    // Whether there is a real table of that name.
    bool has(const Table& table) const { return !realColumnsOf(table).empty(); }

    // What keeps its rows from being copied: it is no real table with such real columns. Empty if nothing does.
    std::string mismatch(const Table& table) const;

    // Copies the rows of a table into that of the same name and columns in the target. Throws Error (Damaged) if there
    // is no such real table with such real columns, or if its rows do not fit. Returns the number of rows.
    std::uint64_t copy(const Table& table);

private:
    std::set<std::string> realColumnsOf(const Table& table) const;

    Database& m_target;
};

}  // namespace sim
