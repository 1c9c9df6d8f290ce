// A cloud store in a folder.
//
//   <client id>/<category>/<backup id>/{bundle.zip, metadata.json, info.json}
//   <client id>/<category>/<backup id>.removed
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"

namespace sim {

class FolderStore final : public CloudStore {
public:
    explicit FolderStore(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    std::string place() const override { return m_folder; }
    std::vector<std::filesystem::path> makeLocalFolders() const override;
    std::string put(const NewBackup& backup, const std::filesystem::path& bundle) override;
    void remove(const StoredBackup& backup) override;
    std::optional<StoredBackup> find(const std::string& clientId, const std::string& category,
                                     const std::string& id) const override;
    std::vector<StoredBackup> list() const override;
    void fetch(const StoredBackup& backup, const std::filesystem::path& target) const override;

private:
    std::filesystem::path m_folder;
};

}  // namespace sim
