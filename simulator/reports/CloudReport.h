// Backups in the store, and whether a TV would restore them.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/tv/Tv.h"

namespace sim {

// " of the account NAME"; empty for the default account and for any.
std::string ofAccount(const std::string& account);

// Finds the backup that `id` names: by ID or CLIENT/CATEGORY/ID among those of an account, which is any if it is empty;
// or by ACCOUNT/CLIENT/CATEGORY/ID. An empty `id` means the newest whole backup. Throws Error (Missing) if there is
// none, and Error (Unusable) if the id is ambiguous.
BackupName chooseBackup(const CloudStore& store, const std::string& id, const std::string& account);

struct FetchedBackup {
    StoredBackup backup;
    Bundle bundle;
};

// Throws Error: Damaged if the backup is, or what the store throws.
FetchedBackup fetchBundle(const CloudStore& store, const BackupName& name);

// The newest whole backup of the same account, client and category before another one; nothing if there is none among
// the few before it, or the store does not tell.
std::optional<BackupName> wholeBefore(const CloudStore& store, const BackupName& name);

// The antenna inputs that a backup was made with, in words.
std::string antennaOf(const StoredBackup& backup);

// Makes metadata that a TV with these antenna inputs accepts, and that leaves its viewing state alone.
std::string metadataFor(const std::set<int>& antenna);

struct Reason {
    Cause cause = Cause::None;
    std::string why;
};

// Why a TV with these antenna inputs refuses a backup; nothing if it accepts it.
std::optional<Reason> incompatibility(const Metadata& metadata, const std::set<int>& antenna);

// A warning if a backup has half of the channels of the one before it, or fewer: a restore would bring it back all the
// same. Empty if it does not, or that is not known.
std::string shrinkage(const StoredBackup& backup, const StoredBackup& before);

// Such warnings of the newest backup of each account, client and category.
class Shrinkages {
public:
    // Backups come as a store lists them: those of a category together, oldest first.
    void add(const StoredBackup& backup);
    std::vector<std::string> finish();

private:
    std::optional<StoredBackup> m_before;
    std::optional<StoredBackup> m_newest;
    std::vector<std::string> m_warnings;
};

// Of backups as a store lists them, those of each account, client and category; each group is not empty.
std::vector<std::vector<BackupName>> byCategory(const std::vector<BackupName>& names);

// Removes a backup that chooseBackup() has found. Throws Error if it is pinned.
void removeUnpinned(CloudStore& store, const BackupName& name);

// Puts the bundle file into the store as a new backup of an account, and returns its id. A bundle without metadata gets
// some that `tv`, which may be null otherwise, accepts, and that leave its viewing state alone. Throws Error: Damaged
// if the file is no bundle, or what the store throws.
std::string importBundle(CloudStore& store, const Bundle& bundle, const std::filesystem::path& file,
                         const std::string& account, const Tv* tv);

}  // namespace sim
