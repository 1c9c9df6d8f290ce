// A cloud store in a folder.
//
//   [@<account>/]<client id>/<category>/<backup id>/{bundle.zip, metadata.json, info.json}
//   [@<account>/]<client id>/<category>/<backup id>.removed
//   [@<account>/]<client id>/<category>/<backup id>.pinned
//
// The default account has no folder of its own. The empty file <backup id>.removed keeps the id of a removed backup
// from being used again.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"

namespace sim {

class FolderStore final : public CloudStore {
public:
    // Throws Error if a file is in the way.
    explicit FolderStore(std::filesystem::path folder);

    std::string place() const override { return m_folder; }
    bool isRemote() const override { return false; }
    std::vector<std::filesystem::path> makeLocalFolders() const override;
    void create() override { makeLocalFolders(); }
    std::vector<StoreTrial> examine() const override;
    std::string put(const NewBackup& backup, const std::filesystem::path& bundle) override;
    void remove(const BackupName& backup) override;
    // Marks an id as used, as if its backup had been removed: the next backup gets a higher one.
    void reserve(const BackupName& backup) const;
    void pin(const BackupName& backup, bool isPinned) override;
    std::optional<BackupName> newest(const Address& address) const override;
    StoreContent contentOf(const std::string& account) const override;
    StoredBackup look(const BackupName& name) const override;
    StoredBackup fetch(const BackupName& name, const std::filesystem::path& folder) const override;

private:
    std::filesystem::path folderOf(const Address& address) const;
    std::filesystem::path existingFolderOf(const BackupName& name) const;
    std::vector<std::filesystem::path> foldersIn(const std::filesystem::path& folder, StoreContent& content) const;
    void addCategory(const Address& address, const std::filesystem::path& folder, StoreContent& content) const;
    void addAccount(const std::string& account, const std::filesystem::path& folder, StoreContent& content) const;

    std::filesystem::path m_folder;
};

}  // namespace sim
