#include "simulator/reports/Foresight.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "simulator/base/Text.h"
#include "simulator/lineup/Application.h"
#include "simulator/lineup/Difference.h"
#include "simulator/reports/CloudReport.h"
#include "simulator/reports/TvReport.h"

namespace sim {

namespace {

// After a restore, the TV must have what the bundle has. Its other CI files stay, and of the viewing state only that
// part changes which the application applies.
Setup expectedAfterRestore(const Bundle& bundle, const Setup& now) {
    Setup expected = bundle.setup();
    const auto files = expected.entries.find(Item::Ci);
    if (files != expected.entries.end()) {
        files->second.insert(now.of(Item::Ci).begin(), now.of(Item::Ci).end());
    }
    expected.viewing = bundle.metadata().appliedTo(now.viewing);
    return expected;
}

// The parts of the backup's viewing state that the application, by its design, does not restore.
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

ItemVerdict verdictOn(Item item, const Bundle& bundle, const Setup& now, bool hasChanged) {
    const BundlePart& part = bundle.part(item);
    if (item == Item::IpServices) {
        return {item, hasChanged ? ItemState::Differs : ItemState::Kept,
                hasChanged ? "they have changed, though they are this set's own" : IP_SERVICES_STAY};
    }
    if (part.state == PartState::Damaged) {
        return {item, ItemState::Damaged, part.problem};
    }
    if (part.state == PartState::Absent) {
        return {item, hasChanged ? ItemState::Differs : ItemState::Kept,
                hasChanged ? "not in the backup, but changed during the run" : part.problem};
    }
    const std::string difference = howItDiffers(item, expectedAfterRestore(bundle, now), now);
    if (!difference.empty()) {
        return {item, ItemState::Differs, difference};
    }
    const std::string left = item == Item::Viewing ? notApplied(bundle.setup().viewing, now.viewing) : std::string();
    const ItemState unchanged = left.empty() ? ItemState::AlreadyEqual : ItemState::Kept;
    return {item, hasChanged ? ItemState::Restored : unchanged, left};
}

// Takes the steps of a restore on the set-up of a TV.
class Rehearsal {
public:
    Rehearsal(const Bundle& bundle, const Tv& tv)
        : m_bundle(bundle), m_leftovers(Bundle::ofUnpacked(unpackFolderOf(tv))), m_setup(tv.setup()) {}

    const Setup& setup() const { return m_setup; }

    // Returns why the channels stay as they are; nothing if they are replaced.
    std::optional<Reason> replaceChannels() {
        const Bundle& from = holderOf(application::SERVICE_DB_ENTRY);
        const std::vector<std::string> problems = m_bundle.fatalProblems();
        if (!problems.empty() && (!isUnpacked() || from.part(Item::Channels).state != PartState::Whole)) {
            return Reason{Cause::Damage, problems.front()};
        }
        if (const std::string path = blockedPath(); !path.empty()) {
            return Reason{Cause::Other, fmt::format("what an earlier run has left is in the way: {}", inQuotes(path))};
        }
        m_setup.services = from.setup().services;
        m_setup.lacking.erase(Item::Channels);
        return std::nullopt;
    }

    // Returns how the application ends there; nothing if it goes on.
    std::optional<Reason> setFavourites() {
        const Bundle& from = holderOf(application::SETTINGS_ENTRY);
        for (int list = 1; list <= application::FAVOURITE_LISTS; ++list) {
            take(favouriteItem(list), from);
        }
        if (!from.endsAtSettings()) {
            return std::nullopt;
        }
        return Reason{m_bundle.problems().empty() ? Cause::Exception : Cause::Damage,
                      fmt::format("the channels come back, then an exception ends the application at the favourites' "
                                  "names: {}",
                                  from.settingsProblem())};
    }

    void restoreIss() { take(Item::Iss, holderOf(application::ISS_DB_ENTRY)); }

    // The CI module takes all files of the folder, or none.
    void handOverCi() {
        const auto isDamaged = [](const Bundle& from) { return from.part(Item::Ci).state == PartState::Damaged; };
        if (m_setup.lacking.count(Item::Ci) > 0 || isDamaged(m_bundle) || isDamaged(m_leftovers)) {
            return;
        }
        Entries files = m_bundle.setup().of(Item::Ci);
        // In this order, as insert() keeps what is there: the bundle's files replace leftovers, and both replace the
        // TV's.
        for (const Entries* more : {&m_leftovers.setup().of(Item::Ci), &m_setup.of(Item::Ci)}) {
            files.insert(more->begin(), more->end());
        }
        m_setup.entries[Item::Ci] = files;
    }

    // The TV refuses what it does not know, and shows its first service instead of one that it does not have.
    void restoreViewing(const Viewing& wanted) {
        Viewing& viewing = m_setup.viewing;
        if (!isKnown(wanted.mode)) {
            return;
        }
        viewing.mode = wanted.mode;
        if (wanted.source != Source::Tuner) {
            return;
        }
        const bool hasService = m_setup.services->find(wanted.serviceId).has_value();
        viewing.serviceId = hasService ? wanted.serviceId : m_setup.services->first();
        viewing.source = hasService ? wanted.source : viewing.source;
        if (isKnown(wanted.category, m_setup.services->counts().groups)) {
            viewing.category = wanted.category;
        }
    }

private:
    // Who has what is unpacked at a path: the bundle, else an earlier run.
    const Bundle& holderOf(const std::string& path) const {
        return m_bundle.files().count(path) > 0 ? m_bundle : m_leftovers;
    }

