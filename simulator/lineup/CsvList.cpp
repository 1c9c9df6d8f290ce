#include "simulator/lineup/CsvList.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <type_traits>
#include <variant>

#include "simulator/base/Error.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr std::string_view SEPARATORS = ",;\t";

// A spreadsheet takes a text that begins so for a formula, which a broadcaster could make up; a quote before it makes
// it a text. One that begins with a quote gets another, so that reading takes away only what writing has put there.
constexpr std::string_view FORMULA = "=+-@'";

bool isInTable(const ServiceColumn& column) {
    // Each database counts its own ids.
    return *column.json != '\0' && std::string_view(column.json) != "id";
}

// "sep=;"
char separatorSaid(const std::string& line) {
    constexpr std::string_view WORD = "sep=";
    return line.size() == WORD.size() + 1 && line.compare(0, WORD.size(), WORD) == 0 ? line.back() : '\0';
}

char separatorOf(const std::string& header) {
    return *std::max_element(SEPARATORS.begin(), SEPARATORS.end(), [&](char left, char right) {
        return std::count(header.begin(), header.end(), left) < std::count(header.begin(), header.end(), right);
    });
}

// Quotes stand around a field, and twice within one.
std::vector<std::string> fieldsOf(std::string_view row, char separator) {
    std::vector<std::string> fields(1);
    bool isQuoted = false;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const char c = row[i];
        if (c == '"' && isQuoted && row.substr(i + 1, 1) == "\"") {
            fields.back() += row[++i];
        } else if (c == '"' && (isQuoted || fields.back().empty())) {
            isQuoted = !isQuoted;
        } else if (c == separator && !isQuoted) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

bool isFormula(std::string_view text) {
    return !text.empty() && FORMULA.find(text.front()) != std::string_view::npos;
}

std::string inCsv(std::string text) {
    if (isFormula(text)) {
        text.insert(0, 1, '\'');
    }
    if (text.find_first_of(",;\t\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + "\"";
}

// A row with `text` of each column.
template <typename Text>
std::string rowOf(Text text) {
    std::string row;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (isInTable(column)) {
            row += (row.empty() ? "" : ",") + inCsv(text(column));
        }
    }
    return row + "\n";
}

std::string fieldOf(const ServiceColumn& column, const Service& service) {
    if (const auto* flag = std::get_if<bool Service::*>(&column.member)) {
        return service.**flag ? "1" : "0";
    }
    return textOf(column, service);
}

std::string fromCsv(const std::string& field) {
    return field.size() > 1 && field.front() == '\'' && isFormula(std::string_view(field).substr(1)) ? field.substr(1)
                                                                                                     : field;
}

// Far above what a stream has, so that sums cannot overflow; ids and pids of 16 bits.
std::uint64_t maximumOf(const ServiceColumn& column) {
    constexpr std::string_view IDS = " sid nid tid rid ";
    constexpr std::uint64_t MAX_ID = 0xFFFF;
    constexpr std::uint64_t MAX_NUMBER = 100'000'000;
    constexpr std::uint64_t MAX_HZ = 100'000'000'000;
    if (IDS.find(fmt::format(" {} ", column.json)) != std::string_view::npos) {
        return MAX_ID;
    }
    return std::holds_alternative<std::uint64_t Service::*>(column.member) ? MAX_HZ : MAX_NUMBER;
}

bool truthOf(const std::string& field, const char* column) {
    std::string word = field;
    std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
    if (word == "1" || word == "true" || word == "yes") {
        return true;
    }
    if (word.empty() || word == "0" || word == "false" || word == "no") {
        return false;
    }
    throw Error(fmt::format("{} {} is neither 0 nor 1", column, inQuotes(field)));
}

void readField(const ServiceColumn& column, const std::string& field, Service& service) {
    std::visit(
        [&](auto member) {
            auto& value = service.*member;
            using Value = std::remove_reference_t<decltype(value)>;
            if constexpr (std::is_same_v<Value, std::string>) {
                value = fromCsv(field);
            } else if constexpr (std::is_same_v<Value, bool>) {
                value = truthOf(field, column.json);
            } else {
                const auto number = field.empty() ? std::uint64_t{0} : toNumber<std::uint64_t>(field);
                if (!number || *number > maximumOf(column)) {
                    throw Error(fmt::format("{} {} is not a number from 0 to {}", column.json, inQuotes(field),
                                            maximumOf(column)));
                }
                value = static_cast<Value>(*number);
            }
        },
        column.member);
}

const ServiceColumn* columnOf(std::string_view name) {
    const auto* found = std::find_if(std::begin(SERVICE_COLUMNS), std::end(SERVICE_COLUMNS),
                                     [&](const ServiceColumn& column) { return column.json == name; });
    return name.empty() || found == std::end(SERVICE_COLUMNS) ? nullptr : found;
}

class CsvReader final : public ListReader {
public:
    explicit CsvReader(ListIntake& intake) : m_intake(intake) {}

    void take(const std::string& line) override { m_rows.add(line); }
    void finish() override { m_rows.finish(); }

private:
    void takeRow(const std::vector<std::string>& fields) {
        if (!m_table) {
            m_table.emplace(fields);
            for (const std::string& name : m_table->unknown()) {
                m_intake.note(fmt::format("column {} is none of a service, and is not read", inQuotes(name)));
            }
            return;
        }
        try {
            Service service;
            service.frequencyUnit = 0;
            m_table->read(fields, service);
            if (service.type != "tv" && service.type != "radio" && !service.type.empty()) {
                throw Error(fmt::format("type {} is neither tv nor radio", inQuotes(service.type)));
            }
            service.group = m_intake.groupOf(service.groupName);
            m_intake.addService(std::move(service));
        } catch (const Error& error) {
            m_intake.skip(error.what());
        }
    }

    ListIntake& m_intake;
    CsvRows m_rows{[this](const std::vector<std::string>& fields) { takeRow(fields); }};
    std::optional<ServiceTable> m_table;
};

}  // namespace

void CsvRows::add(const std::string& line) {
    if (!m_isOpen && trimmed(line).empty()) {
        return;
    }
    if (m_separator == 0) {
        m_separator = separatorSaid(line);
        if (m_separator != 0) {
            return;
        }
        m_separator = separatorOf(line);
    }
    m_row += line;
    limits::require("bytes of a row", m_row.size(), limits::ROW_BYTES);
    m_isOpen = m_isOpen != (std::count(line.begin(), line.end(), '"') % 2 != 0);
    if (m_isOpen) {
        m_row += '\n';
        return;
    }
    m_take(fieldsOf(m_row, m_separator));
    m_row.clear();
}

void CsvRows::finish() const {
    if (m_isOpen) {
        throw Error(Error::Kind::Damaged,
                    fmt::format("a quote is open at the end, in the row that begins with {}", inQuotes(m_row)));
    }
}

ServiceTable::ServiceTable(const std::vector<std::string>& header) {
    m_columns.reserve(header.size());
    for (const std::string& field : header) {
        const std::string name(trimmed(field));
        const ServiceColumn* column = columnOf(name);
        if (column != nullptr && std::find(m_columns.begin(), m_columns.end(), column) != m_columns.end()) {
            throw Error(fmt::format("column {} stands twice in its header", inQuotes(name)));
        }
        if (column == nullptr && !name.empty()) {
            m_unknown.push_back(name);
        }
        m_columns.push_back(column);
    }
    const bool hasParts = has("source") && has("sid");
    if (!has("identity") && !hasParts) {
        throw Error("its header has no column identity, nor those of source, nid, tid and sid");
    }
}

bool ServiceTable::has(const char* column) const {
    return std::find(m_columns.begin(), m_columns.end(), columnOf(column)) != m_columns.end();
}

void ServiceTable::read(const std::vector<std::string>& fields, Service& service) const {
    for (std::size_t i = m_columns.size(); i < fields.size(); ++i) {
        if (!fields[i].empty()) {
            throw Error(fmt::format("{}, but the header has {}", plural(fields.size(), "field"), m_columns.size()));
        }
    }
    for (std::size_t i = 0; i < m_columns.size() && i < fields.size(); ++i) {
        if (m_columns[i] != nullptr && isInTable(*m_columns[i])) {
            readField(*m_columns[i], fields[i], service);
        }
    }
}

bool isCsv(const std::vector<std::string>& head) {
    const std::string& first = head.front();
    if (separatorSaid(first) != 0) {
        return true;
    }
    std::size_t known = 0;
    for (const std::string& field : fieldsOf(first, separatorOf(first))) {
        known += columnOf(trimmed(field)) == nullptr ? 0U : 1U;
    }
    return known >= 2;
}

std::unique_ptr<ListReader> readCsv(const ListFile& /*file*/, ListIntake& intake) {
    return std::make_unique<CsvReader>(intake);
}

void writeCsv(const Services& services, const ListOutput& output) {
    output.write(rowOf([](const ServiceColumn& column) { return std::string(column.json); }));
    services.forEach([&](const Service& service) {
        output.write(rowOf([&](const ServiceColumn& column) { return fieldOf(column, service); }));
    });
}

}  // namespace sim
