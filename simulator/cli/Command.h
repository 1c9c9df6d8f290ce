// The commands of halcyon-tv. Each source of commands puts its own on the command line, with their options, and says
// what is to be done when one is chosen. A command prints what a report has found out, and throws sim::Error when it
// cannot do what it is asked for.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <string>

namespace cli {

// Exit codes.
constexpr int DONE = 0;
constexpr int FAILED = 1;  // the run did not succeed; the TVs differ
constexpr int USAGE = 2;
constexpr int UNUSABLE = 3;  // a file, folder or value that cannot be used
constexpr int BUSY = 8;      // another run is under way on the TV, or somebody holds its database

// Where a command works.
struct Place {
    std::filesystem::path home;
    std::string cloud;
};

using Action = std::function<int(const Place&)>;

// Puts a command below `parent`. When it is chosen, `action` becomes the one to do.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& help, Action& chosen, Action action);

void addTvCommands(CLI::App& app, Action& chosen);
void addRunCommands(CLI::App& app, Action& chosen);
void addFaultCommands(CLI::App& app, Action& chosen);
void addCloudCommands(CLI::App& app, Action& chosen);

}  // namespace cli
