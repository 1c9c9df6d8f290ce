#include "simulator/reports/Judge.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/Difference.h"
#include "simulator/lineup/Words.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/TvReport.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

constexpr int FAILURE_PRIORITY = 6;

// What there is to look at.
struct Evidence {
    const Tv& tv;
    const CloudStore& store;
    const Run& run;
    std::vector<CallRecord> calls;
    std::vector<LogRecord> log;
    std::optional<StoredBackup> backup;  // that the cloud took or handed out
    std::optional<Bundle> bundle;        // its

    bool called(const PlatformCall& call) const {
        return std::any_of(calls.begin(), calls.end(), [&](const CallRecord& each) { return each.name == call.name; });
    }
    // What the application did, which is not what it was asked for where the request could not be read.
    bool hasBackedUp() const { return called(calls::bnr_backup); }
    bool isRestore() const { return run.operation == Operation::Restore; }
    bool endedWell() const { return run.ended == RunEnd::Exit || run.ended == RunEnd::Reclaimed; }
};

// Policy: what a run must have made of the items. After a backup, the bundle has what the TV has. After a restore, the
// TV has what the bundle has; CI files that it had besides stay, and of the viewing state only what the application
// applies changes.
Setup expectedAfterRestore(const Bundle& bundle, const Setup& now) {
    Setup expected = bundle.setup();
    const auto files = expected.entries.find(Item::Ci);
    if (files != expected.entries.end()) {
        files->second.insert(now.of(Item::Ci).begin(), now.of(Item::Ci).end());
    }
    expected.viewing = bundle.metadata().appliedTo(now.viewing);
    return expected;
}

// How an item that the bundle has is different in the TV; empty: it is not.
std::string howItDiffers(Item item, const Setup& backup, const Setup& tv) {
    const ItemDifference difference = compare(item, backup, tv);
    if (difference.isSame || difference.left == difference.right) {
        return difference.detail;
    }
    return fmt::format("{} in the backup, {} in the TV{}{}", difference.left, difference.right,
                       difference.detail.empty() ? "" : "; ", difference.detail);
}

// What the backup knows of the viewing state, and the TV is not after a restore, by the application's design.
std::string notApplied(const Viewing& backup, const Viewing& tv) {
    std::vector<std::string> parts;
    if (!(backup.mode == tv.mode) && backup.mode.antenna != AntennaMode{-1} && backup.mode.service != ServiceMode{-1}) {
        parts.push_back(fmt::format("mode {}/{}", codeOf(backup.mode.antenna), codeOf(backup.mode.service)));
    }
    if (backup.serviceId != tv.serviceId && backup.serviceId != UINT64_MAX) {
        parts.push_back(fmt::format("service {}", backup.serviceId));
    }
    if (backup.source != tv.source && backup.source != Source{-1}) {
        parts.push_back(fmt::format("source {}", codeOf(backup.source)));
    }
    if (!(backup.category == tv.category) && backup.category.kind != CategoryKind{-1}) {
        parts.push_back(fmt::format("category {}/{}/{}", codeOf(backup.category.kind), backup.category.param,
                                    codeOf(backup.category.sort)));
    }
    return parts.empty() ? "" : fmt::format("not applied: {} in the backup", fmt::join(parts, ", "));
}

ItemVerdict judgeAfterBackup(const Evidence& evidence, Item item, const Setup& now) {
    const BundlePart& part = evidence.bundle->part(item);
    const bool isOfSet = item == Item::IpServices;
    if (part.state == PartState::Damaged) {
        return {item, ItemState::Damaged, part.problem};
    }
    if (part.state == PartState::Absent) {
        const bool isMissing = !isOfSet && (item != Item::Ci || !now.of(Item::Ci).empty());
        return {item, isMissing ? ItemState::Missing : ItemState::Kept, isOfSet ? "this set's own" : part.problem};
    }
    if (isOfSet) {
        return {item, ItemState::Differs, "they are in the backup, though they are this set's own"};
    }
    const std::optional<Reason> reason =
        item == Item::Viewing ? incompatibility(evidence.bundle->metadata(), evidence.tv.antenna()) : std::nullopt;
    const std::string difference = reason ? reason->why : howItDiffers(item, evidence.bundle->setup(), now);
    return {item, difference.empty() ? ItemState::Stored : ItemState::Differs, difference};
}

