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
    std::vector<ListHeader> headers;
    std::vector<std::string> problems;  // a line each: file, line, reason; what they name was skipped
};

// The services of a list in the order of its lines. The same as a file, but as a text; nothing is thrown.
ChannelList parseChannelList(const std::string& text, const std::string& name);

// Reads a channel list. Throws Error when the file cannot be read or no line of it is a service.
ChannelList readChannelList(const std::filesystem::path& file);

}  // namespace sim
