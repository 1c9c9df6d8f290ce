#include "simulator/reports/Judge.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/Difference.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/Foresight.h"
#include "simulator/reports/TvReport.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr int FAILURE_PRIORITY = 6;

struct Evidence {
    const Tv& tv;
    const CloudStore& store;
    const Run& run;
    std::vector<CallRecord> calls;
    std::vector<LogRecord> log;
    std::optional<StoredBackup> backup = std::nullopt;  // that the cloud took or handed out
    std::optional<Bundle> bundle = std::nullopt;        // of that backup

    bool called(const PlatformCall& call) const {
        return std::any_of(calls.begin(), calls.end(), [&](const CallRecord& each) { return each.name == call.name; });
    }
    // What the application did: if it cannot read the request, it makes a backup, whatever it was asked for. On a full
    // disk, the calls may be lost, but not the response.
    bool hasBackedUp() const { return called(calls::bnr_backup) || run.response == Response::BackupCompleted; }
    bool isRestore() const { return run.operation == Operation::Restore; }
    bool endedWell() const { return run.ended == RunEnd::Exit || run.ended == RunEnd::Reclaimed; }
};

ItemVerdict judgeAfterBackup(const Evidence& evidence, Item item, const Setup& now) {
    const BundlePart& part = evidence.bundle->part(item);
    if (part.state == PartState::Damaged) {
        return {item, ItemState::Damaged, part.problem};
    }
    if (item == Item::IpServices) {
        return part.state == PartState::Absent
                   ? ItemVerdict{item, ItemState::Kept, IP_SERVICES_STAY}
                   : ItemVerdict{item, ItemState::Differs, "they are in the backup, though they are this set's own"};
    }
    if (part.state == PartState::Absent) {
        // A TV without a CI module has no files of it to back up.
        const bool isMissing = item != Item::Ci || !now.of(Item::Ci).empty();
        return {item, isMissing ? ItemState::Missing : ItemState::Kept, part.problem};
    }
    // A backup that even its own TV would refuse is lost.
    const std::optional<Reason> reason =
        item == Item::Viewing ? incompatibility(evidence.bundle->metadata(), evidence.tv.antenna()) : std::nullopt;
    const std::string difference = reason ? reason->why : howItDiffers(item, evidence.bundle->setup(), now);
    return {item, difference.empty() ? ItemState::Stored : ItemState::Differs, difference};
}

std::vector<ItemVerdict> judgeItems(const Evidence& evidence) {
    std::vector<ItemVerdict> items;
    if (!evidence.bundle || evidence.isRestore() == evidence.hasBackedUp()) {
        return items;  // nothing was handed over, or not what was asked for
    }
    const Setup now = evidence.tv.setup();
    if (evidence.isRestore()) {
        return itemsAfterRestore(*evidence.bundle, now, evidence.tv.runs().record(evidence.run.id).before(),
                                 evidence.tv.fingerprints());
    }
    for (const auto& [item, name] : NAMES<Item>) {
        const auto lacking = now.lacking.find(item);
        items.push_back(lacking == now.lacking.end() ? judgeAfterBackup(evidence, item, now)
                                                     : ItemVerdict{item, ItemState::Unreadable, lacking->second});
    }
    return items;
}

std::string faultWords(const Evidence& evidence) {
    std::map<std::int64_t, std::string> failures;
    for (const FaultRule& rule : evidence.tv.faults().list()) {
        failures[rule.id] = toText(rule.failures);
    }
    std::set<std::string> texts;
    for (const CallRecord& call : evidence.calls) {
        if (call.fault) {
            const auto failure = failures.find(*call.fault);
            texts.insert(fmt::format("fault rule {} fired: {} {}", *call.fault, call.name,
                                     failure == failures.end() ? "removed since" : failure->second));
        }
    }
    return fmt::format("{}", fmt::join(texts, "; "));
}

// In the order in which they first fired.
std::vector<FiredFault> firedFaults(const Evidence& evidence) {
    std::map<std::string, int> calls;
    std::vector<FiredFault> fired;
    for (const CallRecord& call : evidence.calls) {
        const int nth = ++calls[call.name];
        if (!call.fault) {
            continue;
        }
        const auto known =
            std::find_if(fired.begin(), fired.end(), [&](const FiredFault& each) { return each.rule == *call.fault; });
        if (known == fired.end()) {
            fired.push_back({*call.fault, call.name, nth, 1});
        } else {
            ++known->fired;
        }
    }
    return fired;
}

