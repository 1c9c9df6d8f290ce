#include "simulator/reports/CloudReport.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Json.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

// An id may leave out zeros before its number, or be the end of the backup's path; an empty one means any.
bool isMeant(const BackupName& backup, const std::string& id, const std::string& account) {
    if (id == backup.path()) {
        return true;
    }
    const std::optional<std::uint64_t> number = toNumber<std::uint64_t>(id);
    const bool isId = id.empty() || id == backup.id || (number && number == toNumber<std::uint64_t>(backup.id)) ||
                      id == fmt::format("{}/{}/{}", backup.clientId, backup.category, backup.id);
    return isId && (account.empty() || backup.account == account);
}

bool isOfSameCategory(const Address& left, const Address& right) {
    return std::tie(left.account, left.clientId, left.category) ==
           std::tie(right.account, right.clientId, right.category);
}

bool isWhole(const CloudStore& store, const BackupName& name) {
    try {
        return fetchBundle(store, name).bundle.fatalProblems().empty();
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Damaged && error.kind() != Error::Kind::Missing) {
            throw;
        }
        return false;
    }
}

}  // namespace

std::string metadataFor(const std::set<int>& antenna) {
    // As the application writes what it could not read: a restore then leaves the TV's viewing state as it is.
    Json::Value setting;
    setting["antenna"] = application::antennaMask(antenna);
    setting["tvmode"]["antenna_mode"] = -1;
    setting["tvmode"]["service_mode"] = -1;
    setting["source"] = -1;
    setting["service_id"] = std::to_string(UINT64_MAX);
    setting["category"]["mode"] = -1;
    setting["category"]["param"] = "0";
    setting["category"]["sort"] = -1;
    Json::Value root;
    root["version"] = application::SCHEMA_VERSION;
    root["setting"] = setting;
    return writeJson(root);
}

std::string ofAccount(const std::string& account) {
    return account.empty() || account == DEFAULT_ACCOUNT ? "" : " of the account " + account;
}

BackupName chooseBackup(const CloudStore& store, const std::string& id, const std::string& account) {
    const std::vector<std::string> parts = split(id, '/');
    constexpr std::size_t PARTS_WITH_ACCOUNT = 4;
    std::vector<BackupName> found = store.contentOf(parts.size() == PARTS_WITH_ACCOUNT ? parts[0] : account).backups;
    const auto isOther = [&](const BackupName& name) { return !isMeant(name, id, account); };
    found.erase(std::remove_if(found.begin(), found.end(), isOther), found.end());
    // A restore of a damaged backup can only fail: the newest one that it can succeed with is meant.
    while (id.empty() && !found.empty() && !store.look(found.back()).damage.empty()) {
        found.pop_back();
    }
    if (found.empty()) {
        throw Error(Error::Kind::Missing, fmt::format("{} holds no backup{}{}; see: halcyon-tv cloud list",
                                                      store.place(), id.empty() ? "" : " " + id, ofAccount(account)));
    }
    if (!id.empty() && found.size() > 1) {
        throw Error(fmt::format("{} holds several backups {}; give ACCOUNT/CLIENT/CATEGORY/ID, such as {}",
                                store.place(), id, found[0].path()));
    }
    return found.back();
}

FetchedBackup fetchBundle(const CloudStore& store, const BackupName& name) {
    // A bundle is read whole when it is opened, so that its file need not stay.
    const ScratchFolder scratch;
    StoredBackup backup = store.fetch(name, scratch.path());
    if (!backup.damage.empty()) {
        throw Error(Error::Kind::Damaged, fmt::format("backup {} is damaged: {}", backup.id, backup.damage));
    }
    Bundle bundle(scratch / backup.name, backup.metadata);
    return {std::move(backup), std::move(bundle)};
}

std::optional<BackupName> wholeBefore(const CloudStore& store, const BackupName& name) {
    constexpr std::size_t MAX_READ = 10;
    try {
        std::vector<BackupName> backups = store.contentOf(name.account).backups;
        const auto isOther = [&](const BackupName& each) { return !isOfSameCategory(each, name); };
        backups.erase(std::remove_if(backups.begin(), backups.end(), isOther), backups.end());
        auto each = std::find_if(backups.rbegin(), backups.rend(),
                                 [&](const BackupName& backup) { return backup.id == name.id; });
        for (std::size_t i = 0; i < MAX_READ && each != backups.rend() && ++each != backups.rend(); ++i) {
            if (isWhole(store, *each)) {
                return *each;
            }
        }
    } catch (const Error&) {  // of a hint, no error comes
    }
    return std::nullopt;
}

