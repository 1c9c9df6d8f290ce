#include "simulator/reports/Invariants.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/tv/PlatformCalls.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// A fault that fired in the run.
struct Fired {
    std::string call;
    std::string failure;  // as in its rule
};

// How a run may end if a fault has fired; the first row that fits counts.
struct End {
    std::string_view call;     // empty: any
    std::string_view failure;  // the same
    RunEnd end;
    bool ofRestoreOnly = false;  // of one that waits for the cloud at its end: without a scan
};
constexpr End ENDS[] = {
    {"", "throw", RunEnd::Crashed},
    {"vconf_get_str", "", RunEnd::Crashed},
    {"ui_app_main", "", RunEnd::Refused},
    {"", "lost", RunEnd::Waiting},
    {"tv_signal", "null", RunEnd::Waiting},
    {"bnr_deinit", "", RunEnd::Waiting, true},  // a session that could not be closed is one to wait for
    {"disk", "cut", RunEnd::Crashed},
};

std::size_t filesBelow(const fs::path& folder, const std::function<bool(const fs::path&)>& isWanted) {
    std::size_t count = 0;
    for (const fs::path& member : membersOf(folder)) {
        count += isFolder(member) ? filesBelow(member, isWanted) : static_cast<std::size_t>(isWanted(member));
    }
    return count;
}

// A run, and what it has left. Each check returns what is wrong, in words; an empty text if nothing is.
class Inspection {
public:
    Inspection(const Tv& tv, const CloudStore& store, const RunReport& report, const Baseline& baseline)
        : m_tv(tv),
          m_store(store),
          m_run(report.run),
          m_verdict(report.verdict),
          m_baseline(baseline),
          m_calls(tv.runs().record(report.run.id).calls()),
          m_log(tv.runs().record(report.run.id).log()),
          m_now(tv.setup()) {
        std::map<std::int64_t, std::string> failures;
        for (const FaultRule& rule : tv.faults().list()) {
            failures[rule.id] = toText(rule.failures);
        }
        for (const FiredFault& fault : m_verdict.faults) {
            m_fired.push_back({fault.call, failures[fault.rule]});
        }
    }

    std::string end() const {
        if (m_run.ended == RunEnd::Running) {
            return "it has not ended";
        }
        std::set<RunEnd> allowed;
        for (const Fired& fault : m_fired) {
            if (const std::optional<RunEnd> end = endUnder(fault)) {
                allowed.insert(*end);
            }
        }
        if (has("throw")) {
            allowed = {RunEnd::Crashed};
        } else if (allowed.empty() || m_fired.size() > 1) {
            // Of several faults, one can prevent what another one would lead to.
            allowed.insert(wasReported(1) && !isReadAsScan() ? RunEnd::Reclaimed : RunEnd::Exit);
        }
        return allowed.count(m_run.ended) > 0 ? "" : fmt::format("it ended as {}", nameOf(m_run.ended));
    }

    std::string oldOrNew() const {
        std::vector<std::string> between;
        const auto require = [&](const auto& now, const auto& before, const auto& after, std::string_view part) {
            if (!(now == before) && !(now == after)) {
                between.emplace_back(part);
            }
        };
        require(m_now.services, m_baseline.before.services, m_baseline.after.services, "channels");
        for (const auto& [item, entries] : m_baseline.before.entries) {
            require(m_now.of(item), entries, m_baseline.after.of(item), nameOf(item));
        }
        // Part by part, as the application sets each by a call of its own, and goes on if one fails.
        const Viewing& before = m_baseline.before.viewing;
        const Viewing& after = m_baseline.after.viewing;
        require(m_now.viewing.mode, before.mode, after.mode, "mode");
        require(m_now.viewing.source, before.source, after.source, "source");
        require(m_now.viewing.serviceId, before.serviceId, after.serviceId, "service");
        require(m_now.viewing.category, before.category, after.category, "category");
        if (m_tv.serviceDb().ipServices() != m_baseline.ipServices) {
            between.emplace_back("the set's own IP services");
        }
        return between.empty() ? "" : fmt::format("neither as before nor as after: {}", fmt::join(between, ", "));
    }

