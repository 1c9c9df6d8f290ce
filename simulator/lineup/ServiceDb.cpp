#include "simulator/lineup/ServiceDb.h"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "simulator/base/Archive.h"
#include "simulator/base/Database.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/ChannelFaults.h"
#include "simulator/lineup/FavouritePlaces.h"
#include "simulator/lineup/ReceivedDatabase.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char DATABASE[] = "services.db";

const ReceivedDatabase::Table META = {"meta", {"service_count"}, {}};
const ReceivedDatabase::Table GROUPS = {"channel_groups", {"number", "name"}, {}};
const ReceivedDatabase::Table HEADERS = {"list_headers", {"before", "line"}, {}};

bool isStored(const ServiceColumn& column) {
    return *column.sql != '\0';
}

ReceivedDatabase::Table servicesTable() {
    ReceivedDatabase::Table table{"services", {}, {}};
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (isStored(column)) {
            (isOptional(column) ? table.optionalColumns : table.columns).emplace_back(column.sql);
        }
    }
    return table;
}

// For each column that is stored, `text` of it; separated by commas.
template <typename Text>
std::string listColumns(Text text) {
    std::vector<std::string> columns;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (isStored(column)) {
            columns.push_back(text(column));
        }
    }
    return fmt::format("{}", fmt::join(columns, ", "));
}

// An id of 0 is for the database to choose, and a group of 0 is none.
std::string placeholder(const ServiceColumn& column) {
    return std::string_view(column.declaration).find("NOT NULL") == std::string_view::npos ? "nullif(?, 0)" : "?";
}

// Strict, so that what a received row holds is of the type that this program reads.
std::string schema() {
    return fmt::format(
        "CREATE TABLE meta(service_count INTEGER NOT NULL) STRICT;"
        "CREATE TABLE channel_groups(number INTEGER PRIMARY KEY, name TEXT NOT NULL) STRICT;"
        "CREATE TABLE services({}) STRICT;"
        "CREATE TABLE list_headers(before INTEGER NOT NULL, line TEXT NOT NULL CHECK(line GLOB ':*')) STRICT;",
        listColumns([](const ServiceColumn& column) { return fmt::format("{} {}", column.sql, column.declaration); }));
}

// The columns of SERVICE_COLUMNS in their order.
const std::string& select() {
    static const std::string text = [] {
        std::vector<std::string> columns;
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            columns.push_back(isStored(column) ? fmt::format("services.{}", column.sql) : "channel_groups.name");
        }
        return fmt::format("SELECT {} FROM services LEFT JOIN channel_groups ON channel_groups.number = channel_group ",
                           fmt::join(columns, ", "));
    }();
    return text;
}

// Reads a row into the service of the row before, so that its texts' memory is used again.
void fetchService(const Statement& query, Service& service) {
    int index = 0;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        std::visit(
            [&](auto member) {
                auto& value = service.*member;
                if constexpr (std::is_same_v<decltype(value), std::string&>) {
                    value = query.view(index);
                } else {
                    value = static_cast<std::remove_reference_t<decltype(value)>>(query.integer(index));
                }
            },
            column.member);
        ++index;
    }
}

// The rows of a channel list, one after the other.
class Insertion final : public ChannelSink {
public:
    explicit Insertion(Database& database)
        : m_database(database),
          m_insert(database, fmt::format("INSERT INTO services({}) VALUES({}) ON CONFLICT(identity) DO NOTHING",
                                         listColumns([](const ServiceColumn& column) { return column.sql; }),
                                         listColumns(&placeholder))) {}

    void addGroup(const std::string& name) override {
        m_database.change("INSERT INTO channel_groups(name) VALUES(?)", name);
    }

    void addHeader(const ListHeader& header) override {
        m_database.change("INSERT INTO list_headers VALUES(?, ?)", header.before, header.text);
    }

