// The commands of halcyon-tv. Each source of commands puts its own on the command line, with their options, and says
// what is to be done when one is chosen. A command prints what a report has found out, and throws sim::Error when it
// cannot do what it is asked for, UsageError when it is asked for what makes no sense.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/base/ExitCodes.h"

namespace cli {

using namespace sim::exit_code;

// What the options that every command takes have said.
struct Session {
    std::filesystem::path home;
    std::string cloud;
    bool isJson = false;
    bool isQuiet = false;
    bool isVerbose = false;
};

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Action = std::function<int(const Session&)>;

// Puts a command below `parent`, with an example of its use for its help. When it is chosen, `action` becomes the one
// to do.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& help, const std::string& example,
                     Action& chosen, Action action);

// Puts a command there that has commands of its own.
CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& help);

void addTvCommands(CLI::App& app, Action& chosen);
void addRunCommands(CLI::App& app, Action& chosen);
void addFaultCommands(CLI::App& app, Action& chosen);
void addBundleCommands(CLI::App& app, Action& chosen);
void addFleetCommand(CLI::App& app, Action& chosen);
void addCloudCommands(CLI::App& app, Action& chosen);
void addCompareCommands(CLI::App& app, Action& chosen);
void addServeCommand(CLI::App& app, Action& chosen);

// The whole command line. `session` is filled in when it is parsed.
void describe(CLI::App& app, Session& session, std::string& home, Action& chosen);

}  // namespace cli
