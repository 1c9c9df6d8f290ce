// The commands that care for the backups of a cloud store as a whole.
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "simulator/base/Clock.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/reports/CloudCare.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/ToJson.h"

namespace cli {

namespace {

// How many of all backups are done, for a person who waits.
std::function<void()> progressOf(const Session& session, std::size_t all) {
    const bool isWatched = ::isatty(STDERR_FILENO) != 0 && !session.isQuiet;
    return [isWatched, all, done = std::size_t{0}]() mutable {
        if (++done; isWatched) {
            print(stderr, "\r{} of {}{}", done, sim::plural(all, "backup"), done == all ? "\r\x1b[K" : " ");
        }
    };
}

struct VerifyOptions {
    std::vector<std::string> ids;  // empty: those that the rest says
    std::string account;
    bool all = false;
    std::string part = "1/1";
};

// "n/m"
std::pair<std::size_t, std::size_t> partIn(const std::string& text) {
    const std::vector<std::string> numbers = sim::split(text, '/');
    const auto numberAt = [&](std::size_t i) {
        return i < numbers.size() ? sim::toNumber<std::size_t>(numbers[i]).value_or(0) : 0;
    };
    if (numbers.size() != 2 || numberAt(0) < 1 || numberAt(0) > numberAt(1)) {
        throw UsageError(fmt::format("--part {}: give N/M with N from 1 to M, such as 1/7", sim::inQuotes(text)));
    }
    return {numberAt(0), numberAt(1)};
}

std::vector<sim::BackupName> namesFor(const Session& session, const sim::CloudStore& store,
                                      const VerifyOptions& options) {
    const auto [part, parts] = partIn(options.part);
    std::vector<sim::BackupName> names;
    names.reserve(options.ids.size());
    for (const std::string& id : options.ids) {
        names.push_back(sim::chooseBackup(store, id, accountOf(session)));
    }
    if (!names.empty()) {
        return names;
    }
    for (const std::vector<sim::BackupName>& category : sim::byCategory(store.contentOf(options.account).backups)) {
        names.insert(names.end(), options.all ? category.begin() : category.end() - 1, category.end());
    }
    return sim::partOf(names, part, parts);
}

int verify(const Session& session, const VerifyOptions& options) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const std::vector<sim::BackupName> names = namesFor(session, *store, options);
    const std::vector<sim::DamagedBackup> damaged =
        sim::verifyBackups(*store, names, progressOf(session, names.size()));
    answer(session, sim::object({{"cloud", store->place()}, {"verified", names.size()}, {"damaged", damaged}}), [&] {
        for (const sim::DamagedBackup& each : damaged) {
            print("DAMAGED {}: {}\n", each.name.path(), each.why);
            print("  the newest whole one before it: {}\n", each.whole ? each.whole->path() : "none");
        }
        print("{} read in {}, {} damaged\n", sim::plural(names.size(), "backup"), store->place(), damaged.size());
    });
    return damaged.empty() ? DONE : DAMAGED;
}

int check(const Session& session) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const std::vector<sim::StoreTrial> trials = store->examine();
    const bool isFit =
        std::all_of(trials.begin(), trials.end(), [](const sim::StoreTrial& trial) { return trial.isFit; });
    answer(session, sim::object({{"cloud", store->place()}, {"isFit", isFit}, {"trials", trials}}), [&] {
        print("{} is {} for backups\n", store->place(), isFit ? "fit" : "NOT FIT");
        for (const sim::StoreTrial& trial : trials) {
            print("  {:<7}  {}: {}\n", trial.isFit ? "fit" : "NOT FIT", trial.what, trial.detail);
        }
    });
    return isFit ? DONE : NO_BACKUP;
}

struct ForgetOptions {
    std::string account;
    bool isOfAll = false;
    bool isDryRun = false;
    std::size_t last = 0;
    std::string within;

    sim::Retention retention() const {
        const std::optional<std::chrono::milliseconds> age = sim::toDuration(within);
        if (!within.empty() && !age) {
            throw UsageError(fmt::format("--keep-within {}: give a number and a unit, such as 90d", within));
        }
        if (last == 0 && within.empty()) {
            throw UsageError("what is to be kept? Give --keep-last, --keep-within or both");
        }
        if (account.empty() != isOfAll) {
            throw UsageError("whose backups? Give --account NAME, or --all-accounts");
        }
        return {last, age};
    }
};