ItemVerdict judgeAfterRestore(const Evidence& evidence, Item item, const Setup& now, bool hasChanged) {
    const BundlePart& part = evidence.bundle->part(item);
    if (item == Item::IpServices) {
        return {item, hasChanged ? ItemState::Differs : ItemState::Kept,
                hasChanged ? "they have changed, though they are this set's own" : "this set's own"};
    }
    if (part.state == PartState::Damaged) {
        return {item, ItemState::Damaged, part.problem};
    }
    if (part.state == PartState::Absent) {
        return {item, hasChanged ? ItemState::Differs : ItemState::Kept,
                hasChanged ? "not in the backup, and yet changed: by what an earlier run had left" : part.problem};
    }
    const std::string difference = howItDiffers(item, expectedAfterRestore(*evidence.bundle, now), now);
    if (!difference.empty()) {
        return {item, ItemState::Differs, difference};
    }
    const std::string left =
        item == Item::Viewing ? notApplied(evidence.bundle->setup().viewing, now.viewing) : std::string();
    const ItemState unchanged = left.empty() ? ItemState::AlreadyEqual : ItemState::Kept;
    return {item, hasChanged ? ItemState::Restored : unchanged, left};
}

std::vector<ItemVerdict> judgeItems(const Evidence& evidence) {
    std::vector<ItemVerdict> items;
    if (!evidence.bundle || evidence.isRestore() == evidence.hasBackedUp()) {
        return items;  // nothing was handed over, or not what was asked for
    }
    const Setup now = evidence.tv.setup();
    const Fingerprints before = evidence.tv.runs().record(evidence.run.id).before();
    const Fingerprints after = evidence.isRestore() ? evidence.tv.fingerprints() : Fingerprints();
    for (const Name<Item>& each : NAMES<Item>) {
        const Item item = each.value;
        const auto was = before.find(item);
        const auto is = after.find(item);
        const bool hasChanged = (was == before.end()) != (is == after.end()) ||
                                (was != before.end() && is != after.end() && was->second != is->second);
        const auto lacking = now.lacking.find(item);
        if (lacking != now.lacking.end()) {
            items.push_back({item, ItemState::Unreadable, lacking->second});
        } else {
            items.push_back(evidence.isRestore() ? judgeAfterRestore(evidence, item, now, hasChanged)
                                                 : judgeAfterBackup(evidence, item, now));
        }
    }
    return items;
}

std::string faultWords(const Evidence& evidence) {
    std::vector<std::string> texts;
    for (const CallRecord& call : evidence.calls) {
        if (!call.fault) {
            continue;
        }
        std::string failure = "removed since";
        for (const FaultRule& rule : evidence.tv.faults().list()) {
            if (rule.id == *call.fault) {
                failure = toText(rule.failure);
            }
        }
        texts.push_back(fmt::format("fault rule {} fired: {} {}", *call.fault, call.name, failure));
    }
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return fmt::format("{}", fmt::join(texts, "; "));
}

// A record at the priority of failures that says one.
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

// Without the place in the source and the line's end.
std::string messageOf(const LogRecord& record) {
    const std::size_t arrow = record.message.find(" > ");
    const std::string text = arrow == std::string::npos ? record.message : record.message.substr(arrow + 3);
    return text.substr(0, text.find_last_not_of(" \n") + 1);
}

