#include <cstdio>
#include <exception>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Print.h"

namespace {

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
        case sim::Error::Kind::Unreachable:
        case sim::Error::Kind::Denied:
            printError(error.what());
            return cli::NO_BACKUP;
        default:
            printError(error.what());
            return cli::UNUSABLE;
    }
}

// Commands that others have taken over.
struct Renamed {
    const char* group;
    const char* command;
    const char* now;
};
constexpr Renamed RENAMED[] = {{"bundle", "diff", "diff"},       {"bundle", "export", "export"},
                               {"cloud", "show", "bundle show"}, {"cloud", "verify", "bundle verify"},
                               {"cloud", "diff", "diff"},        {"cloud", "export", "export"}};

// What stood where a command, or an option of the chosen one, was expected.
std::string suggestion(const CLI::App& app, int argc, char** argv) {
    const CLI::App* group = &app;
    while (!group->get_subcommands().empty()) {
        group = group->get_subcommands().front();
    }
    std::vector<std::string> names;
    for (const CLI::App* command : group->get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    for (const CLI::App* each = group; each != nullptr; each = each->get_parent()) {
        for (const CLI::Option* option : each->get_options()) {
            names.push_back(option->get_name());
        }
    }
    for (int i = 1; i < argc; ++i) {
        for (const Renamed& each : RENAMED) {
            if (group->get_name() == each.group && std::string_view(argv[i]) == each.command) {
                return fmt::format("'{} {}' is gone; use: halcyon-tv {}\n", each.group, each.command, each.now);
            }
        }
        const bool isKnown = std::find(names.begin(), names.end(), argv[i]) != names.end();
        const std::string near = isKnown ? "" : sim::didYouMean(argv[i], names);
        if (!near.empty() && (argv[i][0] == '-' || group->get_name() != argv[i])) {
            return fmt::format("{}{}\n", sim::inQuotes(argv[i]), near);
        }
    }
    return "";
}

int usageError(const CLI::App& app, const std::string& message, int argc, char** argv) {
    printError(fmt::format("{}\n{}Run with --help for more information.", message, suggestion(app, argc, argv)));
    return cli::USAGE;
}

int dispatch(int argc, char** argv) {
    CLI::App app;
    cli::Place place;
    std::string home;
    cli::Action chosen;
    cli::describe(app, place, home, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : usageError(app, error.what(), argc, argv);
    }
    place.home = home.empty() ? sim::defaultHome() : sim::normalised(home);
    place.cloud = place.cloud.empty() ? sim::defaultCloud(place.home) : sim::normalisedCloud(place.cloud);
    try {
        return chosen(place);
    } catch (const cli::UsageError& error) {
        printError(error.what());
        return cli::USAGE;
    }
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