    std::size_t addService(const Service& service) override {
        int parameter = 0;
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            if (isStored(column)) {
                ++parameter;
                std::visit([&](auto member) { m_insert.set(parameter, service.*member); }, column.member);
            }
        }
        m_insert.run();
        m_hasFavourites = m_hasFavourites || std::any_of(std::begin(FAVOURITE_PLACES), std::end(FAVOURITE_PLACES),
                                                         [&](auto place) { return service.*place > 0; });
        // The id is the place in the list as well: ids count from 1, and a row that is refused uses up none.
        return m_database.changes() == 1
                   ? 0
                   : static_cast<std::size_t>(
                         m_database.integer("SELECT id FROM services WHERE identity = ?", service.identity)
                             .value_or(0));
    }

    bool hasFavourites() const { return m_hasFavourites; }

private:
    Database& m_database;
    Statement m_insert;
    bool m_hasFavourites = false;
};

// Whether a step fails due to what was received.
template <typename Step>
bool isRefused(Step step) {
    try {
        step();
        return false;
    } catch (const Error& error) {
        if (!isOfReceived(error)) {
            throw;
        }
        return true;
    }
}

// Looked for only once a database is refused, as it takes longer than to take it over. The budget may end it, too.
std::string faultsIn(const ReceivedDatabase& received, const Database& database) {
    std::vector<std::string> faults;
    isRefused([&] { faults = channelFaults(received, database, servicesTable(), GROUPS); });
    return fmt::format("{}", fmt::join(faults, "; "));
}

// Throws Error (Damaged) unless the places in each favourite list count from 1, without gaps and each once.
void requirePlaces(const Database& database) {
    std::vector<std::string> places;
    std::vector<std::string> rules;
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        places.push_back(favouriteColumn(list));
        rules.push_back(fmt::format("max({0}) = count(nullif({0}, 0)) AND max({0}) = count(DISTINCT nullif({0}, 0))",
                                    places.back()));
    }
    const std::string query = fmt::format("SELECT count(*) = 0 OR ({}) FROM services WHERE {} > 0",
                                          fmt::join(rules, " AND "), fmt::join(places, " + "));
    if (database.integer(query) != 1) {
        throw Error(Error::Kind::Damaged, "a favourite list has a place twice or not at all");
    }
}

// The rows of a received database in tables of our own.
std::optional<ReplaceStatus> adoptRows(ReceivedDatabase& received, Database& database, std::string* why) {
    Transaction transaction(database);
    std::uint64_t count = 0;
    if (isRefused([&] {
            received.copy(GROUPS);
            count = received.copy(servicesTable());
            received.copy(META);
            if (received.has(HEADERS)) {  // older ones have none
                received.copy(HEADERS);
            }
            requirePlaces(database);
        })) {
        if (why != nullptr) {
            *why = faultsIn(received, database);
        }
        return ReplaceStatus::TablesDiffer;
    }
    const std::int64_t said = database.integer("SELECT service_count FROM meta").value_or(0);
    if (count == 0 || said != static_cast<std::int64_t>(count)) {
        if (why != nullptr) {
            *why = fmt::format("it says {}, and holds {}", said, count);
        }
        return ReplaceStatus::CountDiffers;
    }
    transaction.commit();
    return std::nullopt;
}

}  // namespace

std::optional<ReplaceStatus> adoptServices(const fs::path& archive, const fs::path& built, std::string* why) {
    const ScratchFolder scratch(built.parent_path());
    bool isThere = false;
    if (isRefused([&] { isThere = extractEntry(archive, DATABASE, scratch / DATABASE); })) {
        return ReplaceStatus::ArchiveUnreadable;
    }
    if (!isThere) {
        return ReplaceStatus::NoDatabase;
    }
    Database database = Database::makeBeside(built, schema());
    std::optional<ReceivedDatabase> received;
    if (isRefused([&] { received.emplace(scratch / DATABASE, database); })) {
        return ReplaceStatus::DatabaseDamaged;
    }
    return adoptRows(*received, database, why);
}

