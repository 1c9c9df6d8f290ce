#include "simulator/cli/Command.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "simulator/base/Environment.h"
#include "simulator/base/Text.h"
#include "simulator/cloud/OpenCloud.h"

namespace cli {

namespace {

constexpr char PLACES[] =
    "The TV is the folder --home, else $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv/tv, else\n"
    "~/.local/state/halcyon-tv/tv. The cloud is --cloud, else $HALCYON_CLOUD, else cloud/ beside the TV:\n"
    "a folder, or an object store's s3://BUCKET[/PREFIX], which AWS_ENDPOINT_URL, AWS_ACCESS_KEY_ID,\n"
    "AWS_SECRET_ACCESS_KEY, AWS_SESSION_TOKEN, AWS_REGION and AWS_CA_BUNDLE lead to, or AWS_PROFILE.\n";
constexpr char EXAMPLE[] = "Example: halcyon-tv init --channels list.conf && halcyon-tv run && halcyon-tv record";

// What help texts, manual pages and completions call the values of options: of "COMMAND OPTION", else of all of a name.
struct ValueName {
    const char* value;
    std::set<std::string> options;
};
const std::vector<ValueName> VALUE_NAMES = {
    {"ADDRESS", {"--vdr"}},
    {"BACKUP", {"--backup", "backup"}},
    {"BUNDLE", {"bundle"}},
    {"CALL", {"--call", "call"}},
    {"COMMAND", {"--vdr-start", "--vdr-stop", "--wrap"}},
    {"DURATION", {"--keep-within", "--limit"}},
    {"FAILURE", {"failure"}},
    {"FILE", {"--app", "--channels", "--junit", "--metadata", "file", "files", "list", "table"}},
    {"FOLDER",
     {"--as-scenario", "--for", "--home", "--lab", "--page", "--scenarios", "--vdr-cache", "--vdr-config",
      "play --keep"}},
    {"FORMAT", {"--format"}},
    {"KEY=VALUE", {"extra"}},
    {"NAME", {"--account", "--encoding", "--satellite", "--serial"}},
    {"NUMBER",
     {"--jobs", "--keep-last", "--last", "--nth", "--port", "--priority", "--run", "--seed", "--sequences", "--times",
      "--tvs", "run --keep"}},
    {"OPERATION", {"--operation"}},
    {"PART", {"--part"}},
    {"RULE", {"rule"}},
    {"RUN", {"run", "record other"}},
    {"SECONDS", {"--wait"}},
    {"SETTING", {"set name"}},
    {"SIDE", {"side", "diff other"}},
    {"SNAPSHOT", {"reset name", "snapshot name"}},
    {"STORE", {"--cloud", "to"}},
    {"TEXT", {"--grep"}},
    {"TIME", {"--now"}},
    {"VALUE", {"value", "word", "words"}},
    {"ZONE", {"--zone"}}};

void nameValues(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();
        const auto found = std::find_if(VALUE_NAMES.begin(), VALUE_NAMES.end(), [&](const ValueName& each) {
            return each.options.count(name) + each.options.count(app.get_name() + " " + name) > 0;
        });
        if (found != VALUE_NAMES.end()) {
            option->type_name(found->value);
        }
    }
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        nameValues(*command);
    }
}

std::string footer() {
    std::string text = std::string(PLACES) + "Exit codes:\n";
    for (const ExitCode& code : sim::exit_code::ALL) {
        text += fmt::format("  {:<2}  {}\n", code.code, code.meaning);
    }
    return text + EXAMPLE;
}

}  // namespace

std::unique_ptr<sim::CloudStore> Session::openStore() const {
    static bool isTold = false;
    std::unique_ptr<sim::CloudStore> store = sim::openCloud(cloud, {}, home / sim::DOWN_NOTES);
    if (!isQuiet && !isTold) {
        printLines(stderr, "set, but not used: ", store->unusedSettings());
    }
    isTold = true;
    return store;
}

int exitCodeOf(sim::Outcome outcome, sim::Cause cause) {
    switch (outcome) {
        case sim::Outcome::Done:
            return DONE;
        case sim::Outcome::DoneInPart:
            return IN_PART;
        case sim::Outcome::Refused:
            return INCOMPATIBLE;
        case sim::Outcome::Unchecked:
            return UNCHECKED;
        default:
            break;
    }
    switch (cause) {
        case sim::Cause::Damage:
            return DAMAGED;
        case sim::Cause::Cloud:
        case sim::Cause::NothingStored:
            return NO_BACKUP;
        default:
            return FAILED;
    }
}

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

void describe(CLI::App& app, Session& session, std::string& home, Action& chosen) {
    app.description("A simulated TV for halcyon-lineup.");
    app.name("halcyon-tv");
    app.footer(footer());
    app.require_subcommand(1);
    // Options of all commands may stand behind the command, too.
    app.fallthrough();
    app.set_version_flag("--version", "halcyon-tv " HALCYON_VERSION);
    app.add_option("--home", home, "folder of the TV");
    app.add_option("--cloud", session.cloud, "the cloud store: a folder, or s3://BUCKET[/PREFIX]");
    app.add_flag("--json", session.isJson, "print one JSON object instead of text");
    app.add_flag("-q,--quiet", session.isQuiet, "print less: no messages beside the result");
    app.add_flag("-v,--verbose", session.isVerbose,
                 "print more: the application's log, the timeline, what failures mean, foreign store entries");
    for (const auto addCommands :
         {&addTvCommands, &addApplyCommand, &addRunCommands, &addFaultCommands, &addCloudCommands, &addBundleCommands,
          &addCompareCommands, &addFleetCommand, &addSweepCommand, &addPlayCommand, &addServeCommand}) {
        addCommands(app, chosen);
    }
    nameValues(app);
}

}  // namespace cli
