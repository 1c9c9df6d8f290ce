// The command line of the application, which makes its launch request.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sim {

struct LaunchOptions {
    std::vector<std::string> extras;  // key=value each
    std::string caller = "command-line";
    std::string backup;  // that the cloud shall hand out; empty: the newest
    bool refuseDuplicates = false;
    bool replyRequested = false;
    bool realtime = false;
    bool pause = false;
};

// Puts its options on a command line; they are in `options` when that is parsed.
void describe(CLI::App& app, LaunchOptions& options);

}  // namespace sim
