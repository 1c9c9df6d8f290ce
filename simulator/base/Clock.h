// Wall-clock times as the simulator writes them.
#pragma once

#include <string>

namespace sim {

// The present time in UTC, ISO 8601 to the second.
std::string utcNow();

}  // namespace sim
