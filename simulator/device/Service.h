// The TV's side of one run of the application, in a process of its own.
#pragma once

#include <string>

namespace sim {

// Descriptors that the process inherits. It owns them.
struct ServiceOptions {
    int socket = -1;  // to the application
    int output = -1;  // what the application prints, and the same of its errors; -1: it prints on its own
    int errors = -1;
};

// Serves the application on the TV at $HALCYON_TV_HOME until it ends, and records its run. Returns an exit code, the
// one that the application has been told if it was refused.
int serveApplication(const ServiceOptions& options);

}  // namespace sim
