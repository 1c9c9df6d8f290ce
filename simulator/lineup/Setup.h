// A channel set-up: what a backup carries and a restore brings back.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulator/lineup/CiFiles.h"
#include "simulator/lineup/IssDb.h"
#include "simulator/lineup/Item.h"
#include "simulator/lineup/Service.h"
#include "simulator/lineup/Viewing.h"

namespace sim {

struct Setup {
    std::vector<Service> services;        // in the order of their numbers
    std::vector<std::string> favourites;  // the lists' names
    IssDb::Entries iss;
    CiFiles::Digests ci;
    Viewing viewing;
    std::vector<ListHeader> headers;      // of the channel list, for who writes it; not compared
    std::map<Item, std::string> lacking;  // items that are not in it, or cannot be read: why; empty for a TV's own
};

bool operator==(const Setup& one, const Setup& other);

}  // namespace sim
