// A channel list that its user has edited in a spreadsheet, applied to the TV that it is of.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/lineup/ServiceDb.h"

namespace sim {

struct TableEdit {
    std::size_t changed = 0;            // channels that are not as before
    std::size_t missing = 0;            // that the table does not have
    std::size_t skipped = 0;            // rows
    std::vector<std::string> problems;  // a line for each of the first that were skipped: file, line, reason
    std::vector<std::string> notes;     // the same for what was taken, but not as it stands there
};

// Gives each service that a table (CSV) has what its owner can set: number, name, places in favourite lists, lock and
// hide; where the table has no column of numbers, the order of the rows gives them. Services are told by their
// identities. Those that are missing are removed, or stay: on their numbers, or behind all if those are taken. `before`
// has the services of the database. Throws Error, before which the database may have changed, if the table cannot be
// read or has none of the services.
TableEdit applyTable(Database& database, const Services& before, const std::filesystem::path& table,
                     const std::string& encoding, bool removesMissing);

}  // namespace sim
