#include "simulator/device/LaunchOptions.h"

#include <CLI/CLI.hpp>

#include "simulator/lineup/Application.h"

namespace sim {

namespace {

void parseWords(CLI::App& app, const std::vector<std::string>& words) {
    // CLI11 takes them from the back.
    app.parse(std::vector<std::string>(words.rbegin(), words.empty() ? words.rend() : words.rend() - 1));
}

}  // namespace

bool answersHelp(const std::vector<std::string>& words) {
    CLI::App app;
    LaunchOptions options;
    describe(app, options);
    try {
        parseWords(app, words);
    } catch (const CLI::Success& help) {
        app.exit(help);
        return true;
    } catch (const CLI::ParseError&) {  // the main loop reports it
    }
    return false;
}

std::string parse(const std::vector<std::string>& words, LaunchOptions& options) {
    CLI::App app;
    describe(app, options);
    try {
        parseWords(app, words);
        return "";
    } catch (const CLI::ParseError& error) {
        return error.what();
    }
}

void describe(CLI::App& app, LaunchOptions& options) {
    app.name("halcyon-lineup");
    app.description(
        "Backs up a TV's channel setup to the cloud, or restores it (operation=restore), on the simulated TV\n"
        "at $HALCYON_TV_HOME.");
    app.footer(
        "Exit codes: 0 the main loop has ended; 2 wrong usage; 3 there is no TV; 8 the TV is busy. An exception that\n"
        "leaves the application ends it by SIGABRT.\n"
        "Example: halcyon-lineup operation=restore scan_activated=0 --reply");
    app.set_version_flag("--version", "halcyon-lineup " HALCYON_VERSION);
    app.add_option("extra", options.extras, "extra values of the launch request, each key=value")
        ->type_name("KEY=VALUE")
        ->check(&application::checkExtra);
    app.add_flag("--reply", options.replyRequested, "request a reply");
    app.add_option("--caller", options.caller, "id of the caller")->type_name("NAME")->capture_default_str();
    app.add_option("--backup", options.backup, "id of the backup to restore (default: the newest)")
        ->type_name("BACKUP");
    app.add_flag("--refuse-duplicates", options.refuseDuplicates,
                 "make the cloud refuse a bundle that is identical to that of its newest backup");
    app.add_flag("--realtime", options.realtime, "take as long as a TV would");
    app.add_flag("--pause", options.pause, "pause and resume the application once after the launch");
}

}  // namespace sim
