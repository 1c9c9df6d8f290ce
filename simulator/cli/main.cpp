#include <SQLiteCpp/Exception.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <functional>

#include "simulator/base/Error.h"
#include "simulator/cli/Commands.h"
#include "simulator/tv/Tv.h"

namespace {

constexpr char FOOTER[] =
    "The TV is the folder --home, else $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv, else\n"
    "~/.local/state/halcyon-tv. The cloud is --cloud, else $HALCYON_CLOUD, else cloud/ beside the TV.\n"
    "Exit codes: 0 done; 1 the run did not succeed, or the TVs differ; 2 wrong usage; 3 a file, folder or value that\n"
    "cannot be used.";

constexpr char SETTABLE[] =
    R"(mode (ANTENNA/SERVICE), service (id), source, category (CODE/PARAM/SORT),
antenna (status codes separated by commas, 0 to 4 are known),
scan (on or off), favname1 to favname5,
setting:TYPE:KEY with a type int, bool (0 or 1), double or string)";

int dispatch(int argc, char** argv) {
    CLI::App app("A simulated TV for halcyon-lineup.");
    app.footer(FOOTER);
    app.require_subcommand(1);
    std::string home;
    std::string cloud;
    app.add_option("--home", home, "folder of the TV");
    app.add_option("--cloud", cloud, "folder of the cloud store");

    std::function<int(const cli::Place&)> command;

    std::string channels;
    std::string serial;
    CLI::App* init = app.add_subcommand("init", "Make a factory-fresh TV with a channel list");
    init->add_option("--channels", channels, "channel list in the channels.conf format")->required();
    init->add_option("--serial", serial, "serial number of the set (default: a random one)");
    init->callback([&] { command = [&](const cli::Place& place) { return cli::init(place, channels, serial); }; });

    bool withServices = false;
    CLI::App* status = app.add_subcommand("status", "Show the TV");
    status->add_flag("--services", withServices, "with its channel list");
    status->callback([&] { command = [&](const cli::Place& place) { return cli::status(place, withServices); }; });

    std::string name;
    std::string value;
    CLI::App* set = app.add_subcommand("set", "Set a part of the TV's state");
    set->add_option("name", name, SETTABLE)->required();
    set->add_option("value", value, "the new value")->required();
    set->callback([&] { command = [&](const cli::Place& place) { return cli::set(place, name, value); }; });

    cli::RunOptions options;
    bool noReply = false;
    CLI::App* run = app.add_subcommand("run", "Launch the application: a backup, or operation=restore");
    run->add_option("extra", options.extras, "extra values of the launch request, each key=value")
        ->check([](const std::string& extra) {
            const std::size_t equals = extra.find('=');
            return equals == std::string::npos || equals == 0
                       ? "'" + extra + "' is not of the form key=value, such as operation=restore"
                       : std::string();
        });
    run->add_option("--backup", options.backup, "the backup to restore (default: the newest)");
    run->add_flag("--no-reply", noReply, "do not request a reply");
    run->add_flag("--realtime", options.realtime, "wait for responses as long as on a TV");
    run->add_flag("--quiet,-q", options.quiet, "without the log");
    run->callback([&] {
        options.reply = !noReply;
        command = [&](const cli::Place& place) { return cli::run(place, options); };
    });

    std::int64_t id = 0;
    bool withCalls = false;
    bool withLog = false;
    bool all = false;
    CLI::App* record = app.add_subcommand("record", "Show the record of a run");
    CLI::Option* recordId = record->add_option("run", id, "number of the run (default: the newest)");
    record->add_flag("--calls", withCalls, "with each platform call and its result");
    record->add_flag("--log", withLog, "with each log record");
    record->add_flag("--all", all, "list all runs, a line each");
    record->callback([&] {
        command = [&](const cli::Place& place) {
            const std::optional<std::int64_t> chosen =
                recordId->count() != 0 ? std::optional<std::int64_t>(id) : std::nullopt;
            return all ? cli::listRecords(place) : cli::record(place, chosen, withCalls, withLog);
        };
    });

    std::string other;
    CLI::App* diff = app.add_subcommand("diff", "Compare the channel set-up with another TV's, service by service");
    diff->add_option("other", other, "folder of the other TV")->required();
    diff->callback([&] { command = [&](const cli::Place& place) { return cli::diff(place, other); }; });

    CLI::App* store = app.add_subcommand("cloud", "Look into the cloud store");
    store->require_subcommand(1);
    store->add_subcommand("list", "List the backups")->callback([&] { command = &cli::cloudList; });
    std::string backup;
    CLI::App* show = store->add_subcommand("show", "Show a backup with what its bundle holds");
    show->add_option("backup", backup, "id of the backup (default: the newest)");
    show->callback([&] { command = [&](const cli::Place& place) { return cli::cloudShow(place, backup); }; });

    CLI::App* fault = app.add_subcommand("fault", "Make platform calls fail");
    fault->require_subcommand(1);
    std::string call;
    std::string failure;
    int nth = 1;
    int times = 1;
    CLI::App* add = fault->add_subcommand("add", "Add a rule");
    add->add_option("call", call, "the call, as 'fault calls' lists it")->required();
    add->add_option("failure", failure, "its failure, such as result=6, null, throw, damage=truncate")->required();
    add->add_option("--nth", nth, "the first call of a run that fails")->capture_default_str();
    add->add_option("--times", times, "how often the rule fires, 0 for ever")->capture_default_str();
    add->callback(
        [&] { command = [&](const cli::Place& place) { return cli::faultAdd(place, call, failure, nth, times); }; });
    fault->add_subcommand("list", "List the rules and how often each fired")->callback([&] {
        command = &cli::faultList;
    });
    std::int64_t rule = 0;
    CLI::App* clear = fault->add_subcommand("clear", "Remove a rule, or all of them");
    CLI::Option* clearRule = clear->add_option("rule", rule, "number of the rule (default: all)");
    clear->callback([&] {
        command = [&](const cli::Place& place) {
            return cli::faultClear(place, clearRule->count() != 0 ? std::optional<std::int64_t>(rule) : std::nullopt);
        };
    });
    fault->add_subcommand("calls", "List the calls that can fail, and how")->callback([&] {
        command = [](const cli::Place&) { return cli::faultCalls(); };
    });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? cli::DONE : cli::USAGE;
    }
    cli::Place place;
    place.home = home.empty() ? sim::Tv::defaultHome() : sim::Tv::normalised(home);
    place.cloud = cloud.empty() ? sim::Tv::defaultCloud(place.home) : sim::Tv::normalised(cloud);
    return command(place);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const int code = dispatch(argc, argv);
        if (std::fflush(stdout) != 0) {
            throw sim::Error("cannot write to standard output; nothing else is wrong");
        }
        return code;
    } catch (const SQLite::Exception& error) {
        std::fprintf(
            stderr,
            "halcyon-tv: a database of the TV is missing, damaged, locked or not writable: %s; make another TV "
            "with: halcyon-tv --home FOLDER init --channels FILE\n",
            error.what());
        return cli::UNUSABLE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "halcyon-tv: %s\n", error.what());
        return cli::UNUSABLE;
    }
}
