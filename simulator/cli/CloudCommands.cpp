// The commands on the cloud store.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <utility>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
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
        print("{:<{}} {:<21} {:>10} {:>9}  {:<16} {:<32} {}/{}/{}{}\n", backup.id, columns, backup.time, backup.size,
              services, backup.device.empty() ? "?" : backup.device, sim::antennaOf(backup), backup.account,
              backup.clientId, backup.category, backup.isPinned ? " pinned" : "");
    } else {
        print("{:<{}} {:<21} {}: {}\n", backup.id, columns, "DAMAGED", backup.path(), backup.damage);
    }
}

struct ListOptions {
    std::string account;
    std::size_t last = 0;  // of each category; 0: all
};

// What is listed, and what comes of it.
class Listing {
public:
    Listing(const Session& session, const ListOptions& options)
        : m_open([&session] { return session.openStore(); }), m_store(m_open()) {
        sim::StoreContent content = m_store->contentOf(options.account);
        m_foreign = std::move(content.foreign);
        for (const std::vector<sim::BackupName>& category : sim::byCategory(content.backups)) {
            const std::size_t count = options.last > 0 ? std::min(options.last, category.size()) : category.size();
            m_names.insert(m_names.end(), category.end() - static_cast<std::ptrdiff_t>(count), category.end());
        }
    }

    std::string place() const { return m_store->place(); }
    const std::vector<sim::BackupName>& names() const { return m_names; }
    const std::vector<std::string>& foreign() const { return m_foreign; }

    void visit(const std::function<void(const sim::StoredBackup&)>& visit) {
        sim::visitBackups(m_open, m_names, [&](const sim::StoredBackup& backup) {
            m_isDamaged = m_isDamaged || !backup.damage.empty();
            m_shrinkages.add(backup);
            visit(backup);
        });
    }

    // Of what was visited.
    std::vector<std::string> warnings() { return m_shrinkages.finish(); }
    bool isDamaged() const { return m_isDamaged; }

private:
    std::function<std::unique_ptr<sim::CloudStore>()> m_open;
    std::unique_ptr<sim::CloudStore> m_store;
    std::vector<sim::BackupName> m_names;
    std::vector<std::string> m_foreign;
    sim::Shrinkages m_shrinkages;
    bool m_isDamaged = false;
};

void printListing(const Session& session, Listing& listing) {
    if (listing.names().empty()) {
        print("No backup in {}.\n", listing.place());
    } else {
        std::size_t columns = 8;
        for (const sim::BackupName& name : listing.names()) {
            columns = std::max(columns, name.id.size());
        }
        print("{:<{}} {:<21} {:>10} {:>9}  {:<16} {:<32} {}\n", "backup", columns, "time", "bytes", "channels", "set",
              "antenna", "account/client/category");
        listing.visit([&](const sim::StoredBackup& backup) { printBackup(backup, columns); });
    }
    printLines(stdout, "warning: ", listing.warnings());
    if (session.isVerbose) {
        printLines(stdout, "foreign: ", listing.foreign());
    }
}

// The members come in the order of their names: warnings are known once all backups have been visited.
void printListingAsJson(const Session& session, Listing& listing) {
    sim::JsonDocument document;
    document.object = sim::object({{"cloud", listing.place()},
                                   {"backups", Json::Value(Json::arrayValue)},
                                   {"warnings", Json::Value(Json::arrayValue)}});
    if (session.isVerbose) {
        document.object["foreign"] = sim::toJson(listing.foreign());
    }
    document.lists["backups"] = [&](const auto& take) {
        listing.visit([&](const sim::StoredBackup& backup) { take(sim::toJson(backup)); });
    };
    document.lists["warnings"] = [&](const auto& take) {
        for (const std::string& warning : listing.warnings()) {
            take(sim::toJson(warning));
        }
    };
    printJson(document);
}

int listStore(const Session& session, const ListOptions& options) {
    Listing listing(session, options);
    if (session.isJson) {
        printListingAsJson(session, listing);
    } else {
        printListing(session, listing);
    }
    return listing.isDamaged() ? DAMAGED : DONE;
}

// The bundle's file appears last, when all of it is there.
int get(const Session& session, const std::string& id, const std::string& file) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const sim::BackupName name = sim::chooseBackup(*store, id, accountOf(session));
    std::filesystem::path target = sim::normalised(file);
    const sim::ScratchFolder scratch(sim::isFolder(target) ? target : target.parent_path());
    const sim::StoredBackup backup = store->fetch(name, scratch.path());
    if (!backup.damage.empty()) {
        throw DamagedBundle(fmt::format("backup {} is damaged: {}", backup.id, backup.damage));
    }
    target = sim::isFolder(target) ? target / backup.name : target;
    const std::filesystem::path metadata = target.string() + sim::application::METADATA_SUFFIX;
    for (const std::filesystem::path& each : {target, metadata}) {
        if (sim::pathExists(each)) {
            throw sim::Error(fmt::format("{} is there already; give another name", each.string()));
        }
    }
    sim::writeFile(scratch / "metadata", backup.metadata);
    sim::putInPlace(scratch / "metadata", metadata);
    sim::putInPlace(scratch / backup.name, target);
    return answer(session,
                  sim::object({{"backup", backup.id}, {"file", target.string()}, {"metadata", metadata.string()}}),
                  [&] { print("{}\n{}\n", target.string(), metadata.string()); });
}

int pin(const Session& session, const std::string& id, bool isPinned) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const sim::BackupName name = sim::chooseBackup(*store, id, accountOf(session));
    store->pin(name, isPinned);
    if (session.isJson) {
        printJson(sim::object({{"backup", name.id}, {"isPinned", isPinned}}));
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
    sim::removeUnpinned(*store, backup);
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
    const auto listed = std::make_shared<ListOptions>();
    CLI::App* listing =
        addCommand(*store, "list", "List the backups, each with its set, antenna inputs and number of channels",
                   "halcyon-tv cloud list --account living-room --last 3", chosen,
                   [listed](const Session& session) { return listStore(session, *listed); });
    listing->add_option("--account", listed->account, "only the backups of this account");
    listing->add_option("--last", listed->last, "only the newest of each account, client and category, so many");

    const auto wanted = std::make_shared<std::pair<std::string, std::string>>("", ".");
    CLI::App* getting =
        addCommand(*store, "get", "Write a backup to a file, with its metadata in FILE.json beside it",
                   "halcyon-tv cloud get 000001 customer.zip", chosen,
                   [wanted](const Session& session) { return get(session, wanted->first, wanted->second); });
    getting->add_option("backup", wanted->first, "its id")->required();
    getting->add_option("file", wanted->second, "file to make, or a folder for it (default: the working folder)");

    const auto pinned = std::make_shared<std::pair<std::string, bool>>();
    CLI::App* pinning = addCommand(
        *store, "pin", "Keep a backup, whatever is to be forgotten or removed", "halcyon-tv cloud pin 000001", chosen,
        [pinned](const Session& session) { return pin(session, pinned->first, !pinned->second); });
    pinning->add_option("backup", pinned->first, "its id")->required();
    pinning->add_flag("--off", pinned->second, "keep it no longer");

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
    addCloudCareCommands(*store, chosen);
}

}  // namespace cli