// Not in a store on another machine, where looking for the backup before costs requests.
std::string shrinkage(const Evidence& evidence) {
    const std::optional<int> number = toNumber<int>(evidence.run.backup);
    if (!evidence.hasBackedUp() || !evidence.backup || !number || evidence.store.isRemote()) {
        return "";
    }
    BackupName before = *evidence.backup;
    before.id = fmt::format("{:0{}}", *number - 1, evidence.run.backup.size());
    try {
        return shrinkage(*evidence.backup, evidence.store.look(before));
    } catch (const Error&) {  // there is none, or it cannot be looked at
        return "";
    }
}

// The application also logs successes at the priority of failures.
bool saysFailure(const LogRecord& record) {
    constexpr std::string_view SUCCESS = "success";
    const std::size_t end = record.message.find_last_not_of(" \n") + 1;
    const bool saysSuccess =
        end >= SUCCESS.size() && record.message.compare(end - SUCCESS.size(), SUCCESS.size(), SUCCESS) == 0;
    return record.priority >= FAILURE_PRIORITY && !saysSuccess;
}

const LogRecord* firstFailure(const Evidence& evidence) {
    const auto found = std::find_if(evidence.log.begin(), evidence.log.end(), &saysFailure);
    return found == evidence.log.end() ? nullptr : &*found;
}

// Without the source location and the newline.
std::string messageOf(const LogRecord& record) {
    const std::size_t arrow = record.message.find(" > ");
    const std::string text = arrow == std::string::npos ? record.message : record.message.substr(arrow + 3);
    return text.substr(0, text.find_last_not_of(" \n") + 1);
}

// The application keeps a bundle that it could not restore, which may differ from the one in the cloud.
std::optional<Reason> damageOnTheWay(const Evidence& evidence) {
    const fs::path kept = evidence.tv.home() / application::FAILURE_FOLDER / evidence.backup->name;
    if (!isRegularFile(kept)) {
        return std::nullopt;
    }
    const std::vector<std::string> problems = Bundle(kept, evidence.backup->metadata).fatalProblems();
    return problems.empty()
               ? std::nullopt
               : std::optional(Reason{Cause::Damage, fmt::format("the bundle arrived damaged: {}; look at {}",
                                                                 problems.front(), kept.string())});
}

std::optional<Reason> storedDamage(const Evidence& evidence, const std::vector<std::string>& problems) {
    if (!problems.empty()) {
        return Reason{Cause::Damage, fmt::format("backup {} is damaged: {}; look with: halcyon-tv bundle verify {}",
                                                 evidence.backup->id, problems.front(), evidence.backup->id)};
    }
    return std::nullopt;
}

bool isRefusalOfTheCloud(const std::optional<Response>& response) {
    return response && codeOf(*response) >= codeOf(Response::Error) &&
           codeOf(*response) <= codeOf(Response::DuplicatedData);
}

// The last request to a remote store and its outcome, if it failed.
std::string lastRefusal(const Evidence& evidence) {
    const auto last = std::find_if(evidence.calls.rbegin(), evidence.calls.rend(),
                                   [](const CallRecord& call) { return call.name == calls::cloud_request.name; });
    const bool isRefused = last != evidence.calls.rend() && !toNumber<int>(last->result);
    return isRefused ? fmt::format("{}: {}", last->arguments, last->result) : "";
}

// The newest backup is damaged, and with it the restore: what to do.
std::string adviceOnDamage(const Evidence& evidence, const BackupName& damaged) {
    const std::optional<BackupName> older = wholeBefore(evidence.store, damaged);
    return older ? fmt::format("; the newest whole one before it: halcyon-tv run operation=restore --backup {}",
                               older->id)
                 : "";
}

// The store found the damage itself, and handed nothing out.
std::optional<Reason> refusedDamage(const Evidence& evidence) {
    constexpr std::string_view BACKUP = "backup ";
    for (const CallRecord& call : evidence.calls) {
        if (call.name != calls::cloud_request.name || call.result.rfind(DAMAGED_BACKUP, 0) != 0) {
            continue;
        }
        const std::vector<std::string> parts = split(call.arguments.substr(BACKUP.size()), '/');
        constexpr std::size_t PARTS = 4;
        return Reason{
            Cause::Damage,
            fmt::format(
                "{} is {}{}", call.arguments, call.result,
                parts.size() == PARTS ? adviceOnDamage(evidence, {{parts[0], parts[1], parts[2]}, parts[3], ""}) : "")};
    }
    return std::nullopt;
}

