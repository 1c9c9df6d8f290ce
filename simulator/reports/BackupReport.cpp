#include "simulator/reports/BackupReport.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Names.h"
#include "simulator/tv/Application.h"
#include "simulator/tv/ServiceDb.h"

namespace fs = std::filesystem;

namespace sim {

BackupReport reportOn(const CloudStore& store, const StoredBackup& backup) {
    const ScratchFolder scratch(fs::temp_directory_path());
    const fs::path bundle = scratch / "bundle.zip";
    store.fetch(backup, bundle);
    return {backup, listArchive(bundle), countServices(bundle)};
}

std::uint64_t countServices(const fs::path& bundle) {
    const ScratchFolder scratch(fs::temp_directory_path());
    const fs::path archive = scratch / application::SERVICE_DB_ENTRY;
    if (!extractEntry(bundle, application::SERVICE_DB_ENTRY, archive)) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: no channel database in it", bundle.string()));
    }
    if (const std::optional<ReplaceStatus> problem = adoptServices(archive, scratch / "services.db")) {
        throw Error(Error::Kind::Damaged, fmt::format("{}: its channel database is refused with status {}",
                                                      bundle.string(), codeOf(*problem)));
    }
    return ServiceDb(scratch.path()).counts().services;
}

}  // namespace sim
