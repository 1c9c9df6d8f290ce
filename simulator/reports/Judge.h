// The verdict on a run, from what the TV and the store hold after it. The run's own log and replies only explain the
// result, they never prove it.
#pragma once

#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Tv.h"

namespace sim {

// Nothing else may have changed the TV since the run. Throws Error if the TV or the store cannot be read.
Verdict judge(const Tv& tv, const CloudStore& store, const Run& run);

}  // namespace sim
