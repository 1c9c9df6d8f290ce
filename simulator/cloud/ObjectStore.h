// A cloud store on an object store that speaks S3. A backup is one object, which never changes:
//
//   [PREFIX/]<account>/<client id>/<category>/<8 digits>-<8 hexadecimal digits>
//
// The number is the greatest listed and one; the rest of the name is random, so that writers who have seen the same
// list never write the same object. The object is a line with the SHA-256 of all that follows, a line of JSON with what
// is known of the backup and how long its parts are, the metadata, and the bundle.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "simulator/cloud/CloudStore.h"
#include "simulator/cloud/ObjectClient.h"

namespace sim {

class ObjectStore final : public CloudStore {
public:
    // `place` is s3://BUCKET[/PREFIX]. Throws Error where it is not, or the environment lacks something.
    ObjectStore(const std::string& place, TellRequest tell);

    std::string place() const override { return m_place; }
    bool isRemote() const override { return true; }
    std::vector<std::filesystem::path> makeLocalFolders() const override { return {}; }
    void create() override;
    std::string put(const NewBackup& backup, const std::filesystem::path& bundle) override;
    void remove(const BackupName& backup) override;
    std::optional<BackupName> newest(const Address& address, const std::string& lastSeen) const override;
    StoreContent content() const override;
    StoredBackup look(const BackupName& name) const override;
    StoredBackup fetch(const BackupName& name, const std::filesystem::path& folder) const override;

private:
    std::string folderOf(const Address& address) const;
    std::string keyOf(const BackupName& name) const;
    std::optional<BackupName> nameIn(const ObjectClient::Object& object) const;
    std::optional<BackupName> last(const ObjectClient::Page& page) const;

    std::string m_place;
    std::string m_prefix;  // empty, or with a '/' at its end
    std::unique_ptr<ObjectClient> m_client;
};

}  // namespace sim
