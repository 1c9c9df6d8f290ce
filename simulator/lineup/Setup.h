// A channel set-up: what a TV has, and what a backup carries.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "simulator/lineup/IssDb.h"
#include "simulator/lineup/Item.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/Viewing.h"

namespace sim {

struct Setup {
    std::optional<Services> services;  // Item::Channels
    Viewing viewing;                   // Item::Viewing
    // The other items, but for the IP services, which belong to their set. The name of a favourite list has the one key
    // "name"; a CI file is its name and its SHA-256.
    std::map<Item, Entries> entries;
    std::map<Item, std::string> lacking;  // why an item is not here, or cannot be read
    std::set<Item> unreadable;            // those of them that are here

    // None if it is lacking.
    const Entries& of(Item item) const;

    // The name of a favourite list, 1 to application::FAVOURITE_LISTS; empty if it is lacking.
    std::string favourite(int list) const;
};

bool operator==(const Setup& left, const Setup& right);

// SHA-256 by item, to find out later if it has changed; none for an item that is lacking.
using Fingerprints = std::map<Item, std::string>;
Fingerprints fingerprintsOf(const Setup& setup);

}  // namespace sim