void ServiceDb::create(const ChannelSource& list, const std::string& ipServices) const {
    store(list);
    const ScratchFolder scratch(m_folder);
    writeFile(scratch / "ipsrv", ipServices);
    putInPlace(scratch / "ipsrv", ipsrv());
}

bool ServiceDb::isThere() const {
    return pathExists(database());
}

void ServiceDb::store(const ChannelSource& list) const {
    const ScratchFolder scratch(m_folder);
    {
        // Closed at the end of the block, which writes what is left of it, before it is put in place.
        Database database = Database::makeBeside(scratch / DATABASE, schema());
        Transaction transaction(database);
        Insertion insertion(database);
        list(insertion);
        // A list that was edited by hand may have gaps.
        if (insertion.hasFavourites()) {
            closeFavourites(database);
        }
        database.run("INSERT INTO meta SELECT count(*) FROM services");
        requirePlaces(database);
        transaction.commit();
    }
    putInPlace(scratch / DATABASE, database());
}

void ServiceDb::change(const std::function<void(Database&)>& edit) const {
    const ScratchFolder scratch(m_folder);
    const fs::path copy = scratch / DATABASE;
    Database(database(), Database::Access::Look).snapshot(copy);
    {
        Database changed(copy, Database::Access::Change);
        Transaction transaction(changed);
        edit(changed);
        requirePlaces(changed);
        transaction.commit();
    }
    putInPlace(copy, database());
}

void ServiceDb::snapshot(const fs::path& archive, std::time_t time) const {
    const ScratchFolder scratch(m_folder);
    const fs::path copy = scratch / DATABASE;
    Database(database(), Database::Access::Look).snapshot(copy);
    writeArchive(archive, {copy, ipsrv()}, time);
}

std::optional<ReplaceStatus> ServiceDb::replace(const fs::path& archive) const {
    const ScratchFolder scratch(m_folder);
    const fs::path built = scratch / DATABASE;
    if (const std::optional<ReplaceStatus> problem = adoptServices(archive, built)) {
        return problem;
    }
    try {
        putInPlace(built, database());
    } catch (const Error&) {
        return ReplaceStatus::NotPutInPlace;
    }
    return std::nullopt;
}

std::string ServiceDb::ipServices() const {
    return readFile(ipsrv(), limits::ENTRY_BYTES);
}

Services::Services(const fs::path& database)
    : m_database(std::make_shared<Database>(database, Database::Access::Look)) {}

Services::Counts Services::counts() const {
    Statement query(*m_database,
                    "SELECT count(*), coalesce(sum(type = 'radio'), 0), (SELECT count(*) FROM channel_groups) "
                    "FROM services");
    query.next();
    const auto count = [&](int column) { return static_cast<std::uint64_t>(query.integer(column)); };
    return {count(0), count(1), count(2)};
}

std::optional<Service> Services::find(std::uint64_t id) const {
    Statement query(*m_database, select() + "WHERE id = ?");
    if (!query.bind(id).next()) {
        return std::nullopt;
    }
    std::optional<Service> service(std::in_place);
    fetchService(query, *service);
    return service;
}

std::uint64_t Services::first() const {
    return static_cast<std::uint64_t>(m_database->integer("SELECT id FROM services ORDER BY number").value_or(0));
}

void Services::forEach(const std::function<void(const Service&)>& visit) const {
    Statement query(*m_database, select() + "ORDER BY services.number");
    Service service;
    while (query.next()) {
        fetchService(query, service);
        visit(service);
    }
}

