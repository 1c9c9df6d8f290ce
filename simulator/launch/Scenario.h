// A scenario: a case in a file. It makes TVs, changes them, runs the application on them, and says what is expected of
// each run. docs/scenarios.md describes the file.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "simulator/base/Names.h"
#include "simulator/tv/Faults.h"

namespace sim {

// Where something is in the file, counted from 1.
struct Place {
    int line = 0;
    int column = 0;
};

// A text of the file; empty if the file does not have it.
struct Word {
    std::string text;
    Place place;
};

// A part of a TV's state, as setByName() takes it.
struct ScenarioSetting {
    std::string name;
    Word value;
};

struct ScenarioTv {
    Word name;
    Word channels;       // path of the channel list that it is made with; or
    Word home;           // path of the TV that it is a copy of
    std::string serial;  // of a TV that is made
    std::vector<ScenarioSetting> settings;
};

// What a run can be expected to be.
enum class Aspect { Outcome, Cause, Reply, Response, Ended, Items, Calls, Log, Faults, Store, Broken, SameAs };
template <>
inline constexpr std::array<Name<Aspect>, 12> NAMES<Aspect>{{
    {Aspect::Outcome, "outcome"},
    {Aspect::Cause, "cause"},
    {Aspect::Reply, "reply"},        // its result code
    {Aspect::Response, "response"},  // the cloud's last
    {Aspect::Ended, "ended"},
    {Aspect::Items, "items"},     // the state of the item `of`
    {Aspect::Calls, "calls"},     // how often the call `of` was made, or SOME
    {Aspect::Log, "log"},         // SOME: a record has the text `of`
    {Aspect::Faults, "faults"},   // numbers of the rules that fired, ascending
    {Aspect::Store, "store"},     // number of backups in the store
    {Aspect::Broken, "broken"},   // names of the promises that it broke, in the order of invariants()
    {Aspect::SameAs, "same_as"},  // name of the TV that has the same set-up now
}};
constexpr char NONE[] = "none";  // of a reply, a response, faults or promises
constexpr char SOME[] = "at least one";

struct Expectation {
    Place place;
    Aspect aspect = Aspect::Outcome;
    std::string of;
    std::string value;
};

// Launches the application.
struct RunStep {
    Word tv;
    std::vector<std::string> extras;  // of the launch request, key=value each
    std::string caller = "halcyon-tv";
    Word backup;  // the one to restore; empty for the newest
    bool replyRequested = true;
    bool refuseDuplicates = false;
    std::vector<Expectation> expectations;
};

// Adds a fault rule.
struct FaultStep {
    Word tv;
    FaultRule rule;  // its `run` is counted from the TV's next one on
};

struct SetStep {
    Word tv;
    std::vector<ScenarioSetting> settings;
};

// Puts a bundle file into the store, as a backup of the TV's account.
struct BundleStep {
    Word tv;
    Word file;  // its path
};

using Step = std::variant<RunStep, FaultStep, SetStep, BundleStep>;

struct Scenario {
    std::filesystem::path file;
    std::string name;
    Word cloud;  // path of a folder store that its own begins as a copy of; else that is empty
    std::vector<ScenarioTv> tvs;
    std::vector<Step> steps;
};

// "FILE:LINE:COLUMN", as compilers write it.
std::string placeIn(const std::filesystem::path& file, const Place& place);

// Reads a scenario; paths in it are relative to its folder. Throws Error with all that is wrong with the file, a line
// each that begins with its place.
Scenario readScenario(const std::filesystem::path& file);

}  // namespace sim
