#include <csignal>
#include <cstdio>
#include <exception>
#include <map>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"

namespace {

// A message of several lines keeps them.
void printError(std::string_view message) {
    const char* prefix = "halcyon-tv: ";
    for (const std::string& line : sim::split(message, '\n')) {
        cli::print(stderr, "{}{}\n", prefix, line);
        prefix = "";
    }
}

int exitCodeFor(sim::Error::Kind kind) {
    switch (kind) {
        case sim::Error::Kind::Locked:
            return cli::BUSY;
        case sim::Error::Kind::Unreachable:
        case sim::Error::Kind::Denied:
            return cli::NO_BACKUP;
        default:
            return cli::UNUSABLE;
    }
}

// Commands of earlier versions, and what does their work now.
const std::map<std::string, const char*> RENAMED = {{"bundle diff", "diff"},
                                                    {"bundle export", "export"},
                                                    {"cloud show", "bundle show"},
                                                    {"cloud diff", "diff"},
                                                    {"cloud export", "export"}};

// The names of a command's subcommands, and of the options that it takes.
std::vector<std::string> namesAfter(const CLI::App* command) {
    std::vector<std::string> names;
    for (const CLI::App* each : command->get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(each->get_name());
    }
    for (; command != nullptr; command = command->get_parent()) {
        for (const CLI::Option* option : command->get_options()) {
            names.push_back(option->get_name());
        }
    }
    return names;
}

// A hint for the first unknown word after the command that was recognised; empty if there is none.
std::string suggestion(const CLI::App& app, int argc, char** argv) {
    const CLI::App* group = &app;
    while (!group->get_subcommands().empty()) {
        group = group->get_subcommands().front();
    }
    const std::vector<std::string> names = namesAfter(group);
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (const auto renamed = RENAMED.find(group->get_name() + " " + word); renamed != RENAMED.end()) {
            return fmt::format("'{}' is gone; use: halcyon-tv {}\n", renamed->first, renamed->second);
        }
        if (group == &app && (word == "backup" || word == "restore")) {
            return fmt::format("for a {}: halcyon-tv run operation={}\n", word, word);
        }
        if (word == group->get_name() || std::find(names.begin(), names.end(), word) != names.end()) {
            continue;
        }
        if (const std::string near = sim::didYouMean(word, names); !near.empty()) {
            return fmt::format("{}{}\n", sim::inQuotes(word), near);
        }
    }
    return "";
}

int dispatch(int argc, char** argv) {
    CLI::App app;
    cli::Session session;
    std::string home;
    cli::Action chosen;
    cli::describe(app, session, home, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {  // it asked for help, or the version
            return app.exit(error);
        }
        throw cli::UsageError(
            fmt::format("{}\n{}Run with --help for more information.", error.what(), suggestion(app, argc, argv)));
    }
    session.home = home.empty() ? sim::defaultHome() : sim::normalised(home);
    session.cloud = sim::cloudOf(session.home, session.cloud);
    return chosen(session);
}

}  // namespace

int main(int argc, char** argv) {
    sim::reserveStandardStreams();
    std::signal(SIGXFSZ, SIG_IGN);  // a limit on file sizes is an error like a full disk
    try {
        const int code = cli::isService(argc, argv)      ? cli::service(argc, argv)
                         : cli::isCompletion(argc, argv) ? cli::complete({argv + 2, argv + argc})
                                                         : dispatch(argc, argv);
        // That the disk is full, or the pipe closed, shows only when the last of the output is written.
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            throw sim::Error("cannot write to standard output; nothing else is wrong");
        }
        return code;
    } catch (const cli::UsageError& error) {
        printError(error.what());
        return cli::USAGE;
    } catch (const cli::DamagedBundle& error) {
        printError(error.what());
        return cli::DAMAGED;
    } catch (const sim::Error& error) {
        const bool isFull = error.kind() == sim::Error::Kind::Full;
        printError(fmt::format("{}{}", error.what(), isFull ? "; make room on the disk that it is on" : ""));
        return exitCodeFor(error.kind());
    } catch (const std::exception& error) {
        printError(error.what());
        return cli::UNUSABLE;
    }
}
