// The TVs, stored backups and bundle files that a command line names.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/cli/Command.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"

namespace cli {

// The account of the TV; empty, which stands for any, if there is no TV. Throws sim::Error if the account is invalid.
std::string accountOf(const Session& session);

struct NamedBundle {
    std::string name;
    std::optional<sim::StoredBackup> backup;  // nothing if the bundle is a file
    std::string metadataFile;                 // where the metadata are from; empty: from the store, or not known
    sim::Bundle bundle;
};

// The bundle file `what`, with its metadata from the file `metadata` or from beside it; else the stored backup of the
// id `what`. Throws sim::Error if there is neither, and DamagedBundle if the store says that it is damaged.
NamedBundle chooseBundle(const Session& session, const std::string& what, const std::string& metadata);

struct Side {
    std::string name;
    sim::Setup setup;
    std::vector<std::string> problems;  // of a bundle
};

// The TV in the folder `what`, which is the session's if it is empty; else as above. Throws sim::Error.
Side chooseSide(const Session& session, const std::string& what);

}  // namespace cli
