// The TV's side of one run of the application.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "simulator/base/Descriptor.h"
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

// To the application. Without pipes, it prints on its own.
struct ServiceWires {
    Descriptor socket;
    Descriptor output;
    Descriptor errors;
};

// Serves the application until it ends, and records its run. Returns an exit code, the one that the application has
// been told if it was refused.
int serveApplication(const ServiceOptions& options, ServiceWires wires);

// The same as the environment says, in a process that does nothing else: it ignores signals, and is confined to the TV
// and the cloud.
int serveApplicationAlone(ServiceWires wires);

}  // namespace sim
