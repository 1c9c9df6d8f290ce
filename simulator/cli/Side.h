// What a person names to look at or to compare: a TV, a stored backup, or a bundle file.
#pragma once

#include <optional>
#include <string>

#include "simulator/cli/Command.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/lineup/Bundle.h"

namespace cli {

// The account of the TV; empty, which stands for any, where there is no TV.
std::string accountOf(const Session& session);

// A bundle, of a file or of a stored backup.
struct NamedBundle {
    std::string name;
    std::optional<sim::StoredBackup> backup;  // nothing: a file
    sim::Bundle bundle;
};

// The file of that path, with its metadata from `metadata` or beside it; else the stored backup of that id. Throws
// sim::Error.
NamedBundle chooseBundle(const Session& session, const std::string& what, const std::string& metadata);

struct Side {
    std::string name;
    sim::Setup setup;
};

// A folder is a TV; the rest as above. Throws sim::Error.
Side chooseSide(const Session& session, const std::string& what);
Side thisTv(const Session& session);

}  // namespace cli