    bool isUnpacked() const {
        return m_bundle.problem().empty() &&
               std::all_of(m_bundle.entries().begin(), m_bundle.entries().end(),
                           [](const UnpackedEntry& entry) { return entry.problem.empty(); });
    }

    // Where an earlier run has left a folder, or a file where the bundle has a folder; empty if nowhere.
    std::string blockedPath() const {
        const std::map<std::string, std::string>& left = m_leftovers.files();
        for (const auto& [path, digest] : m_bundle.files()) {
            if (left.count(path + "/") > 0) {
                return path;
            }
            for (std::size_t at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1)) {
                if (left.count(path.substr(0, at)) > 0) {
                    return path.substr(0, at);
                }
            }
        }
        return "";
    }

    void take(Item item, const Bundle& from) {
        if (from.part(item).state == PartState::Whole) {
            m_setup.entries[item] = from.setup().of(item);
            m_setup.lacking.erase(item);
        }
    }

    const Bundle& m_bundle;
    const Bundle m_leftovers;
    Setup m_setup;
};

// Takes the steps of a restore, up to one that ends it. Returns false if there is one.
bool rehearse(Rehearsal& rehearsal, const Metadata& metadata, const Tv& tv, bool saysScan, Foresight& foresight) {
    const auto end = [&](Outcome outcome, const std::optional<Reason>& reason) {
        if (reason) {
            foresight.outcome = outcome;
            foresight.cause = reason->cause;
            foresight.why = reason->why;
        }
        return reason.has_value();
    };
    if (end(Outcome::Refused, incompatibility(metadata, tv.antenna())) ||
        end(Outcome::Failed, rehearsal.replaceChannels()) || end(Outcome::Crashed, rehearsal.setFavourites())) {
        return false;
    }
    rehearsal.restoreIss();
    rehearsal.handOverCi();
    // If the request says that a scan runs, the viewing state waits for the signal of its end. Without a scan, none
    // comes.
    if (!saysScan || tv.isScanning()) {
        rehearsal.restoreViewing(metadata.viewing);
    }
    return true;
}

}  // namespace

std::string howItDiffers(Item item, const Setup& backup, const Setup& tv) {
    const ItemDifference difference = compare(item, backup, tv);
    if (difference.isSame || difference.left == difference.right) {
        return difference.detail;
    }
    return fmt::format("{} in the backup, {} in the TV{}{}", difference.left, difference.right,
                       difference.detail.empty() ? "" : "; ", difference.detail);
}

std::vector<ItemVerdict> itemsAfterRestore(const Bundle& bundle, const Setup& now, const Fingerprints& before,
                                           const Fingerprints& after) {
    const auto in = [](const Fingerprints& fingerprints, Item item) {
        const auto found = fingerprints.find(item);
        return found == fingerprints.end() ? "" : found->second;
    };
    std::vector<ItemVerdict> items;
    for (const auto& [item, name] : NAMES<Item>) {
        const auto lacking = now.lacking.find(item);
        items.push_back(lacking == now.lacking.end() ? verdictOn(item, bundle, now, in(before, item) != in(after, item))
                                                     : ItemVerdict{item, ItemState::Unreadable, lacking->second});
    }
    return items;
}

std::optional<Reception> receptionOf(const std::vector<ItemVerdict>& items, const Setup& now, const Tv& tv) {
    const bool isRestored = std::any_of(items.begin(), items.end(), [](const ItemVerdict& item) {
        return item.item == Item::Channels &&
               (item.state == ItemState::Restored || item.state == ItemState::AlreadyEqual);
    });
    const std::optional<Services> air = isRestored ? tv.onAir() : std::nullopt;
    return air ? std::optional(Partners(*now.services, *air).counts()) : std::nullopt;
}

std::string lostItems(const std::vector<ItemVerdict>& items) {
    std::vector<std::string> lost;
    for (const ItemVerdict& item : items) {
        if (!isWell(item.state)) {
            lost.push_back(fmt::format("{} {} ({})", nameOf(item.item), nameOf(item.state), item.detail));
        }
    }
    return fmt::format("{}", fmt::join(lost, "; "));
}

Foresight foresee(const Bundle& bundle, const Tv& tv, bool saysScan) {
    const Metadata metadata = bundle.metadataText() ? bundle.metadata() : readMetadata(metadataFor(tv.antenna()));
    Foresight foresight;
    foresight.leftovers = leftoversOf(tv);
    Rehearsal rehearsal(bundle, tv);
    const bool isDone = rehearse(rehearsal, metadata, tv, saysScan, foresight);
    const Fingerprints before = tv.fingerprints();
    Fingerprints after = fingerprintsOf(rehearsal.setup());
    if (const auto own = before.find(Item::IpServices); own != before.end()) {
        after.insert(*own);
    }
    foresight.items = itemsAfterRestore(bundle, rehearsal.setup(), before, after);
    foresight.reception = receptionOf(foresight.items, rehearsal.setup(), tv);
    if (isDone) {
        foresight.why = lostItems(foresight.items);
        foresight.outcome = foresight.why.empty() ? Outcome::Done : Outcome::DoneInPart;
        foresight.cause = foresight.why.empty() ? Cause::None : Cause::ItemLost;
    }
    return foresight;
}

}  // namespace sim
