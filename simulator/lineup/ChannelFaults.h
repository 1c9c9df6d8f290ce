// Which services of a received channel database do not fit, by number and name.
#pragma once

#include <string>
#include <vector>

#include "simulator/lineup/ReceivedDatabase.h"

namespace sim {

// What is wrong with the services that are attached to `database` as received, of each kind the first few and how many
// more; empty if nothing was found. `services` and `groups` are the tables as they should be. Throws Error (Damaged) if
// looking takes too long.
std::vector<std::string> channelFaults(const ReceivedDatabase& received, const Database& database,
                                       const ReceivedDatabase::Table& services, const ReceivedDatabase::Table& groups);

}  // namespace sim
