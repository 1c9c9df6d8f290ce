#include "simulator/lineup/TableEdit.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "simulator/base/Database.h"
#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/CsvList.h"
#include "simulator/lineup/Editing.h"
#include "simulator/lineup/FavouritePlaces.h"
#include "simulator/lineup/ListText.h"
#include "simulator/lineup/Numbering.h"
#include "simulator/lineup/Remarks.h"
#include "simulator/lineup/Tuning.h"

namespace sim {

namespace {

// The owner's name is told by `name` alone: whether it is the owner's follows.
bool isOwners(const ServiceColumn& column) {
    constexpr std::string_view OWNERS =
        " number name favourite1 favourite2 favourite3 favourite4 favourite5 locked hidden ";
    return OWNERS.find(fmt::format(" {} ", column.json)) != std::string_view::npos;
}

class Applying {
public:
    Applying(Database& database, const Services& before, std::string file)
        : m_database(database),
          m_find(before.finder()),
          m_file(std::move(file)),
          // A number below 0 is one that is still to be given: numbers are unique in each step.
          m_set(database, fmt::format("UPDATE services SET number = ?, {} = ?, locked = ?, hidden = ? "
                                      "WHERE id = ? AND number > 0",
                                      fmt::join(placeColumns(), " = ?, "))) {}

    void takeLine(const std::string& line) {
        ++m_line;
        m_rows.add(line);
    }

    TableEdit finish(bool removesMissing) {
        m_rows.finish();
        m_edit.skipped = m_problems.count();
        m_edit.problems = m_problems.lines();
        m_edit.notes = m_notes.lines();
        if (m_count == 0) {
            throw Error(fmt::format("{}: none of its rows is a channel of the TV, which is as before{}{}", m_file,
                                    m_edit.problems.empty() ? "" : "\n", fmt::join(m_edit.problems, "\n")));
        }
        if (removesMissing) {
            m_edit.missing = static_cast<std::size_t>(m_database.change("DELETE FROM services WHERE number > 0"));
        } else {
            keepMissing();
        }
        m_database.run(
            "UPDATE services SET number = -number WHERE number < 0;"
            "UPDATE meta SET service_count = (SELECT count(*) FROM services)");
        closeFavourites(m_database);
        return m_edit;
    }

private:
    static std::vector<std::string> placeColumns() {
        std::vector<std::string> columns;
        for (std::size_t list = 1; list <= std::size(FAVOURITE_PLACES); ++list) {
            columns.push_back(favouriteColumn(static_cast<int>(list)));
        }
        return columns;
    }

    void takeRow(const std::vector<std::string>& fields) {
        if (!m_table) {
            m_table.emplace(fields);
            return;
        }
        try {
            apply(fields);
        } catch (const Error& error) {
            m_problems.add(fmt::format("{}:{}: {}; row skipped", m_file, m_line, error.what()), error.what());
        }
    }

    void apply(const std::vector<std::string>& fields) {
        Service row;
        m_table->read(fields, row);
        const std::string identity = m_table->has("identity") ? row.identity : identityOf(row);
        const Service* const found = m_find(identity);
        if (found == nullptr) {
            throw Error(fmt::format("the TV has no channel {}", inQuotes(identity)));
        }
        const Service current = *found;
        Service wanted = current;
        m_table->read(fields, wanted);
        wanted.number = numberFor(wanted);
        set(wanted);
        if (wanted.name != current.name) {
            renameService(m_database, current.id, wanted.name);
        }
        count(current, wanted);
    }

    int numberFor(const Service& wanted) {
        const int number = m_table->has("number") ? wanted.number : 0;
        if (number != 0 && !m_numbering.isFree(number)) {
            note(fmt::format("{} gets the number {}: {} is taken or too high", inQuotes(wanted.name),
                             m_numbering.behindAll(), number));
        }
        return m_numbering.isFree(number) ? number : m_numbering.behindAll();
    }

    void set(const Service& wanted) {
        int parameter = 0;
        m_set.set(++parameter, -wanted.number);
        for (int Service::*const place : FAVOURITE_PLACES) {
            m_set.set(++parameter, wanted.*place);
        }
        m_set.set(++parameter, wanted.locked);
        m_set.set(++parameter, wanted.hidden);
        m_set.set(++parameter, wanted.id);
        m_set.run();
        if (m_database.changes() == 0) {
            throw Error(fmt::format("{} has a row already", inQuotes(wanted.identity)));
        }
        m_numbering.take(wanted.number);
        ++m_count;
    }

    void count(const Service& current, const Service& wanted) {
        bool isChanged = false;
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            const bool differs = differ(column, current, wanted);
            isChanged = isChanged || (differs && isOwners(column));
            if (differs && !isOwners(column)) {
                note(
                    fmt::format("{} of {} is not the owner's to set, and stays", column.label, inQuotes(current.name)));
            }
        }
        m_edit.changed += isChanged ? 1 : 0;
    }

    void keepMissing() {
        std::vector<std::pair<std::int64_t, int>> missing;
        Statement query(m_database, "SELECT id, number FROM services WHERE number > 0 ORDER BY number");
        while (query.next()) {
            missing.emplace_back(query.integer(0), static_cast<int>(query.integer(1)));
        }
        for (const auto& [id, number] : missing) {
            const int kept = m_numbering.isFree(number) ? number : m_numbering.behindAll();
            m_database.change("UPDATE services SET number = ? WHERE id = ?", -kept, id);
            m_numbering.take(kept);
        }
        m_edit.missing = missing.size();
    }

    void note(const std::string& what) { m_notes.add(fmt::format("{}:{}: {}", m_file, m_line, what), what); }

    Database& m_database;
    ServiceFinder m_find;
    std::string m_file;
    Statement m_set;
    int m_line = 0;
    CsvRows m_rows{[this](const std::vector<std::string>& fields) { takeRow(fields); }};
    std::optional<ServiceTable> m_table;
    Numbering m_numbering;
    std::size_t m_count = 0;
    Remarks m_problems;
    Remarks m_notes;
    TableEdit m_edit;
};

}  // namespace

TableEdit applyTable(Database& database, const Services& before, const std::filesystem::path& table,
                     const std::string& encoding, bool removesMissing) {
    Applying applying(database, before, table.string());
    forEachTextLine(table, encoding, [&](const std::string& line) { applying.takeLine(line); });
    return applying.finish(removesMissing);
}

}  // namespace sim
