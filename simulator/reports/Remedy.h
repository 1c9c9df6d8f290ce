// What can be done about a run that was not done, as data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/reports/RunReport.h"

namespace sim {

// Before the run is tried again.
struct Remedy {
    enum class Kind {
        Disarm,  // remove the fault rules
        Set,     // set `name` of the TV to `value`
        BackUp,  // make a backup
    };
    Kind kind = Kind::Disarm;
    std::vector<std::int64_t> rules;
    std::string name;
    std::string value;
};
template <>
inline constexpr std::array<Name<Remedy::Kind>, 3> NAMES<Remedy::Kind>{{
    {Remedy::Kind::Disarm, "disarm"},
    {Remedy::Kind::Set, "set"},
    {Remedy::Kind::BackUp, "back up"},
}};

// By the TV and the store as they are now; empty if nothing is known to help. Throws Error if these cannot be read.
std::vector<Remedy> remediesOf(const Tv& tv, const CloudStore& store, const RunReport& report);

}  // namespace sim
