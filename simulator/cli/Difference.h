// What commands on any two channel set-ups share.
#pragma once

#include <string>

#include "simulator/cli/Side.h"

namespace cli {

// Prints how two sides differ. DONE where they do not, else FAILED.
int printDifference(const Place& place, const Side& one, const Side& other);

// Writes a side's channel list to standard output; what the format cannot say is named on standard error.
int exportChannels(const Side& side, const std::string& format);

// The option --format.
void addFormat(CLI::App& command, std::string& format);

}  // namespace cli
