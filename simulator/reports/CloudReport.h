// What the store holds, and what would become of it on a TV.
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

// " of the account NAME", but nothing for the default one and for any.
std::string ofAccount(const std::string& account);

// The stored backup of an id, or of CLIENT/CATEGORY/ID, of an account, which is any where it is empty; or of
// ACCOUNT/CLIENT/CATEGORY/ID. Without an id, the newest whole one. Throws Error.
BackupName chooseBackup(const CloudStore& store, const std::string& id, const std::string& account);

// A stored backup with its bundle. Throws Error where it cannot be handed out.
struct FetchedBackup {
    StoredBackup backup;
    Bundle bundle;
};
FetchedBackup fetchBundle(const CloudStore& store, const BackupName& name);

// The antenna inputs that a backup was made with, in words.
std::string antennaOf(const StoredBackup& backup);

// Serial number of the set that made a bundle, as its iss database has it; empty: it has none.
std::string deviceOf(const Bundle& bundle);

// Metadata that fits a TV with these antenna inputs and leaves its viewing state alone.
std::string metadataFor(const std::set<int>& antenna);

// What a restore of a bundle would do on a TV as it is now.
struct Prospect {
    bool isPossible = false;
    Cause cause = Cause::None;  // why not
    std::string why;
    std::vector<std::string> leftovers;  // of earlier runs, which a restore would apply too
};

Prospect prospectOf(const Bundle& bundle, const Tv& tv);

// What the backup's metadata and a TV's antenna inputs have against each other.
struct Reason {
    Cause cause;
    std::string why;
};
std::optional<Reason> incompatibility(const Metadata& metadata, const std::set<int>& antenna);

// Puts the bundle file into the store as a new backup of an account; its id. If its metadata is not known, it gets some
// that lets `tv`, which must be given then, restore it and leaves the viewing state of that TV alone. Throws Error,
// also if the file is no bundle.
std::string importBundle(CloudStore& store, const Bundle& bundle, const std::filesystem::path& file,
                         const std::string& account, const Tv* tv);

}  // namespace sim
