// What of a TV's state can be set by name.
#pragma once

#include <string>

#include "simulator/tv/Tv.h"

namespace cli {

// Throws sim::Error where there is no such name, or the value does not fit.
void set(sim::Tv& tv, const std::string& name, const std::string& value);

// The names with their values' forms, for a help text.
std::string settableHelp();

}  // namespace cli
