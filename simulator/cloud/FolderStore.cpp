#include "simulator/cloud/FolderStore.h"

#include <fmt/format.h>
#include <json/value.h>

#include <algorithm>
#include <tuple>

#include "simulator/base/Clock.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr std::size_t ID_DIGITS = 6;  // at least
constexpr char REMOVED[] = ".removed";

// The number that an id is. Nothing: the name is that of no backup.
std::optional<std::uint64_t> numberOf(const std::string& id) {
    const bool hasForm = id.size() >= ID_DIGITS && id.find_first_not_of("0123456789") == std::string::npos &&
                         (id.size() == ID_DIGITS || id.front() != '0');
    return hasForm ? toNumber<std::uint64_t>(id) : std::nullopt;
}

std::vector<std::string> folderNames(const fs::path& folder) {
    std::vector<std::string> names;
    for (const fs::path& member : membersOf(folder)) {
        std::error_code ignored;
        if (fs::is_directory(member, ignored)) {
            names.push_back(member.filename());
        }
    }
    return names;
}

// Oldest first.
std::vector<std::string> backupIds(const fs::path& category) {
    std::vector<std::string> ids = folderNames(category);
    ids.erase(std::remove_if(ids.begin(), ids.end(), [](const std::string& name) { return !numberOf(name); }),
              ids.end());
    std::sort(ids.begin(), ids.end(),
              [](const std::string& one, const std::string& other) { return numberOf(one) < numberOf(other); });
    return ids;
}

// Of those that are or were there; 0: none.
std::uint64_t highestNumber(const fs::path& category) {
    std::uint64_t highest = 0;
    for (const fs::path& member : membersOf(category)) {
        const std::string name = member.filename();
        const bool wasRemoved = member.extension() == REMOVED;
        highest = std::max(highest, numberOf(wasRemoved ? member.stem().string() : name).value_or(0));
    }
    return highest;
}

void load(const fs::path& folder, StoredBackup& backup) {
    Json::Value info;
    const bool isObject = parseJson(readFile(folder / "info.json"), info) && info.isObject();
    if (!isObject || !info["time"].isString() || !info["name"].isString()) {
        throw Error(Error::Kind::Damaged,
                    fmt::format("{}: not what a backup has there", (folder / "info.json").string()));
    }
    backup.time = info["time"].asString();
    backup.name = fs::path(info["name"].asString()).filename();
    backup.device = info["device"].isString() ? info["device"].asString() : "";
    if (info["services"].isUInt64()) {
        backup.services = info["services"].asUInt64();
    }
    backup.metadata = readFile(folder / "metadata.json");
    backup.size = sizeOf(folder / "bundle.zip");
}

StoredBackup stored(const fs::path& folder) {
    StoredBackup backup;
    backup.id = folder.filename();
    backup.category = folder.parent_path().filename();
    backup.clientId = folder.parent_path().parent_path().filename();
    try {
        load(folder, backup);
    } catch (const Error& error) {
        backup.damage = error.what();
    }
    return backup;
}

}  // namespace

std::unique_ptr<CloudStore> openCloud(const std::string& place) {
    return std::make_unique<FolderStore>(place);
}

std::vector<fs::path> FolderStore::makeLocalFolders() const {
    makePrivateFolder(m_folder);
    return {m_folder};
}

std::string FolderStore::put(const NewBackup& backup, const fs::path& bundle) {
    makePrivateFolder(m_folder);
    const fs::path parent = m_folder / backup.clientId / backup.category;
    const ScratchFolder scratch(parent);
    const fs::path built = scratch / "backup";
    makeFolders(built);
    copyFile(bundle, built / "bundle.zip");
    writeFile(built / "metadata.json", backup.metadata);
    Json::Value info;
    info["time"] = utcNow();
    info["name"] = bundle.filename().string();
    info["device"] = backup.device;
    if (backup.services) {
        info["services"] = Json::Value::UInt64(*backup.services);
    }
    writeFile(built / "info.json", writeJson(info));

    for (std::uint64_t number = highestNumber(parent) + 1;; ++number) {
        std::string id = fmt::format("{:0{}}", number, ID_DIGITS);
        if (putInPlace(built, parent / id)) {
            return id;
        }
    }
}

void FolderStore::remove(const StoredBackup& backup) {
    const fs::path parent = m_folder / backup.clientId / backup.category;
    const ScratchFolder scratch(parent);
    writeFile(parent / (backup.id + REMOVED), "");
    putInPlace(parent / backup.id, scratch / "removed");
}

std::optional<StoredBackup> FolderStore::find(const std::string& clientId, const std::string& category,
                                              const std::string& id) const {
    const fs::path parent = m_folder / clientId / category;
    const std::vector<std::string> ids = backupIds(parent);
    if (ids.empty() || (!id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end())) {
        return std::nullopt;
    }
    return stored(parent / (id.empty() ? ids.back() : id));
}

std::vector<StoredBackup> FolderStore::list() const {
    std::vector<StoredBackup> backups;
    for (const std::string& client : folderNames(m_folder)) {
        for (const std::string& category : folderNames(m_folder / client)) {
            for (const std::string& id : backupIds(m_folder / client / category)) {
                backups.push_back(stored(m_folder / client / category / id));
            }
        }
    }
    return backups;
}

void FolderStore::fetch(const StoredBackup& backup, const fs::path& target) const {
    std::error_code ignored;
    fs::remove(target, ignored);  // or a link there would lead the bundle elsewhere
    copyFile(m_folder / backup.clientId / backup.category / backup.id / "bundle.zip", target);
}

}  // namespace sim
