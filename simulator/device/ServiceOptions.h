// How a TV's services serve the application.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "simulator/base/Limits.h"

namespace sim {

// Which TV is served, and how.
struct ServiceOptions {
    std::filesystem::path home;
    std::string cloud;
    std::optional<int> lock;           // descriptor that holds the TV's run lock, if the caller has it
    std::chrono::seconds patience{0};  // for that lock if not
    int keep = limits::RUNS_KEPT;      // records of runs, with that of this one
    bool isConfined = true;            // the application, to its own folders
};

}  // namespace sim
