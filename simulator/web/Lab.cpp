#include "simulator/web/Lab.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/ToJson.h"
#include "simulator/tv/Snapshot.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// Another text if the channels, or the marks on them, may have changed: the database is only ever replaced as a whole.
std::string listRevision(const Tv& tv) {
    struct stat status = {};
    ::stat((tv.home() / "service-db" / "services.db").c_str(), &status);
    return fmt::format("{:x}.{:x}.{:x}.{}", status.st_ino, status.st_size,
                       status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec, runOfSnapshot(tv));
}

// Its outcome is null until somebody has judged it.
Json::Value newestRun(const Tv& tv) {
    const std::optional<Run> run = tv.runs().find(tv.runs().newest());
    if (!run) {
        return {};
    }
    const std::optional<Verdict> verdict = tv.runs().record(run->id).verdict();
    return object({{"run", run->id},
                   {"operation", nameOf(run->operation)},
                   {"isOpen", run->ended == RunEnd::Running},
                   {"outcome", verdict ? toJson(nameOf(verdict->outcome)) : Json::Value()}});
}

}  // namespace

std::map<std::string, fs::path> Lab::tvs() const {
    std::map<std::string, fs::path> tvs;
    for (const fs::path& home : m_folder.empty() ? std::vector{m_home} : membersOf(m_folder)) {
        if (isRegularFile(home / "tv.db") && !isScratch(home)) {
            tvs[home.filename()] = home;
        }
    }
    return tvs;
}

fs::path Lab::homeOf(const std::string& name) const {
    const std::map<std::string, fs::path> all = tvs();
    const auto found = all.find(name);
    if (found == all.end()) {
        throw Error(Error::Kind::Missing, fmt::format("there is no TV {} here", inQuotes(name)));
    }
    return found->second;
}

std::vector<StoredBackup> Lab::backups() const {
    const std::unique_ptr<CloudStore> store = openCloud(m_cloud);
    const std::vector<BackupName> names = store->content().backups;
    const std::lock_guard lock(m_mutex);
    std::map<std::string, StoredBackup> read;
    std::vector<StoredBackup> backups;
    for (const BackupName& name : names) {
        const std::string key = name.path() + " " + name.etag;
        const auto known = name.etag.empty() ? m_read.end() : m_read.find(key);
        for (StoredBackup& backup : known == m_read.end() ? lookAt(*store, {name}) : std::vector{known->second}) {
            if (backup.damage.empty()) {  // only the transfer may have been damaged: read it again the next time
                read.emplace(key, backup);
            }
            backup.isPinned = name.isPinned;
            backups.push_back(std::move(backup));
        }
    }
    // What was read of backups that are gone is forgotten.
    m_read = std::move(read);
    return backups;
}

fs::path Lab::tokenFile() const {
    return place() / (m_folder.empty() ? "." + m_home.filename().string() + ".token" : ".halcyon-tv.token");
}

std::string keyOf(const std::string& name) {
    std::string key;
    for (const char c : name) {
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
                             c == '_' || c == '.';
        key += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return key;
}

std::string nameOfKey(const std::string& key) {
    std::string name;
    for (std::size_t i = 0; i < key.size(); ++i) {
        const std::optional<int> byte =
            key[i] == '%' ? toNumber<int>(std::string_view(key).substr(i + 1, 2), 16) : std::nullopt;
        name += byte ? static_cast<char>(*byte) : key[i];
        i += byte ? 2U : 0U;
    }
    return name;
}

Json::Value stateOf(const std::string& name, const Tv& tv) {
    return object({{"tv", keyOf(name)},
                   {"name", name},
                   {"home", tv.home().string()},
                   {"problem", Json::Value()},
                   {"newest", newestRun(tv)},
                   {"status", reportTv(tv)},
                   {"serial", tv.serial()},
                   {"rules", tv.faults().list()},
                   {"snapshots", snapshotsOf(tv.home())},
                   {"list", listRevision(tv)}});
}

Json::Value brokenStateOf(const std::string& name, const fs::path& home, const std::string& problem) {
    return object({{"tv", keyOf(name)},
                   {"name", name},
                   {"home", home.string()},
                   {"problem", problem},
                   {"newest", Json::Value()}});
}

std::int64_t runOfSnapshot(const Tv& tv) {
    const std::vector<std::string> names = snapshotsOf(tv.home());
    if (std::find(names.begin(), names.end(), BEFORE_RUN) == names.end()) {
        return 0;
    }
    // The snapshot has all runs before the restore, which took the next number.
    const std::int64_t run = Runs(snapshotPath(tv.home(), BEFORE_RUN) / "runs").newest() + 1;
    return run <= tv.runs().newest() ? run : 0;
}

}  // namespace sim
