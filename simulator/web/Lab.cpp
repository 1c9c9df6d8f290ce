#include "simulator/web/Lab.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"

namespace fs = std::filesystem;

namespace sim {

std::map<std::string, fs::path> Lab::tvs() const {
    std::map<std::string, fs::path> tvs;
    for (const fs::path& home : m_folder.empty() ? std::vector{m_home} : membersOf(m_folder)) {
        if (isRegularFile(home / "tv.db")) {
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
            backups.push_back(std::move(backup));
        }
    }
    m_read = std::move(read);
    return backups;
}

fs::path Lab::tokenFile() const {
    const fs::path beside = m_folder.empty() ? m_home.parent_path() : m_folder;
    return beside / (m_folder.empty() ? "." + m_home.filename().string() + ".token" : ".halcyon-tv.token");
}

}  // namespace sim
