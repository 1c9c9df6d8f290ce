#include "simulator/lineup/ChannelFaults.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Service.h"

namespace sim {

namespace {

constexpr std::size_t SHOWN = 3;  // faults of a kind, and services of a fault

// An index may be made to lie.
constexpr char ROWS[] = "FROM received.services NOT INDEXED";

// The texts as one; of many, the first few.
std::string some(const std::vector<std::string>& texts, std::size_t count, const char* separator) {
    const std::string more = count > texts.size() ? fmt::format("{}and {} more", separator, count - texts.size()) : "";
    return fmt::format("{}{}", fmt::join(texts, separator), more);
}

// The services of a query for number and name.
std::vector<std::string> namesIn(Statement& query) {
    std::vector<std::string> names;
    // Stopped early: a hostile list may have a million of them, and reading has a budget.
    while (names.size() < SHOWN && query.next()) {
        names.push_back(fmt::format("{} {}", query.text(0), inQuotes(query.text(1))));
    }
    return names;
}

void findEqual(const Database& database, const std::string& column, std::vector<std::string>& faults,
               const std::string& condition = "true") {
    Statement values(database, fmt::format("SELECT {0}, count(*) {1} WHERE {2} GROUP BY {0} HAVING count(*) > 1",
                                           column, ROWS, condition));
    Statement services(database, fmt::format("SELECT number, name {} WHERE {} IS ?", ROWS, column));
    std::vector<std::string> found;
    std::size_t count = 0;
    while (values.next()) {
        if (++count <= SHOWN) {
            const auto times = static_cast<std::size_t>(values.integer(1));
            const std::string names = some(namesIn(services.bind(values.text(0))), times, ", ");
            found.push_back(fmt::format("{} {} stands {} times: {}", column, values.text(0), times, names));
        }
    }
    if (count > 0) {
        faults.push_back(some(found, count, "; "));
    }
}

void findWhere(const Database& database, const std::string& condition, const std::string& what,
               std::vector<std::string>& faults) {
    const auto count = database.integer(fmt::format("SELECT count(*) {} WHERE {}", ROWS, condition)).value_or(0);
    if (count > 0) {
        Statement services(database, fmt::format("SELECT number, name {} WHERE {}", ROWS, condition));
        faults.push_back(fmt::format("{}: {}", what, some(namesIn(services), static_cast<std::size_t>(count), ", ")));
    }
}

// What the owner has set. A database of an older version may lack any of these columns.
void findChoiceFaults(const ReceivedDatabase& received, const Database& database, std::vector<std::string>& faults) {
    const auto isThere = [&](const std::string& column) {
        return received.mismatch({"services", {column}, {}}).empty();
    };
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        const std::string column = favouriteColumn(list);
        if (!isThere(column)) {
            continue;
        }
        findEqual(database, column, faults, fmt::format("{} > 0", column));
        findWhere(database, fmt::format("{} < 0", column), fmt::format("{} below 0", column), faults);
        findWhere(database, fmt::format("{0} > (SELECT count(DISTINCT {0}) {1} WHERE {0} > 0)", column, ROWS),
                  fmt::format("{} with a gap before it", column), faults);
    }
    for (const std::string column : {"locked", "hidden", "renamed"}) {
        if (isThere(column)) {
            findWhere(database, fmt::format("{} NOT IN (0, 1)", column), fmt::format("{} neither 0 nor 1", column),
                      faults);
        }
    }
}

}  // namespace

std::vector<std::string> channelFaults(const ReceivedDatabase& received, const Database& database,
                                       const ReceivedDatabase::Table& services, const ReceivedDatabase::Table& groups) {
    for (const ReceivedDatabase::Table* table : {&services, &groups}) {
        if (const std::string problem = received.mismatch(*table); !problem.empty()) {
            return {problem};
        }
    }
    std::vector<std::string> faults;
    for (const char* column : {"id", "number", "identity"}) {
        findEqual(database, column, faults);
    }
    findWhere(database, "channel_group NOT IN (SELECT number FROM received.channel_groups)",
              "in a group that is not there", faults);
    findWhere(database, "type NOT IN ('tv', 'radio')", "neither tv nor radio", faults);
    for (const std::string& column : services.columns) {
        if (column != "channel_group") {
            findWhere(database, fmt::format("{} IS NULL", column), fmt::format("without {}", column), faults);
        }
    }
    findChoiceFaults(received, database, faults);
    return faults;
}

}  // namespace sim
