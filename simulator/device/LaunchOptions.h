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
    bool realtime = false;          // see EventLoop::setWait()
    bool pause = false;             // pause and resume once after the launch
};

// Each takes the words of a command line, the first of which is the program's name.

// Prints help or the version, if that is asked for. Returns whether it was.
bool answersHelp(const std::vector<std::string>& words);

// Sets the options. Returns what is wrong with the words; nothing if they are right.
std::string parse(const std::vector<std::string>& words, LaunchOptions& options);

// Adds the options to a command line. `options`, which parsing fills in, must outlive it.
void describe(CLI::App& app, LaunchOptions& options);

}  // namespace sim
