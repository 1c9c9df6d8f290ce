// The commands of halcyon-tv. Each source adds its commands and their options to the command line, with an action for
// each. An action prints its results and returns an exit code. It throws sim::Error if it fails, UsageError if what it
// is asked for makes no sense, and DamagedBundle.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/base/ExitCodes.h"
#include "simulator/cli/Print.h"
#include "simulator/cloud/CloudStore.h"
#include "simulator/tv/Tv.h"

namespace cli {

using namespace sim::exit_code;

// The options that every command takes.
struct Session {
    std::filesystem::path home;
    std::string cloud;
    bool isJson = false;
    bool isQuiet = false;
    bool isVerbose = false;

    sim::Tv look() const { return sim::Tv(home, sim::Database::Access::Look); }

    // The cloud store. Says once what is set to lead to it and has no effect.
    std::unique_ptr<sim::CloudStore> openStore() const;
};

// The exit code of a command that launches the application, or foretells it.
int exitCodeOf(sim::Outcome outcome, sim::Cause cause);

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Prints what a command found out: as JSON if that was asked for, else with `printText`. Returns DONE.
template <typename Value, typename PrintText>
int answer(const Session& session, const Value& json, PrintText printText) {
    if (session.isJson) {
        printJson(json);
    } else {
        printText();
    }
    return DONE;
}

// A bundle, or the part of it that is asked for, is damaged: exit code DAMAGED, whatever the command.
class DamagedBundle : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Action = std::function<int(const Session&)>;

// Adds a command to `parent`. If it is chosen, its action is put into `chosen`.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& help, const std::string& example,
                     Action& chosen, Action action);

// Adds a command that has commands of its own.
CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& help);

// Whether the extra values of a launch request ask for a restore. Throws UsageError if they make no sense, as after a
// typing error. The application itself takes each operation that it does not know for a backup.
bool checkExtras(const std::vector<std::string>& extras);

void addTvCommands(CLI::App& app, Action& chosen);
void addApplyCommand(CLI::App& app, Action& chosen);
void addRunCommands(CLI::App& app, Action& chosen);
void addFaultCommands(CLI::App& app, Action& chosen);
void addBundleCommands(CLI::App& app, Action& chosen);
void addFleetCommand(CLI::App& app, Action& chosen);
void addPlayCommand(CLI::App& app, Action& chosen);
void addCloudCommands(CLI::App& app, Action& chosen);
void addCloudCareCommands(CLI::App& store, Action& chosen);  // of the group of those
void addCompareCommands(CLI::App& app, Action& chosen);
void addSweepCommand(CLI::App& app, Action& chosen);
void addServeCommand(CLI::App& app, Action& chosen);

// Whether a command line starts the TV's services for one run; and runs them.
bool isService(int argc, char** argv);
int service(int argc, char** argv);

// Whether a command line asks what can be typed next; and prints that: a line "files" or "folders" if paths may stand
// there, else an empty one; and on a line each the words, a tab, and what they mean. `words` are those of a command
// line from the program's name on, without quotes; the last is the one that is being typed, as far as it goes.
bool isCompletion(int argc, char** argv);
int complete(const std::vector<std::string>& words);

// Adds everything to the command line. Parsing fills in `session` as far as options were given, `home` as it was
// written, and `chosen`.
void describe(CLI::App& app, Session& session, std::string& home, Action& chosen);

}  // namespace cli
