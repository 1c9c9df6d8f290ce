// Channel lists in the channels.conf format of VDR.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/tv/Service.h"

namespace sim {

struct ChannelList {
    std::vector<std::string> groups;
    std::vector<Service> services;
    std::vector<std::string> problems;  // a line each: file, line, reason; what they name was skipped
};

// Reads a channel list. Throws Error when the file cannot be read or no line of it is a service.
ChannelList readChannelList(const std::filesystem::path& file);

}  // namespace sim
