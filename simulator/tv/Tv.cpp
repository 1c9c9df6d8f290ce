#include "simulator/tv/Tv.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <tuple>

#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/tv/Snapshot.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Of the tables below, as it stands in the database: one that was made by another version is not touched.
constexpr std::int64_t LAYOUT = 4;

constexpr char SCHEMA[] = R"(
CREATE TABLE state(
    antenna_mode INTEGER NOT NULL, service_mode INTEGER NOT NULL, service_id INTEGER NOT NULL, source INTEGER NOT NULL,
    category INTEGER NOT NULL, category_param INTEGER NOT NULL, sort_mode INTEGER NOT NULL,
    antenna TEXT NOT NULL DEFAULT '0', scanning INTEGER NOT NULL DEFAULT 0, now INTEGER, serial TEXT NOT NULL,
    account TEXT NOT NULL);
CREATE TABLE settings(key TEXT PRIMARY KEY, type TEXT NOT NULL, value TEXT NOT NULL);
CREATE TABLE faults(
    id INTEGER PRIMARY KEY, call TEXT NOT NULL, failure TEXT NOT NULL, nth INTEGER NOT NULL, times INTEGER NOT NULL,
    fired INTEGER NOT NULL DEFAULT 0);
)";

fs::path databaseOf(const fs::path& home) {
    return home / "tv.db";
}

void requireTv(const fs::path& home) {
    if (!pathExists(databaseOf(home))) {
        throw Error(Error::Kind::Missing,
                    fmt::format("no TV at {}; make one with: halcyon-tv --home '{}' init --channels FILE",
                                home.string(), home.string()));
    }
    // The application opens its working folder to everybody; a link planted there would lead it anywhere.
    constexpr auto OTHERS = fs::perms::group_write | fs::perms::others_write;
    std::error_code error;
    if ((fs::status(home, error).permissions() & OTHERS) != fs::perms::none) {
        throw Error(fmt::format("others can write to the TV at {}; close it with: chmod go-w '{}'", home.string(),
                                home.string()));
    }
}

Database openExisting(const fs::path& home, Database::Access access) {
    requireTv(home);
    Database database(databaseOf(home), access);
    if (database.integer("PRAGMA user_version") != LAYOUT) {
        throw Error(
            fmt::format("the TV at {} was made by another version of halcyon-tv; make it anew with init, and restore "
                        "its backup to it",
                        home.string()));
    }
    // A power cut may take the last changes with it, but nothing is ever half there.
    database.run("PRAGMA synchronous = NORMAL");
    return database;
}

std::string inXml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

AntennaMode antennaModeOf(const std::string& source) {
    switch (source.front()) {
        case 'S':
            return AntennaMode::Satellite;
        case 'C':
            return AntennaMode::Cable;
        default:
            return AntennaMode::Terrestrial;
    }
}

void createDatabase(const fs::path& path, AntennaMode antennaMode, const std::string& serial,
                    const std::optional<std::time_t>& time, const std::string& account) {
    Database database(path, Database::Access::Create);
    // With a write-ahead log, who looks at a TV never waits for the run that writes to it, nor holds it up.
    database.run("PRAGMA journal_mode = WAL");
    Transaction transaction(database);
    database.run(SCHEMA);
    database.run(fmt::format("PRAGMA user_version = {}", LAYOUT));
    database.change(
        "INSERT INTO state(antenna_mode, service_mode, service_id, source, category, category_param, sort_mode, now, "
        "serial, account) VALUES(?, 0, 1, 0, 0, 0, 0, ?, ?, ?)",
        codeOf(antennaMode), time, serial, account);
    Settings settings(database);
    for (int i = 1; i <= application::FAVOURITE_LISTS; ++i) {
        settings.setFavouriteName(i, fmt::format("Favourites {}", i));
    }
    transaction.commit();
}

}  // namespace

FolderLock lockTv(const fs::path& home, std::chrono::milliseconds patience) {
    requireTv(home);
    FolderLock lock = FolderLock::take(home, patience);
    if (!lock.isHeld()) {
        const Tv tv(home, Database::Access::Look);
        const std::optional<Run> other = tv.runs().find(tv.runs().newest());
        throw Error(Error::Kind::Locked,
                    fmt::format("run {} (process {}) is under way on the TV at {}; wait for it with --wait SECONDS",
                                other ? other->id : 0, other ? other->pid : 0, home.string()));
    }
    return lock;
}

void Tv::create(const fs::path& home, const ChannelSource& list, const std::string& serial,
                const std::optional<std::time_t>& time, const std::string& account) {
    requireName("account", account);
    if (home.string().size() > limits::HOME_PATH_BYTES) {
        throw Error(fmt::format("the path of a TV home has at most {} bytes, and {} has {}", limits::HOME_PATH_BYTES,
                                inQuotes(home.string()), home.string().size()));
    }
    const ScratchFolder scratch(home.parent_path());
    const fs::path built = scratch / "tv";
    makePrivateFolder(built);
    const ServiceDb services(built / "service-db");
    services.create(list, fmt::format("set={}\nservice=http://set-{}.invalid/live\n", serial, serial));
    const std::optional<Service> first = services.services().find(services.services().first());
    if (!first) {
        throw Error("the channel list holds not one service");
    }
    IssDb(built / "iss.db").create({{"set", serial}, {"layout", "list"}, {"last_group", "0"}});
    CiFiles(built / "ci")
        .create({{"ci_profile.bin", "CI\x01" + serial},
                 {"ci_operator.xml", "<operator set=\"" + inXml(serial) + "\"/>\n"}});
    createDatabase(databaseOf(built), antennaModeOf(first->source), serial, time, account);
    makePrivateFolder(built / "runs");
    saveSnapshot(built, INIT_SNAPSHOT);
    if (!putInPlace(built, home)) {
        throw Error(fmt::format("there is something at {} already; remove that folder, or choose another with --home",
                                home.string()));
    }
}

