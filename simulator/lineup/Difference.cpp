#include "simulator/lineup/Difference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "simulator/base/Text.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

constexpr std::uint8_t bit(Change change) {
    return static_cast<std::uint8_t>(1U << static_cast<unsigned>(change));
}

// The kind of a difference in a column; 0 if it is only a consequence of another one.
std::uint8_t changeIn(const ServiceColumn& column, const Service& left, const Service& right) {
    const std::string_view label = column.label;
    if (label == "id" || label == "number") {
        return bit(Change::Renumbered);
    }
    if (label == "name" || label == "renamed") {
        return bit(Change::Renamed);
    }
    if (label == "locked" || label == "hidden") {
        return bit(Change::Customised);
    }
    // That of a service which is renamed on one side only is its name on the other one.
    const bool isConsequence = label == "broadcaster's name" && left.renamed != right.renamed;
    return isConsequence || isFavouritePlace(column) ? 0 : bit(Change::Changed);
}

// Whether a service is in one of two favourite lists alone.
bool isOnOneSide(int left, int right) {
    return (left > 0) != (right > 0);
}

// As if the pair stood in its place, here and in the favourite lists.
std::uint8_t changesOf(const Service& left, const Service& right) {
    std::uint8_t changes = 0;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (differ(column, left, right)) {
            changes |= changeIn(column, left, right);
        }
    }
    for (const auto place : FAVOURITE_PLACES) {
        if (isOnOneSide(left.*place, right.*place)) {
            changes |= bit(Change::Customised);
        }
    }
    return changes;
}

// Which elements of a sequence of different numbers stand in one of its longest ascending subsequences: they have kept
// their order, and the fewest others have moved.
std::vector<bool> longestAscending(const std::vector<int>& sequence) {
    if (std::is_sorted(sequence.begin(), sequence.end())) {
        return std::vector<bool>(sequence.size(), true);
    }
    constexpr std::uint32_t NONE = UINT32_MAX;
    std::vector<std::uint32_t> lowestEnd;  // by length - 1: where the subsequence with the lowest end ends
    std::vector<std::uint32_t> before(sequence.size(), NONE);
    for (std::uint32_t i = 0; i < sequence.size(); ++i) {
        const auto place = std::lower_bound(lowestEnd.begin(), lowestEnd.end(), sequence[i],
                                            [&](std::uint32_t at, int value) { return sequence[at] < value; });
        before[i] = place == lowestEnd.begin() ? NONE : *(place - 1);
        if (place == lowestEnd.end()) {
            lowestEnd.push_back(i);
        } else {
            *place = i;
        }
    }
    std::vector<bool> isIn(sequence.size(), false);
    for (std::uint32_t at = lowestEnd.back(); at != NONE; at = before[at]) {
        isIn[at] = true;
    }
    return isIn;
}

// An item that is not lacking, in words.
std::string describe(Item item, const Setup& setup) {
    const Entries& entries = setup.of(item);
    switch (item) {
        case Item::Channels:
            return plural(setup.services->counts().services, "service");
        case Item::Viewing:
            return words(setup.viewing, setup.services ? setup.services->find(setup.viewing.serviceId) : std::nullopt);
        case Item::Ci:
            return plural(entries.size(), "file");
        case Item::Iss:
            return plural(entries.size(), "entry", "entries");
        default:  // the name of a favourite list
            return entries.empty() ? "" : inQuotes(entries.begin()->second);
    }
}

// The keys under which two maps differ.
std::string differingKeys(const Entries& left, const Entries& right) {
    Entries differing;
    std::set_symmetric_difference(left.begin(), left.end(), right.begin(), right.end(),
                                  std::inserter(differing, differing.end()));
    std::vector<std::string> keys;
    for (const auto& [key, value] : differing) {
        keys.push_back(inQuotes(key));
    }
    return fmt::format("in {}", fmt::join(keys, ", "));
}

}  // namespace

std::vector<const ServiceColumn*> ServicePair::columns() const {
    std::vector<const ServiceColumn*> columns;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (differ(column, *left, *right)) {
            columns.push_back(&column);
        }
    }
    return columns;
}

std::string ServicePair::renamed() const {
    if (left->name == right->name) {
        return right->renamed ? "named by its owner" : "no longer named by its owner";
    }
    return fmt::format("renamed to {}{}", inQuotes(right->name), right->renamed ? " by its owner" : "");
}

