// What became of a run of the application.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tv/Tv.h"

namespace sim {

enum class Outcome {
    Open,  // it has not ended
    Succeeded,
    Failed,
};
template <>
inline constexpr std::array<Name<Outcome>, 3> NAMES<Outcome>{{
    {Outcome::Open, "open"},
    {Outcome::Succeeded, "succeeded"},
    {Outcome::Failed, "failed"},
}};

struct RunReport {
    Run run;
    Outcome outcome = Outcome::Open;
    std::string response;  // in words, like the others
    std::string reply;
    std::string end;
};

RunReport reportOn(const Run& run);

}  // namespace sim
