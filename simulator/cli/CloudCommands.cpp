// The commands on the cloud store.
#include <algorithm>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"
#include "simulator/cli/Side.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

void printBackup(const sim::StoredBackup& backup, std::size_t columns) {
    const std::string services = backup.services ? std::to_string(*backup.services) : "?";
    if (backup.damage.empty()) {
        print("{:<{}} {:<21} {:>10} {:>9}  {:<16} {:<32} {}/{}/{}\n", backup.id, columns, backup.time, backup.size,
              services, backup.device.empty() ? "?" : backup.device, sim::antennaOf(backup), backup.account,
              backup.clientId, backup.category);
    } else {
        print("{:<{}} {:<21} {}: {}\n", backup.id, columns, "DAMAGED", backup.path(), backup.damage);
    }
}

int list(const Session& session) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(session.cloud);
    const sim::StoreContent content = store->content();
    const std::vector<sim::StoredBackup> backups = sim::lookAt(*store, content.backups);
    if (session.isJson) {
        Json::Value value = asMember("backups", sim::toJson(backups));
        value["cloud"] = sim::toUtf8(store->place());
        if (session.isVerbose) {
            value["foreign"] = sim::toJson(content.foreign);
        }
        printJson(value);
        return DONE;
    }
    std::size_t columns = 8;
    for (const sim::StoredBackup& backup : backups) {
        columns = std::max(columns, backup.id.size());
    }
    if (backups.empty()) {
        print("No backup in {}.\n", store->place());
    } else {
        print("{:<{}} {:<21} {:>10} {:>9}  {:<16} {:<32} {}\n", "backup", columns, "time", "bytes", "channels", "set",
              "antenna", "account/client/category");
    }
    for (const sim::StoredBackup& backup : backups) {
        printBackup(backup, columns);
    }
    for (const std::string& name : session.isVerbose ? content.foreign : std::vector<std::string>()) {
        print("foreign: {}\n", name);
    }
    return DONE;
}

struct ImportOptions {
    std::string file;
    std::string metadata;
};

int import(const Session& session, const ImportOptions& options) {
    const NamedBundle named = chooseBundle(session, options.file, options.metadata);
    if (named.backup) {
        throw sim::Error(sim::Error::Kind::Missing,
                         fmt::format("{}: no such file; {} is a stored backup already", options.file, named.name));
    }
    for (const std::string& problem : named.bundle.problems()) {
        print(stderr, "damaged: {}\n", problem);
    }
    const bool isMetadataKnown = named.bundle.metadataText().has_value();
    if (!isMetadataKnown) {
        print(stderr,
              "No metadata is known of the bundle. Making some up: the antenna inputs of the TV at {}, and no viewing "
              "state.\n",
              session.home.string());
    }
    const std::optional<sim::Tv> tv =
        isMetadataKnown ? std::nullopt
                        : std::optional<sim::Tv>(std::in_place, session.home, sim::Database::Access::Look);
    const std::string known = accountOf(session);
    const std::string account = known.empty() ? sim::DEFAULT_ACCOUNT : known;
    const std::string id =
        sim::importBundle(*sim::openCloud(session.cloud), named.bundle, options.file, account, tv ? &*tv : nullptr);
    if (session.isJson) {
        printJson(asMember("backup", id));
    } else {
        print("backup {}\n", id);
    }
    return DONE;
}

int remove(const Session& session, const std::string& id) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(session.cloud);
    store->remove(sim::chooseBackup(*store, id, accountOf(session)));
    return DONE;
}

}  // namespace

void addCloudCommands(CLI::App& app, Action& chosen) {
    CLI::App* store = addGroup(app, "cloud", "Look into the cloud store, and change it");
    addCommand(*store, "create", "Make the store's bucket or folder, where it is missing",
               "halcyon-tv --cloud s3://lab cloud create", chosen, [](const Session& session) {
                   sim::openCloud(session.cloud)->create();
                   return DONE;
               });
    addCommand(*store, "list", "List the backups: which set made each, with what antenna, how many channels",
               "halcyon-tv cloud list --json", chosen, &list);

    const auto options = std::make_shared<ImportOptions>();
    CLI::App* importing = addCommand(*store, "import", "Put a bundle file into the store as a new backup",
                                     "halcyon-tv cloud import customer.zip", chosen,
                                     [options](const Session& session) { return import(session, *options); });
    importing->add_option("file", options->file, "the bundle")->required();
    importing->add_option("--metadata", options->metadata,
                          "file with its metadata (default: the one beside it; else some that fits this TV)");

    const auto id = std::make_shared<std::string>();
    addCommand(*store, "remove", "Remove a backup for good", "halcyon-tv cloud remove 000001", chosen,
               [id](const Session& session) { return remove(session, *id); })
        ->add_option("backup", *id, "its id")
        ->required();
}

}  // namespace cli
