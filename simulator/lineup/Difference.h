// What is different between two channel set-ups.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "simulator/lineup/Setup.h"

namespace sim {

// Two services of one identity.
struct ServicePair {
    Service left;
    Service right;
    std::vector<const ServiceColumn*> columns;  // that differ
};

// Services are paired by their identity, not by their place in the list.
struct ServiceDifference {
    std::size_t leftCount = 0;
    std::size_t rightCount = 0;
    std::vector<Service> removed;  // those that only the left side has
    std::vector<Service> added;    // those that only the right side has
    std::vector<ServicePair> renamed;
    std::vector<ServicePair> changed;     // in another column than id, number and name
    std::vector<ServicePair> moved;       // to another place in the order
    std::vector<ServicePair> renumbered;  // in their place, with another number or id

    bool isSame() const {
        return removed.empty() && added.empty() && renamed.empty() && changed.empty() && moved.empty() &&
               renumbered.empty();
    }
    // "3 added, 1 moved"; without those of which there are none.
    std::string summary() const;
};

ServiceDifference compareServices(const std::vector<Service>& left, const std::vector<Service>& right);

// An item with how it reads on each side, or why it is not there.
struct ItemDifference {
    Item item = Item::Channels;
    bool isSame = true;
    std::string left;
    std::string right;
    std::string detail;  // how they differ, if the sides do not show it: "1 removed, 2 moved", "in 'a', 'b'"
};

// Any item but the IP services.
ItemDifference compare(Item item, const Setup& left, const Setup& right);

struct Difference {
    ServiceDifference services;
    std::vector<ItemDifference> items;  // all but the IP services, the channels first

    bool isSame() const;
};

Difference compare(const Setup& left, const Setup& right);

}  // namespace sim
