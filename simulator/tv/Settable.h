// What of a TV's state can be set by name.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "simulator/tv/Tv.h"

namespace sim {

// Sets what takes one value by one word, and channels and favourite lists by several. Throws Error if there is no such
// name, or the value does not fit.
void setByName(Tv& tv, const std::string& name, const std::vector<std::string>& words);

// The same with a text; the words for channels and favourite lists are separated by blanks.
void setByName(Tv& tv, const std::string& name, const std::string& text);

// A clock at a time as fromUtc() takes it, counted from `now` on if it has a sign; "machine" is this machine's, and
// " still" behind a time makes it stand. Its zone is the machine's. Throws Error for any other text.
TvClock readClock(const std::string& text, std::chrono::milliseconds now);

// Throws Error if the text cannot be a value of $TZ.
void requireZone(const std::string& zone);

// The names with their values' forms, for a help text.
std::string settableHelp();

}  // namespace sim
