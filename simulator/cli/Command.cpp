#include "simulator/cli/Command.h"

#include <fmt/format.h>

#include <utility>

#include "simulator/base/Version.h"

namespace cli {

namespace {

constexpr char FOOTER[] =
    "The TV is the folder --home, else $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv, else\n"
    "~/.local/state/halcyon-tv. The cloud is --cloud, else $HALCYON_CLOUD, else cloud/ beside the TV.\n"
    "Exit codes: 0 done; 1 the run did not succeed for another reason, or the sides differ; 2 wrong usage;\n"
    "3 a file, folder or value that cannot be used; 4 done in part; 5 the backup is not compatible with the TV;\n"
    "6 the bundle is damaged; 7 the cloud refused or could not be reached, or there is nothing to restore;\n"
    "8 the TV is busy.\n"
    "Example: halcyon-tv init --channels list.conf && halcyon-tv run && halcyon-tv record";

}  // namespace

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& help, const std::string& example,
                     Action& chosen, Action action) {
    CLI::App* command = parent.add_subcommand(name, help);
    command->callback([&chosen, action = std::move(action)] { chosen = action; });
    command->footer("Example: " + example);
    return command;
}

CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& help) {
    CLI::App* group = parent.add_subcommand(name, help);
    group->require_subcommand(1);
    return group;
}

void describe(CLI::App& app, Place& place, std::string& home, Action& chosen) {
    app.description("A simulated TV for halcyon-lineup.");
    app.name("halcyon-tv");
    app.footer(FOOTER);
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("halcyon-tv ") + sim::VERSION);
    app.add_option("--home", home, "folder of the TV");
    app.add_option("--cloud", place.cloud, "folder of the cloud store");
    app.add_flag("--json", place.isJson, "print one JSON object instead of text");
    app.add_flag("-q,--quiet", place.isQuiet, "without the application's log, and without what is not asked for");
    app.add_flag("-v,--verbose", place.isVerbose, "with more of what was found out");
    for (const auto addCommands : {&addTvCommands, &addRunCommands, &addFaultCommands, &addCloudCommands,
                                   &addBundleCommands, &addCompareCommands}) {
        addCommands(app, chosen);
    }
}

}  // namespace cli
