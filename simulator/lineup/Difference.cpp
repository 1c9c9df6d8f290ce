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

// As if the pair stood in its place.
std::uint8_t changesOf(const Service& left, const Service& right) {
    std::uint8_t changes = 0;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (differ(column, left, right)) {
            const std::string_view label = column.label;
            const bool isNumber = label == "id" || label == "number";
            changes |= bit(isNumber ? Change::Renumbered : (label == "name" ? Change::Renamed : Change::Changed));
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

ServiceDifference::ServiceDifference(const Services& left, const Services& right)
    : m_left(left), m_right(right), m_rightCount(static_cast<std::size_t>(right.counts().services)) {
    std::vector<int> rightNumbers;
    const ServiceFinder inRight = right.finder();
    left.forEach([&](const Service& service) {
        const Service* partner = inRight(service.identity);
        m_leftChanges.push_back(partner == nullptr ? bit(Change::Removed) : changesOf(service, *partner));
        if (partner != nullptr) {
            rightNumbers.push_back(partner->number);
        }
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
    auto changes = (change == Change::Added ? m_rightChanges : m_leftChanges).begin();
    (change == Change::Added ? m_right : m_left)->forEach([&](const Service& service) {
        if ((*changes++ & bit(change)) == 0) {
            return;
        }
        visit(change == Change::Added ? ServicePair{nullptr, &service}
                                      : ServicePair{&service, isOnBoth ? inRight(service.identity) : nullptr});
    });
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
        difference.detail = services.summary();
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
