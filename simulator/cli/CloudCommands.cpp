// The commands on the cloud store.
#include <algorithm>
#include <memory>

#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
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

void printBackups(const std::vector<sim::StoredBackup>& backups, const std::string& cloud) {
    if (backups.empty()) {
        print("No backup in {}.\n", cloud);
        return;
    }
    std::size_t columns = 8;
    for (const sim::StoredBackup& backup : backups) {
        columns = std::max(columns, backup.id.size());
    }
    print("{:<{}} {:<21} {:>10} {:>9}  {:<16} {:<32} {}\n", "backup", columns, "time", "bytes", "channels", "set",
          "antenna", "account/client/category");
    for (const sim::StoredBackup& backup : backups) {
        printBackup(backup, columns);
    }
}

int listStore(const Session& session) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const sim::StoreContent content = store->content();
    const std::vector<sim::StoredBackup> backups = sim::lookAt(*store, content.backups);
    const std::vector<std::string> warnings = sim::shrinkages(backups);
    Json::Value json = sim::object({{"backups", backups}, {"cloud", store->place()}, {"warnings", warnings}});
    if (session.isVerbose) {
        json["foreign"] = sim::toJson(content.foreign);
    }
    answer(session, json, [&] {
        printBackups(backups, store->place());
        printLines(stdout, "warning: ", warnings);
        if (session.isVerbose) {
            for (const std::string& name : content.foreign) {
                print("foreign: {}\n", name);
            }
        }
    });
    const bool isDamaged = std::any_of(backups.begin(), backups.end(),
                                       [](const sim::StoredBackup& backup) { return !backup.damage.empty(); });
    return isDamaged ? DAMAGED : DONE;
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
    const std::vector<std::string> problems = named.bundle.problems();
    if (named.bundle.part(sim::Item::Channels).state == sim::PartState::Absent) {
        throw DamagedBundle(problems.front());  // it would be the newest backup, with nothing to restore
    }
    printLines(stderr, "damaged: ", problems);
    std::optional<sim::Tv> tv;
    if (!named.bundle.metadataText()) {
        print(stderr,
              "No metadata is known of the bundle. Making some up: the antenna inputs of the TV at {}, and no viewing "
              "state.\n",
              session.home.string());
        // Opened only here: with metadata, a bundle can be imported where there is no TV.
        tv.emplace(session.home, sim::Database::Access::Look);
    }
    const std::string known = accountOf(session);
    const std::string account = known.empty() ? sim::DEFAULT_ACCOUNT : known;
    const std::string id =
        sim::importBundle(*session.openStore(), named.bundle, options.file, account, tv ? &*tv : nullptr);
    answer(session, sim::object({{"backup", id}}), [&] { print("backup {}\n", id); });
    return problems.empty() ? DONE : DAMAGED;
}

int remove(const Session& session, const std::string& id) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const sim::BackupName backup = sim::chooseBackup(*store, id, accountOf(session));
    store->remove(backup);
    if (session.isJson) {
        printJson(sim::object({{"backup", backup.id}}));
    }
    return DONE;
}

}  // namespace

void addCloudCommands(CLI::App& app, Action& chosen) {
    CLI::App* store = addGroup(app, "cloud", "List and change the backups in the cloud store");
    addCommand(*store, "create", "Create the store's bucket or folder if it is missing",
               "halcyon-tv --cloud s3://lab cloud create", chosen, [](const Session& session) {
                   const std::unique_ptr<sim::CloudStore> created = session.openStore();
                   created->create();
                   if (session.isJson) {
                       printJson(sim::object({{"cloud", created->place()}}));
                   }
                   return DONE;
               });
    addCommand(*store, "list", "List the backups, each with its set, antenna inputs and number of channels",
               "halcyon-tv cloud list --json", chosen, &listStore);

    const auto options = std::make_shared<ImportOptions>();
    CLI::App* importing = addCommand(*store, "import", "Put a bundle file into the store as a new backup",
                                     "halcyon-tv cloud import customer.zip", chosen,
                                     [options](const Session& session) { return import(session, *options); });
    importing->add_option("file", options->file, "the bundle")->required();
    importing->add_option("--metadata", options->metadata,
                          "file with its metadata (default: FILE.json beside it; else some that fits this TV)");

    const auto id = std::make_shared<std::string>();
    addCommand(*store, "remove", "Remove a backup permanently", "halcyon-tv cloud remove 000001", chosen,
               [id](const Session& session) { return remove(session, *id); })
        ->add_option("backup", *id, "its id")
        ->required();
}

}  // namespace cli
