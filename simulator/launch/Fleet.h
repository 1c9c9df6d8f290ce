// Runs the application on many TVs, each with an account of its own.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/launch/Launch.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/tv/Verdict.h"

namespace sim {

struct FleetRequest {
    std::filesystem::path folder;  // of the TVs, which are called tv-00001 and so on
    std::size_t tvs = 0;
    std::size_t jobs = 1;                 // runs at a time
    std::vector<std::string> extras;      // of each launch request
    std::string list;                     // where the channels come from, in words
    std::function<ServiceDb()> channels;  // for TVs that are missing; called at most once
    bool onlyFailed = false;              // run those again that are not done, and no others
};

struct FleetRun {
    Outcome outcome = Outcome::Open;
    std::string why;     // empty if it is done
    double seconds = 0;  // from the launch to the end of the application
};
using FleetRuns = std::map<std::string, FleetRun>;  // by the TVs' names

// Called after each run, by one thread at a time.
using FleetProgress = std::function<void(std::size_t done, std::size_t all)>;

// Runs the application once on each TV, makes those that are missing, and returns the runs of the round. Notes in the
// folder say what the round was and how far it came. One that stopFleet() or a kill has interrupted goes on with the
// TVs that have not run, however many are asked for now; of a TV whose run was cut off, its own record tells whether it
// had run. Notes that cannot be read are skipped, and `warn` is told. Throws Error if the folder, the channels or the
// store cannot be used, and if a round is to go on with another request, cloud or list.
FleetRuns runFleet(const FleetRequest& request, const std::string& cloud, const FleetProgress& progress,
                   const std::function<void(const std::string&)>& warn);

// Keeps further runs from beginning. Safe in a signal handler.
void stopFleet();

}  // namespace sim
