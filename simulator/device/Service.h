// The TV's side of one run of the application.
#pragma once

#include "simulator/base/Descriptor.h"
#include "simulator/device/ServiceOptions.h"

namespace sim {

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
