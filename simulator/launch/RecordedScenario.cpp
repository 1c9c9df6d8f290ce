#include "simulator/launch/RecordedScenario.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/FolderStore.h"
#include "simulator/launch/Scenario.h"
#include "simulator/lineup/Application.h"
#include "simulator/tv/Snapshot.h"
#include "simulator/tv/StateBefore.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr char BEFORE[] = "before";
constexpr char CLOUD[] = "cloud";
constexpr std::size_t ID_DIGITS = 6;

// The number that an id begins with; 0 if it has none.
std::uint64_t numberOf(const std::string& id) {
    return toNumber<std::uint64_t>(id.substr(0, id.find_first_not_of("0123456789"))).value_or(0);
}

std::string idOf(std::uint64_t number) {
    return fmt::format("{:0{}}", number, ID_DIGITS);
}

// Puts a copy of a backup into a folder store, under its number. Throws Error if it is not there any more.
void copyBackup(const CloudStore& store, const BackupName& name, FolderStore& target) {
    const ScratchFolder scratch;
    const StoredBackup backup = store.fetch(name, scratch.path());
    if (!backup.damage.empty()) {
        throw Error(Error::Kind::Damaged, fmt::format("backup {} is damaged: {}", backup.id, backup.damage));
    }
    if (const std::uint64_t number = numberOf(name.id); number > 1) {
        BackupName before = name;
        before.id = idOf(number - 1);
        target.reserve(before);
    }
    target.put({static_cast<const Address&>(name), backup.metadata, backup.device, backup.services, false, backup.time},
               scratch / backup.name);
}

// The newest backup that there was when the run began, as far as times tell.
std::optional<BackupName> newestAt(const CloudStore& store, const std::string& account, const std::string& started) {
    std::optional<BackupName> newest;
    for (const BackupName& name : store.content().backups) {
        const bool isItsOwn = name.account == account && name.clientId == application::CLIENT_ID &&
                              name.category == application::CATEGORY;
        if (isItsOwn && store.look(name).time <= started) {
            newest = name;
        }
    }
    return newest;
}

// What the run found in the cloud; nothing if that was nothing.
std::optional<BackupName> backupFor(const CloudStore& store, const RunReport& report, const std::string& account) {
    const Run& run = report.run;
    if (report.verdict.cause == Cause::NothingStored) {
        return std::nullopt;
    }
    if (run.backup.empty()) {
        return newestAt(store, account, run.started);
    }
    return BackupName{{run.account, run.clientId, run.category}, run.backup, ""};
}

// The number before a backup, and what had it, if that is still there: the run's own gets its number again, and is
// compared with it.
void copyPredecessor(const CloudStore& store, BackupName backup, FolderStore& target) {
    backup.id = idOf(numberOf(backup.id) - 1);
    try {
        copyBackup(store, backup, target);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Missing) {
            throw;
        }
        target.reserve(backup);
    }
}

// Returns false if the cloud begins empty.
bool copyCloud(const Tv& tv, const CloudStore& store, const RunReport& report, const std::string& account,
               const fs::path& folder) {
    const std::optional<BackupName> backup = backupFor(store, report, account);
    if (!backup) {
        return false;
    }
    FolderStore target(folder);
    const std::vector<CallRecord> calls = tv.runs().record(report.run.id).calls();
    const bool hasBackedUp = std::any_of(calls.begin(), calls.end(),
                                         [](const CallRecord& call) { return call.name == calls::bnr_backup.name; });
    if (hasBackedUp && !report.run.backup.empty()) {
        copyPredecessor(store, *backup, target);
    } else {
        copyBackup(store, *backup, target);
    }
    return true;
}

void addRequest(YAML::Emitter& yaml, const Run& run, const LaunchRequest& launch) {
    static const std::set<std::string> OPERATIONS = {"operation=backup", "operation=restore"};
    std::vector<std::pair<std::string, std::string>> extras;
    for (const std::string& extra : launch.extras) {
        const std::size_t equals = extra.find('=');
        const std::string key = extra.substr(0, equals);
        if (OPERATIONS.count(extra) > 0 || key == application::SCAN_ACTIVATED) {
            yaml << YAML::Key << key << YAML::Value << extra.substr(equals + 1);
        } else {
            extras.emplace_back(key, extra.substr(equals + 1));
        }
    }
    if (!extras.empty()) {
        yaml << YAML::Key << "extras" << YAML::Value << YAML::BeginMap;
        for (const auto& [key, value] : extras) {
            yaml << YAML::Key << key << YAML::Value << value;
        }
        yaml << YAML::EndMap;
    }
    if (!launch.caller.empty()) {
        yaml << YAML::Key << "caller" << YAML::Value << launch.caller;
    }
    if (!launch.backup.empty()) {
        yaml << YAML::Key << "backup" << YAML::Value << launch.backup;
    }
    if (!run.replyRequested) {
        yaml << YAML::Key << "reply" << YAML::Value << "false";
    }
    if (launch.refuseDuplicates) {
        yaml << YAML::Key << "refuse_duplicates" << YAML::Value << "true";
    }
}

