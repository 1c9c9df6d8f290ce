// What the shells' completions ask: the words that can stand at a place of a command line. It is not for people, and so
// not among the commands.
#include <CLI/CLI.hpp>

#include <map>
#include <set>

#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/cli/Command.h"
#include "simulator/cli/Side.h"
#include "simulator/cloud/OpenCloud.h"
#include "simulator/device/LaunchOptions.h"
#include "simulator/lineup/Application.h"
#include "simulator/tv/PlatformCalls.h"
#include "simulator/tv/Snapshot.h"

namespace cli {

namespace {

struct Candidate {
    std::string word;
    std::string description;
};
using Candidates = std::vector<Candidate>;

// Where the word that is being typed stands.
struct Place {
    const CLI::App* command = nullptr;
    const CLI::Option* option = nullptr;  // whose value it is; null if it begins an option or names a command
    std::vector<std::string> before;      // the values of the command that stand before it
    std::string current;                  // what has been typed of it
    std::string home;
    std::string cloud;
};

std::vector<const CLI::Option*> optionsOf(const CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// The option of a command, or of one that it belongs to; null if there is none.
const CLI::Option* findOption(const CLI::App* command, const std::string& name) {
    const CLI::Option* option = nullptr;
    for (; command != nullptr && option == nullptr; command = command->get_parent()) {
        option = command->get_option_no_throw(name);
    }
    return option;
}

const CLI::App* findCommand(const CLI::App& parent, const std::string& name) {
    const auto found = parent.get_subcommands([&name](const CLI::App* each) { return each->check_name(name); });
    return found.empty() ? nullptr : found.front();
}

// The last value of a command may stand more than once.
const CLI::Option* positionalAt(const CLI::App& command, std::size_t index) {
    const auto positionals = command.get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (index < positionals.size()) {
        return positionals[index];
    }
    const bool isRepeated = !positionals.empty() && positionals.back()->get_expected_max() > 1;
    return isRepeated ? positionals.back() : nullptr;
}

std::string expanded(const std::string& path) {
    return path.compare(0, 2, "~/") == 0 ? sim::environment("HOME") + path.substr(1) : path;
}

// Takes the value of the option that stands before it.
void takeValue(Place& place, const std::string& value) {
    if (place.option->check_lname("home")) {
        place.home = expanded(value);
    } else if (place.option->check_lname("cloud")) {
        place.cloud = expanded(value);
    }
    place.option = nullptr;
}

Place find(const CLI::App& app, const std::vector<std::string>& words) {
    Place place{&app, nullptr, {}, words.back(), "", ""};
    for (std::size_t i = 1; i + 1 < words.size(); ++i) {
        const std::string& word = words[i];
        if (place.option != nullptr) {
            takeValue(place, word);
        } else if (word.compare(0, 1, "-") == 0) {
            const CLI::Option* option = findOption(place.command, word);
            place.option = option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
        } else if (const CLI::App* command = findCommand(*place.command, word); command != nullptr) {
            place.command = command;
        } else {
            place.before.push_back(word);
        }
    }
    if (place.option == nullptr && place.current.compare(0, 1, "-") != 0) {
        place.option = positionalAt(*place.command, place.before.size());
    }
    return place;
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

Candidates commandsAndOptions(const CLI::App& command) {
    Candidates candidates;
    for (const CLI::App* each : command.get_subcommands([](const CLI::App*) { return true; })) {
        candidates.push_back({each->get_name(), firstLine(each->get_description())});
    }
    for (const CLI::App* each = &command; each != nullptr; each = each->get_parent()) {
        for (const CLI::Option* option : optionsOf(*each)) {
            for (const std::string& name : option->get_lnames()) {
                candidates.push_back({"--" + name, firstLine(option->get_description())});
            }
        }
    }
    return candidates;
}

// A call may be given without what stands before its "::".
Candidates calls(const Place& place, const Session&) {
    const std::string& typed = place.current;
    Candidates candidates;
    for (const sim::PlatformCall& call : sim::callsThatCanFail()) {
        const std::string name(call.name);
        const std::size_t cut = name.rfind("::");
        const bool isShort =
            !typed.empty() && cut != std::string::npos && name.compare(cut + 2, typed.size(), typed) == 0;
        candidates.push_back({isShort ? name.substr(cut + 2) : name, std::string(call.failures)});
    }
    return candidates;
}

Candidates failures(const Place& place, const Session&) {
    const sim::PlatformCall* call = place.before.empty() ? nullptr : sim::findPlatformCall(place.before.front());
    Candidates candidates{{"works", "the call works"}};
    for (const std::string& failure : call != nullptr ? call->failureList() : std::vector<std::string>()) {
        candidates.push_back({failure, ""});
    }
    return candidates;
}

// Nobody waits for another machine's store while typing.
Candidates backups(const Place&, const Session& session) {
    const std::unique_ptr<sim::CloudStore> store = sim::openCloud(session.cloud);
    Candidates candidates;
    if (!store->isRemote()) {
        const std::string account = accountOf(session);
        for (const sim::BackupName& backup : store->content().backups) {
            if (account.empty() || backup.account == account) {
                candidates.push_back({backup.id, backup.path()});
            }
        }
    }
    return candidates;
}

Candidates runs(const Place&, const Session& session) {
    Candidates candidates;
    for (const sim::Run& run : session.look().runs().list()) {
        candidates.push_back({std::to_string(run.id), run.started});
    }
    return candidates;
}

Candidates rules(const Place&, const Session& session) {
    Candidates candidates;
    for (const sim::FaultRule& rule : session.look().faults().list()) {
        candidates.push_back({std::to_string(rule.id), rule.call});
    }
    return candidates;
}

// The help of `set` has a line for each: its name, and the form of its value in parentheses.
Candidates settings(const Place& place, const Session&) {
    Candidates candidates;
    for (const std::string& line : sim::split(place.option->get_description(), '\n')) {
        const std::size_t begin = line.find(" (");
        candidates.push_back({line.substr(0, begin), line.substr(std::min(begin, line.size()))});
    }
    return candidates;
}

Candidates snapshots(const Place&, const Session& session) {
    Candidates candidates;
    for (const std::string& name : sim::snapshotsOf(session.home)) {
        candidates.push_back({name, ""});
    }
    return candidates;
}

// The values of an option that takes no others stand between braces in its type.
Candidates members(const std::string& type) {
    Candidates candidates;
    const std::size_t begin = type.find('{');
    const std::size_t end = type.rfind('}');
    if (begin != std::string::npos && end != std::string::npos) {
        for (const std::string& member : sim::split(type.substr(begin + 1, end - begin - 1), ',')) {
            candidates.push_back({member, ""});
        }
    }
    return candidates;
}

Candidates extras(const Place&, const Session&) {
    const std::string operation = std::string(sim::application::OPERATION) + "=";
    return {{operation + "backup", ""},
            {operation + "restore", ""},
            {std::string(sim::application::SCAN_ACTIVATED) + "=", "1 while the TV scans, else 0"}};
}

// What a value can be, by the name that help texts give it.
struct Value {
    const char* paths;  // which paths may stand there: "files", "folders", or none
    Candidates (*candidates)(const Place&, const Session&);
};
const std::map<std::string, Value> VALUES = {
    {"BACKUP", {"", &backups}},     {"BUNDLE", {"files", &backups}}, {"CALL", {"", &calls}},
    {"FAILURE", {"", &failures}},   {"FILE", {"files", nullptr}},    {"FOLDER", {"folders", nullptr}},
    {"KEY=VALUE", {"", &extras}},   {"RULE", {"", &rules}},          {"RUN", {"", &runs}},
    {"SETTING", {"", &settings}},   {"SIDE", {"files", &backups}},   {"SNAPSHOT", {"", &snapshots}},
    {"STORE", {"folders", nullptr}}};

Candidates valuesAt(const Place& place, const Value& value) {
    Session session;
    try {
        session.home = place.home.empty() ? sim::defaultHome() : sim::normalised(place.home);
        session.cloud = sim::cloudOf(session.home, place.cloud);
        return value.candidates(place, session);
    } catch (const sim::Error&) {  // there is no TV, or no store
        return {};
    }
}

}  // namespace

bool isCompletion(int argc, char** argv) {
    return argc > 3 && std::string_view(argv[1]) == "complete";
}

int complete(const std::vector<std::string>& words) {
    CLI::App app;
    Session session;
    std::string home;
    Action chosen;
    sim::LaunchOptions options;
    if (sim::normalised(words.front()).filename() == sim::application::NAME) {
        sim::describe(app, options);
    } else {
        describe(app, session, home, chosen);
    }
    const Place place = find(app, words);
    Candidates candidates;
    const char* paths = "";
    if (place.option == nullptr) {
        candidates = commandsAndOptions(*place.command);
    } else {
        const std::string type = place.option->get_type_name();
        const auto value = VALUES.find(type.substr(0, type.find(':')));
        paths = value == VALUES.end() ? "" : value->second.paths;
        const bool isListed = value != VALUES.end() && value->second.candidates != nullptr;
        candidates = isListed ? valuesAt(place, value->second) : members(type);
    }
    print("{}\n", paths);
    std::set<std::string> seen;
    for (const Candidate& each : candidates) {
        if (each.word.compare(0, place.current.size(), place.current) == 0 && seen.insert(each.word).second) {
            print("{}", each.word);
            std::fputs("\t", stdout);
            print("{}\n", each.description);
        }
    }
    return DONE;
}

}  // namespace cli