Reason cloudReason(const Evidence& evidence) {
    if (const std::optional<Reason> damage = refusedDamage(evidence)) {
        return *damage;
    }
    const std::string detail = lastRefusal(evidence);
    if (evidence.isRestore() && detail.empty()) {
        const Address address{evidence.tv.account(), application::CLIENT_ID, application::CATEGORY};
        if (!evidence.store.newest(address)) {
            return {Cause::NothingStored, fmt::format("there is no backup{} in {}; make one with: halcyon-tv run",
                                                      ofAccount(address.account), evidence.store.place())};
        }
    }
    return {Cause::Cloud, fmt::format("the cloud service answered {}{}{}; look at {}", words(*evidence.run.response),
                                      detail.empty() ? "" : "; ", detail, evidence.store.place())};
}

// What the application had done last when it ended.
std::string lastDone(const Evidence& evidence) {
    for (auto call = evidence.calls.rbegin(); call != evidence.calls.rend(); ++call) {
        const PlatformCall* known = findPlatformCall(call->name);
        if (known != nullptr && !known->item.empty()) {
            return fmt::format(" after {}({}), its last call for {}", call->name, call->arguments,
                               known->item == "favname" ? "the favourites' names" : known->item);
        }
    }
    return "";
}

Reason crashReason(const Evidence& evidence) {
    const std::string crash = fmt::format("the application crashed{}: {}", lastDone(evidence), evidence.run.detail);
    if (evidence.bundle && evidence.isRestore()) {
        if (const auto damage = storedDamage(evidence, evidence.bundle->problems())) {
            return {Cause::Damage, fmt::format("{}; {}", damage->why, crash)};
        }
    }
    return {Cause::Exception, crash};
}

Reason lostReason(const Evidence& evidence, const std::vector<ItemVerdict>& items) {
    const std::string lost = lostItems(items);
    if (lost.empty()) {
        return {Cause::ItemLost, "success was reported, but there is no backup to compare with"};
    }
    std::string why = fmt::format("success was reported, but {}", lost);
    if (!evidence.isRestore()) {
        why += fmt::format("; a restore takes this backup until there is a newer one, or: halcyon-tv cloud remove {}",
                           evidence.backup->id);
    }
    return {Cause::ItemLost, why};
}

Reason otherReason(const Evidence& evidence) {
    if (evidence.isRestore() && evidence.hasBackedUp()) {
        return {Cause::Other, "a restore was asked for, and a backup was made: the launch request could not be read"};
    }
    if (evidence.endedWell() && evidence.isRestore() && evidence.called(calls::bnr_report_success)) {
        return {Cause::Other, "everything is back, but the caller never got the reply that it asked for"};
    }
    const LogRecord* failure = firstFailure(evidence);
    if (failure != nullptr) {
        return {Cause::Other, fmt::format("the application says: {}", messageOf(*failure))};
    }
    const bool hasLoopEnded = evidence.endedWell() || evidence.run.ended == RunEnd::Waiting;
    if (hasLoopEnded && !evidence.called(calls::app_terminate)) {
        return {Cause::Other, "the record of the run ends early, as on a full disk, and does not tell why it failed"};
    }
    return {Cause::Other, evidence.run.detail.empty()
                              ? "the application ended without a message"
                              : fmt::format("the application could not run its {}", evidence.run.detail)};
}

Reason failureReason(const Evidence& evidence) {
    if (isRefusalOfTheCloud(evidence.run.response)) {
        return cloudReason(evidence);
    }
    if (evidence.isRestore() && evidence.bundle && !evidence.hasBackedUp()) {
        if (const auto reason = incompatibility(evidence.bundle->metadata(), evidence.tv.antenna())) {
            return *reason;
        }
        if (auto reason = storedDamage(evidence, evidence.bundle->fatalProblems())) {
            reason->why += adviceOnDamage(evidence, *evidence.backup);
            return *reason;
        }
        if (const auto reason = damageOnTheWay(evidence)) {
            return *reason;
        }
    }
    if (evidence.run.ended == RunEnd::Waiting) {
        return {Cause::Waiting,
                fmt::format("the application still waited {}, but nothing could come any more", evidence.run.detail)};
    }
    return otherReason(evidence);
}