    std::string reply() const {
        const int replies = count(calls::app_control_reply_to_launch_request);
        if (m_run.operation != Operation::Restore) {
            return replies == 0 ? "" : "a backup has replied";
        }
        if (replies > 1) {
            return fmt::format("the caller got {} replies", replies);
        }
        const int expected = isReplaced() ? 0 : -1;
        return !m_run.reply || *m_run.reply == expected
                   ? ""
                   : fmt::format("the caller was told {}, and the channels are {}", *m_run.reply, whichChannels());
    }

    std::string reported() const {
        if (m_run.operation != Operation::Restore || m_run.reported == Reported::Nothing) {
            return "";
        }
        return (m_run.reported == Reported::Success) == isReplaced()
                   ? ""
                   : fmt::format("the cloud was told {}, and the channels are {}", nameOf(m_run.reported),
                                 whichChannels());
    }

    std::string store() const {
        const StoreContent content = m_store.content();
        std::size_t whole = 0;
        for (const StoredBackup& backup : lookAt(m_store, content.backups)) {
            const std::string problem = problemOf(backup);
            if (!problem.empty()) {
                return fmt::format("backup {}: {}", backup.id, problem);
            }
            ++whole;
        }
        // A request that cannot be read is a backup, by design.
        const bool backsUp = !m_baseline.isRestore || count(calls::bnr_backup) > 0;
        const std::size_t most = m_baseline.backups + (backsUp ? 1 : 0);
        const std::size_t fewest = backsUp && m_run.response == Response::BackupCompleted ? most : m_baseline.backups;
        if (whole < fewest || whole > most || !content.foreign.empty()) {
            return fmt::format("it holds {} and {} that are none", plural(whole, "backup"),
                               plural(content.foreign.size(), "file"));
        }
        return "";
    }

    // A session that was opened is closed, unless the response came without the application's own pointer.
    std::string session() const {
        if (m_run.ended == RunEnd::Crashed || m_run.ended == RunEnd::Waiting || has("null")) {
            return "";
        }
        const auto opened = std::count_if(m_calls.begin(), m_calls.end(), [](const CallRecord& call) {
            return call.name == calls::bnr_init.name && call.result == "0";
        });
        return opened <= count(calls::bnr_deinit) ? "" : "it has left its session with the cloud open";
    }

    std::string channels() const {
        const auto lost = std::find_if(m_verdict.items.begin(), m_verdict.items.end(), [](const ItemVerdict& item) {
            return item.item == Item::Channels && !isWell(item.state);
        });
        return wasDone() && lost != m_verdict.items.end() ? "it was told done without the channels" : "";
    }

    // If each call that failed works on an item, only those items are lost; of the favourites, one for each call.
    std::string bestEffort() const {
        if (!wasDone() || m_run.ended == RunEnd::Crashed) {
            return "";
        }
        std::multiset<std::string_view> failed;
        for (const Fired& fault : m_fired) {
            failed.insert(findPlatformCall(fault.call)->item);
        }
        for (const ItemVerdict& item : m_verdict.items) {
            const std::string_view name = favouriteList(item.item) ? "favname" : nameOf(item.item);
            if (isWell(item.state) || failed.count("") > 0) {
                continue;
            }
            const auto fault = failed.find(name);
            if (fault == failed.end()) {
                return fmt::format("{} is lost, and no call for it has failed", nameOf(item.item));
            }
            if (favouriteList(item.item)) {
                failed.erase(fault);
            }
        }
        return "";
    }

    // The downloaded archive is removed on success, and kept in the failure folder otherwise, if it could be read. A
    // bundle that the cloud did not take is kept there, too.
    std::string archive() const {
        const bool wasDownloaded = m_run.response == Response::RestoreData && !has("damage=missing") &&
                                   !has("damage=dangling") && !has("no-data");
        const auto handedOver = std::find_if(
            m_calls.begin(), m_calls.end(), [](const CallRecord& call) { return call.name == calls::bnr_backup.name; });
        const bool backedUp = handedOver != m_calls.end();
        if (!(backedUp || wasDownloaded) || m_run.ended == RunEnd::Crashed || has("null")) {
            return "";
        }
        constexpr std::string_view POSTPONED = "6";
        const bool isKept = backedUp ? handedOver->result.compare(0, 1, "0") != 0 && handedOver->result != POSTPONED
                                     : m_run.reported != Reported::Success && !wasReported(1);
        const std::size_t expected = isKept ? 1 : 0;
        const std::size_t kept = filesBelow(m_tv.home() / application::FAILURE_FOLDER, [](const fs::path& file) {
            return file.extension() != application::METADATA_SUFFIX;
        });
        const fs::path unpacked = m_tv.home() / application::DATA_FOLDER / application::UNPACK_FOLDER;
        const std::size_t left = filesBelow(m_tv.home() / application::DATA_FOLDER, [&](const fs::path& file) {
            return file.string().compare(0, unpacked.string().size(), unpacked.string()) != 0;
        });
        return kept == expected && left == 0 ? ""
                                             : fmt::format("{} in the failure folder, and {} in the working folder",
                                                           plural(kept, "archive"), plural(left, "file"));
    }

