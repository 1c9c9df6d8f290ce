// What a channel list is read into.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/lineup/Service.h"

namespace sim {

// Takes what a channel list holds, one by one and in its order, so that a list of any size can be read.
class ChannelSink {
public:
    virtual ~ChannelSink() = default;

    virtual void addGroup(const std::string& name) = 0;
    virtual void addHeader(const ListHeader& header) = 0;

    // Adds a service and returns 0. If one of the same identity was added before, returns its place, counted from 1.
    virtual std::size_t addService(const Service& service) = 0;
};

// Brings a channel list into a sink.
using ChannelSource = std::function<void(ChannelSink&)>;

// The result of reading a list.
struct ChannelSummary {
    std::string_view format;
    std::size_t services = 0;
    std::size_t groups = 0;
    std::size_t latin1Lines = 0;  // that are not UTF-8, and were read as ISO 8859-1
    std::string_view unit;        // of what was skipped, such as "line"
    std::size_t skipped = 0;
    std::vector<std::string> problems;  // a line for each of the first that were skipped: file, line, reason
    std::vector<std::string> notes;     // the same for what was taken, but not as it stands there
};

}  // namespace sim