// A restore tells its caller by a reply, or the cloud by a report. A backup tells nobody: the cloud's response stands
// for it.
bool wasToldOfSuccess(const Evidence& evidence) {
    if (!evidence.isRestore()) {
        return evidence.run.response == Response::BackupCompleted;
    }
    return !evidence.hasBackedUp() && (evidence.run.reply == 0 || evidence.called(calls::bnr_report_success));
}

bool gotItsReply(const Evidence& evidence) {
    return !evidence.isRestore() || !evidence.run.replyRequested || evidence.run.reply == 0;
}

void decide(const Evidence& evidence, Verdict& verdict) {
    const bool isWhole =
        !verdict.items.empty() && std::all_of(verdict.items.begin(), verdict.items.end(),
                                              [](const ItemVerdict& item) { return isWell(item.state); });
    Reason reason;
    if (evidence.run.ended == RunEnd::Running) {
        verdict.outcome = Outcome::Open;
        reason = {Cause::Other, fmt::format("the run has not ended: process {}", evidence.run.pid)};
    } else if (evidence.run.ended == RunEnd::Crashed) {
        verdict.outcome = Outcome::Crashed;
        reason = crashReason(evidence);
    } else if (wasToldOfSuccess(evidence) && !isWhole) {
        verdict.outcome = Outcome::DoneInPart;
        reason = lostReason(evidence, verdict.items);
    } else if (wasToldOfSuccess(evidence) && evidence.endedWell() && gotItsReply(evidence)) {
        verdict.outcome = Outcome::Done;
        return;
    } else {
        reason = failureReason(evidence);
        const bool isIncompatible = reason.cause == Cause::Antenna || reason.cause == Cause::SchemaVersion;
        verdict.outcome = isIncompatible ? Outcome::Refused : Outcome::Failed;
    }
    verdict.cause = reason.cause;
    verdict.why = reason.why;
}

// The first call that a fault rule made fail; else the first log record of a failure. If the run is done, the last call
// that said so. 0 if there is none.
int decisiveIn(const Evidence& evidence, Outcome outcome) {
    int decisive = 0;
    for (const CallRecord& call : evidence.calls) {
        const bool saysDone = call.name == calls::bnr_report_success.name || call.name == calls::bnr_response.name;
        if (outcome == Outcome::Done ? saysDone : call.fault && decisive == 0) {
            decisive = call.seq;
        }
    }
    const LogRecord* failure = firstFailure(evidence);
    return decisive == 0 && outcome != Outcome::Done && failure != nullptr ? failure->seq : decisive;
}

// The backup stays unknown if it is damaged, or gone.
void takeBackup(Evidence& evidence) {
    const Run& run = evidence.run;
    try {
        FetchedBackup fetched =
            fetchBundle(evidence.store, {{run.account, run.clientId, run.category}, run.backup, ""});
        evidence.backup = std::move(fetched.backup);
        evidence.bundle = std::move(fetched.bundle);
    } catch (const Error& error) {
        // Somebody has removed what was restored: nothing can be compared with it. What was just stored must be there.
        const bool isRemoved =
            error.kind() == Error::Kind::Missing && wasToldOfSuccess(evidence) && evidence.isRestore();
        if (isRemoved || (error.kind() != Error::Kind::Missing && error.kind() != Error::Kind::Damaged)) {
            throw;
        }
    }
}

}  // namespace

Verdict judge(const Tv& tv, const CloudStore& store, const Run& run) {
    const RunFile record = tv.runs().record(run.id);
    Evidence evidence{tv, store, run, record.calls(), record.log()};
    Verdict verdict;
    if (!run.backup.empty()) {
        takeBackup(evidence);
    }
    if (run.ended != RunEnd::Running) {
        verdict.items = judgeItems(evidence);
        verdict.reception = evidence.isRestore() ? receptionOf(verdict.items, tv.setup(), tv) : std::nullopt;
    }
    decide(evidence, verdict);
    verdict.faults = firedFaults(evidence);
    verdict.warning = shrinkage(evidence);
    verdict.decisive = decisiveIn(evidence, verdict.outcome);
    if (verdict.outcome == Outcome::Done || verdict.outcome == Outcome::Open) {
        return verdict;
    }
    if (const std::string fault = faultWords(evidence); !fault.empty()) {
        verdict.why += "; " + fault;
    }
    if (const std::vector<std::string> left = leftoversOf(tv); !left.empty() && run.operation == Operation::Restore) {
        verdict.why += fmt::format("; files left in {}", unpackFolderOf(tv).string());
    }
    return verdict;
}

}  // namespace sim
