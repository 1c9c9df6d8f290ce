// Runs the application under all faults that a run can have, and looks whether the promises of reports/Invariants hold.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "simulator/launch/SweepWorld.h"

namespace sim {

struct SweepRequest {
    SweptOperation operation = SweptOperation::Restore;
    std::filesystem::path program;  // the application; empty: halcyon-lineup beside this program
    std::size_t jobs = 1;           // processes at a time
    std::chrono::milliseconds limit = std::chrono::seconds(20);  // of a run: then the application is killed
    bool withPairs = false;                                      // each two faults that can both fire in one run
    std::size_t sequences = 0;                                   // runs under three to five faults
    std::uint32_t seed = 1;                                      // of those
    std::filesystem::path scenarios;  // folder that gets a scenario of each run that breaks a promise; empty: none
};

struct SweepResult {
    SweptRun healthy;
    std::vector<SweptRun> runs;  // the single faults first, then the power cuts
    std::size_t singles = 0;     // of them, without the power cuts
    std::size_t cuts = 0;        // power cuts
    std::size_t impossible = 0;  // pairs of which the second call is never made once the first has failed
    double seconds = 0;

    std::size_t violated() const;  // runs that broke a promise
};

// Called after each run, in any order.
using SweepProgress = std::function<void(std::size_t done, std::size_t all)>;

// Of faults that break a promise together, those are left out that are not needed for it. Throws Error if the
// application cannot be run, a run without a fault breaks a promise, or there is a folder for scenarios already.
SweepResult sweep(const SweepRequest& request, const SweepProgress& progress);

}  // namespace sim
