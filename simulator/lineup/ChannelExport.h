// Channel lists for other programs.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/lineup/ServiceDb.h"

namespace sim {

// The formats that lists are written in.
std::vector<std::string> exportFormats();

// Writes the list piece by piece. Returns lines for people: what the format has no place for, if a service has it, and
// the services that it cannot express. `format` is one of exportFormats().
std::vector<std::string> exportChannels(const Services& services, std::string_view format,
                                        const std::function<void(std::string_view)>& write);

}  // namespace sim