    // A power cut leaves what the next run removes.
    std::string tidy() const {
        if (has("cut")) {
            return "";
        }
        const std::vector<fs::path> members = membersOf(m_tv.home() / "service-db");
        const bool isTidy = members.size() == 2 && filesBelow(m_tv.home(), [](const fs::path& file) {
                                                       return isScratch(file.parent_path());
                                                   }) == 0;
        return isTidy ? "" : "half-made files are left in the TV";
    }

    // Says of each item what a comparison says that knows nothing of how the verdict is found.
    std::string verdict() const {
        bool isWhole = !m_verdict.items.empty();
        for (const ItemVerdict& item : m_verdict.items) {
            if (m_run.operation == Operation::Restore && isWell(item.state) != isAsAfter(item.item)) {
                return fmt::format("it calls {} {}, and the TV's {} as it should be", nameOf(item.item),
                                   nameOf(item.state), isAsAfter(item.item) ? "is" : "is not");
            }
            isWhole = isWhole && isWell(item.state);
        }
        const std::vector<Outcome> fitting = fittingOutcomes(isWhole);
        if (std::find(fitting.begin(), fitting.end(), m_verdict.outcome) == fitting.end()) {
            return fmt::format("it says {}", nameOf(m_verdict.outcome));
        }
        if (m_verdict.outcome == Outcome::Done ? !m_verdict.why.empty() : m_verdict.decisive == 0) {
            return "it gives a reason for success, or no place for a failure";
        }
        return "";
    }

    // A backup that is in the cloud is none that failed.
    std::string log() const {
        const bool saysFailure = std::any_of(m_log.begin(), m_log.end(), [](const LogRecord& record) {
            return record.message.find("operation fail") != std::string::npos;
        });
        return saysFailure && wasDone() ? "it says \"operation fail\" of what was done" : "";
    }

private:
    int count(const PlatformCall& call) const {
        return static_cast<int>(std::count_if(m_calls.begin(), m_calls.end(),
                                              [&](const CallRecord& each) { return each.name == call.name; }));
    }

    bool has(std::string_view failure) const {
        return std::any_of(m_fired.begin(), m_fired.end(), [&](const Fired& each) { return each.failure == failure; });
    }

    // Nothing if the fault alone ends no run.
    std::optional<RunEnd> endUnder(const Fired& fault) const {
        const auto* const row = std::find_if(std::begin(ENDS), std::end(ENDS), [&](const End& each) {
            return (each.call.empty() || each.call == fault.call) &&
                   (each.failure.empty() || each.failure == fault.failure) &&
                   (!each.ofRestoreOnly || (m_baseline.isRestore && !isReadAsScan()));
        });
        return row != std::end(ENDS) ? std::optional(row->end) : std::nullopt;
    }

    // The application takes an extra value that it cannot read for one that is not there.
    bool isReadAsScan() const {
        return m_baseline.isScanActivated && std::none_of(m_fired.begin(), m_fired.end(), [](const Fired& fault) {
                   return fault.call == calls::app_control_get_extra_data.name;
               });
    }

    // What the caller or the cloud was told.
    bool wasDone() const {
        return m_run.operation == Operation::Restore ? m_run.reply == 0 || m_run.reported == Reported::Success
                                                     : m_run.response == Response::BackupCompleted;
    }

    bool wasReported(int times) const { return count(calls::bnr_report_success) == times; }

    bool isReplaced() const { return m_now.services == m_baseline.after.services; }
    std::string_view whichChannels() const { return isReplaced() ? "the backup's" : "the old ones"; }

