// A channel set-up: what a backup carries and a restore brings back.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulator/tv/Tv.h"

namespace sim {

struct SetUp {
    std::vector<Service> services;        // in the order of their numbers
    std::vector<std::string> favourites;  // the lists' names
    IssDb::Entries iss;
    CiModule::Digests ci;
    Viewing viewing;
    std::vector<ListHeader> headers;      // of the channel list, for who writes it; not compared
    std::map<Item, std::string> lacking;  // items that are not in it, or cannot be read: why; empty for a TV's own
};

bool operator==(const SetUp& one, const SetUp& other);

// The TV's own. Throws Error where a part cannot be read.
SetUp setUpOf(const Tv& tv);

}  // namespace sim