std::vector<std::string> ServicePair::customised(std::string_view subject) const {
    const Service none;
    const Service& before = left != nullptr ? *left : none;
    const Service& now = right != nullptr ? *right : none;
    std::vector<std::string> texts;
    int list = 0;
    for (const auto place : FAVOURITE_PLACES) {
        ++list;
        if (isOnOneSide(before.*place, now.*place)) {
            texts.push_back(fmt::format("favourite list {}: {}{}", list, subject, before.*place > 0 ? "gone" : "new"));
        } else if ((movedIn >> list & 1U) != 0) {
            texts.push_back(fmt::format("favourite list {}: {}moved from place {} to {}", list, subject, before.*place,
                                        now.*place));
        }
    }
    for (const auto& [flag, word] : {std::pair(&Service::locked, "locked"), std::pair(&Service::hidden, "hidden")}) {
        if (before.*flag != now.*flag) {
            texts.push_back(fmt::format("{}{}{}", subject, now.*flag ? "" : "no longer ", word));
        }
    }
    return texts;
}

// The places in each favourite list of the services that both sides have in it.
struct ServiceDifference::Places {
    struct Pair {
        int left;
        int right;
        std::size_t service;  // its place in the left list
    };
    std::array<std::vector<Pair>, std::size(FAVOURITE_PLACES)> lists;

    void add(const Service& left, const Service& right, std::size_t service) {
        for (std::size_t list = 0; list < lists.size(); ++list) {
            const auto place = FAVOURITE_PLACES[list];
            if (left.*place > 0 && right.*place > 0) {
                lists[list].push_back({left.*place, right.*place, service});
            }
        }
    }
};

ServiceDifference::ServiceDifference(const Services& left, const Services& right)
    : m_left(left), m_right(right), m_rightCount(static_cast<std::size_t>(right.counts().services)) {
    std::vector<int> rightNumbers;
    Places places;
    const ServiceFinder inRight = right.finder();
    left.forEach([&](const Service& service) {
        const Service* partner = inRight(service.identity);
        if (partner != nullptr) {
            rightNumbers.push_back(partner->number);
            places.add(service, *partner, m_leftChanges.size());
        }
        m_leftChanges.push_back(partner == nullptr ? bit(Change::Removed) : changesOf(service, *partner));
    });
    m_leftCount = m_leftChanges.size();
    // If each service on the right has a partner, none was added, and the second pass is spared.
    if (rightNumbers.size() < m_rightCount) {
        const ServiceFinder inLeft = left.finder();
        right.forEach([&](const Service& service) {
            m_rightChanges.push_back(inLeft(service.identity) == nullptr ? bit(Change::Added) : 0);
        });
    }
    findMoved(rightNumbers);
    findMovedFavourites(places);
    for (const Name<Change>& change : NAMES<Change>) {
        const auto hasIt = [&](std::uint8_t changes) { return (changes & bit(change.value)) != 0; };
        const auto& changes = change.value == Change::Added ? m_rightChanges : m_leftChanges;
        m_counts.at(static_cast<std::size_t>(change.value)) =
            static_cast<std::size_t>(std::count_if(changes.begin(), changes.end(), hasIt));
    }
}

// Takes the numbers of the pairs on the right, in the order of the left list.
void ServiceDifference::findMoved(const std::vector<int>& rightNumbers) {
    const std::vector<bool> isInOrder = longestAscending(rightNumbers);
    auto pair = isInOrder.begin();
    for (std::uint8_t& changes : m_leftChanges) {
        if (changes != bit(Change::Removed) && !*pair++) {
            // Its other number is a consequence of the move, and no change of its own.
            changes = static_cast<std::uint8_t>((changes | bit(Change::Moved)) & ~bit(Change::Renumbered));
        }
    }
}

void ServiceDifference::findMovedFavourites(Places& places) {
    unsigned list = 0;
    for (std::vector<Places::Pair>& pairs : places.lists) {
        ++list;
        std::sort(pairs.begin(), pairs.end(), [](const auto& one, const auto& other) { return one.left < other.left; });
        std::vector<int> sequence;
        sequence.reserve(pairs.size());
        for (const Places::Pair& pair : pairs) {
            sequence.push_back(pair.right);
        }
        const std::vector<bool> isInOrder = longestAscending(sequence);
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            if (!isInOrder[i]) {
                m_leftChanges[pairs[i].service] |= bit(Change::Customised);
                m_movedFavourites[pairs[i].service] |= static_cast<std::uint8_t>(1U << list);
            }
        }
    }
}

bool ServiceDifference::isSame() const {
    return std::all_of(m_counts.begin(), m_counts.end(), [](std::size_t count) { return count == 0; });
}

