#include "simulator/tv/Tv.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "simulator/base/Clock.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Editing.h"
#include "simulator/tv/Snapshot.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The version of the tables below and of services.db, which is stored in the database: one of another version is not
// touched.
constexpr std::int64_t LAYOUT = 6;

// What the last scan found, as a channel database of its own.
constexpr char ON_AIR[] = "on-air";

constexpr char SCHEMA[] = R"(
CREATE TABLE state(
    antenna_mode INTEGER NOT NULL, service_mode INTEGER NOT NULL, service_id INTEGER NOT NULL, source INTEGER NOT NULL,
    category INTEGER NOT NULL, category_param INTEGER NOT NULL, sort_mode INTEGER NOT NULL,
    antenna TEXT NOT NULL DEFAULT '0', scanning INTEGER NOT NULL DEFAULT 0, now INTEGER,
    still INTEGER NOT NULL, zone TEXT NOT NULL, serial TEXT NOT NULL, account TEXT NOT NULL);
CREATE TABLE settings(key TEXT PRIMARY KEY, type TEXT NOT NULL, value TEXT NOT NULL);
CREATE TABLE faults(
    id INTEGER PRIMARY KEY, call TEXT NOT NULL, failures TEXT NOT NULL, nth INTEGER NOT NULL, times INTEGER NOT NULL,
    run INTEGER NOT NULL, fired INTEGER NOT NULL DEFAULT 0);
)";

// Of a TV whose list another program keeps.
constexpr char KEEPER_SCHEMA[] = R"(
CREATE TABLE keeper(kind TEXT NOT NULL);
CREATE TABLE keeper_options(name TEXT PRIMARY KEY, value TEXT NOT NULL);
)";

constexpr std::int64_t LATEST_TIME_MS = 253'402'300'799'999;  // the end of the year 9999

fs::path databaseOf(const fs::path& home) {
    return home / "tv.db";
}

void requireTv(const fs::path& home) {
    std::error_code error;
    const fs::file_status database = fs::status(databaseOf(home), error);
    if (database.type() == fs::file_type::none) {
        throw Error::ofSystem(home, "cannot look for a TV there", error.value());
    }
    if (database.type() == fs::file_type::not_found) {
        throw Error(Error::Kind::Missing,
                    fmt::format("no TV at {}; make one with: halcyon-tv --home '{}' init --channels FILE",
                                home.string(), home.string()));
    }
    // The application opens its working folder to everybody; a link planted there would lead it anywhere.
    constexpr auto OTHERS = fs::perms::group_write | fs::perms::others_write;
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
            fmt::format("the TV at {} was made by another version of halcyon-tv; make a new one with init, and restore "
                        "the backup to it",
                        home.string()));
    }
    // A power cut may undo the last changes, but never half of one.
    database.run("PRAGMA synchronous = NORMAL");
    return database;
}

// The one row of the state.
Statement stateOf(const Database& database, std::string_view columns) {
    Statement query(database, fmt::format("SELECT {} FROM state", columns));
    query.next();
    return query;
}

std::string inXml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        const bool isPlain = std::string_view("&<\"").find(c) == std::string_view::npos;
        escaped += isPlain ? std::string(1, c) : fmt::format("&#{};", static_cast<int>(c));
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

std::optional<std::int64_t> countOf(const std::optional<std::chrono::milliseconds>& time) {
    return time ? std::optional<std::int64_t>(time->count()) : std::nullopt;
}

void addKeeper(Database& database, const Keeper& keeper) {
    database.run(KEEPER_SCHEMA);
    database.change("INSERT INTO keeper VALUES(?)", keeper.kind);
    for (const auto& [name, value] : keeper.options) {
        database.change("INSERT INTO keeper_options VALUES(?, ?)", name, value);
    }
}

