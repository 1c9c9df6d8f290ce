#include "simulator/lineup/Difference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <unordered_map>

#include "simulator/base/Text.h"
#include "simulator/lineup/Words.h"

namespace sim {

namespace {

// Changes of these columns have lists of their own.
bool isListed(const ServiceColumn* column) {
    const std::string_view label = column->label;
    return label == "id" || label == "number" || label == "name";
}

std::vector<const ServiceColumn*> differingColumns(const Service& left, const Service& right) {
    std::vector<const ServiceColumn*> columns;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (differ(column, left, right)) {
            columns.push_back(&column);
        }
    }
    return columns;
}

// Which elements of a sequence of different numbers stand in one of its longest ascending subsequences: they have kept
// their order, and the fewest others have moved.
std::vector<bool> longestAscending(const std::vector<std::size_t>& sequence) {
    constexpr std::size_t NONE = SIZE_MAX;
    std::vector<std::size_t> lowestEnd;  // by length - 1: where the subsequence with the lowest end ends
    std::vector<std::size_t> before(sequence.size(), NONE);
    for (std::size_t i = 0; i < sequence.size(); ++i) {
        const auto place = std::lower_bound(lowestEnd.begin(), lowestEnd.end(), sequence[i],
                                            [&](std::size_t at, std::size_t value) { return sequence[at] < value; });
        before[i] = place == lowestEnd.begin() ? NONE : *(place - 1);
        if (place == lowestEnd.end()) {
            lowestEnd.push_back(i);
        } else {
            *place = i;
        }
    }
    std::vector<bool> isIn(sequence.size(), false);
    for (std::size_t at = lowestEnd.empty() ? NONE : lowestEnd.back(); at != NONE; at = before[at]) {
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

std::string ServiceDifference::summary() const {
    std::vector<std::string> texts;
    for (const auto& [count, what] : {std::pair(removed.size(), "removed"), std::pair(added.size(), "added"),
                                      std::pair(renamed.size(), "renamed"), std::pair(changed.size(), "changed"),
                                      std::pair(moved.size(), "moved"), std::pair(renumbered.size(), "renumbered")}) {
        if (count != 0) {
            texts.push_back(fmt::format("{} {}", count, what));
        }
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

ServiceDifference compareServices(const std::vector<Service>& left, const std::vector<Service>& right) {
    ServiceDifference difference;
    difference.leftCount = left.size();
    difference.rightCount = right.size();
    std::unordered_map<std::string, std::size_t> placeInRight;
    for (std::size_t i = 0; i < right.size(); ++i) {
        placeInRight.emplace(right[i].identity, i);
    }
    std::vector<const Service*> paired;
    std::vector<std::size_t> places;
    for (const Service& service : left) {
        const auto found = placeInRight.find(service.identity);
        if (found == placeInRight.end()) {
            difference.removed.push_back(service);
        } else {
            paired.push_back(&service);
            places.push_back(found->second);
            placeInRight.erase(found);
        }
    }
    std::copy_if(right.begin(), right.end(), std::back_inserter(difference.added),
                 [&](const Service& service) { return placeInRight.count(service.identity) != 0; });

    const std::vector<bool> isInOrder = longestAscending(places);
    for (std::size_t i = 0; i < paired.size(); ++i) {
        const Service& partner = right[places[i]];
        const ServicePair pair{*paired[i], partner, differingColumns(*paired[i], partner)};
        if (pair.left.name != pair.right.name) {
            difference.renamed.push_back(pair);
        }
        if (!std::all_of(pair.columns.begin(), pair.columns.end(), &isListed)) {
            difference.changed.push_back(pair);
        }
        if (!isInOrder[i]) {
            difference.moved.push_back(pair);
        } else if (pair.left.number != pair.right.number || pair.left.id != pair.right.id) {
            difference.renumbered.push_back(pair);
        }
    }
    return difference;
}

ItemDifference compare(Item item, const Setup& left, const Setup& right) {
    ItemDifference difference;
    difference.item = item;
    for (const auto& [setup, text] : {std::pair(&left, &difference.left), std::pair(&right, &difference.right)}) {
        const auto lacking = setup->lacking.find(item);
        difference.isSame = difference.isSame && lacking == setup->lacking.end();
        *text = lacking == setup->lacking.end() ? describe(item, *setup) : fmt::format("({})", lacking->second);
    }
    if (!difference.isSame) {
        return difference;
    }
    if (item == Item::Channels) {
        // Fingerprints first: lists may be long, and are nearly always equal.
        difference.isSame = left.services == right.services;
        difference.detail =
            difference.isSame ? "" : compareServices(left.services->all(), right.services->all()).summary();
    } else if (item == Item::Viewing) {
        difference.isSame = left.viewing == right.viewing;
    } else {
        difference.isSame = left.of(item) == right.of(item);
        difference.detail =
            difference.isSame || favouriteList(item) ? "" : differingKeys(left.of(item), right.of(item));
    }
    return difference;
}

bool Difference::isSame() const {
    return std::all_of(items.begin(), items.end(), [](const ItemDifference& item) { return item.isSame; });
}

Difference compare(const Setup& left, const Setup& right) {
    Difference difference;
    for (const Name<Item>& item : NAMES<Item>) {
        if (item.value != Item::IpServices) {
            difference.items.push_back(compare(item.value, left, right));
        }
    }
    if (left.services && right.services) {
        difference.services = compareServices(left.services->all(), right.services->all());
    }
    return difference;
}

}  // namespace sim
