// Channel lists in the channels.conf format of VDR.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "simulator/lineup/Service.h"

namespace sim {

// Takes what a channel list holds, in its order, however much that is.
class ChannelSink {
public:
    virtual ~ChannelSink() = default;

    virtual void addGroup(const std::string& name) = 0;
    virtual void addHeader(const ListHeader& header) = 0;

    // Which of the services that were added, counted from 1, has the same identity: this one is not added. 0: it is.
    virtual std::size_t addService(const Service& service) = 0;
};

// Brings a channel list into a sink.
using ChannelSource = std::function<void(ChannelSink&)>;

// What reading a list has come to.
struct ChannelSummary {
    std::size_t services = 0;
    std::size_t groups = 0;
    std::vector<std::string> problems;  // a line each: file, line, reason; what they name was skipped
};

// Reads a channel list. Throws Error when the file cannot be read or no line of it is a service.
ChannelSummary readChannelList(const std::filesystem::path& file, ChannelSink& sink);

// A channel list in memory.
class ChannelList final : public ChannelSink {
public:
    std::vector<std::string> groups;
    std::vector<Service> services;
    std::vector<ListHeader> headers;
    std::vector<std::string> problems;  // of reading it

    void addGroup(const std::string& name) override { groups.push_back(name); }
    void addHeader(const ListHeader& header) override { headers.push_back(header); }
    std::size_t addService(const Service& service) override;

private:
    std::unordered_map<std::string, std::size_t> m_places;  // by identity, from 1
};

// The services of a list in the order of its lines; nothing is thrown.
ChannelList parseChannelList(const std::string& text, const std::string& name);

}  // namespace sim