std::string ServiceDifference::summary() const {
    std::vector<std::string> texts;
    for (const Name<Change>& change : NAMES<Change>) {
        if (count(change.value) != 0) {
            texts.push_back(fmt::format("{} {}", count(change.value), change.name));
        }
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

void ServiceDifference::forEach(Change change, const std::function<void(const ServicePair&)>& visit) const {
    if (count(change) == 0) {
        return;
    }
    const bool isOnBoth = change != Change::Added && change != Change::Removed;
    const ServiceFinder inRight = m_right->finder();
    const std::vector<std::uint8_t>& changes = change == Change::Added ? m_rightChanges : m_leftChanges;
    std::size_t place = 0;
    (change == Change::Added ? m_right : m_left)->forEach([&](const Service& service) {
        const std::size_t here = place++;
        if ((changes[here] & bit(change)) == 0) {
            return;
        }
        if (!isOnBoth) {
            visit(change == Change::Added ? ServicePair{nullptr, &service} : ServicePair{&service, nullptr});
            return;
        }
        const auto moved = m_movedFavourites.find(here);
        visit(
            {&service, inRight(service.identity), moved == m_movedFavourites.end() ? std::uint8_t{0} : moved->second});
    });
}

std::string ServiceDifference::details() const {
    constexpr std::size_t SHOWN = 3;
    std::vector<std::string> texts;
    std::size_t count = 0;
    const auto add = [&](const std::string& text) {
        if (++count <= SHOWN) {
            texts.push_back(text);
        }
    };
    forEach(Change::Renamed,
            [&](const ServicePair& pair) { add(fmt::format("{} is {}", inQuotes(pair.left->name), pair.renamed())); });
    for (const Change change : {Change::Customised, Change::Removed, Change::Added}) {
        forEach(change, [&](const ServicePair& pair) {
            const Service& service = pair.left != nullptr ? *pair.left : *pair.right;
            for (const std::string& text : pair.customised(inQuotes(service.name) + " is ")) {
                add(text);
            }
        });
    }
    if (count > SHOWN) {
        texts.push_back(fmt::format("and {} more", count - SHOWN));
    }
    return fmt::format("{}{}{}", summary(), texts.empty() ? "" : ": ", fmt::join(texts, "; "));
}

namespace {

// `services` is how the channels differ.
ItemDifference compareItem(Item item, const Setup& left, const Setup& right, const ServiceDifference& services) {
    ItemDifference difference;
    difference.item = item;
    for (const auto& [setup, text] : {std::pair(&left, &difference.left), std::pair(&right, &difference.right)}) {
        const auto lacking = setup->lacking.find(item);
        difference.isSame = difference.isSame && lacking == setup->lacking.end();
        *text = lacking == setup->lacking.end() ? describe(item, *setup) : fmt::format("({})", lacking->second);
    }
    if (!difference.isSame) {
        // What neither side has is the same. What cannot be read may be anything.
        const auto isAbsent = [&](const Setup& setup) {
            return setup.lacking.count(item) > 0 && setup.unreadable.count(item) == 0;
        };
        difference.isSame = isAbsent(left) && isAbsent(right);
        return difference;
    }
    if (item == Item::Channels) {
        difference.isSame = services.isSame();
        difference.detail = services.details();
    } else if (item == Item::Viewing) {
        difference.isSame = left.viewing == right.viewing;
    } else {
        difference.isSame = left.of(item) == right.of(item);
        difference.detail =
            difference.isSame || favouriteList(item) ? "" : differingKeys(left.of(item), right.of(item));
    }
    return difference;
}

ServiceDifference compareServices(const Setup& left, const Setup& right) {
    return left.services && right.services ? ServiceDifference(*left.services, *right.services) : ServiceDifference();
}

}  // namespace

ItemDifference compare(Item item, const Setup& left, const Setup& right) {
    return compareItem(item, left, right, item == Item::Channels ? compareServices(left, right) : ServiceDifference());
}

bool Difference::isSame() const {
    return std::all_of(items.begin(), items.end(), [](const ItemDifference& item) { return item.isSame; });
}

Difference compare(const Setup& left, const Setup& right) {
    Difference difference;
    difference.services = compareServices(left, right);
    for (const Name<Item>& item : NAMES<Item>) {
        // They are a set's own: those of two sets always differ, and a restore keeps them.
        if (item.value != Item::IpServices) {
            difference.items.push_back(compareItem(item.value, left, right, difference.services));
        }
    }
    return difference;
}

}  // namespace sim