void createDatabase(const fs::path& path, AntennaMode antennaMode, const std::string& serial, const TvClock& clock,
                    const std::string& account, const std::vector<std::string>& favouriteNames, const Keeper& keeper) {
    Database database(path, Database::Access::Create);
    // With a write-ahead log, readers of a TV and the run that writes to it never wait for each other.
    database.run("PRAGMA journal_mode = WAL");
    Transaction transaction(database);
    database.run(SCHEMA);
    database.run(fmt::format("PRAGMA user_version = {}", LAYOUT));
    // Service 1 is the first of any list: ids count from there.
    database.change(
        "INSERT INTO state(antenna_mode, service_mode, service_id, source, category, category_param, sort_mode, now, "
        "still, zone, serial, account) VALUES(?, 0, 1, 0, 0, 0, 0, ?, ?, ?, ?, ?)",
        codeOf(antennaMode), countOf(clock.time), clock.isStill, clock.zone, serial, account);
    Settings settings(database);
    for (int i = 1; i <= application::FAVOURITE_LISTS; ++i) {
        const auto given = static_cast<std::size_t>(i) - 1;
        settings.setFavouriteName(
            i, given < favouriteNames.size() ? favouriteNames[given] : fmt::format("Favourites {}", i));
    }
    if (!keeper.kind.empty()) {
        addKeeper(database, keeper);
    }
    transaction.commit();
}

}  // namespace

FolderLock lockTv(const fs::path& home, std::chrono::milliseconds patience) {
    requireTv(home);
    FolderLock lock = FolderLock::take(home, patience);
    if (!lock.isHeld()) {
        // Who holds the lock need not have made a run: the verdict, a snapshot and a reset take it, too.
        const Tv tv(home, Database::Access::Look);
        const std::optional<Run> other = tv.runs().find(tv.runs().newest());
        const bool isRunning = other && other->ended == RunEnd::Running;
        throw Error(Error::Kind::Locked,
                    fmt::format("{} is under way on the TV at {}; wait for it with --wait SECONDS",
                                isRunning ? fmt::format("run {} (process {})", other->id, other->pid)
                                          : std::string("the verdict on a run, a snapshot or a reset"),
                                home.string()));
    }
    return lock;
}

void Tv::create(const fs::path& home, const ChannelSource& list, const std::string& serial, const TvClock& clock,
                const std::string& account, bool favouritesFromGroups, const Keeper& keeper) {
    requireName("account", account);
    if (home.string().size() > limits::HOME_PATH_BYTES) {
        throw Error(fmt::format("the path of a TV home has at most {} bytes, and {} has {}", limits::HOME_PATH_BYTES,
                                inQuotes(home.string()), home.string().size()));
    }
    // It is built beside its place, as a rename cannot cross file systems.
    const ScratchFolder scratch(home.parent_path());
    const fs::path built = scratch / "tv";
    makePrivateFolder(built);
    const ServiceDb services(built / "service-db");
    const bool isAlone = keeper.kind.empty();
    // Nobody can register a name below .invalid: whatever opens this address reaches no one.
    services.create(list, isAlone ? fmt::format("set={0}\nservice=http://set-{0}.invalid/live\n", serial) : "");
    std::vector<std::string> favouriteNames;
    if (favouritesFromGroups) {
        services.change(&fillFavouritesFromGroups);
        favouriteNames = services.services().groups();
    }
    const std::optional<Service> first = services.services().find(services.services().first());
    if (!first) {
        throw Error("the channel list holds no service");
    }
    IssDb(built / "iss.db").create({{"set", serial}, {"layout", "list"}, {"last_group", "0"}});
    std::map<std::string, std::string> ciFiles;
    if (isAlone) {
        ciFiles = {{"ci_profile.bin", "CI\x01" + serial},
                   {"ci_operator.xml", "<operator set=\"" + inXml(serial) + "\"/>\n"}};
    }
    CiFiles(built / "ci").create(ciFiles);
    createDatabase(databaseOf(built), antennaModeOf(first->source), serial, clock, account, favouriteNames, keeper);
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
    const Statement state =
        stateOf(m_database, "antenna_mode, service_mode, service_id, source, category, category_param, sort_mode");
    const auto code = [&](int column) { return static_cast<int>(state.integer(column)); };
    return {{static_cast<AntennaMode>(code(0)), static_cast<ServiceMode>(code(1))},
            static_cast<std::uint64_t>(state.integer(2)),
            static_cast<Source>(code(3)),
            {static_cast<CategoryKind>(code(4)), static_cast<std::uint64_t>(state.integer(5)),
             static_cast<SortMode>(code(6))}};
}

void Tv::changeViewing(const std::function<void(Viewing&)>& change) {
    Transaction transaction(m_database);
    Viewing viewing = this->viewing();
    change(viewing);
    m_database.change(
        "UPDATE state SET antenna_mode = ?, service_mode = ?, service_id = ?, source = ?, category = ?, "
        "category_param = ?, sort_mode = ?",
        codeOf(viewing.mode.antenna), codeOf(viewing.mode.service), viewing.serviceId, codeOf(viewing.source),
        codeOf(viewing.category.kind), viewing.category.param, codeOf(viewing.category.sort));
    transaction.commit();
}

