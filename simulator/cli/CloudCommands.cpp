// The commands on the cloud store.
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"
#include "simulator/reports/BackupReport.h"
#include "simulator/tv/Application.h"

namespace cli {

namespace {

int list(const Place& place) {
    const std::vector<sim::StoredBackup> backups = sim::openCloud(place.cloud)->list();
    if (backups.empty()) {
        print("No backup in {}.\n", place.cloud);
        return DONE;
    }
    print("{:<8} {:<22} {:>12}  {}\n", "backup", "time", "bytes", "client/category");
    for (const sim::StoredBackup& backup : backups) {
        if (backup.damage.empty()) {
            print("{:<8} {:<22} {:>12}  {}/{}\n", backup.id, backup.time, backup.size, backup.clientId,
                  backup.category);
        } else {
            print("{:<8} {:<22} {:>12}  {}/{}: {}\n", backup.id, "damaged", "", backup.clientId, backup.category,
                  backup.damage);
        }
    }
    return DONE;
}

// The newest, or the one of the id. A damaged one cannot be shown.
sim::StoredBackup choose(const Place& place, const sim::CloudStore& store, const std::string& id) {
    std::vector<sim::StoredBackup> backups = store.list();
    for (auto backup = backups.rbegin(); backup != backups.rend(); ++backup) {
        if (!id.empty() ? backup->id == id : backup->damage.empty()) {
            if (!backup->damage.empty()) {
                throw sim::Error(sim::Error::Kind::Damaged,
                                 fmt::format("backup {} is damaged: {}", backup->id, backup->damage));
            }
            return *backup;
        }
    }
    throw sim::Error(sim::Error::Kind::Missing, fmt::format("{} holds no backup{}; see: halcyon-tv cloud list",
                                                            place.cloud, id.empty() ? "" : " " + id));
}

int show(const Place& place, const std::string& id) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(place.cloud);
    const sim::BackupReport report = sim::reportOn(*store, choose(place, *store, id));
    print("backup {} of {}/{}\n", report.backup.id, report.backup.clientId, report.backup.category);
    print("  time       {}\n", report.backup.time);
    print("  bundle     {}, {} bytes\n", report.backup.name, report.backup.size);
    print("  metadata   {}\n", report.backup.metadata);
    print("  entries:\n");
    for (const sim::ArchiveEntry& entry : report.entries) {
        const bool isServices = entry.name == sim::application::SERVICE_DB_ENTRY;
        const std::string count = isServices ? fmt::format("   {} services", report.services) : "";
        print("    {:<24} {:>8} bytes{}\n", entry.name, entry.size, count);
    }
    return DONE;
}

}  // namespace

void addCloudCommands(CLI::App& app, Action& chosen) {
    CLI::App* store = app.add_subcommand("cloud", "Look into the cloud store");
    store->require_subcommand(1);
    addCommand(*store, "list", "List the backups", chosen, &list);

    const auto id = std::make_shared<std::string>();
    addCommand(*store, "show", "Show a backup with what its bundle holds", chosen, [id](const Place& place) {
        return show(place, *id);
    })->add_option("backup", *id, "id of the backup (default: the newest)");
}

}  // namespace cli
