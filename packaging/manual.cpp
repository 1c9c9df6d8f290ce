// Writes the manual pages from the command lines themselves.
//   halcyon-manual halcyon-tv|halcyon-lineup
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/base/Environment.h"
#include "simulator/base/ExitCodes.h"
#include "simulator/cli/Command.h"
#include "simulator/device/LaunchOptions.h"

namespace {

// A text that roff shows literally.
std::string roff(const std::string& text) {
    std::string escaped;
    bool isLineBegin = true;
    for (const char c : text) {
        if (isLineBegin && (c == '.' || c == '\'')) {
            escaped += "\\&";
        }
        isLineBegin = c == '\n';
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

// One without a group is for programs, and help does not show it either. Every command has --help.
std::vector<const CLI::Option*> shownOptions(const CLI::App& app) {
    const CLI::Option* common = app.get_parent() == nullptr ? nullptr : app.get_help_ptr();
    return app.get_options(
        [common](const CLI::Option* option) { return !option->get_group().empty() && option != common; });
}

struct Entry {
    std::string name;
    std::string meaning;
};

void writeEntries(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
        fmt::print(".TP\n.B {}\n{}\n", roff(entry.name), roff(entry.meaning));
    }
}

// The name of an option's value, and, after a colon, what the command line checks of it.
std::pair<std::string, std::string> valueOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const std::size_t end = std::min(type.find(':'), type.size());
    return {type.substr(0, end), type.substr(std::min(end + 1, type.size()))};
}

std::string meaningOf(const CLI::Option& option) {
    std::string meaning = option.get_description();
    const std::string checks = valueOf(option).second;
    if (checks.find('{') == 0) {
        const std::vector<std::string> members = sim::split(checks.substr(1, checks.size() - 2), ',');
        meaning += fmt::format("; one of {}", fmt::join(members, ", "));
    }
    if (!option.get_default_str().empty()) {
        meaning += fmt::format(" (default: {})", option.get_default_str());
    }
    return meaning;
}

void writeOptions(const CLI::App& app) {
    for (const CLI::Option* option : shownOptions(app)) {
        const std::string value = option->get_items_expected_max() > 0 ? valueOf(*option).first : "";
        std::vector<std::string> names;
        for (const std::string& name : option->get_snames()) {
            names.push_back("-" + name);
        }
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
        const std::string shown = fmt::format("{}", fmt::join(names, ", "));
        fmt::print(".TP\n{}{}{}\n{}\n", names.empty() ? "" : "\\fB" + roff(shown) + "\\fR",
                   names.empty() || value.empty() ? "" : " ", value.empty() ? "" : "\\fI" + roff(value) + "\\fR",
                   roff(meaningOf(*option)));
    }
}

// What follows the name of a command: options that must be there, and values, in brackets if they need not.
std::string usageOf(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::Option* option : shownOptions(app)) {
        const std::string value = valueOf(*option).first + (option->get_expected_max() > 1 ? "..." : "");
        if (option->get_positional()) {
            words.push_back(option->get_required() ? value : "[" + value + "]");
        } else if (option->get_required()) {
            words.push_back(option->get_name() + " " + value);
        } else if (words.empty() || words.front() != "[OPTION...]") {
            words.insert(words.begin(), "[OPTION...]");
        }
    }
    return fmt::format("{}", fmt::join(words, " "));
}

// The example stands at the end of a help text.
std::string exampleOf(const CLI::App& app) {
    const std::string footer = app.get_footer();
    const std::size_t begin = footer.find("Example: ");
    return begin == std::string::npos ? "" : footer.substr(begin);
}

// A command of `path`, or those of a group.
void writeCommand(const CLI::App& app, const std::string& path) {
    const std::string name = path + " " + app.get_name();
    const std::vector<const CLI::App*> commands = commandsOf(app);
    if (commands.empty()) {
        fmt::print(".SS {0}\n\\fB{0}\\fR {1}\n.PP\n{2}.\n", roff(name), roff(usageOf(app)),
                   roff(app.get_description()));
        writeOptions(app);
        fmt::print(".PP\n{}\n", roff(exampleOf(app)));
    }
    for (const CLI::App* command : commands) {
        writeCommand(*command, name);
    }
}

const std::vector<Entry> TOOL_ENVIRONMENT = {
    {sim::HOME_VARIABLE, "folder of the TV, if --home is not given"},
    {"XDG_STATE_HOME", "holds halcyon-tv/tv, the folder of the TV, if neither is; otherwise ~/.local/state does"},
    {sim::CLOUD_VARIABLE, "the cloud store, if --cloud is not given; otherwise the folder cloud beside the TV"},
    {"AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL", "addresses of an object store's gateways, with commas between them"},
    {"AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_SESSION_TOKEN", "its key"},
    {"AWS_REGION, AWS_DEFAULT_REGION", "its region"},
    {"AWS_PROFILE, AWS_SHARED_CREDENTIALS_FILE, AWS_CONFIG_FILE",
     "a profile, and the files with profiles, that say what of these is not set"},
    {"AWS_CA_BUNDLE", "file with the certificate of the authority that signed the store's"},
    {sim::STALL_VARIABLE, "seconds that a try of a request may take without getting on"},
    {sim::LIMIT_VARIABLE, "seconds that all tries of a request, or a whole listing, may take"},
    {sim::PAUSE_VARIABLE, "seconds of the pause before the second try, at most"},
    {"TMPDIR", "folder for temporary files (default: /tmp)"}};
