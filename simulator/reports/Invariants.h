// What holds after every run of the application, whatever failed in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "simulator/reports/RunReport.h"

namespace sim {

// The promises, by name.
struct Invariant {
    const char* name;
    const char* meaning;
};
const std::vector<Invariant>& invariants();

struct Violation {
    std::string invariant;  // its name
    std::string what;       // in words
};

// What a run began with, and what it comes to if nothing fails.
struct Baseline {
    Setup before;
    Setup after;
    std::string ipServices;            // of this set
    std::size_t backups = 0;           // in the store, before
    std::set<std::uint64_t> services;  // how many a backup's channels may be
    bool isRestore = false;            // what the launch request asks for
    bool isScanActivated = false;      // the same
};

// The promises that the newest run has broken. Throws Error if the TV or the store cannot be looked at.
std::vector<Violation> violationsOf(const Tv& tv, const CloudStore& store, const RunReport& report,
                                    const Baseline& baseline);

}  // namespace sim
