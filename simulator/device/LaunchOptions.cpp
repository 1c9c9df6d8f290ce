#include "simulator/device/LaunchLine.h"

#include <CLI/CLI.hpp>

#include "simulator/base/Version.h"

namespace sim {

void describe(CLI::App& app, LaunchLine& line) {
    app.name("halcyon-lineup");
    app.description(
        "Backs a TV's channel set-up up to the cloud, or restores it (operation=restore), on the simulated TV\n"
        "at $HALCYON_TV_HOME.");
    app.footer(
        "Exit codes: 0 the main loop has ended; 2 wrong usage; 3 there is no TV; 8 the TV is busy. An exception that\n"
        "leaves the application ends it by SIGABRT.\n"
        "Example: halcyon-lineup operation=restore scan_activated=0 --reply");
    app.set_version_flag("--version", std::string("halcyon-lineup ") + VERSION);
    app.add_option("extra", line.extras, "extra values of the launch request, each key=value");
    app.add_flag("--reply", line.replyRequested, "request a reply");
    app.add_option("--caller", line.caller, "id of the caller")->capture_default_str();
    app.add_option("--backup", line.backup, "the backup that the cloud shall hand out (default: the newest)");
    app.add_flag("--refuse-duplicates", line.refuseDuplicates,
                 "let the cloud refuse a backup whose bundle is the very same as its newest one's");
    app.add_flag("--realtime", line.realtime, "wait for responses as long as on a TV");
    app.add_flag("--pause", line.pause, "pause and resume the application once after the launch");
}

}  // namespace sim
