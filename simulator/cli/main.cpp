#include <cstdio>
#include <exception>

#include "simulator/base/Error.h"
#include "simulator/base/Places.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"

namespace {

constexpr char FOOTER[] =
    "The TV is the folder --home, else $HALCYON_TV_HOME, else $XDG_STATE_HOME/halcyon-tv, else\n"
    "~/.local/state/halcyon-tv. The cloud is --cloud, else $HALCYON_CLOUD, else cloud/ beside the TV.\n"
    "Exit codes: 0 done; 1 the run did not succeed, or the TVs differ; 2 wrong usage; 3 a file, folder or value that\n"
    "cannot be used; 8 the TV is busy.";

// A message of several lines keeps them.
void printError(std::string_view message) {
    const char* prefix = "halcyon-tv: ";
    for (const std::string& line : sim::split(message, '\n')) {
        cli::print(stderr, "{}{}\n", prefix, line);
        prefix = "";
    }
}

int codeFor(const sim::Error& error) {
    switch (error.kind()) {
        case sim::Error::Kind::Full:
            printError(fmt::format("{}; make room on the disk that it is on", error.what()));
            return cli::UNUSABLE;
        case sim::Error::Kind::Locked:
            printError(error.what());
            return cli::BUSY;
        default:
            printError(error.what());
            return cli::UNUSABLE;
    }
}

int dispatch(int argc, char** argv) {
    CLI::App app("A simulated TV for halcyon-lineup.");
    app.footer(FOOTER);
    app.require_subcommand(1);
    std::string home;
    std::string cloud;
    app.add_option("--home", home, "folder of the TV");
    app.add_option("--cloud", cloud, "folder of the cloud store");
    cli::Action chosen;
    for (const auto addCommands :
         {&cli::addTvCommands, &cli::addRunCommands, &cli::addFaultCommands, &cli::addCloudCommands}) {
        addCommands(app, chosen);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        printError(std::string(error.what()) + "\nRun with --help for more information.");
        return cli::USAGE;
    }
    cli::Place place;
    place.home = home.empty() ? sim::defaultHome() : sim::normalised(home);
    place.cloud = cloud.empty() ? sim::defaultCloud(place.home) : sim::normalised(cloud);
    return chosen(place);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const int code = dispatch(argc, argv);
        if (std::fflush(stdout) != 0) {
            throw sim::Error("cannot write to standard output; nothing else is wrong");
        }
        return code;
    } catch (const sim::Error& error) {
        return codeFor(error);
    } catch (const std::exception& error) {
        printError(error.what());
        return cli::UNUSABLE;
    }
}
