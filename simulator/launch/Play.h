// Plays scenarios.
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "simulator/launch/Scenario.h"

namespace sim {

enum class PlayState {
    Passed,
    Failed,  // a run was not what is expected
    Broken,  // a step could not be done; those behind it were not tried
};
template <>
inline constexpr std::array<Name<PlayState>, 3> NAMES<PlayState>{{
    {PlayState::Passed, "passed"},
    {PlayState::Failed, "failed"},
    {PlayState::Broken, "broken"},
}};

// What was expected and what came, or why a step could not be done.
struct Finding {
    Place place;
    std::string text;
};

struct Played {
    PlayState state = PlayState::Passed;
    std::vector<Finding> findings;  // in the order of the steps
    double seconds = 0;
};

struct PlayOptions {
    std::string program;              // path of the application; empty: halcyon-lineup beside this program
    std::filesystem::path keep = {};  // folder that each scenario's stays in, by its number; empty: none stays
    std::size_t jobs = 1;             // scenarios at a time
};

// Plays each scenario in a folder of its own, where its cloud is, too. `report` is called for one after the other in
// their order, as soon as it and those before it have been played. Throws Error if a folder to keep cannot be made.
void playAll(const std::vector<Scenario>& scenarios, const PlayOptions& options,
             const std::function<void(std::size_t index, const Played& played)>& report);

// The folder that a scenario's TVs and cloud stay in.
std::filesystem::path keptFolder(const PlayOptions& options, const std::vector<Scenario>& scenarios, std::size_t index);

}  // namespace sim
