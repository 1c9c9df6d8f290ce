// What became of a run: read back from the TV and from the store. The run's own log and replies tell where to look,
// never that something is there.
#pragma once

#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Tv.h"

namespace sim {

// Of a run after which nothing else has changed the TV. Throws Error where the store cannot be read.
Verdict judge(const Tv& tv, const CloudStore& store, const Run& run);

}  // namespace sim