const std::vector<Entry> APPLICATION_ENVIRONMENT = {
    {sim::HOME_VARIABLE, "folder of the TV, as for halcyon-tv"},
    {sim::CLOUD_VARIABLE, "the cloud store, as for halcyon-tv"},
    {sim::WAIT_VARIABLE, "seconds to wait for another run on the TV to end (default: 0)"},
    {sim::KEEP_VARIABLE, "how many runs' records are kept, this one included (default: 200)"},
    {sim::SANDBOX_VARIABLE, "off: the application is not confined"}};

// Below the folder of a TV, except those that begin with '/'.
const std::vector<Entry> FILES = {
    {"tv.db", "state, settings and fault rules of the TV, in SQLite"},
    {"runs/000042.jsonl", "the record of run 42, a JSON object on each line"},
    {"runs/000042.before/", "the TV as it was before that run, of the newest ten that halcyon-tv has launched"},
    {"service-db/, iss.db, ci/", "the channel database, the iss database and the CI module's files"},
    {"apps/, tmp/", "the folders of the application"},
    {"snapshots/", "earlier states of the TV, by name"},
    {"/usr/share/halcyon-tv/", "channel lists to begin with: channels.conf and factory.conf"},
    {"/usr/share/doc/halcyon-tv-doc/html/index.html", "the documentation, if halcyon-tv-doc is installed"}};

struct Program {
    std::string summary;
    std::string other;
    std::vector<Entry> environment;
    std::set<int> exitCodes;  // empty: all
    std::string ends;         // how else it ends
};

const Program TOOL = {
    "make simulated TVs, back them up and restore them, and look inside", "halcyon-lineup", TOOL_ENVIRONMENT, {}, ""};
const Program APPLICATION = {
    "back a TV's channel set-up up to the cloud, or restore it",
    "halcyon-tv",
    APPLICATION_ENVIRONMENT,
    {sim::exit_code::DONE, sim::exit_code::USAGE, sim::exit_code::UNUSABLE, sim::exit_code::BUSY},
    "0 says that the main loop has ended, whatever it did. An exception that leaves the application ends it by "
    "SIGABRT."};

void writeManual(const CLI::App& app, const Program& program) {
    std::string title = app.get_name();
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    fmt::print(".TH {} 1 \"\" \"halcyon\\-lineup {}\" \"User Commands\"\n", roff(title), roff(HALCYON_VERSION));
    fmt::print(".SH NAME\n{} \\- {}\n", roff(app.get_name()), roff(program.summary));
    fmt::print(".SH SYNOPSIS\n.B {}\n{}\n", roff(app.get_name()),
               roff(commandsOf(app).empty() ? usageOf(app) : "[OPTION...] COMMAND [OPTION...] [VALUE...]"));
    fmt::print(".SH DESCRIPTION\n{}\n.SH OPTIONS\n", roff(app.get_description()));
    writeOptions(app);
    if (!commandsOf(app).empty()) {
        fmt::print(".SH COMMANDS\nThe options above may stand behind a command, too.\n");
    }
    for (const CLI::App* command : commandsOf(app)) {
        writeCommand(*command, app.get_name());
    }
    fmt::print(".SH EXIT STATUS\n");
    for (const sim::exit_code::ExitCode& each : sim::exit_code::ALL) {
        if (program.exitCodes.empty() || program.exitCodes.count(each.code) > 0) {
            writeEntries({{std::to_string(each.code), each.meaning}});
        }
    }
    if (!program.ends.empty()) {
        fmt::print(".PP\n{}\n", roff(program.ends));
    }
    fmt::print(".SH ENVIRONMENT\n");
    writeEntries(program.environment);
    fmt::print(".SH FILES\nIn the folder of the TV, if they do not begin with '/':\n");
    writeEntries(FILES);
    fmt::print(".SH EXAMPLES\n{}\n", roff(exampleOf(app)));
    fmt::print(".SH SEE ALSO\n.BR {} (1)\n", roff(program.other));
}

int write(const std::vector<std::string_view>& words) {
    CLI::App app;
    if (words.size() == 1 && words[0] == "halcyon-tv") {
        cli::Session session;
        std::string home;
        cli::Action chosen;
        cli::describe(app, session, home, chosen);
        writeManual(app, TOOL);
    } else if (words.size() == 1 && words[0] == "halcyon-lineup") {
        sim::LaunchOptions options;
        sim::describe(app, options);
        writeManual(app, APPLICATION);
    } else {
        fmt::print(stderr, "usage: halcyon-manual halcyon-tv|halcyon-lineup\n");
        return 2;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return write({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "halcyon-manual: %s\n", error.what());
        return 1;
    }
}
