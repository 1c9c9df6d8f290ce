// The commands on the cloud store and on fault rules.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Commands.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Faults.h"
#include "simulator/tv/ServiceDb.h"
#include "simulator/tv/Tv.h"

namespace fs = std::filesystem;

namespace cli {

namespace {

void printEntries(const sim::StoredBackup& backup) {
    fmt::print("  entries:\n");
    for (const sim::ArchiveEntry& entry : sim::listArchive(backup.bundle)) {
        const std::string count = entry.name == "ServiceDB.zip"
                                      ? fmt::format("   {} services", sim::ServiceDb::countInBundle(backup.bundle))
                                      : "";
        fmt::print("    {:<24} {:>8} bytes{}\n", entry.name, entry.size, count);
    }
}

// The backups that are whole; the others are reported.
std::vector<sim::StoredBackup> listBackups(const Place& place) {
    const sim::CloudStore::Listing listing = sim::CloudStore(place.cloud).list();
    for (const std::string& problem : listing.problems) {
        fmt::print(stderr, "{}\n", problem);
    }
    return listing.backups;
}

}  // namespace

int cloudList(const Place& place) {
    const std::vector<sim::StoredBackup> backups = listBackups(place);
    if (backups.empty()) {
        fmt::print("No backup in {}.\n", place.cloud.string());
        return DONE;
    }
    fmt::print("{:<8} {:<22} {:>12}  {}\n", "backup", "time", "bytes", "client/category");
    for (const sim::StoredBackup& backup : backups) {
        fmt::print("{:<8} {:<22} {:>12}  {}/{}\n", backup.id, backup.time, fs::file_size(backup.bundle),
                   backup.clientId, backup.category);
    }
    return DONE;
}

int cloudShow(const Place& place, const std::string& id) {
    const std::vector<sim::StoredBackup> backups = listBackups(place);
    const sim::StoredBackup* chosen = nullptr;
    for (const sim::StoredBackup& backup : backups) {
        const bool isWanted = id.empty() ? chosen == nullptr || chosen->time <= backup.time : backup.id == id;
        chosen = isWanted ? &backup : chosen;
    }
    if (chosen == nullptr) {
        throw sim::Error(fmt::format("{} holds no backup{}; see: halcyon-tv cloud list", place.cloud.string(),
                                     id.empty() ? "" : " " + id));
    }
    fmt::print("backup {} of {}/{}\n", chosen->id, chosen->clientId, chosen->category);
    fmt::print("  time       {}\n", chosen->time);
    fmt::print("  bundle     {}, {} bytes\n", chosen->bundle.string(), fs::file_size(chosen->bundle));
    fmt::print("  metadata   {}\n", chosen->metadata);
    printEntries(*chosen);
    return DONE;
}

int faultAdd(const Place& place, const std::string& call, const std::string& failure, int nth, int times) {
    sim::Tv tv(place.home);
    sim::FaultRule rule;
    rule.call = call;
    rule.failure = failure;
    rule.nth = nth;
    rule.times = times;
    fmt::print("rule {}\n", sim::addFault(tv.database(), rule));
    return DONE;
}

int faultList(const Place& place) {
    sim::Tv tv(place.home);
    for (const sim::FaultRule& rule : sim::listFaults(tv.database())) {
        const std::string limit = rule.times == 0 ? "for ever" : fmt::format("{} times", rule.times);
        fmt::print("{:>4}  {} {}, from call {} of a run, {}; fired {} times\n", rule.id, rule.call, rule.failure,
                   rule.nth, limit, rule.fired);
    }
    return DONE;
}

int faultClear(const Place& place, std::optional<std::int64_t> rule) {
    sim::Tv tv(place.home);
    if (!rule) {
        sim::clearFaults(tv.database());
    } else if (!sim::removeFault(tv.database(), *rule)) {
        throw sim::Error(fmt::format("no rule {}; see: halcyon-tv fault list", *rule));
    }
    return DONE;
}

int faultCalls() {
    for (const sim::FaultTarget& target : sim::faultTargets()) {
        fmt::print("{:<46} {}\n", target.call, fmt::join(target.failures, " "));
    }
    return DONE;
}

}  // namespace cli
