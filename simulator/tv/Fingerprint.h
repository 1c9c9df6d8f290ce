// What the items of a TV's channel set-up were at one moment, so that it can be told later whether they have changed.
#pragma once

#include <map>
#include <string>

#include "simulator/tv/Verdict.h"

namespace sim {

class ServiceDb;
class Tv;

// SHA-256 by item; an item that cannot be read has none.
using Fingerprints = std::map<Item, std::string>;

Fingerprints fingerprintsOf(const Tv& tv);

// Of all services of a channel database, in each column. Throws Error where it cannot be read.
std::string fingerprintOf(const ServiceDb& services);

}  // namespace sim
