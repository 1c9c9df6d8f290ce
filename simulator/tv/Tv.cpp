#include "simulator/tv/Tv.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdlib>
#include <sstream>
#include <tuple>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/tv/ChannelList.h"
#include "simulator/tv/Sqlite.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr int BUSY_TIMEOUT_MS = 10'000;

constexpr char SCHEMA[] = R"(
CREATE TABLE state(
    antenna_mode INTEGER NOT NULL, service_mode INTEGER NOT NULL, service_id INTEGER NOT NULL, source INTEGER NOT NULL,
    category INTEGER NOT NULL, category_param INTEGER NOT NULL, sort_mode INTEGER NOT NULL,
    antenna TEXT NOT NULL DEFAULT '0', scanning INTEGER NOT NULL DEFAULT 0);
CREATE TABLE settings(key TEXT PRIMARY KEY, type TEXT NOT NULL, value TEXT NOT NULL);
CREATE TABLE faults(
    id INTEGER PRIMARY KEY, call TEXT NOT NULL, failure TEXT NOT NULL, nth INTEGER NOT NULL, times INTEGER NOT NULL,
    fired INTEGER NOT NULL DEFAULT 0);
CREATE TABLE runs(
    id INTEGER PRIMARY KEY, pid INTEGER NOT NULL, started TEXT NOT NULL, operation TEXT, reply_requested INTEGER,
    reply INTEGER, response INTEGER, reported TEXT, ended TEXT NOT NULL DEFAULT 'running', detail TEXT NOT NULL DEFAULT '');
CREATE TABLE calls(
    run INTEGER NOT NULL, seq INTEGER NOT NULL, name TEXT NOT NULL, arguments TEXT NOT NULL, result TEXT NOT NULL,
    fault INTEGER, PRIMARY KEY(run, seq)) WITHOUT ROWID;
CREATE TABLE log(
    run INTEGER NOT NULL, seq INTEGER NOT NULL, sink TEXT NOT NULL, priority INTEGER, tag TEXT, file TEXT, function TEXT,
    line INTEGER, message TEXT NOT NULL, PRIMARY KEY(run, seq)) WITHOUT ROWID;
)";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

fs::path databaseOf(const fs::path& home) {
    return home / "tv.db";
}

SQLite::Database openExisting(const fs::path& home) {
    if (!fs::exists(databaseOf(home))) {
        throw Error(fmt::format("no TV at {}; make one with: halcyon-tv --home '{}' init --channels FILE",
                                home.string(), home.string()));
    }
    SQLite::Database database(databaseOf(home).string(), SQLite::OPEN_READWRITE, BUSY_TIMEOUT_MS);
    database.exec("PRAGMA synchronous = NORMAL");
    return database;
}

int antennaModeOf(const std::string& source) {
    switch (source.front()) {
        case 'S':
            return 2;
        case 'C':
            return 1;
        default:
            return 0;
    }
}

void createDatabase(const fs::path& path, int antennaMode) {
    SQLite::Database database = openNew(path);
    database.exec("PRAGMA journal_mode = WAL");
    SQLite::Transaction transaction(database);
    database.exec(SCHEMA);
    SQLite::Statement state(database, "INSERT INTO state VALUES(?, 0, 1, 0, 0, 0, 0, '0', 0)");
    SQLite::bind(state, antennaMode);
    state.exec();
    for (int i = 1; i <= FAVOURITE_LISTS; ++i) {
        SQLite::Statement setting(database, "INSERT INTO settings VALUES(?, 'string', ?)");
        SQLite::bind(setting, Tv::favouriteKey(i), fmt::format("Favourites {}", i));
        setting.exec();
    }
    transaction.commit();
}

}  // namespace

bool operator==(const Viewing& one, const Viewing& other) {
    const auto tied = [](const Viewing& v) {
        return std::tie(v.antennaMode, v.serviceMode, v.serviceId, v.source, v.category, v.categoryParam, v.sortMode);
    };
    return tied(one) == tied(other);
}