int forget(const Session& session, const ForgetOptions& options) {
    const sim::Retention retention = options.retention();
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const std::vector<sim::BackupName> names = store->contentOf(options.account).backups;
    Json::Value kept(Json::arrayValue);
    Json::Value forgotten(Json::arrayValue);
    // Oldest first: whatever interrupts this, the newest of each category are there.
    for (const sim::RetentionDecision& decision : sim::decideRetention(*store, names, retention, sim::machineTime())) {
        if (!decision.kept.empty()) {
            kept.append(sim::object({{"backup", decision.name.path()}, {"why", decision.kept}}));
            continue;
        }
        if (!options.isDryRun) {
            store->remove(decision.name);
        }
        forgotten.append(sim::toJson(decision.name.path()));
    }
    const Json::Value json = sim::object(
        {{"cloud", store->place()}, {"isDryRun", options.isDryRun}, {"kept", kept}, {"forgotten", forgotten}});
    return answer(session, json, [&] {
        for (const Json::Value& each : kept) {
            print("kept       {}  {}\n", each["backup"].asString(), each["why"].asString());
        }
        for (const Json::Value& each : forgotten) {
            print("{} {}\n", options.isDryRun ? "to forget " : "forgotten ", each.asString());
        }
    });
}

struct CopyOptions {
    std::string target;
    std::string account;
};

int copy(const Session& session, const CopyOptions& options) {
    const std::unique_ptr<sim::CloudStore> store = session.openStore();
    const std::unique_ptr<sim::CloudStore> target =
        sim::openCloud(sim::cloudOf(session.home, options.target), {}, session.home / sim::DOWN_NOTES);
    if (store->place() == target->place()) {
        throw UsageError(fmt::format("{} is the store itself; give another one", target->place()));
    }
    target->create();
    const std::vector<sim::BackupName> names = store->contentOf(options.account).backups;
    const sim::CopyResult result = sim::copyBackups(*store, names, *target, progressOf(session, names.size()));
    answer(session,
           sim::object({{"from", store->place()},
                        {"to", target->place()},
                        {"copied", result.copied},
                        {"there", result.there},
                        {"damaged", result.damaged},
                        {"late", result.late}}),
           [&] {
               print("{} copied to {} and read back; {} were there\n", sim::plural(result.copied, "backup"),
                     target->place(), result.there);
               printLines(stdout, "damaged, and not copied: ", result.damaged);
               printLines(stdout, "older than the newest there, which it would follow; not copied: ", result.late);
           });
    return !result.damaged.empty() ? DAMAGED : result.late.empty() ? DONE : FAILED;
}

}  // namespace

void addCloudCareCommands(CLI::App& store, Action& chosen) {
    const auto verified = std::make_shared<VerifyOptions>();
    CLI::App* verifying =
        addCommand(store, "verify", "Read each byte of the newest backup of each account, client and category",
                   "halcyon-tv cloud verify --all --part 1/7", chosen,
                   [verified](const Session& session) { return verify(session, *verified); });
    verifying->add_option("backup", verified->ids, "ids; only these backups");
    verifying->add_flag("--all", verified->all, "of all backups");
    verifying->add_option("--part", verified->part, "N/M: the Nth of M parts, such as one for each day of a week");
    verifying->add_option("--account", verified->account, "only the backups of this account");

    addCommand(store, "check", "Find out by trying whether the store does what backups need",
               "halcyon-tv --cloud s3://lab cloud check", chosen, &check);

    const auto forgotten = std::make_shared<ForgetOptions>();
    CLI::App* forgetting =
        addCommand(store, "forget", "Remove old backups; never a pinned one, nor the newest whole one of a category",
                   "halcyon-tv cloud forget --all-accounts --keep-last 10 --keep-within 90d --dry-run", chosen,
                   [forgotten](const Session& session) { return forget(session, *forgotten); });
    forgetting->add_option("--keep-last", forgotten->last, "keep so many of each account, client and category");
    forgetting->add_option("--keep-within", forgotten->within, "keep those that are no older, such as 90d");
    forgetting->add_option("--account", forgotten->account, "only the backups of this account");
    forgetting->add_flag("--all-accounts", forgotten->isOfAll, "the backups of all accounts");
    forgetting->add_flag("--dry-run", forgotten->isDryRun, "say what would be removed, and remove nothing");

    const auto copied = std::make_shared<CopyOptions>();
    CLI::App* copying =
        addCommand(store, "copy", "Copy to another store what it lacks, and compare each copy; it can be interrupted",
                   "halcyon-tv --cloud s3://lab cloud copy /mnt/backups", chosen,
                   [copied](const Session& session) { return copy(session, *copied); });
    copying->add_option("to", copied->target, "the other store: a folder, or s3://BUCKET[/PREFIX]")->required();
    copying->add_option("--account", copied->account, "only the backups of this account");
}

}  // namespace cli
