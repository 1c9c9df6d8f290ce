// What is different between two channel set-ups.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "simulator/lineup/Setup.h"

namespace sim {

// Two services of one identity.
struct ServicePair {
    Service one;
    Service other;
    std::vector<std::string> columns;  // that differ, but for id, number and name
};

// Services are paired by their identity, wherever they stand.
struct ServiceDifference {
    std::size_t ones = 0;  // how many there are on each side
    std::size_t others = 0;
    std::string lacking;           // one side has no list of services that can be read: which, and why
    std::vector<Service> removed;  // those that only the first side has
    std::vector<Service> added;    // those that only the second side has
    std::vector<ServicePair> renamed;
    std::vector<ServicePair> changed;     // in some other column
    std::vector<ServicePair> moved;       // to another place in the order
    std::vector<ServicePair> renumbered;  // in their place, with another number or id

    bool isSame() const {
        return lacking.empty() && removed.empty() && added.empty() && renamed.empty() && changed.empty() &&
               moved.empty() && renumbered.empty();
    }
};

ServiceDifference compareServices(const std::vector<Service>& ones, const std::vector<Service>& others);

// Another part of a set-up, with how it reads on each side.
struct PartDifference {
    Item item;
    bool isSame = true;
    std::string one;
    std::string other;
};

struct Difference {
    ServiceDifference services;
    std::vector<PartDifference> parts;

    bool isSame() const;
};

Difference compare(const Setup& one, const Setup& other);

}  // namespace sim
