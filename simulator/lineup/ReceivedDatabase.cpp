#include "simulator/lineup/ReceivedDatabase.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Checking and copying a plain table takes fewer steps than this for each of its bytes; what takes more is none.
constexpr std::uint64_t MIN_STEPS = 2'000'000;
constexpr std::uint64_t STEPS_PER_BYTE = 4;

}  // namespace

ReceivedDatabase::ReceivedDatabase(const fs::path& file, Database& target) : m_target(target) {
    target.confine(limits::ROW_BYTES, MIN_STEPS + STEPS_PER_BYTE * sizeOf(file));
    target.attach(file, "received");
    // Before any row is read, so that damage is told as damage, and not as rows that do not fit.
    Statement check(target, "PRAGMA received.integrity_check(1)");
    if (!check.next() || check.text(0) != "ok") {
        throw Error(Error::Kind::Damaged, fmt::format("{}: {}", file.string(), check.text(0)));
    }
}

ReceivedDatabase::~ReceivedDatabase() {
    m_target.endBudget();
}

std::string ReceivedDatabase::mismatch(const Table& table) const {
    const std::set<std::string> real = realColumnsOf(table);
    std::vector<std::string> lacking;
    std::copy_if(table.columns.begin(), table.columns.end(), std::back_inserter(lacking),
                 [&](const std::string& column) { return real.count(column) == 0; });
    return lacking.empty() ? "" : fmt::format("no table {} with the columns {}", table.name, fmt::join(lacking, ", "));
}

std::uint64_t ReceivedDatabase::copy(const Table& table) {
    if (const std::string problem = mismatch(table); !problem.empty()) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: {}", m_target.m_name, problem));
    }
    const std::set<std::string> real = realColumnsOf(table);
    const auto isReal = [&](const std::string& column) { return real.count(column) == 1; };
    std::vector<std::string> wanted = table.columns;
    std::copy_if(table.optionalColumns.begin(), table.optionalColumns.end(), std::back_inserter(wanted), isReal);
    const std::string columns = fmt::format("\"{}\"", fmt::join(wanted, "\", \""));
    // An index may be made to be costly, or to lie.
    return static_cast<std::uint64_t>(m_target.change(fmt::format(
        "INSERT INTO main.\"{0}\"({1}) SELECT {1} FROM received.\"{0}\" NOT INDEXED", table.name, columns)));
}

// None of a view or a virtual table, and none that is computed.
std::set<std::string> ReceivedDatabase::realColumnsOf(const Table& table) const {
    Statement query(m_target,
                    "SELECT columns.name FROM received.sqlite_schema AS tables, "
                    "pragma_table_xinfo(tables.name, 'received') AS columns "
                    "WHERE tables.type = 'table' AND tables.rootpage > 0 AND tables.name = ? AND columns.hidden = 0");
    std::set<std::string> columns;
    for (query.bind(table.name); query.next();) {
        columns.insert(query.text(0));
    }
    return columns;
}

}  // namespace sim