Tv::Tv(const fs::path& home, Database::Access access)
    : m_home(home),
      m_database(openExisting(home, access)),
      m_settings(m_database),
      m_faults(m_database),
      m_runs(home / "runs"),
      m_serviceDb(home / "service-db"),
      m_issDb(home / "iss.db"),
      m_ciFiles(home / "ci") {}

Viewing Tv::viewing() const {
    Statement query(m_database,
                    "SELECT antenna_mode, service_mode, service_id, source, category, category_param, sort_mode "
                    "FROM state");
    query.next();
    const auto code = [&](int column) { return static_cast<int>(query.integer(column)); };
    return {{static_cast<AntennaMode>(code(0)), static_cast<ServiceMode>(code(1))},
            static_cast<std::uint64_t>(query.integer(2)),
            static_cast<Source>(code(3)),
            {static_cast<CategoryKind>(code(4)), static_cast<std::uint64_t>(query.integer(5)),
             static_cast<SortMode>(code(6))}};
}

void Tv::changeViewing(const std::function<void(Viewing&)>& change) {
    Transaction transaction(m_database);
    Viewing viewing = this->viewing();
    change(viewing);
    m_database.change(
        "UPDATE state SET antenna_mode = ?, service_mode = ?, service_id = ?, source = ?, category = ?, "
        "category_param = ?, sort_mode = ?",
        static_cast<int>(viewing.mode.antenna), static_cast<int>(viewing.mode.service), viewing.serviceId,
        static_cast<int>(viewing.source), static_cast<int>(viewing.category.kind), viewing.category.param,
        static_cast<int>(viewing.category.sort));
    transaction.commit();
}

bool Tv::has(const TvMode& mode) const {
    return isKnown(mode.antenna) && isKnown(mode.service);
}

bool Tv::has(Source source) const {
    return isKnown(source);
}

bool Tv::has(const Category& category) const {
    if (!isKnown(category.sort)) {
        return false;
    }
    switch (category.kind) {
        case CategoryKind::All:
            return category.param == 0;
        case CategoryKind::FavouriteList:
            return category.param >= 1 && category.param <= application::FAVOURITE_LISTS;
        case CategoryKind::Group:
            return category.param >= 1 && category.param <= services().counts().groups;
        default:
            return false;
    }
}

std::set<int> Tv::antenna() const {
    Statement query(m_database, "SELECT antenna FROM state");
    query.next();
    std::set<int> statuses;
    for (const std::string& status : split(query.text(0), ',')) {
        if (const std::optional<int> code = toNumber<int>(status)) {
            statuses.insert(*code);
        }
    }
    return statuses;
}

void Tv::setAntenna(const std::set<int>& statuses) {
    m_database.change("UPDATE state SET antenna = ?", fmt::format("{}", fmt::join(statuses, ",")));
}

std::string Tv::serial() const {
    Statement query(m_database, "SELECT serial FROM state");
    query.next();
    return query.text(0);
}

std::string Tv::account() const {
    Statement query(m_database, "SELECT account FROM state");
    query.next();
    std::string account = query.text(0);
    requireName("account", account);  // it becomes part of a path, and a bundle may have written the database
    return account;
}

void Tv::setAccount(const std::string& account) {
    requireName("account", account);
    m_database.change("UPDATE state SET account = ?", account);
}

std::time_t Tv::now() const {
    return fixedTime().value_or(std::time(nullptr));
}

std::optional<std::time_t> Tv::fixedTime() const {
    Statement query(m_database, "SELECT now FROM state");
    query.next();
    const std::optional<std::int64_t> time = query.optionalInteger(0);
    return time ? std::optional(static_cast<std::time_t>(*time)) : std::nullopt;
}

void Tv::setTime(const std::optional<std::time_t>& time) {
    m_database.change("UPDATE state SET now = ?", time);
}

bool Tv::isScanning() const {
    return m_database.integer("SELECT scanning FROM state").value_or(0) != 0;
}

void Tv::setScanning(bool scanning) {
    m_database.change("UPDATE state SET scanning = ?", scanning ? 1 : 0);
}

Setup Tv::setup() const {
    Setup setup;
    const auto take = [&](Item item, auto read) {
        try {
            read(item);
        } catch (const Error& error) {
            setup.lacking[item] = error.what();
        }
    };
    take(Item::Channels, [&](Item) { setup.services = services(); });
    take(Item::Viewing, [&](Item) { setup.viewing = viewing(); });
    take(Item::Iss, [&](Item item) { setup.entries[item] = m_issDb.entries(); });
    take(Item::Ci, [&](Item item) { setup.entries[item] = m_ciFiles.digests(); });
    for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
        take(favouriteItem(list), [&](Item item) { setup.entries[item] = {{"name", m_settings.favouriteName(list)}}; });
    }
    return setup;
}

Fingerprints Tv::fingerprints() const {
    Fingerprints fingerprints = fingerprintsOf(setup());
    try {
        fingerprints[Item::IpServices] = Digest().add(m_serviceDb.ipServices()).hex();
    } catch (const Error&) {  // unreadable: it has none
    }
    return fingerprints;
}

}  // namespace sim
