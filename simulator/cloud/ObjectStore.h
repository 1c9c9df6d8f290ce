// A cloud store on an object store that speaks S3. A backup is one object, which never changes:
//
//   [PREFIX/]<account>/<client id>/<category>/v2-<8 digits>-<8 hexadecimal digits>
//   [PREFIX/]<account>/<client id>/<category>/~pin-<the same>           it shall stay
//
// The digits of a key count down from 99999999, so that the newest backup is the first of its category in a listing,
// which is sorted by keys. Those of the backup's id count up: "v2-99999998-1a2b3c4d" holds "00000001-1a2b3c4d". The
// last part is random: writers that saw the same listing never write the same object. (Version 1.1.0 counted up,
// without "v2-"; what it stored is foreign.)
//
// An object is a line with the SHA-256 of all that follows it, a line of JSON with what is known of the backup and how
// long its parts are, the metadata, and the bundle.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/cloud/ObjectClient.h"

namespace sim {

class ObjectStore final : public CloudStore {
public:
    // Throws Error if `place` is not s3://BUCKET[/PREFIX], or if the environment lacks something.
    // For `notes`, see Endpoints.
    ObjectStore(const std::string& place, RequestObserver observer, std::filesystem::path notes);

    std::string place() const override { return m_place; }
    bool isRemote() const override { return true; }
    std::vector<std::filesystem::path> makeLocalFolders() const override { return {}; }
    std::vector<std::string> unusedSettings() const override { return m_client->settings().unused; }
    void create() override;
    std::vector<StoreTrial> examine() const override;
    std::string put(const NewBackup& backup, const std::filesystem::path& bundle) override;
    void remove(const BackupName& backup) override;
    void pin(const BackupName& backup, bool isPinned) override;
    std::optional<BackupName> newest(const Address& address) const override;
    StoreContent contentOf(const std::string& account) const override;
    StoredBackup look(const BackupName& name) const override;
    StoredBackup fetch(const BackupName& name, const std::filesystem::path& folder) const override;

private:
    std::string folderOf(const Address& address) const;
    std::string keyOf(const BackupName& name, std::string_view kind) const;
    std::optional<BackupName> nameIn(const ObjectClient::Object& object, std::string_view kind) const;
    ObjectClient& clientFor(const Address& address) const;

    std::string m_place;
    std::string m_bucket;
    std::string m_prefix;  // empty, or ends with '/'
    std::unique_ptr<ObjectClient> m_client;
};

}  // namespace sim
