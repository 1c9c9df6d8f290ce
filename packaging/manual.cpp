// Writes the manual pages and the shell's completions from the command lines themselves.
//   halcyon-manual man|bash halcyon-tv|halcyon-lineup
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

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

// One without a group is for programs, and help does not show it either.
std::vector<const CLI::Option*> shownOptions(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

void writeOptions(const CLI::App& app) {
    for (const CLI::Option* option : shownOptions(app)) {
        const std::string names = option->get_name(option->get_positional(), true);
        fmt::print(".TP\n.B {}\n{}\n", roff(names), roff(option->get_description()));
    }
}

// The lines of a footer, each as it stands.
void writeFooter(const CLI::App& app) {
    fmt::print(".PP\n.nf\n{}\n.fi\n", roff(app.get_footer()));
}

// A command of `path`, or those of a group.
void writeCommand(const CLI::App& app, const std::string& path) {
    const std::string name = path.empty() ? app.get_name() : path + " " + app.get_name();
    const std::vector<const CLI::App*> commands = commandsOf(app);
    if (commands.empty()) {
        fmt::print(".SS {}\n{}\n", roff(name), roff(app.get_description()));
        writeOptions(app);
        writeFooter(app);
    }
    for (const CLI::App* command : commands) {
        writeCommand(*command, name);
    }
}

void writeManual(const CLI::App& app, const std::string& summary, const std::string& other) {
    std::string title = app.get_name();
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    fmt::print(".TH {} 1 \"\" \"halcyon\\-lineup {}\" \"User Commands\"\n", roff(title), roff(HALCYON_VERSION));
    fmt::print(".SH NAME\n{} \\- {}\n", roff(app.get_name()), roff(summary));
    fmt::print(".SH SYNOPSIS\n.B {}\n{}\n", roff(app.get_name()),
               commandsOf(app).empty() ? "[OPTION...] [KEY=VALUE...]" : "[OPTION...] COMMAND [OPTION...]");
    fmt::print(".SH DESCRIPTION\n{}\n.SH OPTIONS\n", roff(app.get_description()));
    writeOptions(app);
    if (!commandsOf(app).empty()) {
        fmt::print(".SH COMMANDS\n");
    }
    for (const CLI::App* command : commandsOf(app)) {
        writeCommand(*command, "");
    }
    fmt::print(".SH NOTES\n");
    writeFooter(app);
    fmt::print(".SH SEE ALSO\n.BR {} (1)\n", roff(other));
}

struct Completion {
    std::string path;  // "verb" or "group verb"
    std::vector<std::string> words;
};

// What may follow on the command line, for each command.
void collect(const CLI::App& app, const std::string& path, std::vector<Completion>& completions) {
    Completion completion{path, {}};
    for (const CLI::App* command : commandsOf(app)) {
        completion.words.push_back(command->get_name());
    }
    for (const CLI::App* each = &app; each != nullptr; each = each->get_parent()) {
        for (const CLI::Option* option : shownOptions(*each)) {
            for (const std::string& name : option->get_lnames()) {
                completion.words.push_back("--" + name);
            }
        }
    }
    completions.push_back(completion);
    for (const CLI::App* command : commandsOf(app)) {
        collect(*command, path.empty() ? command->get_name() : path + " " + command->get_name(), completions);
    }
}

// `fault add` completes the names of calls, for which the script asks the program; if nothing fits, files are offered.
void writeCompletion(const CLI::App& app) {
    std::string function = "_" + app.get_name();
    std::replace(function.begin(), function.end(), '-', '_');
    std::vector<Completion> completions;
    collect(app, "", completions);
    std::vector<std::string> paths;
    paths.reserve(completions.size());
    for (const Completion& completion : completions) {
        paths.push_back("'" + completion.path + "'");
    }
    fmt::print(R"(# bash completion for {0}
{1}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} path= word words=
    COMPREPLY=()
    for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
        case ${{path:+$path }}$word in
            {2}) path=${{path:+$path }}$word ;;
        esac
    done
    case $path in
)",
               app.get_name(), function, fmt::join(paths, " | "));
    for (const Completion& completion : completions) {
        fmt::print("        '{}') words='{}' ;;\n", completion.path, fmt::join(completion.words, " "));
    }
    fmt::print(R"(    esac
    if [ "$path" = 'fault add' ] && [[ $current != -* ]]; then
        words=$({0} fault calls 2>/dev/null | cut -d ' ' -f 1)
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    [ ${{#COMPREPLY[@]}} -gt 0 ] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
}}
complete -o filenames -F {1} {0}
)",
               app.get_name(), function);
}

int write(const std::vector<std::string_view>& words) {
    CLI::App app;
    cli::Session session;
    std::string home;
    cli::Action chosen;
    sim::LaunchOptions options;
    const bool isTool = words.size() == 2 && words[1] == "halcyon-tv";
    if (words.size() != 2 || (!isTool && words[1] != "halcyon-lineup") || (words[0] != "man" && words[0] != "bash")) {
        fmt::print(stderr, "usage: halcyon-manual man|bash halcyon-tv|halcyon-lineup\n");
        return 2;
    }
    if (isTool) {
        cli::describe(app, session, home, chosen);
    } else {
        sim::describe(app, options);
    }
    if (words[0] == "bash") {
        writeCompletion(app);
    } else if (isTool) {
        writeManual(app, "make simulated TVs, back them up and restore them, and look inside", "halcyon-lineup");
    } else {
        writeManual(app, "back a TV's channel set-up up to the cloud, or restore it", "halcyon-tv");
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
