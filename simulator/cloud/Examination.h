// Whether an object store does what backups need.
#pragma once

#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"
#include "simulator/cloud/ObjectSettings.h"

namespace sim {

// Asks each address for a list, then writes, lists, reads and removes a few small objects below `prefix`.
std::vector<StoreTrial> examineObjectStore(const std::string& bucket, const std::string& prefix,
                                           const ObjectSettings& settings);

}  // namespace sim
