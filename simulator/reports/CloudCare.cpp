#include "simulator/reports/CloudCare.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "simulator/base/Clock.h"
#include "simulator/base/Digest.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/reports/CloudReport.h"

namespace sim {

namespace {

// Why a restore could not take the backup, each byte read; empty if it could. Nothing if it is gone.
std::optional<std::string> damageOf(const CloudStore& store, const BackupName& name) {
    try {
        const std::vector<std::string> problems = fetchBundle(store, name).bundle.problems();
        return problems.empty() ? "" : problems.front();
    } catch (const Error& error) {
        if (error.kind() == Error::Kind::Missing) {
            return std::nullopt;
        }
        if (error.kind() != Error::Kind::Damaged) {
            throw;
        }
        return error.what();
    }
}

// The decisions on one category, its newest backup first.
std::vector<RetentionDecision> decideByRule(const std::vector<StoredBackup>& newestFirst, const Retention& retention,
                                            std::chrono::milliseconds now) {
    std::vector<RetentionDecision> decisions;
    decisions.reserve(newestFirst.size());
    std::size_t whole = 0;
    for (const StoredBackup& backup : newestFirst) {
        const std::optional<std::chrono::milliseconds> time = fromUtc(backup.time, now);
        RetentionDecision decision{backup, ""};
        if (backup.isPinned) {
            decision.kept = "pinned";
        } else if (whole < retention.last) {
            decision.kept = fmt::format("among the newest {}", retention.last);
        } else if (retention.within && time && *time >= now - *retention.within) {
            decision.kept = "young enough";
        }
        whole += backup.damage.empty() ? 1U : 0U;
        decisions.push_back(std::move(decision));
    }
    return decisions;
}

// Reading all of a backup may show damage that looking at it does not.
void keepWholeOne(const CloudStore& store, std::vector<RetentionDecision>& newestFirst) {
    const auto whole = std::find_if(newestFirst.begin(), newestFirst.end(), [&](const RetentionDecision& decision) {
        return damageOf(store, decision.name) == "";
    });
    if (whole != newestFirst.end() && whole->kept.empty()) {
        whole->kept = "the newest whole one";
    }
}

// What tells a backup and its copy from others; their ids differ.
using Likeness = std::tuple<std::string, std::string, std::string, std::uint64_t, std::string>;

Likeness likenessOf(const StoredBackup& backup) {
    return {backup.time, backup.name, backup.device, backup.size, backup.metadata};
}

// Copies into one category of the other store.
class CategoryCopy {
public:
    CategoryCopy(const CloudStore& from, CloudStore& to, CopyResult& result)
        : m_from(from), m_to(to), m_result(result) {}

    // Learns what the other store has there.
    void learn(const std::vector<StoredBackup>& copies) {
        for (const StoredBackup& copy : copies) {
            m_newest = std::max(m_newest, copy.time);
            m_there[likenessOf(copy)].push_back(copy);
        }
    }

    void take(const BackupName& name) {
        const ScratchFolder scratch;
        std::vector<StoredBackup> found = lookAt(m_from, {name});
        if (found.empty()) {
            return;  // it has just been removed
        }
        StoredBackup& backup = found.front();
        std::vector<BackupName>& alike = m_there[likenessOf(backup)];
        if (!alike.empty()) {
            alike.erase(alike.begin());  // each copy is of one backup
            ++m_result.there;
        } else if (backup.damage.empty() && backup.time < m_newest) {
            m_result.late.push_back(name.path());
        } else if (backup = m_from.fetch(name, scratch.path());
                   !backup.damage.empty() || !Bundle(scratch / backup.name, backup.metadata).fatalProblems().empty()) {
            m_result.damaged.push_back(name.path());
        } else {
            copy(backup, scratch / backup.name);
        }
    }

private:
    void copy(const StoredBackup& backup, const std::filesystem::path& bundle) {
        BackupName made = backup;
        made.id = m_to.put(
            {static_cast<const Address&>(backup), backup.metadata, backup.device, backup.services, false, backup.time},
            bundle);
        const ScratchFolder scratch;
        const StoredBackup copied = m_to.fetch(made, scratch.path());
        if (!copied.damage.empty() || digestOf(scratch / copied.name) != digestOf(bundle)) {
            throw Error(Error::Kind::Damaged, fmt::format("the copy {} in {} is not like backup {}: {}", made.path(),
                                                          m_to.place(), backup.id, copied.damage));
        }
        if (backup.isPinned) {
            m_to.pin(made, true);
        }
        ++m_result.copied;
    }

    const CloudStore& m_from;
    CloudStore& m_to;
    CopyResult& m_result;
    std::string m_newest;  // time of what is there
    std::map<Likeness, std::vector<BackupName>> m_there;
};

}  // namespace

std::vector<DamagedBackup> verifyBackups(const CloudStore& store, const std::vector<BackupName>& names,
                                         const std::function<void()>& progress) {
    std::vector<DamagedBackup> damaged;
    for (const BackupName& name : names) {
        if (const std::optional<std::string> damage = damageOf(store, name); damage && !damage->empty()) {
            damaged.push_back({name, *damage, wholeBefore(store, name)});
        }
        progress();
    }
    return damaged;
}

std::vector<BackupName> partOf(const std::vector<BackupName>& names, std::size_t part, std::size_t parts) {
    std::vector<BackupName> chosen;
    for (const BackupName& name : names) {
        constexpr std::size_t DIGITS = 8;
        const std::string digest = Digest().add(name.path()).hex();
        if (toNumber<std::uint32_t>(digest.substr(0, DIGITS), 16).value_or(0) % parts == part - 1) {
            chosen.push_back(name);
        }
    }
    return chosen;
}

std::vector<RetentionDecision> decideRetention(const CloudStore& store, const std::vector<BackupName>& names,
                                               const Retention& retention, std::chrono::milliseconds now) {
    std::vector<RetentionDecision> all;
    for (const std::vector<BackupName>& category : byCategory(names)) {
        std::vector<StoredBackup> backups = lookAt(store, category);
        std::reverse(backups.begin(), backups.end());
        std::vector<RetentionDecision> decisions = decideByRule(backups, retention, now);
        const auto isForgotten = [](const RetentionDecision& decision) { return decision.kept.empty(); };
        if (std::any_of(decisions.begin(), decisions.end(), isForgotten)) {
            keepWholeOne(store, decisions);
        }
        all.insert(all.end(), decisions.rbegin(), decisions.rend());
    }
    return all;
}

CopyResult copyBackups(const CloudStore& from, const std::vector<BackupName>& names, CloudStore& to,
                       const std::function<void()>& progress) {
    CopyResult result;
    for (const std::vector<BackupName>& category : byCategory(names)) {
        CategoryCopy copy(from, to, result);
        std::vector<BackupName> there = to.contentOf(category.front().account).backups;
        const auto isOther = [&](const BackupName& name) {
            return name.clientId != category.front().clientId || name.category != category.front().category;
        };
        there.erase(std::remove_if(there.begin(), there.end(), isOther), there.end());
        copy.learn(lookAt(to, there));
        for (const BackupName& name : category) {
            copy.take(name);
            progress();
        }
    }
    return result;
}

}  // namespace sim
