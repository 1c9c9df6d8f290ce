// The application's command line.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sim {

struct LaunchOptions {
    std::vector<std::string> extras;  // key=value each
    bool replyRequested = false;
    std::string caller = "command-line";
    std::string backup;             // id of the one that the cloud hands out; empty: the newest
    bool refuseDuplicates = false;  // the cloud takes no bundle that it has as its newest
    bool realtime = false;          // see EventLoop::setRealtime()
    bool pause = false;             // pause and resume once after the launch
};

// Adds the options to a command line. Parsing it fills in `options`, which must live as long.
void describe(CLI::App& app, LaunchOptions& options);

}  // namespace sim
