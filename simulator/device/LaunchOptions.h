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
    std::string backup;             // id of the backup to restore; empty: the newest
    bool refuseDuplicates = false;  // see NewBackup
    bool realtime = false;          // see EventLoop::setRealtime()
    bool pause = false;             // pause and resume once after the launch
};

// Adds the options to a command line. `options`, which parsing fills in, must outlive it.
void describe(CLI::App& app, LaunchOptions& options);

}  // namespace sim
