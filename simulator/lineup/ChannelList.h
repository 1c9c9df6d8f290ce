// Channel lists in the channels.conf format of VDR.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
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
    std::size_t services = 0;
    std::size_t groups = 0;
    std::size_t latin1Lines = 0;        // that are not UTF-8, and were read as ISO 8859-1
    std::vector<std::string> problems;  // a line each: file, line, reason; what they name was skipped
};

// Reads a channel list. Throws Error if the file cannot be read, or no line of it is a service; with what it seems to
// be instead.
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

// Reads a channel list line by line into a sink.
class ChannelListReader {
public:
    // `file` is for the problems.
    ChannelListReader(std::string file, ChannelSink& sink) : m_file(std::move(file)), m_sink(sink) {}

    void take(const std::string& line);
    ChannelSummary finish();

private:
    void takeGroup(std::string text);
    void takeService(Service service);

    std::string m_file;
    ChannelSink& m_sink;
    int m_line = 0;
    int m_number = 0;
    std::string m_group;
    std::vector<int> m_lines;  // of the services
    ChannelSummary m_summary;
};

}  // namespace sim
