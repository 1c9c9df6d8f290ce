// A run that has happened, as a scenario that repeats it.
#pragma once

#include <filesystem>

#include "simulator/cloud/CloudStore.h"
#include "simulator/reports/RunReport.h"

namespace sim {

// Makes the folder, with the file scenario.yaml, the TV as it was before the run with its fault rules, and the backup
// that the cloud handed out; of a backup, the one before it. What is expected is what the run was. Returns the file's
// path. Throws Error if there is something at `folder`, the run has not ended, or what it needs is not there any more.
std::filesystem::path recordScenario(const Tv& tv, const CloudStore& store, const RunReport& report,
                                     const std::filesystem::path& folder);

}  // namespace sim