void addExpectations(YAML::Emitter& yaml, const RunReport& report) {
    const auto add = [&](const char* key, std::string_view value) {
        yaml << YAML::Key << key << YAML::Value << std::string(value);
    };
    yaml << YAML::Key << "expect" << YAML::Value << YAML::BeginMap;
    add("outcome", nameOf(report.verdict.outcome));
    add("cause", nameOf(report.verdict.cause));
    add("reply", report.run.reply ? std::to_string(*report.run.reply) : NONE);
    if (!report.run.response || isKnown(*report.run.response)) {
        add("response", report.run.response ? nameOf(*report.run.response) : NONE);
    }
    add("ended", nameOf(report.run.ended));
    if (!report.verdict.items.empty()) {
        yaml << YAML::Key << "items" << YAML::Value << YAML::BeginMap;
        for (const ItemVerdict& item : report.verdict.items) {
            add(std::string(nameOf(item.item)).c_str(), nameOf(item.state));
        }
        yaml << YAML::EndMap;
    }
    yaml << YAML::Key << "faults" << YAML::Value << YAML::Flow << YAML::BeginSeq;
    for (const FiredFault& fault : report.verdict.faults) {
        yaml << fault.rule;
    }
    yaml << YAML::EndSeq << YAML::EndMap;
}

std::string scenarioOf(const Tv& tv, const RunReport& report, const Tv& before, bool hasCloud) {
    YAML::Emitter yaml;
    for (const FaultRule& rule : before.faults().list()) {
        yaml << YAML::Comment(fmt::format("The TV has the fault rule {}: {} {}, from call {}, fired {} of {}", rule.id,
                                          rule.call, toText(rule.failures), rule.nth, rule.fired, rule.times))
             << YAML::Newline;
    }
    yaml << YAML::BeginMap;
    yaml << YAML::Key << "name" << YAML::Value
         << fmt::format("run {} of {}: {}, {}", report.run.id, report.run.started, nameOf(report.run.operation),
                        nameOf(report.verdict.outcome));
    if (hasCloud) {
        yaml << YAML::Key << "cloud" << YAML::Value << CLOUD;
    }
    yaml << YAML::Key << "tvs" << YAML::Value << YAML::BeginMap << YAML::Key << "tv" << YAML::Value << YAML::BeginMap;
    yaml << YAML::Key << "home" << YAML::Value << BEFORE;
    if (!before.clock().time) {  // the machine's then is the TV's own now
        yaml << YAML::Key << "now" << YAML::Value << report.run.started;
    }
    yaml << YAML::EndMap << YAML::EndMap;
    yaml << YAML::Key << "steps" << YAML::Value << YAML::BeginSeq << YAML::BeginMap;
    yaml << YAML::Key << "run" << YAML::Value << "tv";
    addRequest(yaml, report.run, tv.runs().record(report.run.id).launch());
    addExpectations(yaml, report);
    yaml << YAML::EndMap << YAML::EndSeq << YAML::EndMap;
    return std::string(yaml.c_str()) + "\n";
}

}  // namespace

fs::path recordScenario(const Tv& tv, const CloudStore& store, const RunReport& report, const fs::path& folder) {
    if (report.run.ended == RunEnd::Running) {
        throw Error(fmt::format("run {} has not ended", report.run.id));
    }
    const fs::path before = pathBefore(tv.home(), report.run.id);
    makeFolders(folder.parent_path());
    const ScratchFolder scratch(folder.parent_path());
    const fs::path built = scratch / "scenario";
    copyTv(before, built / BEFORE);
    const Tv copy(built / BEFORE, Database::Access::Look);
    const bool hasCloud = copyCloud(tv, store, report, copy.account(), built / CLOUD);
    writeFile(built / "scenario.yaml", scenarioOf(tv, report, copy, hasCloud));
    if (!putInPlace(built, folder)) {
        throw Error(fmt::format("there is something at {} already; name another folder", folder.string()));
    }
    return folder / "scenario.yaml";
}

}  // namespace sim
