// A page for the browser on this machine, over the values that the commands print.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "simulator/web/Lab.h"

namespace sim {

struct ServeOptions {
    int port = 8765;             // 0: any that is free
    std::filesystem::path page;  // folder to take the page's files from; empty: those in the program
};

// Serves the lab on the loopback until `stop` is called by a signal. `ready` is told the address, with the token in its
// fragment. Throws Error where the port cannot be had.
void serve(const Lab& lab, const ServeOptions& options, const std::function<void(const std::string&)>& ready);

}  // namespace sim