fs::path Tv::normalised(const fs::path& folder) {
    const fs::path path = fs::absolute(folder).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

fs::path Tv::defaultHome() {
    if (const std::string home = environment("HALCYON_TV_HOME"); !home.empty()) {
        return normalised(home);
    }
    if (const fs::path state = environment("XDG_STATE_HOME"); state.is_absolute()) {
        return state / "halcyon-tv";
    }
    if (const fs::path user = environment("HOME"); user.is_absolute()) {
        return user / ".local/state/halcyon-tv";
    }
    throw Error("no folder for the TV; set HALCYON_TV_HOME or HOME, or give --home to halcyon-tv");
}

fs::path Tv::defaultCloud(const fs::path& home) {
    if (const std::string cloud = environment("HALCYON_CLOUD"); !cloud.empty()) {
        return normalised(cloud);
    }
    return home.parent_path() / "cloud";
}

void Tv::create(const fs::path& home, const ChannelList& list, const std::string& serial) {
    fs::create_directories(home.parent_path());
    const ScratchFolder scratch(home.parent_path());
    const fs::path built = scratch / "tv";
    fs::create_directory(built);
    ServiceDb(built / "service-db")
        .create(list, fmt::format("set={}\nservice=http://set-{}.invalid/live\n", serial, serial));
    IssDb(built / "iss.db").create({{"set", serial}, {"layout", "list"}, {"last_group", "0"}});
    CiModule(built / "ci")
        .create({{"ci_profile.bin", "CI\x01" + serial}, {"ci_operator.xml", "<operator set=\"" + serial + "\"/>\n"}});
    createDatabase(databaseOf(built), antennaModeOf(list.services.front().source));
    if (!putInPlace(built, home)) {
        throw Error(fmt::format("there is something at {} already; remove that folder, or choose another with --home",
                                home.string()));
    }
}

Tv::Tv(const fs::path& home)
    : m_home(home),
      m_database(openExisting(home)),
      m_serviceDb(home / "service-db"),
      m_issDb(home / "iss.db"),
      m_ciModule(home / "ci") {}

Viewing Tv::viewing() {
    SQLite::Statement query(m_database, "SELECT * FROM state");
    query.executeStep();
    Viewing viewing;
    viewing.antennaMode = query.getColumn(0);
    viewing.serviceMode = query.getColumn(1);
    viewing.serviceId = static_cast<std::uint64_t>(query.getColumn(2).getInt64());
    viewing.source = query.getColumn(3);
    viewing.category = query.getColumn(4);
    viewing.categoryParam = static_cast<std::uint64_t>(query.getColumn(5).getInt64());
    viewing.sortMode = query.getColumn(6);
    return viewing;
}

void Tv::changeViewing(const std::function<void(Viewing&)>& change) {
    SQLite::Transaction transaction(m_database, SQLite::TransactionBehavior::IMMEDIATE);
    Viewing viewing = this->viewing();
    change(viewing);
    SQLite::Statement update(m_database,
                             "UPDATE state SET antenna_mode = ?, service_mode = ?, service_id = ?, source = ?, "
                             "category = ?, category_param = ?, sort_mode = ?");
    SQLite::bind(update, viewing.antennaMode, viewing.serviceMode, static_cast<std::int64_t>(viewing.serviceId),
                 viewing.source, viewing.category, static_cast<std::int64_t>(viewing.categoryParam), viewing.sortMode);
    update.exec();
    transaction.commit();
}

bool Tv::hasMode(int antennaMode, int serviceMode) const {
    return antennaMode >= 0 && antennaMode <= 2 && serviceMode >= 0 && serviceMode <= 2;
}

bool Tv::hasSource(int source) const {
    return source >= 0 && source <= 4;
}

bool Tv::hasCategory(int category, std::uint64_t param, int sortMode) const {
    if (sortMode < 0 || sortMode > 2) {
        return false;
    }
    switch (category) {
        case 0:
            return param == 0;
        case 1:
            return param >= 1 && param <= FAVOURITE_LISTS;
        case 2:
            return param >= 1 && param <= m_serviceDb.groupCount();
        default:
            return false;
    }
}

std::set<int> Tv::antenna() {
    std::istringstream text(m_database.execAndGet("SELECT antenna FROM state").getString());
    std::set<int> statuses;
    for (std::string status; std::getline(text, status, ',');) {
        statuses.insert(std::stoi(status));
    }
    return statuses;
}

void Tv::setAntenna(const std::set<int>& statuses) {
    SQLite::Statement update(m_database, "UPDATE state SET antenna = ?");
    update.bind(1, fmt::format("{}", fmt::join(statuses, ",")));
    update.exec();
}

bool Tv::isScanning() {
    return m_database.execAndGet("SELECT scanning FROM state").getInt() != 0;
}

void Tv::setScanning(bool scanning) {
    SQLite::Statement update(m_database, "UPDATE state SET scanning = ?");
    update.bind(1, scanning ? 1 : 0);
    update.exec();
}

std::optional<std::string> Tv::setting(const std::string& key, const std::string& type) {
    SQLite::Statement query(m_database, "SELECT value FROM settings WHERE key = ? AND type = ?");
    SQLite::bind(query, key, type);
    if (!query.executeStep()) {
        return std::nullopt;
    }
    return query.getColumn(0).getString();
}

bool Tv::setSetting(const std::string& key, const std::string& type, const std::string& value) {
    SQLite::Statement upsert(
        m_database,
        "INSERT INTO settings VALUES(?, ?, ?) ON CONFLICT(key) DO UPDATE SET value = excluded.value "
        "WHERE type = excluded.type");
    SQLite::bind(upsert, key, type, value);
    return upsert.exec() == 1;
}

std::string Tv::favouriteKey(int list) {
    return fmt::format("db/menu/broadcasting/channel_manager/favname{}", list);
}

}  // namespace sim