void Tv::watchWhatIsThere() {
    changeViewing([&](Viewing& viewing) {
        const Services now = services();
        viewing.serviceId = now.find(viewing.serviceId) ? viewing.serviceId : now.first();
        viewing.category = has(viewing.category) ? viewing.category : Category();
    });
}

bool Tv::has(const TvMode& mode) const {
    return isKnown(mode);
}

bool Tv::has(Source source) const {
    return isKnown(source);
}

bool Tv::has(const Category& category) const {
    return isKnown(category, category.kind == CategoryKind::Group ? services().counts().groups : 0);
}

std::set<int> Tv::antenna() const {
    std::set<int> statuses;
    for (const std::string& status : split(stateOf(m_database, "antenna").text(0), ',')) {
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
    return stateOf(m_database, "serial").text(0);
}

Keeper Tv::keeper() const {
    Keeper keeper;
    if (m_database.integer("SELECT 1 FROM sqlite_schema WHERE name = 'keeper'")) {
        Statement kind(m_database, "SELECT kind FROM keeper");
        keeper.kind = kind.next() ? kind.text(0) : "";
        Statement option(m_database, "SELECT name, value FROM keeper_options");
        while (option.next()) {
            keeper.options[option.text(0)] = option.text(1);
        }
    }
    return keeper;
}

std::string Tv::account() const {
    std::string account = stateOf(m_database, "account").text(0);
    requireName("account", account);  // it becomes part of a path, and a bundle may have written the database
    return account;
}

void Tv::setAccount(const std::string& account) {
    requireName("account", account);
    m_database.change("UPDATE state SET account = ?", account);
}

TvClock Tv::clock() const {
    TvClock clock;
    if (const std::optional<std::int64_t> time = m_database.integer("SELECT now FROM state WHERE now IS NOT NULL")) {
        // Whatever wrote the database: a sum with what a run takes must fit.
        clock.time = std::chrono::milliseconds(std::clamp<std::int64_t>(*time, -LATEST_TIME_MS, LATEST_TIME_MS));
    }
    const Statement state = stateOf(m_database, "still, zone");
    clock.isStill = state.integer(0) != 0;
    clock.zone = state.text(1);
    return clock;
}

void Tv::setClock(const TvClock& clock) {
    m_database.change("UPDATE state SET now = ?, still = ?, zone = ?", countOf(clock.time), clock.isStill, clock.zone);
}

std::chrono::milliseconds Tv::now() const {
    return clock().time.value_or(machineTime());
}

void Tv::passTime(std::chrono::milliseconds duration) {
    // On a TV with the machine's clock, it is NULL, and stays that.
    m_database.change("UPDATE state SET now = now + ? WHERE NOT still", duration.count());
}

bool Tv::isScanning() const {
    return m_database.integer("SELECT scanning FROM state").value_or(0) != 0;
}

void Tv::setScanning(bool scanning) {
    m_database.change("UPDATE state SET scanning = ?", scanning ? 1 : 0);
}

void Tv::requireOwnChannels(const char* what) const {
    if (const std::string kind = keeper().kind; !kind.empty()) {
        throw Error(
            fmt::format("the channels of the TV at {} are those of {}; {} with that", m_home.string(), kind, what));
    }
}

ScanResult Tv::rescan(const ChannelSource& list) {
    requireOwnChannels("scan");
    const ServiceDb air(m_home / ON_AIR);
    // First, so that a kill between the two leaves a TV that has not scanned yet.
    air.store(list);
    ScanResult result;
    const Services before = services();
    m_serviceDb.store([&](ChannelSink& sink) { result = scan(before, air.services(), sink); });
    watchWhatIsThere();
    return result;
}

std::optional<Services> Tv::onAir() const {
    const ServiceDb air(m_home / ON_AIR);
    return air.isThere() ? std::optional(air.services()) : std::nullopt;
}

Setup Tv::setup() const {
    Setup setup;
    const auto take = [&](Item item, auto read) {
        try {
            read(item);
        } catch (const Error& error) {
            setup.lacking[item] = error.what();
            setup.unreadable.insert(item);
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
    } catch (const Error&) {  // unreadable, so they have none
    }
    return fingerprints;
}

}  // namespace sim
