// The commands of halcyon-tv. Each source of commands puts its own on the command line, with their options, and says
// what is to be done when one is chosen. A command prints what a report has found out, and throws sim::Error when it
// cannot do what it is asked for, UsageError when it is asked for what makes no sense.
#pragma once

#include <CLI/CLI.hpp>

#include <array>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// Exit codes.
constexpr int DONE = 0;
constexpr int FAILED = 1;        // the run did not succeed, for another reason than those below; the two sides differ
constexpr int USAGE = 2;         // wrong usage
constexpr int UNUSABLE = 3;      // a file, folder or value that cannot be used
constexpr int IN_PART = 4;       // the run was done in part
constexpr int INCOMPATIBLE = 5;  // the backup was refused as not compatible with the TV
constexpr int DAMAGED = 6;       // the bundle is damaged
constexpr int NO_BACKUP = 7;     // the cloud refused or could not be reached, or there is nothing to restore
constexpr int BUSY = 8;          // another run is under way on the TV, or somebody holds its database

// The exit codes, in words.
struct ExitCode {
    int code;
    const char* meaning;
};
extern const std::array<ExitCode, 9> EXIT_CODES;

// Where a command works, and how it says what it has found out.
struct Place {
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

using Action = std::function<int(const Place&)>;

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

// The whole command line. `place` is filled in when it is parsed.
void describe(CLI::App& app, Place& place, std::string& home, Action& chosen);

}  // namespace cli
