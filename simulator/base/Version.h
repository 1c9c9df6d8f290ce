// The version of the program.
#pragma once

namespace sim {

constexpr char VERSION[] = HALCYON_VERSION;

}  // namespace sim