namespace {

// Searches a list for identities that are mostly asked for in its own order, as another list of the same channels has
// them: the row after the one that was found last is looked at first, because a step costs a fraction of a search.
class Search {
public:
    explicit Search(const Database& database)
        : m_reading(database, "SELECT 1 FROM services"),
          m_byIdentity(database, select() + "WHERE identity = ?"),
          m_inOrder(database, select() + "WHERE services.number > ? ORDER BY services.number") {
        m_reading.next();
        step(std::numeric_limits<std::int64_t>::min());
    }

    const Service* operator()(const std::string& identity) {
        if (m_isAtNext && m_next.identity == identity) {
            std::swap(m_found, m_next);
            m_patience = PATIENCE;
            m_isAtNext = fetchNext();
            return &m_found;
        }
        if (!m_byIdentity.bind(identity).next()) {
            return nullptr;
        }
        fetchService(m_byIdentity, m_found);
        // In a list of another order, steps find nothing, and are given up.
        if (m_patience > 0) {
            --m_patience;
            step(m_found.number);
        }
        return &m_found;
    }

private:
    static constexpr int PATIENCE = 100;

    void step(std::int64_t after) {
        m_inOrder.bind(after);
        m_isAtNext = fetchNext();
    }

    bool fetchNext() {
        if (!m_inOrder.next()) {
            return false;
        }
        fetchService(m_inOrder, m_next);
        return true;
    }

    Statement m_reading;  // stays at a row: locking the database for each search would take longer than the search
    Statement m_byIdentity;
    Statement m_inOrder;
    int m_patience = PATIENCE;
    bool m_isAtNext = false;
    Service m_found;
    Service m_next;  // if m_isAtNext
};

}  // namespace

ServiceFinder Services::finder() const {
    return
        [search = std::make_shared<Search>(*m_database)](const std::string& identity) { return (*search)(identity); };
}

std::vector<ListHeader> Services::headers() const {
    Statement query(*m_database, "SELECT before, line FROM list_headers ORDER BY rowid");
    std::vector<ListHeader> headers;
    while (query.next()) {
        headers.push_back({static_cast<int>(query.integer(0)), query.text(1)});
    }
    return headers;
}

std::vector<std::string> Services::groups() const {
    Statement query(*m_database, "SELECT name FROM channel_groups ORDER BY number");
    std::vector<std::string> names;
    while (query.next()) {
        names.push_back(query.text(0));
    }
    return names;
}

void Services::copyTo(ChannelSink& sink) const {
    std::map<int, int> groups = {{0, 0}};  // those of a received database need not count from 1
    Statement query(*m_database, "SELECT number, name FROM channel_groups ORDER BY number");
    while (query.next()) {
        sink.addGroup(query.text(1));
        groups.emplace(static_cast<int>(query.integer(0)), static_cast<int>(groups.size()));
    }
    forEach([&](const Service& service) {
        Service copy = service;
        // The other database counts its own ids.
        copy.id = 0;
        copy.group = groups[service.group];
        sink.addService(copy);
    });
    for (const ListHeader& header : headers()) {
        sink.addHeader(header);
    }
}

std::string Services::fingerprint() const {
    constexpr std::size_t FLUSH_BYTES = 64U << 10;  // a digest takes many short texts more slowly than one long one
    Digest digest;
    std::string rows;
    const auto append = [&](const auto& value) {
        if constexpr (std::is_same_v<decltype(value), const std::string&>) {
            fmt::format_to(std::back_inserter(rows), FMT_COMPILE("{}:"), value.size());  // or values could run together
        }
        fmt::format_to(std::back_inserter(rows), FMT_COMPILE("{} "), value);
    };
    forEach([&](const Service& service) {
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            if (*column.label == '\0') {
                continue;
            }
            std::visit([&](auto member) { append(service.*member); }, column.member);
        }
        if (rows.size() >= FLUSH_BYTES) {
            digest.addBytes(rows);
            rows.clear();
        }
    });
    return digest.addBytes(rows).hex();
}

bool operator==(const Services& left, const Services& right) {
    return left.fingerprint() == right.fingerprint();
}

}  // namespace sim
