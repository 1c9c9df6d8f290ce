// What the items of a channel set-up are at one moment, so that it can be told later whether they have changed.
#pragma once

#include <map>
#include <string>

#include "simulator/lineup/Item.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/Viewing.h"

namespace sim {

// SHA-256 by item; an item that cannot be read has none.
using Fingerprints = std::map<Item, std::string>;

std::string fingerprintOf(const std::map<std::string, std::string>& map);
std::string fingerprintOf(const Viewing& viewing);

// Of all services of a channel database, in each column. Throws Error where it cannot be read.
std::string fingerprintOf(const ServiceDb& services);

}  // namespace sim
