#include "simulator/lineup/Difference.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_map>

#include "simulator/lineup/Words.h"

namespace sim {

namespace {

// What a difference has a list of its own for.
bool isListed(const ServiceColumn& column) {
    const std::string_view name = column.name;
    return name == "id" || name == "number" || name == "name";
}

std::vector<std::string> changedColumns(const Service& one, const Service& other) {
    std::vector<std::string> columns;
    for (const ServiceColumn& column : SERVICE_COLUMNS) {
        if (!isListed(column) && column.valueOf(one) != column.valueOf(other)) {
            columns.emplace_back(column.name);
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

// A part with its keys, and under which of them two sides differ.
template <typename Map>
PartDifference compareMaps(Item item, const Map& one, const Map& other, const char* unit) {
    std::set<std::string> keys;
    for (const auto& [map, against] : {std::pair(&one, &other), std::pair(&other, &one)}) {
        for (const auto& [key, value] : *map) {
            const auto found = against->find(key);
            if (found == against->end() || found->second != value) {
                keys.insert(key);
            }
        }
    }
    const std::string size = fmt::format("{} {}", other.size(), unit);
    return {item, keys.empty(), fmt::format("{} {}", one.size(), unit),
            keys.empty() ? size : fmt::format("{}; in: {}", size, fmt::join(keys, ", "))};
}

// Which side lacks an item, and why. Empty: neither does.
std::string lackingIn(Item item, const Setup& one, const Setup& other) {
    std::string text;
    for (const auto& [side, setup] : {std::pair("first", &one), std::pair("second", &other)}) {
        const auto found = setup->lacking.find(item);
        if (found != setup->lacking.end()) {
            text += fmt::format("{}the {}: {}", text.empty() ? "" : "; ", side, found->second);
        }
    }
    return text;
}

// How a part reads where a side may lack it.
std::string withLack(const std::string& text, Item item, const Setup& setup) {
    const auto found = setup.lacking.find(item);
    return found == setup.lacking.end() ? text : fmt::format("({})", found->second);
}

// What is on, in a line.
std::string describe(const Setup& setup) {
    const Viewing& viewing = setup.viewing;
    const auto on = std::find_if(setup.services.begin(), setup.services.end(),
                                 [&](const Service& service) { return service.id == viewing.serviceId; });
    const std::string service = on != setup.services.end()
                                    ? fmt::format("{} {} ({})", on->number, on->name, on->id)
                                    : fmt::format("none: the channel list has no service {}", viewing.serviceId);
    return fmt::format("{}; {}; {}; {}", service, words(viewing.mode), words(viewing.source), words(viewing.category));
}

}  // namespace

ServiceDifference compareServices(const std::vector<Service>& ones, const std::vector<Service>& others) {
    ServiceDifference difference;
    difference.ones = ones.size();
    difference.others = others.size();
    std::unordered_map<std::string, std::size_t> placeInOthers;
    for (std::size_t i = 0; i < others.size(); ++i) {
        placeInOthers.emplace(others[i].identity, i);
    }
    std::vector<const Service*> paired;
    std::vector<std::size_t> places;
    for (const Service& one : ones) {
        const auto found = placeInOthers.find(one.identity);
        if (found == placeInOthers.end()) {
            difference.removed.push_back(one);
        } else {
            paired.push_back(&one);
            places.push_back(found->second);
            placeInOthers.erase(found);
        }
    }
    std::copy_if(others.begin(), others.end(), std::back_inserter(difference.added),
                 [&](const Service& other) { return placeInOthers.count(other.identity) != 0; });

    const std::vector<bool> isInOrder = longestAscending(places);
    for (std::size_t i = 0; i < paired.size(); ++i) {
        ServicePair pair{*paired[i], others[places[i]], {}};
        pair.columns = changedColumns(pair.one, pair.other);
        if (pair.one.name != pair.other.name) {
            difference.renamed.push_back(pair);
        }
        if (!pair.columns.empty()) {
            difference.changed.push_back(pair);
        }
        if (!isInOrder[i]) {
            difference.moved.push_back(pair);
        } else if (pair.one.number != pair.other.number || pair.one.id != pair.other.id) {
            difference.renumbered.push_back(pair);
        }
    }
    return difference;
}

bool Difference::isSame() const {
    return services.isSame() &&
           std::all_of(parts.begin(), parts.end(), [](const PartDifference& part) { return part.isSame; });
}

Difference compare(const Setup& one, const Setup& other) {
    Difference difference;
    difference.services = compareServices(one.services, other.services);
    difference.services.lacking = lackingIn(Item::Channels, one, other);
    for (std::size_t i = 0; i < one.favourites.size(); ++i) {
        difference.parts.push_back({favouriteItem(static_cast<int>(i) + 1), one.favourites[i] == other.favourites[i],
                                    one.favourites[i], other.favourites[i]});
    }
    difference.parts.push_back(compareMaps(Item::Ci, one.ci, other.ci, "files, each compared byte by byte"));
    difference.parts.push_back(compareMaps(Item::Iss, one.iss, other.iss, "entries"));
    difference.parts.push_back({Item::Viewing, one.viewing == other.viewing, describe(one), describe(other)});
    for (PartDifference& part : difference.parts) {
        if (!lackingIn(part.item, one, other).empty()) {
            part.one = withLack(part.one, part.item, one);
            part.other = withLack(part.other, part.item, other);
            part.isSame = false;
        }
    }
    return difference;
}

}  // namespace sim