std::string antennaOf(const StoredBackup& backup) {
    const std::optional<std::set<int>> inputs = application::antennaInputsOf(readMetadata(backup.metadata).antenna);
    return inputs ? antennaWords(*inputs) : "unknown";
}

std::optional<Reason> incompatibility(const Metadata& metadata, const std::set<int>& antenna) {
    if (metadata.version != application::SCHEMA_VERSION) {
        return Reason{Cause::SchemaVersion,
                      fmt::format("the backup's metadata is of version {}, and the application on this TV restores {} "
                                  "only; back the other TV up again with the same application",
                                  inQuotes(metadata.version), inQuotes(application::SCHEMA_VERSION))};
    }
    if (metadata.antenna == application::antennaMask(antenna)) {
        return std::nullopt;
    }
    const std::optional<std::set<int>> theirs = application::antennaInputsOf(metadata.antenna);
    const std::string backup = theirs ? antennaWords(*theirs) : fmt::format("unknown (mask {})", metadata.antenna);
    const std::string advice = theirs && !theirs->empty()
                                   ? fmt::format("to match: halcyon-tv set antenna {}", fmt::join(*theirs, ","))
                                   : "no setting of this TV matches";
    return Reason{Cause::Antenna, fmt::format("the backup was made with the antenna inputs {}, and this TV has {}; {}",
                                              backup, antennaWords(antenna), advice)};
}

std::string shrinkage(const StoredBackup& backup, const StoredBackup& before) {
    if (!backup.services || !before.services || *before.services == 0 || *backup.services * 2 > *before.services) {
        return "";
    }
    return fmt::format(
        "backup {}{} has {}, and {} before it had {}; a restore brings back the newest; for the other: "
        "halcyon-tv run operation=restore --backup {}",
        backup.id, ofAccount(backup.account), plural(*backup.services, "channel"), before.id, *before.services,
        before.id);
}

void Shrinkages::add(const StoredBackup& backup) {
    const bool isOfSame = m_newest && isOfSameCategory(*m_newest, backup);
    if (m_newest && !isOfSame) {
        finish();
    }
    m_before = isOfSame ? std::move(m_newest) : std::nullopt;
    m_newest = backup;
}

std::vector<std::string> Shrinkages::finish() {
    if (m_before) {
        const std::string warning = shrinkage(*m_newest, *m_before);
        m_warnings.insert(m_warnings.end(), warning.empty() ? 0 : 1, warning);
    }
    m_before.reset();
    return m_warnings;
}

std::vector<std::vector<BackupName>> byCategory(const std::vector<BackupName>& names) {
    std::vector<std::vector<BackupName>> categories;
    for (const BackupName& name : names) {
        if (categories.empty() || !isOfSameCategory(categories.back().front(), name)) {
            categories.emplace_back();
        }
        categories.back().push_back(name);
    }
    return categories;
}

void removeUnpinned(CloudStore& store, const BackupName& name) {
    if (name.isPinned) {
        throw Error(fmt::format("backup {} is pinned; first: halcyon-tv cloud pin {} --off", name.id, name.path()));
    }
    store.remove(name);
}

std::string importBundle(CloudStore& store, const Bundle& bundle, const std::filesystem::path& file,
                         const std::string& account, const Tv* tv) {
    if (!bundle.problem().empty()) {
        throw Error(Error::Kind::Damaged, fmt::format("{}; give a bundle", bundle.problem()));
    }
    NewBackup backup;
    static_cast<Address&>(backup) = {account, application::CLIENT_ID, application::CATEGORY};
    backup.metadata = bundle.metadataText() ? *bundle.metadataText() : metadataFor(tv->antenna());
    // The iss database names the set that it is of.
    const Entries& iss = bundle.setup().of(Item::Iss);
    backup.device = iss.count("set") == 1 ? iss.at("set") : "";
    if (bundle.setup().services) {
        backup.services = bundle.setup().services->counts().services;
    }
    return store.put(backup, file);
}

}  // namespace sim
