// What of a TV's state can be set by name.
#pragma once

#include <ctime>
#include <string>

#include "simulator/tv/Tv.h"

namespace sim {

// Throws Error if there is no such name, or the value does not fit.
void setByName(Tv& tv, const std::string& name, const std::string& value);

// A time of the form 2026-01-31T18:00:00Z. Throws Error for any other.
std::time_t parseTime(const std::string& text);

// The names with their values' forms, for a help text.
std::string settableHelp();

}  // namespace sim
