// Many TVs, each with an account of its own, and a run of the application on each of them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "simulator/launch/Launch.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/tv/Verdict.h"

namespace sim {

struct FleetRequest {
    std::filesystem::path folder;  // of the TVs: tv-00001 and so on
    std::size_t tvs = 0;
    std::size_t jobs = 1;                 // runs at a time
    std::vector<std::string> extras;      // of each launch request
    std::function<ServiceDb()> channels;  // for TVs that are missing; asked for at most once
};

struct FleetRun {
    std::string tv;
    Outcome outcome = Outcome::Open;
    std::string why;     // where it is not done
    double seconds = 0;  // from the launch to the end of the application
};

// Told after each run, one at a time.
using FleetProgress = std::function<void(std::size_t done, std::size_t all)>;

// Runs the application once on each TV that has no run of this round yet, and gives all runs of the round, by TV. A
// round that was interrupted, by stopFleet() say, is gone on with by the same request; its notes are in the folder
// until it is done. Throws Error where the folder, the list or the store cannot be used.
std::vector<FleetRun> runFleet(const FleetRequest& request, const std::string& cloud, const FleetProgress& progress);

// Lets no further run begin. Safe in a signal handler.
void stopFleet();

}  // namespace sim