    // By the set-ups alone; oldOrNew() looks at the IP services.
    bool isAsAfter(Item item) const {
        return (item != Item::Channels || isReplaced()) &&
               (item != Item::Viewing || m_now.viewing == m_baseline.after.viewing) &&
               m_now.of(item) == m_baseline.after.of(item);
    }

    std::string problemOf(const StoredBackup& backup) const {
        if (!backup.damage.empty()) {
            return backup.damage;
        }
        const Bundle bundle = fetchBundle(m_store, backup).bundle;
        if (!bundle.problem().empty()) {
            return bundle.problem();
        }
        for (const UnpackedEntry& entry : bundle.entries()) {
            if (!entry.problem.empty()) {
                return fmt::format("{}: {}", entry.name, entry.problem);
            }
        }
        if (bundle.part(Item::Channels).state == PartState::Whole &&
            m_baseline.services.count(bundle.setup().services->counts().services) == 0) {
            return "its channels are of no TV here";
        }
        const bool isOfRun = m_run.backup == backup.id && m_run.operation == Operation::Backup;
        return isOfRun && !bundle.isWhole() && m_verdict.outcome == Outcome::Done ? "it is not whole, and called done"
                                                                                  : "";
    }

    // Those that fit what the caller was told, and whether each item is where it should be.
    std::vector<Outcome> fittingOutcomes(bool isWhole) const {
        if (m_run.ended == RunEnd::Crashed) {
            return {Outcome::Crashed};
        }
        const bool wasHandedOut = !m_run.backup.empty() && count(calls::bnr_backup) == 0;
        const bool wasTold = m_baseline.isRestore ? wasHandedOut && (m_run.reply == 0 || wasReported(1))
                                                  : m_run.response == Response::BackupCompleted;
        if (!wasTold) {
            return {Outcome::Failed, Outcome::Refused};
        }
        if (!isWhole) {
            return {Outcome::DoneInPart};
        }
        const bool isReplyMissing = m_run.replyRequested && m_run.operation == Operation::Restore && !m_run.reply;
        return {m_run.ended == RunEnd::Waiting || isReplyMissing ? Outcome::Failed : Outcome::Done};
    }

    const Tv& m_tv;
    const CloudStore& m_store;
    const Run& m_run;
    const Verdict& m_verdict;
    const Baseline& m_baseline;
    const std::vector<CallRecord> m_calls;
    const std::vector<LogRecord> m_log;
    const Setup m_now;
    std::vector<Fired> m_fired;
};

struct Promise {
    Invariant invariant;
    std::string (Inspection::*check)() const;
};
constexpr Promise PROMISES[] = {
    {{"end", "a run ends, and an exception of the platform ends it"}, &Inspection::end},
    {{"old or new", "each part of the TV is as before or as after, never between"}, &Inspection::oldOrNew},
    {{"reply", "the caller of a restore gets at most one reply, and it is true"}, &Inspection::reply},
    {{"report", "what the cloud is told of a restore is true"}, &Inspection::reported},
    {{"store", "every backup in the store can be read whole, and nothing else is there"}, &Inspection::store},
    {{"channels", "nothing is told done without the channels"}, &Inspection::channels},
    {{"best effort", "an item is lost only if a call for it fails"}, &Inspection::bestEffort},
    {{"session", "a session with the cloud is closed again"}, &Inspection::session},
    {{"archive", "a bundle is removed on success, and kept otherwise"}, &Inspection::archive},
    {{"tidy", "nothing half-made is left, or after a power cut until the next run"}, &Inspection::tidy},
    {{"verdict", "the verdict says what a comparison of its own says"}, &Inspection::verdict},
    {{"log", "the log calls nothing failed that was done"}, &Inspection::log},
};

}  // namespace

const std::vector<Invariant>& invariants() {
    static const std::vector<Invariant> all = [] {
        std::vector<Invariant> list;
        for (const Promise& promise : PROMISES) {
            list.push_back(promise.invariant);
        }
        return list;
    }();
    return all;
}

std::vector<Violation> violationsOf(const Tv& tv, const CloudStore& store, const RunReport& report,
                                    const Baseline& baseline) {
    const Inspection inspection(tv, store, report, baseline);
    std::vector<Violation> violations;
    for (const Promise& promise : PROMISES) {
        if (std::string what = (inspection.*promise.check)(); !what.empty()) {
            violations.push_back({promise.invariant.name, std::move(what)});
        }
    }
    return violations;
}

}  // namespace sim
