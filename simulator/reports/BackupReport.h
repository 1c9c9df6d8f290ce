// What a stored backup holds.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/base/Archive.h"
#include "simulator/cloud/CloudStore.h"

namespace sim {

struct BackupReport {
    StoredBackup backup;
    std::vector<ArchiveEntry> entries;
    std::uint64_t services = 0;  // in its channel database
};

// Throws Error where the bundle, or the channel database in it, cannot be read.
BackupReport reportOn(const CloudStore& store, const StoredBackup& backup);

// The number of services in a bundle's channel database. Throws Error where it holds no whole one.
std::uint64_t countServices(const std::filesystem::path& bundle);

}  // namespace sim
