#include "simulator/cloud/CloudStore.h"

#include <fmt/format.h>

#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/FolderStore.h"
#include "simulator/cloud/ObjectStore.h"

namespace sim {

std::unique_ptr<CloudStore> openCloud(const std::string& place, RequestObserver observer) {
    if (place.find("://") != std::string::npos) {
        return std::make_unique<ObjectStore>(place, std::move(observer));
    }
    return std::make_unique<FolderStore>(place);
}

std::string bundleName(const std::string& name) {
    std::string last = std::filesystem::path(name).filename();
    if (last.empty() || last == "." || last == "..") {
        throw Error(Error::Kind::Damaged, fmt::format("{} is no name for a bundle", inQuotes(name)));
    }
    return last;
}

std::vector<StoredBackup> lookAt(const CloudStore& store, const std::vector<BackupName>& names) {
    std::vector<StoredBackup> backups;
    backups.reserve(names.size());
    for (const BackupName& name : names) {
        try {
            backups.push_back(store.look(name));
        } catch (const Error& error) {
            if (error.kind() != Error::Kind::Missing) {  // else it was removed in the meantime
                throw;
            }
        }
    }
    return backups;
}

std::vector<StoredBackup> listBackups(const CloudStore& store) {
    return lookAt(store, store.content().backups);
}

}  // namespace sim
