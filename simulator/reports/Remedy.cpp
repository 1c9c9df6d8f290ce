#include "simulator/reports/Remedy.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <set>

#include "simulator/base/Error.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Metadata.h"

namespace sim {

namespace {

// Those that made a call of the run fail, and are still there.
std::vector<std::int64_t> rulesThatFired(const Tv& tv, const Run& run) {
    std::set<std::int64_t> fired;
    for (const CallRecord& call : tv.runs().record(run.id).calls()) {
        if (call.fault) {
            fired.insert(*call.fault);
        }
    }
    std::vector<std::int64_t> rules;
    for (const FaultRule& rule : tv.faults().list()) {
        if (fired.count(rule.id) != 0) {
            rules.push_back(rule.id);
        }
    }
    return rules;
}

// The inputs that the backup of the run was made with; empty if they are not known.
std::set<int> antennaOfBackup(const CloudStore& store, const Run& run) {
    try {
        const StoredBackup backup = store.look({{run.account, run.clientId, run.category}, run.backup, ""});
        return application::antennaInputsOf(readMetadata(backup.metadata).antenna).value_or(std::set<int>());
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Missing) {
            throw;
        }
        return {};
    }
}

}  // namespace

std::vector<Remedy> remediesOf(const Tv& tv, const CloudStore& store, const RunReport& report) {
    std::vector<Remedy> remedies;
    if (report.verdict.outcome == Outcome::Done || report.verdict.outcome == Outcome::Open) {
        return remedies;
    }
    if (std::vector<std::int64_t> rules = rulesThatFired(tv, report.run); !rules.empty()) {
        remedies.push_back({Remedy::Kind::Disarm, std::move(rules), "", ""});
    } else if (report.verdict.cause == Cause::Antenna) {
        const std::set<int> inputs = antennaOfBackup(store, report.run);
        if (!inputs.empty() && inputs != tv.antenna()) {
            remedies.push_back({Remedy::Kind::Set, {}, "antenna", fmt::format("{}", fmt::join(inputs, ","))});
        }
    } else if (report.verdict.cause == Cause::NothingStored) {
        remedies.push_back({Remedy::Kind::BackUp, {}, "", ""});
    }
    return remedies;
}

}  // namespace sim
