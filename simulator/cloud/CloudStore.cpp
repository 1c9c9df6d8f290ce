#include "simulator/cloud/CloudStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::size_t ID_DIGITS = 6;

bool isBackupId(const std::string& name) {
    return name.size() == ID_DIGITS && name.find_first_not_of("0123456789") == std::string::npos;
}

// The folders directly below `folder`, by name.
std::vector<std::string> folderNames(const fs::path& folder) {
    std::vector<std::string> names;
    if (fs::is_directory(folder)) {
        for (const fs::directory_entry& member : fs::directory_iterator(folder)) {
            if (member.is_directory()) {
                names.push_back(member.path().filename());
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> backupIds(const fs::path& category) {
    std::vector<std::string> ids = folderNames(category);
    ids.erase(std::remove_if(ids.begin(), ids.end(), [](const std::string& name) { return !isBackupId(name); }),
              ids.end());
    return ids;
}

StoredBackup load(const fs::path& folder) {
    Json::Value info;
    StoredBackup backup;
    try {
        const bool isObject = parseJson(readFile(folder / "info.json"), info) && info.isObject();
        if (!isObject || !info["time"].isString() || !info["name"].isString()) {
            throw Error(fmt::format("{}: no whole backup: info.json is damaged; remove the folder", folder.string()));
        }
        backup.metadata = readFile(folder / "metadata.json");
    } catch (const fs::filesystem_error& error) {
        throw Error(fmt::format("{}: no whole backup: {}; remove the folder", folder.string(), error.what()));
    }
    backup.id = folder.filename();
    backup.category = folder.parent_path().filename();
    backup.clientId = folder.parent_path().parent_path().filename();
    backup.time = info["time"].asString();
    backup.name = fs::path(info["name"].asString()).filename();
    backup.bundle = folder / "bundle.zip";
    return backup;
}

}  // namespace

std::string CloudStore::put(const std::string& clientId, const std::string& category, const std::string& metadata,
                            const fs::path& bundle) const {
    const fs::path parent = m_folder / clientId / category;
    const ScratchFolder scratch(parent);
    const fs::path built = scratch / "backup";
    fs::create_directory(built);
    copyFile(bundle, built / "bundle.zip");
    writeFile(built / "metadata.json", metadata);
    Json::Value info;
    info["time"] = utcNow();
    info["name"] = bundle.filename().string();
    writeFile(built / "info.json", writeJson(info));

    const std::vector<std::string> ids = backupIds(parent);
    for (int number = ids.empty() ? 1 : std::stoi(ids.back()) + 1;; ++number) {
        std::string id = fmt::format("{:0{}}", number, ID_DIGITS);
        if (putInPlace(built, parent / id)) {
            return id;
        }
    }
}

std::optional<StoredBackup> CloudStore::find(const std::string& clientId, const std::string& category,
                                             const std::string& id) const {
    const fs::path parent = m_folder / clientId / category;
    const std::vector<std::string> ids = backupIds(parent);
    if (ids.empty() || (!id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end())) {
        return std::nullopt;
    }
    return load(parent / (id.empty() ? ids.back() : id));
}

CloudStore::Listing CloudStore::list() const {
    Listing listing;
    for (const std::string& client : folderNames(m_folder)) {
        for (const std::string& category : folderNames(m_folder / client)) {
            for (const std::string& id : backupIds(m_folder / client / category)) {
                try {
                    listing.backups.push_back(load(m_folder / client / category / id));
                } catch (const Error& error) {
                    listing.problems.emplace_back(error.what());
                }
            }
        }
    }
    return listing;
}

}  // namespace sim