// What the application kept of what the cloud delivered, where that is not what the cloud holds.
std::optional<Reason> damageOnTheWay(const Evidence& evidence) {
    const fs::path kept = evidence.tv.home() / application::FAILURE_FOLDER / evidence.backup->name;
    if (!isRegularFile(kept)) {
        return std::nullopt;
    }
    const std::vector<std::string> problems = Bundle(kept, evidence.backup->metadata).fatalProblems();
    return problems.empty() ? std::nullopt
                            : std::optional(Reason{Cause::Damage, fmt::format("the bundle came damaged: {}; look at {}",
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

// What the store has said when it gave nothing.
std::string lastRefusal(const Evidence& evidence) {
    for (auto call = evidence.calls.rbegin(); call != evidence.calls.rend(); ++call) {
        if (call->name == calls::cloud_request.name) {
            return toNumber<int>(call->result) ? "" : fmt::format("{}: {}", call->arguments, call->result);
        }
    }
    return "";
}

Reason cloudReason(const Evidence& evidence) {
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

// What the application was at when it ended.
std::string itemAt(const Evidence& evidence) {
    for (auto call = evidence.calls.rbegin(); call != evidence.calls.rend(); ++call) {
        const PlatformCall* known = findPlatformCall(call->name);
        if (known != nullptr && !known->item.empty()) {
            return fmt::format(" at {}, in {}({})", known->item == "favname" ? "the favourites' names" : known->item,
                               call->name, call->arguments);
        }
    }
    return "";
}

Reason crashReason(const Evidence& evidence) {
    const std::string crash = fmt::format("the application crashed{}: {}", itemAt(evidence), evidence.run.detail);
    if (evidence.bundle && evidence.isRestore()) {
        if (const auto damage = storedDamage(evidence, evidence.bundle->problems())) {
            return {Cause::Damage, fmt::format("{}; {}", damage->why, crash)};
        }
    }
    return {Cause::Exception, crash};
}

Reason lostReason(const std::vector<ItemVerdict>& items) {
    std::vector<std::string> lost;
    for (const ItemVerdict& item : items) {
        if (!isWell(item.state)) {
            lost.push_back(fmt::format("{} {} ({})", nameOf(item.item), nameOf(item.state), item.detail));
        }
    }
    return {Cause::ItemLost,
            fmt::format("success was reported, and yet: {}", lost.empty() ? "no backup could be found to compare with"
                                                                          : fmt::format("{}", fmt::join(lost, "; ")))};
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
    return {Cause::Other, evidence.run.detail.empty()
                              ? "the application ended without a word"
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
        if (const auto reason = storedDamage(evidence, evidence.bundle->fatalProblems())) {
            return *reason;
        }
        if (const auto reason = damageOnTheWay(evidence)) {
            return *reason;
        }
    }
    if (evidence.run.ended == RunEnd::Waiting) {
        return {Cause::Waiting,
                fmt::format("the application still waited {} when nothing could come any more", evidence.run.detail)};
    }
    return otherReason(evidence);
}

// Whoever asked was told that it has worked: a restore's caller by its reply, or the cloud by the report; a backup
// replies to nobody, and the cloud's response is what there is.
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
        reason = lostReason(verdict.items);
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

// The call that a fault rule made fail; else the first record of a failure; of a run that was done, the call that said
// so.
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

// The backup that the cloud took or handed out, if it is still there and whole.
void takeBackup(Evidence& evidence) {
    const Run& run = evidence.run;
    try {
        FetchedBackup fetched =
            fetchBundle(evidence.store, {{run.account, run.clientId, run.category}, run.backup, ""});
        evidence.backup = std::move(fetched.backup);
        evidence.bundle = std::move(fetched.bundle);
    } catch (const Error& error) {
        if (error.kind() != Error::Kind::Missing && error.kind() != Error::Kind::Damaged) {
            throw;
        }
    }
}

}  // namespace

Verdict judge(const Tv& tv, const CloudStore& store, const Run& run) {
    Evidence evidence{tv,           store,       run, tv.runs().record(run.id).calls(), tv.runs().record(run.id).log(),
                      std::nullopt, std::nullopt};
    Verdict verdict;
    if (!run.backup.empty()) {
        takeBackup(evidence);
    }
    if (run.ended != RunEnd::Running) {
        verdict.items = judgeItems(evidence);
    }
    decide(evidence, verdict);
    if (verdict.outcome == Outcome::Done || verdict.outcome == Outcome::Open) {
        verdict.decisive = decisiveIn(evidence, verdict.outcome);
        return verdict;
    }
    if (const std::string fault = faultWords(evidence); !fault.empty()) {
        verdict.why += "; " + fault;
    }
    if (const std::vector<std::string> left = leftoversOf(tv); !left.empty() && run.operation == Operation::Restore) {
        verdict.why += fmt::format("; files left in {}", unpackFolderOf(tv).string());
    }
    verdict.decisive = decisiveIn(evidence, verdict.outcome);
    return verdict;
}

}  // namespace sim
