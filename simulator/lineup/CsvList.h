// Channel lists as tables of values (CSV), for spreadsheets: a row for each service, under a header of the JSON names
// of service columns.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulator/lineup/ListFormat.h"
#include "simulator/lineup/Service.h"

namespace sim {

// Splits lines into rows. The first row tells by which of ',', ';' and tab its fields are separated, unless a line such
// as "sep=;" before it does.
class CsvRows {
public:
    // `take` gets the fields of each row; the first is the header.
    explicit CsvRows(std::function<void(const std::vector<std::string>&)> take) : m_take(std::move(take)) {}

    // A line without its end. A row in quotes may have several. Throws Error (Damaged) if it is too long.
    void add(const std::string& line);

    // Throws Error (Damaged) if a quote is open.
    void finish() const;

private:
    std::function<void(const std::vector<std::string>&)> m_take;
    char m_separator = 0;
    bool m_isOpen = false;  // the quote of a field
    std::string m_row;      // what there is of it
};

// Which service column is in which field of a row.
class ServiceTable {
public:
    // Throws Error if the header has neither an identity nor the columns that it consists of, or a column twice.
    explicit ServiceTable(const std::vector<std::string>& header);

    bool has(const char* column) const;
    const std::vector<std::string>& unknown() const { return m_unknown; }

    // Reads a row into a service, which keeps what the table has no column of. Throws Error if a value does not fit.
    void read(const std::vector<std::string>& fields, Service& service) const;

private:
    std::vector<const ServiceColumn*> m_columns;  // by field; null if it is none
    std::vector<std::string> m_unknown;
};

bool isCsv(const std::vector<std::string>& head);
std::unique_ptr<ListReader> readCsv(const ListFile& file, ListIntake& intake);
void writeCsv(const Services& services, const ListOutput& output);

}  // namespace sim
