// A database that comes from outside, and may be made to do harm. It is opened for reading only, under limits and with
// a budget of steps; nothing of its schema is run (no view, no trigger, no function); only rows of real tables of known
// names and columns are copied into tables of our own, whose types and constraints they must fit.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/base/Database.h"

namespace sim {

class ReceivedDatabase {
public:
    // A table that is looked for, with the columns that are.
    struct Table {
        std::string name;
        std::vector<std::string> columns;
        std::vector<std::string> optionalColumns;  // which older databases do not have; they get their default
    };

    // Throws Error (Damaged) where the file is no database, or fails SQLite's own check.
    explicit ReceivedDatabase(const std::filesystem::path& file);
    ReceivedDatabase(const ReceivedDatabase&) = delete;
    ReceivedDatabase& operator=(const ReceivedDatabase&) = delete;

    // Whether there is a real table of that name.
    bool has(const Table& table) const;

    // Copies the rows of a table into that of the same name and columns in `target`. Throws Error (Damaged) where there
    // is no such real table with such real columns, or where its rows do not fit. The number of rows.
    std::uint64_t copy(const Table& table, Database& target) const;

private:
    class Insertion;

    std::vector<std::string> realColumnsOf(const Table& table) const;

    Database m_database;
    mutable std::int64_t m_checksLeft;  // of the budget; SQLite counts it down
};

}  // namespace sim
